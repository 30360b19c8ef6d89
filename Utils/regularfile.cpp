#include "Utils/regularfile.h"

#include <algorithm>
#include <fcntl.h>
#include <QFile>
#include <sys/stat.h>

int openRegularFile(const char* path)
{
    struct stat status = {};
    if (stat(path, &status) != 0 || !S_ISREG(status.st_mode)) // some devices act on being opened
        return -1;
    // Without waiting: it may be a pipe by now.
    return open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
}

std::optional<QByteArray> readRegularFile(const QString& path, int most)
{
    QFile file;
    const int descriptor = openRegularFile(path.toLocal8Bit().constData());
    if (descriptor < 0 || !file.open(descriptor, QIODevice::ReadOnly, QFileDevice::AutoCloseHandle))
        return std::nullopt;
    // By the file's size, since room for all that is asked for would be made at once. In /proc, files have none.
    const qint64 size = file.size();
    const QByteArray content = file.read(size > 0 ? std::min<qint64>(size, most) : most);
    if (file.error() != QFileDevice::NoError)
        return std::nullopt;
    return content;
}
