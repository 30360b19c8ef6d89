#pragma once

#include <QByteArray>
#include <QFile>
#include <QString>

// Files by name, where anything can stand under the name: what is no regular file is not opened, since a pipe or a
// device might never end.
namespace FileContent {

// False also for what is no regular file. A missing file is made as `mode` says.
[[nodiscard]] bool open(QFile& file, QIODevice::OpenMode mode);

// Puts `content` in the place of all that the file holds, and makes a file that is missing. The file itself stays: its
// owner, mode and other names. The room is reserved first, so that on a full disk the result is false and the file
// keeps what it held; a file system that never writes in place (on flash, for example) can't promise that. No copy is
// made: when the power fails in the midst of writing, the file holds a part of both.
[[nodiscard]] bool replaceContent(const QString& fileName, const QByteArray& content);

} // namespace FileContent
