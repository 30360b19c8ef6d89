#include "memoryfile.h"

#include "require.h"

#include <sys/mman.h>
#include <unistd.h>

MemoryFile::MemoryFile() : m_descriptor(memfd_create("fuzzed", MFD_CLOEXEC))
{
    Fuzzing::require(m_descriptor != -1, "a file in memory can be made");
}

MemoryFile::~MemoryFile()
{
    close(m_descriptor);
}

void MemoryFile::setContent(const QByteArray& content)
{
    const bool isEmptied = ftruncate(m_descriptor, 0) == 0;
    const auto size = static_cast<std::size_t>(content.size());
    Fuzzing::require(isEmptied && pwrite(m_descriptor, content.constData(), size, 0) == content.size(),
                     "a file in memory can be written");
}

QString MemoryFile::path() const
{
    return QString("/proc/self/fd/%1").arg(m_descriptor);
}
