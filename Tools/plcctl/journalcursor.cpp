#include "journalcursor.h"

namespace plcctl {

namespace {

// A writer takes nanoseconds. One that takes longer was killed in the middle, and its entry is never finished.
constexpr auto WriterTimeout = std::chrono::milliseconds(500);

} // namespace

std::uint64_t writesEver(const TagMemoryImage::Image& image)
{
    return image.header.writes.load(std::memory_order_acquire);
}

std::uint64_t oldestWrite(const TagMemoryImage::Image& image)
{
    const std::uint64_t writes = writesEver(image);
    return writes > TagMemoryImage::JournalCapacity ? writes - TagMemoryImage::JournalCapacity : 0;
}

JournalCursor::Step JournalCursor::lose(std::uint64_t count)
{
    m_next += count;
    m_waitingSince.reset();
    return {std::nullopt, count};
}

std::optional<JournalCursor::Step> JournalCursor::step()
{
    const std::uint64_t oldest = oldestWrite(m_image);
    if (m_next < oldest)
        return lose(oldest - m_next);
    if (m_next >= writesEver(m_image))
        return std::nullopt;

    if (const auto write = TagMemoryImage::readWrite(m_image, m_next)) {
        ++m_next;
        m_waitingSince.reset();
        return Step{write, 0};
    }
    if (!m_waitingSince)
        m_waitingSince = Clock::now();
    if (Clock::now() - *m_waitingSince < WriterTimeout)
        return std::nullopt;
    return lose(1);
}

} // namespace plcctl
