#include "Utils/filecontent.h"

#include <cerrno>
#include <fcntl.h>
#include <QFileInfo>
#include <unistd.h>

namespace {

// Gives the file room for `size` bytes, or leaves it as it was. It may be longer afterwards, but not shorter.
bool reserve(QFile& file, qint64 size)
{
    const qint64 sizeBefore = file.size();
    int error = 0;
    do // a range without bytes counts as a mistake
        error = size == 0 ? 0 : posix_fallocate(file.handle(), 0, size);
    while (error == EINTR);
    if (error != 0)
        file.resize(sizeBefore);
    return error == 0;
}

} // namespace

bool FileContent::open(QFile& file, QIODevice::OpenMode mode)
{
    const QFileInfo present(file.fileName());
    return (!present.exists() || present.isFile()) && file.open(mode);
}

bool FileContent::replaceContent(const QString& fileName, const QByteArray& content)
{
    const bool isNew = !QFileInfo::exists(fileName);
    QFile file(fileName);
    if (!open(file, QIODevice::ReadWrite | QIODevice::Unbuffered))
        return false;
    if (!reserve(file, content.size())) {
        if (isNew)
            file.remove();
        return false;
    }
    return file.write(content) == content.size() && file.resize(content.size()) && fsync(file.handle()) == 0;
}
