#pragma once

#include <algorithm>
#include <cstddef>
#include <string_view>

// Text that is put together in memory of a fixed size, without a terminator. A piece that doesn't fit is left out, as
// is all that follows, and the text no longer fits.
class BoundedText
{
public:
    BoundedText(char* memory, std::size_t size) : m_begin(memory), m_next(memory), m_end(memory + size) {}

    void append(std::string_view piece)
    {
        if (piece.size() > static_cast<std::size_t>(m_end - m_next)) {
            m_end = m_next; // no later piece gets in, but for empty ones
            m_fits = false;
            return;
        }
        m_next = std::copy(piece.begin(), piece.end(), m_next);
    }

    [[nodiscard]] bool fits() const { return m_fits; }
    [[nodiscard]] std::string_view text() const { return {m_begin, static_cast<std::size_t>(m_next - m_begin)}; }

private:
    char* m_begin;
    char* m_next;
    char* m_end;
    bool m_fits = true;
};
