#pragma once

#include <algorithm>
#include <cstring>
#include <limits>
#include <QtGlobal>

// Where a conversion puts the bytes of a tag: a place in memory and how much of it there is. What would lie outside is
// dropped, so that no payload and no configured size can reach past the end.
class TagSpace
{
public:
    // Trusts the caller: as much as the conversion needs.
    TagSpace(char* bytes) : TagSpace(bytes, std::numeric_limits<qint64>::max()) {} // implicit: stands in for char*

    TagSpace(char* bytes, qint64 size) : m_bytes(bytes), m_size(size) {}

    [[nodiscard]] qint64 size() const { return m_size; }

    // What lies from `offset` on; nothing when that is outside.
    [[nodiscard]] TagSpace from(qint64 offset) const
    {
        return offset >= 0 && offset < m_size ? TagSpace(m_bytes + offset, m_size - offset) : TagSpace(m_bytes, 0);
    }

    // Elements of `unit` bytes that lie inside, the last one maybe in part, or `wanted` if that is less.
    [[nodiscard]] int elementsInside(int wanted, int unit) const
    {
        const qint64 room = m_size / unit + (m_size % unit > 0 ? 1 : 0);
        return static_cast<int>(std::min<qint64>(wanted, room));
    }

    // Copies `count` bytes to `offset`, or as many of them as fit.
    void put(qint64 offset, const void* source, qint64 count) const
    {
        if (const qint64 fitting = fit(offset, count); fitting > 0)
            std::memcpy(m_bytes + offset, source, static_cast<std::size_t>(fitting));
    }

    // Sets `count` bytes from `offset` on to 0, or as many of them as lie inside.
    void putZeros(qint64 offset, qint64 count) const
    {
        if (const qint64 fitting = fit(offset, count); fitting > 0)
            std::memset(m_bytes + offset, 0, static_cast<std::size_t>(fitting));
    }

    // Stores element `index` of an array of such values; it need not be aligned.
    template<typename Value>
    void putElement(qint64 index, Value value) const
    {
        put(index * qint64{sizeof value}, &value, sizeof value);
    }

private:
    [[nodiscard]] qint64 fit(qint64 offset, qint64 count) const
    {
        return offset < 0 || offset >= m_size ? 0 : std::min(count, m_size - offset);
    }

    char* m_bytes;
    qint64 m_size;
};
