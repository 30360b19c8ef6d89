#include "Utils/regularfile.h"

#include <fcntl.h>
#include <QFile>
#include <sys/stat.h>

std::optional<QByteArray> readRegularFile(const QString& path, int most)
{
    const QByteArray name = path.toLocal8Bit();
    struct stat status = {};
    if (stat(name.constData(), &status) != 0 || !S_ISREG(status.st_mode)) // some devices act on being opened
        return std::nullopt;
    QFile file;
    // Without waiting: it may be a pipe by now.
    const int descriptor = open(name.constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (descriptor < 0 || !file.open(descriptor, QIODevice::ReadOnly, QFileDevice::AutoCloseHandle))
        return std::nullopt;
    const QByteArray content = file.read(most);
    if (file.error() != QFileDevice::NoError)
        return std::nullopt;
    return content;
}
