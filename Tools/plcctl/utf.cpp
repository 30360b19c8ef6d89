#include "utf.h"

#include <cstdint>

namespace plcctl {

namespace {

// The character at the head of `text` and its length in bytes; length 0 if there is none.
struct Utf8Head
{
    char32_t value = 0;
    std::size_t length = 0;
};

Utf8Head firstOf(std::string_view text)
{
    const auto lead = static_cast<std::uint8_t>(text.front());
    if (lead < 0x80)
        return {lead, 1};
    std::size_t length = 0;
    char32_t value = 0;
    char32_t smallest = 0;
    if ((lead & 0xE0) == 0xC0) {
        length = 2, value = lead & 0x1F, smallest = 0x80;
    } else if ((lead & 0xF0) == 0xE0) {
        length = 3, value = lead & 0x0F, smallest = 0x800;
    } else if ((lead & 0xF8) == 0xF0) {
        length = 4, value = lead & 0x07, smallest = 0x10000;
    }
    if (length == 0 || text.size() < length)
        return {};
    for (const char unit : text.substr(1, length - 1)) {
        const auto byte = static_cast<std::uint8_t>(unit);
        if ((byte & 0xC0) != 0x80)
            return {};
        value = value << 6 | (byte & 0x3F);
    }
    // A longer form than needed is refused: the same character must not have two spellings.
    if (value < smallest || !isCodePoint(value))
        return {};
    return {value, length};
}

bool isHighSurrogate(char32_t unit)
{
    return unit >= 0xD800 && unit <= 0xDBFF;
}

bool isLowSurrogate(char32_t unit)
{
    return unit >= 0xDC00 && unit <= 0xDFFF;
}

void appendUtf8(std::string& text, char32_t value)
{
    const auto add = [&text](char32_t byte) { text += static_cast<char>(byte); };
    if (value < 0x80) {
        add(value);
    } else if (value < 0x800) {
        add(0xC0 | value >> 6);
        add(0x80 | (value & 0x3F));
    } else if (value < 0x10000) {
        add(0xE0 | value >> 12);
        add(0x80 | (value >> 6 & 0x3F));
        add(0x80 | (value & 0x3F));
    } else {
        add(0xF0 | value >> 18);
        add(0x80 | (value >> 12 & 0x3F));
        add(0x80 | (value >> 6 & 0x3F));
        add(0x80 | (value & 0x3F));
    }
}

} // namespace

bool isCodePoint(char32_t value)
{
    return value <= 0x10FFFF && !(value >= 0xD800 && value <= 0xDFFF);
}

std::optional<std::u32string> decodeUtf8(std::string_view text)
{
    std::u32string result;
    while (!text.empty()) {
        const Utf8Head head = firstOf(text);
        if (head.length == 0)
            return std::nullopt;
        result += head.value;
        text.remove_prefix(head.length);
    }
    return result;
}

std::u32string decodeUtf8Lossy(std::string_view text)
{
    std::u32string result;
    while (!text.empty()) {
        const Utf8Head head = firstOf(text);
        result += head.length == 0 ? ReplacementCharacter : head.value;
        text.remove_prefix(head.length == 0 ? 1 : head.length);
    }
    return result;
}

std::u32string decodeUtf16Lossy(std::u16string_view units)
{
    std::u32string result;
    for (std::size_t at = 0; at < units.size(); ++at) {
        const char32_t unit = units[at];
        if (isHighSurrogate(unit) && at + 1 < units.size() && isLowSurrogate(units[at + 1])) {
            const char32_t low = units[++at];
            result.push_back(0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00));
        } else {
            result += isCodePoint(unit) ? unit : ReplacementCharacter;
        }
    }
    return result;
}

std::u16string encodeUtf16(std::u32string_view text)
{
    std::u16string result;
    for (const char32_t value : text) {
        if (value < 0x10000) {
            result += static_cast<char16_t>(value);
        } else {
            result += static_cast<char16_t>(0xD800 + ((value - 0x10000) >> 10));
            result += static_cast<char16_t>(0xDC00 + ((value - 0x10000) & 0x3FF));
        }
    }
    return result;
}

std::string encodeUtf8(std::u32string_view text)
{
    std::string result;
    for (const char32_t value : text)
        appendUtf8(result, isCodePoint(value) ? value : ReplacementCharacter);
    return result;
}

} // namespace plcctl
