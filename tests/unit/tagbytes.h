#pragma once

#include "unittest.h"

#include <cstring>
#include <initializer_list>
#include <vector>

// The bytes that these values take in tag memory, one behind the other.
template<typename Value>
Bytes bytesOf(const std::vector<Value>& values)
{
    Bytes bytes(values.size() * sizeof(Value));
    std::size_t at = 0;
    for (const Value value : values) {
        std::memcpy(bytes.data() + at, &value, sizeof value);
        at += sizeof value;
    }
    return bytes;
}

inline Bytes operator+(Bytes first, const Bytes& second)
{
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

// What stands in a tag's bytes ahead of a conversion.
inline constexpr std::uint8_t OldByte = 0xAA;

inline Bytes untouched(std::size_t count)
{
    return Bytes(count, OldByte);
}

inline char* charsOf(Bytes& bytes)
{
    return reinterpret_cast<char*>(bytes.data());
}
