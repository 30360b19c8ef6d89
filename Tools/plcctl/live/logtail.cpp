#include "logtail.h"

#include "Utils/regularfile.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <iterator>
#include <sys/stat.h>
#include <unistd.h>

namespace plcctl::live {

namespace {

constexpr off_t ShownAtFirst = 128 * 1024; // bytes
constexpr off_t MostAtOnce = 1024 * 1024;

off_t sizeOf(int descriptor)
{
    struct stat status
    {
    };
    return fstat(descriptor, &status) == 0 ? status.st_size : 0;
}

} // namespace

LogTail::~LogTail()
{
    close();
}

std::vector<LogRow> LogTail::look()
{
    std::vector<LogRow> rows;
    if (m_descriptor == -1)
        open();
    if (m_descriptor == -1)
        return rows;
    // Asked ahead of the reading: what is written into a file before it is moved aside is then read as well.
    const bool movedAside = isMovedAside();
    readOn(rows);
    if (!movedAside)
        return rows;
    close();
    open();
    if (m_descriptor != -1)
        readOn(rows);
    return rows;
}

void LogTail::open()
{
    errno = 0;
    m_descriptor = openRegularFile(m_path.c_str());
    if (m_descriptor == -1) {
        m_problem = errno == 0 ? "this is no regular file" : std::strerror(errno);
        // Whatever comes from now on is new.
        m_first = m_first && errno != ENOENT;
        return;
    }
    m_problem.clear();
    m_at = 0;
    m_rows.begin();
    const off_t size = sizeOf(m_descriptor);
    if (m_first && size > ShownAtFirst) {
        m_at = size - ShownAtFirst;
        m_rows.beginInTheMiddle();
    }
    m_first = false;
}

void LogTail::close()
{
    if (m_descriptor != -1)
        ::close(m_descriptor);
    m_descriptor = -1;
}

bool LogTail::isMovedAside() const
{
    struct stat opened
    {
    };
    struct stat named
    {
    };
    return fstat(m_descriptor, &opened) != 0 || stat(m_path.c_str(), &named) != 0 || opened.st_ino != named.st_ino ||
           opened.st_dev != named.st_dev;
}

void LogTail::skipTooMuch()
{
    const off_t size = sizeOf(m_descriptor);
    if (size < m_at) { // emptied
        m_at = 0;
        m_rows.begin();
    }
    if (size - m_at <= MostAtOnce)
        return;
    m_skipped += static_cast<std::uint64_t>(size - ShownAtFirst - m_at);
    m_at = size - ShownAtFirst;
    m_rows.beginInTheMiddle();
}

void LogTail::readOn(std::vector<LogRow>& rows)
{
    skipTooMuch();
    std::array<char, 65536> bytes{};
    for (off_t most = MostAtOnce; most > 0;) {
        const ssize_t count = pread(m_descriptor, bytes.data(), bytes.size(), m_at);
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            m_problem = std::strerror(errno);
        if (count <= 0)
            return;
        m_at += count;
        most -= count;
        std::vector<LogRow> more = m_rows.take({bytes.data(), static_cast<std::size_t>(count)});
        rows.insert(rows.end(), std::make_move_iterator(more.begin()), std::make_move_iterator(more.end()));
    }
}

} // namespace plcctl::live
