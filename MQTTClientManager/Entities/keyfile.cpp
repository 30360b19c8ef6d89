#include "Entities/keyfile.h"

#include "Utils/regularfile.h"

#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// Many times the longest key in use. It also bounds the time that signing takes.
constexpr off_t LargestKeyFile = 64 * 1024; // bytes

} // namespace

KeyFile::KeyFile(const char* path)
{
    const int descriptor = path ? openRegularFile(path) : -1;
    if (descriptor < 0)
        return;
    read(descriptor);
    close(descriptor);
}

KeyFile::~KeyFile()
{
    explicit_bzero(m_content.data(), static_cast<std::size_t>(m_content.size()));
}

void KeyFile::read(int descriptor)
{
    struct stat file = {};
    if (fstat(descriptor, &file) != 0 || file.st_size > LargestKeyFile)
        return;
    // In one piece, so that growing leaves no copy behind. One byte more, so that an error shows also where nothing is.
    m_content = QByteArray(static_cast<int>(file.st_size) + 1, '\0');
    int size = 0;
    ssize_t part = 0;
    while ((part = ::read(descriptor, m_content.data() + size, static_cast<std::size_t>(m_content.size() - size))) > 0)
        size += static_cast<int>(part);
    m_isRead = part == 0;
    m_content.truncate(size);
}

bool KeyFile::wantsPassphrase() const
{
    return m_content.contains("-----BEGIN ENCRYPTED") || m_content.contains("Proc-Type:");
}
