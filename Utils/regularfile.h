#pragma once

#include <optional>
#include <QByteArray>
#include <QString>

// The first `most` bytes of a file, or all when there are fewer. Nothing when it can't be read or is no regular file: a
// pipe or a device might never end.
std::optional<QByteArray> readRegularFile(const QString& path, int most);
