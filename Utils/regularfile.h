#pragma once

#include <optional>
#include <QByteArray>
#include <QString>

// Opens a file for reading: its descriptor, which is the caller's to close, or -1. Never waits for a pipe or a device.
int openRegularFile(const char* path);

// The first `most` bytes of a file, or all when there are fewer. Nothing when it can't be read or is no regular file: a
// pipe or a device might never end.
std::optional<QByteArray> readRegularFile(const QString& path, int most);
