#pragma once

#include "Utils/sharedscalar.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <QString>

// A zero-terminated UTF-16 text of a fixed field that threads write and read without a lock. Who reads while another
// writes may see the head of the new text and the tail of the old one, always with a terminator.
template<std::size_t Units>
class SharedText
{
public:
    // Cuts a text that is longer than the field ahead of its terminator; the result is then false.
    bool store(const QString& text)
    {
        const std::size_t length = std::min(static_cast<std::size_t>(text.size()), Units - 1);
        for (std::size_t word = 0; word <= length / UnitsPerWord; ++word) {
            const std::size_t first = word * UnitsPerWord;
            std::uint64_t bits = 0;
            std::memcpy(&bits, text.utf16() + first, std::min(length - first, UnitsPerWord) * sizeof(char16_t));
            m_words[word] = bits;
        }
        return length == static_cast<std::size_t>(text.size());
    }

    void clear()
    {
        for (auto& word : m_words)
            word = 0;
    }

    void copyTo(char16_t (&field)[Units]) const
    {
        for (std::size_t word = 0; word < m_words.size(); ++word) {
            const std::uint64_t bits = m_words[word];
            std::memcpy(field + word * UnitsPerWord, &bits, sizeof bits);
        }
    }

private:
    static constexpr std::size_t UnitsPerWord = sizeof(std::uint64_t) / sizeof(char16_t);
    static_assert(Units % UnitsPerWord == 0);

    std::array<Relaxed<std::uint64_t>, Units / UnitsPerWord> m_words;
};
