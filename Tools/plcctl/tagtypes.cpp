#include "tagtypes.h"

#include "failure.h"
#include "nearestname.h"
#include "utf.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>

static_assert(std::endian::native == std::endian::little, "tags are little-endian, and so must this machine be");

namespace plcctl {

namespace {

constexpr std::array TagTypes{
    TagType{"BOOL", TagKind::Boolean, 1},    TagType{"INT8", TagKind::Signed, 1},
    TagType{"UINT8", TagKind::Unsigned, 1},  TagType{"INT16", TagKind::Signed, 2},
    TagType{"UINT16", TagKind::Unsigned, 2}, TagType{"INT32", TagKind::Signed, 4},
    TagType{"UINT32", TagKind::Unsigned, 4}, TagType{"REAL", TagKind::Real, 4},
    TagType{"STR8", TagKind::Text, 1},       TagType{"STR16", TagKind::Text, 2},
    TagType{"STR32", TagKind::Text, 4},      TagType{"BYTES", TagKind::Bytes, 1},
};

using Bytes = std::vector<std::uint8_t>;
using ByteSpan = std::span<const std::uint8_t>;

[[noreturn]] void refuse(const TagType& type, const std::string& value, const std::string& reason)
{
    throw Failure(ExitCode::Usage,
                  std::string(type.name) + " can't take " + inQuotes(value) + ": " + reason + "; nothing was written");
}

// Any width up to 4 bytes of a number in two's complement.
void appendInteger(Bytes& bytes, std::int64_t value, unsigned size)
{
    for (unsigned byte = 0; byte < size; ++byte)
        bytes.push_back(static_cast<std::uint8_t>(static_cast<std::uint64_t>(value) >> (8 * byte)));
}

std::int64_t integerFrom(const TagType& type, ByteSpan element)
{
    std::uint64_t value = 0;
    for (unsigned byte = 0; byte < type.unitSize; ++byte)
        value |= static_cast<std::uint64_t>(element[byte]) << (8 * byte);
    if (type.kind != TagKind::Signed)
        return static_cast<std::int64_t>(value);
    switch (type.unitSize) {
    case 1:
        return static_cast<std::int8_t>(value);
    case 2:
        return static_cast<std::int16_t>(value);
    default:
        return static_cast<std::int32_t>(value);
    }
}

std::int64_t lowestOf(const TagType& type)
{
    return type.kind == TagKind::Signed ? -(std::int64_t{1} << (8 * type.unitSize - 1)) : 0;
}

std::int64_t highestOf(const TagType& type)
{
    const unsigned valueBits = 8 * type.unitSize - (type.kind == TagKind::Signed ? 1 : 0);
    return (std::int64_t{1} << valueBits) - 1;
}

std::int64_t parseInteger(const TagType& type, const std::string& value)
{
    std::string_view digits = value;
    const bool negative = digits.starts_with('-');
    if (negative || digits.starts_with('+'))
        digits.remove_prefix(1);
    const bool hexadecimal = digits.starts_with("0x") || digits.starts_with("0X");
    if (hexadecimal)
        digits.remove_prefix(2);

    std::uint64_t magnitude = 0;
    const char* const end = digits.data() + digits.size();
    const auto [stop, error] = std::from_chars(digits.data(), end, magnitude, hexadecimal ? 16 : 10);
    if (error == std::errc::invalid_argument || stop != end)
        refuse(type, value, "a whole number is needed, decimal or with 0x");
    constexpr auto Largest = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
    const bool tooLarge = error == std::errc::result_out_of_range || magnitude > Largest;
    const std::int64_t number = tooLarge ? 0 : static_cast<std::int64_t>(magnitude) * (negative ? -1 : 1);
    if (tooLarge || number < lowestOf(type) || number > highestOf(type))
        refuse(type, value, "it holds " + std::to_string(lowestOf(type)) + " to " + std::to_string(highestOf(type)));
    return number;
}

float parseReal(const TagType& type, const std::string& value)
{
    std::string_view digits = value;
    if (digits.starts_with('+'))
        digits.remove_prefix(1);
    float number = 0;
    const char* const end = digits.data() + digits.size();
    const auto [stop, error] = std::from_chars(digits.data(), end, number);
    if (error == std::errc::invalid_argument || stop != end)
        refuse(type, value, "a number like -1.5 or 2e10 is needed, or nan, inf, -inf");
    if (error == std::errc::result_out_of_range)
        refuse(type, value, "it is outside the range of single precision");
    return number;
}

bool parseBoolean(const TagType& type, const std::string& value)
{
    const std::string word = lowered(value);
    if (word == "1" || word == "true")
        return true;
    if (word == "0" || word == "false")
        return false;
    refuse(type, value, "say true or false, or 1 or 0");
}

void appendHex(Bytes& bytes, const TagType& type, const std::string& value)
{
    std::string digits;
    std::copy_if(value.begin(), value.end(), std::back_inserter(digits), [](char c) { return c != ' '; });
    if (digits.empty() || digits.size() % 2 != 0)
        refuse(type, value, "two hexadecimal digits a byte are needed");
    for (std::size_t at = 0; at < digits.size(); at += 2) {
        std::uint8_t byte = 0;
        const char* const end = digits.data() + at + 2;
        if (std::from_chars(digits.data() + at, end, byte, 16).ptr != end)
            refuse(type, value, "two hexadecimal digits a byte are needed");
        bytes.push_back(byte);
    }
}

template<typename Unit>
Bytes unitsAsBytes(std::basic_string_view<Unit> units)
{
    Bytes bytes(units.size() * sizeof(Unit));
    if (!bytes.empty())
        std::memcpy(bytes.data(), units.data(), bytes.size());
    return bytes;
}

// The characters alone, without the terminator.
Bytes encodeText(const TagType& type, const std::string& value)
{
    const std::optional<std::u32string> codePoints = decodeUtf8(value);
    if (!codePoints)
        refuse(type, value, "it is no valid UTF-8");
    if (type.unitSize == 1)
        return unitsAsBytes<char>(value);
    if (type.unitSize == 2)
        return unitsAsBytes<char16_t>(encodeUtf16(*codePoints));
    return unitsAsBytes<char32_t>(*codePoints);
}

Bytes textSlot(const TagType& type, std::span<const std::string> values, std::optional<unsigned> length)
{
    if (values.size() != 1)
        throw Failure(ExitCode::Usage, std::string(type.name) + " takes one text; put it in quotes if it has blanks");
    Bytes bytes = encodeText(type, values.front());
    const std::size_t units = bytes.size() / type.unitSize;
    if (length && units > *length) {
        refuse(type, values.front(),
               "it takes " + std::to_string(units) + " characters of " + std::to_string(type.unitSize) +
                   (type.unitSize == 1 ? " byte" : " bytes") + ", and the tag holds " + std::to_string(*length));
    }
    // Checked before the slot is made: the length comes from the command line, and can be more than a 32-bit size
    // holds.
    const std::uint64_t slot = (std::uint64_t{length.value_or(static_cast<unsigned>(units))} + 1) * type.unitSize;
    if (slot <= MaxTagBytes)
        bytes.resize(static_cast<std::size_t>(slot), 0);
    else
        bytes.resize(MaxTagBytes + 1);
    return bytes;
}

template<typename Unit>
std::basic_string<Unit> unitsUpToTerminator(ByteSpan bytes)
{
    std::basic_string<Unit> units(bytes.size() / sizeof(Unit), Unit{});
    if (!units.empty())
        std::memcpy(units.data(), bytes.data(), units.size() * sizeof(Unit));
    return units.substr(0, units.find(Unit{}));
}

std::string decodeText(const TagType& type, ByteSpan bytes)
{
    if (type.unitSize == 1)
        return encodeUtf8(decodeUtf8Lossy(unitsUpToTerminator<char>(bytes)));
    if (type.unitSize == 2)
        return encodeUtf8(decodeUtf16Lossy(unitsUpToTerminator<char16_t>(bytes)));
    return encodeUtf8(unitsUpToTerminator<char32_t>(bytes));
}

std::string realText(ByteSpan element)
{
    float value = 0;
    std::memcpy(&value, element.data(), sizeof value);
    if (std::isnan(value))
        return "nan";
    std::array<char, 32> text{};
    const auto result = std::to_chars(text.data(), text.data() + text.size(), value);
    return {text.data(), result.ptr};
}

std::string elementText(const TagType& type, ByteSpan element)
{
    switch (type.kind) {
    case TagKind::Boolean:
        return element[0] == 1 ? "true" : "false";
    case TagKind::Real:
        return realText(element);
    case TagKind::Signed:
    case TagKind::Unsigned:
        return std::to_string(integerFrom(type, element));
    case TagKind::Text:
    case TagKind::Bytes:
        break;
    }
    return hexBytes(element);
}

Json elementJson(const TagType& type, ByteSpan element)
{
    if (type.kind == TagKind::Boolean)
        return element[0] == 1;
    if (type.kind != TagKind::Real)
        return integerFrom(type, element);
    // By way of the shortest text: 0.1 as a float would come out as 0.10000000149011612 otherwise.
    const std::string text = realText(element);
    const double value = std::strtod(text.c_str(), nullptr);
    return std::isfinite(value) ? Json(value) : Json(text);
}

} // namespace

const TagType* findTagType(std::string_view name)
{
    const std::string wanted = lowered(name);
    const auto found = std::find_if(TagTypes.begin(), TagTypes.end(),
                                    [&](const TagType& type) { return lowered(type.name) == wanted; });
    return found == TagTypes.end() ? nullptr : &*found;
}

std::string tagTypeNames()
{
    std::string names;
    for (const TagType& type : TagTypes)
        names += std::string(names.empty() ? "" : ", ") + type.name;
    return names;
}

std::vector<std::uint8_t> bytesFromText(const TagType& type, std::span<const std::string> values,
                                        std::optional<unsigned> length)
{
    if (length && type.kind != TagKind::Text)
        throw Failure(ExitCode::Usage, std::string("--length is for texts; a ") + type.name + " has none");
    Bytes bytes;
    if (type.kind == TagKind::Text)
        bytes = textSlot(type, values, length);
    for (const std::string& value : type.kind == TagKind::Text ? std::span<const std::string>{} : values) {
        switch (type.kind) {
        case TagKind::Boolean:
            bytes.push_back(parseBoolean(type, value) ? 1 : 0);
            break;
        case TagKind::Real:
            appendInteger(bytes, std::bit_cast<std::int32_t>(parseReal(type, value)), type.unitSize);
            break;
        case TagKind::Bytes:
            appendHex(bytes, type, value);
            break;
        default:
            appendInteger(bytes, parseInteger(type, value), type.unitSize);
        }
    }
    if (bytes.size() > MaxTagBytes) {
        throw Failure(ExitCode::Usage, "that is more than the " + std::to_string(MaxTagBytes) +
                                           " bytes of one write; nothing was written");
    }
    return bytes;
}

std::string textFromBytes(const TagType& type, std::span<const std::uint8_t> bytes)
{
    if (type.kind == TagKind::Text)
        return printable(decodeText(type, bytes));
    std::string text;
    for (; bytes.size() >= type.unitSize; bytes = bytes.subspan(type.unitSize))
        text += (text.empty() ? "" : " ") + elementText(type, bytes.first(type.unitSize));
    return text;
}

Json jsonFromBytes(const TagType& type, std::span<const std::uint8_t> bytes, bool array)
{
    if (type.kind == TagKind::Text)
        return decodeText(type, bytes);
    if (type.kind == TagKind::Bytes)
        return hexBytes(bytes, "");
    if (!array)
        return elementJson(type, bytes);
    Json list = Json::array();
    for (; bytes.size() >= type.unitSize; bytes = bytes.subspan(type.unitSize))
        list.push_back(elementJson(type, bytes.first(type.unitSize)));
    return list;
}

} // namespace plcctl
