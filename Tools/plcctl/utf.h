#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace plcctl {

inline constexpr char32_t ReplacementCharacter = U'\uFFFD';

// False for surrogates and for everything above U+10FFFF.
bool isCodePoint(char32_t value);

// The code points of a UTF-8 text; nothing if it isn't one.
std::optional<std::u32string> decodeUtf8(std::string_view text);

// The same, with each byte that belongs to no character taken as U+FFFD.
std::u32string decodeUtf8Lossy(std::string_view text);

// With each surrogate that has no partner taken as U+FFFD.
std::u32string decodeUtf16Lossy(std::u16string_view units);

std::u16string encodeUtf16(std::u32string_view text);

// With each value that is no code point written as U+FFFD.
std::string encodeUtf8(std::u32string_view text);

} // namespace plcctl
