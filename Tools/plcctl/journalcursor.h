#pragma once

#include "tagmemoryimageaccess.h"

#include <chrono>
#include <cstdint>
#include <optional>

namespace plcctl {

// Walks the journal of writes in their order.
class JournalCursor
{
public:
    // Either a write, or how many in a row are lost: overwritten before they were read, or never finished.
    struct Step
    {
        std::optional<TagMemoryImage::Write> write;
        std::uint64_t lost = 0;
    };

    // `next` is the number of the first write to show. The image has to outlive the cursor.
    JournalCursor(const TagMemoryImage::Image& image, std::uint64_t next) : m_image(image), m_next(next) {}

    // The next step, or nothing while the next write isn't there or isn't whole yet.
    [[nodiscard]] std::optional<Step> step();

    // The number of the write that comes next.
    [[nodiscard]] std::uint64_t next() const { return m_next; }

private:
    [[nodiscard]] Step lose(std::uint64_t count);

    using Clock = std::chrono::steady_clock;

    const TagMemoryImage::Image& m_image;
    std::uint64_t m_next;
    std::optional<Clock::time_point> m_waitingSince; // for a write that was begun and isn't whole
};

// How many writes there were; the number of the next one.
std::uint64_t writesEver(const TagMemoryImage::Image& image);

// The number of the oldest write that the journal still holds.
std::uint64_t oldestWrite(const TagMemoryImage::Image& image);

} // namespace plcctl
