#pragma once

#include <cstdint>
#include <cstring>
#include <vector>

class TopicFilter;

// Tells at a glance which of a broker's callers can't want a message. Of each filter, up to eight bytes that a matching
// topic has at a known place stand side by side here, so that hundreds of filters cost a message next to nothing. What
// passes may still not match.
class TopicSieve
{
public:
    // Adds a row, in the order of the callers.
    void addFilter(const TopicFilter& filter, bool isSpecial);
    void addNone(); // that no topic passes

    [[nodiscard]] int size() const { return static_cast<int>(m_rows.size()); }

    // False when a topic of `length` bytes can't match the filter of this row.
    [[nodiscard]] bool mayMatch(int row, const char* topic, std::size_t length) const
    {
        const Row& known = m_rows[static_cast<std::size_t>(row)];
        const std::size_t end = known.end == TopicsEnd ? length : known.end;
        if (end > length)
            return false;
        if (end < sizeof known.bytes)
            return true; // too short to be looked at in one piece
        std::uint64_t bytes = 0;
        std::memcpy(&bytes, topic + end - sizeof bytes, sizeof bytes);
        return ((bytes ^ known.bytes) & known.mask) == 0;
    }

private:
    static constexpr std::uint32_t TopicsEnd = 0xFFFFFFFF;
    static constexpr std::uint32_t Nowhere = TopicsEnd - 1; // past the end of any topic

    // The bytes end at `end`; the mask covers those that are known.
    struct Row
    {
        std::uint64_t bytes;
        std::uint64_t mask;
        std::uint32_t end;
    };

    std::vector<Row> m_rows;
};
