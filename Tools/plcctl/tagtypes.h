#pragma once

#include "output.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace plcctl {

enum class TagKind
{
    Boolean,
    Signed,
    Unsigned,
    Real,
    Text,
    Bytes
};

// A type of tag as the command line names it.
struct TagType
{
    const char* name;
    TagKind kind;
    unsigned unitSize; // bytes of one value; of a text, of one character
};

// The type with this name in any case; null if there is none.
const TagType* findTagType(std::string_view name);

// All names in one line, for messages and help.
std::string tagTypeNames();

// A tag moves in one access, and an access has a 16-bit size.
inline constexpr std::size_t MaxTagBytes = 65535;

// The bytes of a tag that holds these values, as they stand in tag memory. An array has one value an element; a text
// is one value, followed by a terminator, and with `length` (characters without the terminator) fills the whole slot
// with zeros. Throws Failure (usage) for a value that the type can't hold.
std::vector<std::uint8_t> bytesFromText(const TagType& type, std::span<const std::string> values,
                                        std::optional<unsigned> length);

// The tag's value on one line. Elements are separated by blanks; a text ends at its terminator.
std::string textFromBytes(const TagType& type, std::span<const std::uint8_t> bytes);

// A number, a truth value or a text, or with `array` a list of them. Bytes are one text of hexadecimal digits, and a
// REAL that JSON has no number for is the text "nan", "inf" or "-inf".
Json jsonFromBytes(const TagType& type, std::span<const std::uint8_t> bytes, bool array);

} // namespace plcctl
