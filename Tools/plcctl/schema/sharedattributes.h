#pragma once

#include "configurationfiles.h"

#include <limits>

// Parts of the table that several files have in common.
namespace plcctl::schema {

inline constexpr std::int64_t LargestUnsigned = std::numeric_limits<std::uint32_t>::max();
inline constexpr std::int64_t LargestSigned = std::numeric_limits<std::int32_t>::max();
inline constexpr std::int64_t LargestId = std::numeric_limits<std::uint16_t>::max();  // what a request can name
inline constexpr std::int64_t LargestTag = std::numeric_limits<std::uint16_t>::max(); // bytes that one read can bring

inline constexpr Choice FlagChoices[] = {
    {"0", "", "no"},
    {"1", "", "yes"},
};

inline constexpr Choice TagTypes[] = {
    {"1", "BOOL", "1 byte; the value 1 is true"},
    {"2", "INT8", "1 byte, signed"},
    {"3", "UINT8", "1 byte, unsigned"},
    {"4", "INT16", "2 bytes, signed"},
    {"5", "UINT16", "2 bytes, unsigned"},
    {"6", "UINT32", "4 bytes, unsigned"},
    {"7", "INT32", "4 bytes, signed"},
    {"8", "REAL", "4 bytes, IEEE 754"},
    {"9", "STR32", "text of 4 bytes a character (UCS-4), with a terminator"},
    {"10", "STRUCT", "members of their own types, listed in DataMembers"},
    {"11", "STR8", "text of 1 byte a character (UTF-8), with a terminator"},
    {"12", "STR16", "text of 2 bytes a character (UTF-16), with a terminator"},
};

inline constexpr Choice MemberTypes[] = {
    TagTypes[0], TagTypes[1], TagTypes[2], TagTypes[3],  TagTypes[4],  TagTypes[5],
    TagTypes[6], TagTypes[7], TagTypes[8], TagTypes[10], TagTypes[11],
};

inline constexpr Choice QualityChoices[] = {
    {"0", "", "at most once: nothing is acknowledged"},
    {"1", "", "at least once: a message may come twice"},
    {"2", "", "exactly once"},
};

inline constexpr Attribute Version{
    .name = "Version",
    .form = Form::Text,
    .whenMissing = "",
    .meaning = "Version of the file, for people and tools; the service doesn't use it",
    .mistake = "Any text is taken",
};

inline constexpr Attribute PayloadEncryption{
    .name = "PayloadEncryption",
    .form = Form::Signed,
    .whenMissing = "0",
    .least = std::numeric_limits<std::int32_t>::min(),
    .most = LargestSigned,
    .meaning = "Kept and shown in verbose mode; nothing acts on it",
    .mistake = "Any value is harmless",
};

inline constexpr Attribute BrokerOfCaller{
    .name = "CBrokerID",
    .form = Form::Signed,
    .whenMissing = "0",
    .required = true,
    .least = 0,
    .most = LargestId,
    .meaning = "ID of the broker, in Brokers.xml",
    .mistake = "What isn't the ID of a broker is named in an error line of the log, and the entry answers as if its "
               "broker were never connected",
};

// Of publications and subscriptions alike: the lists of both hold it.
inline constexpr Attribute DataTypeOfCaller{
    .name = "DataType",
    .form = Form::DataType,
    .whenMissing = "0",
    .required = true,
    .least = 1,
    .most = 12,
    .meaning = "Type of the tag, and for texts their length in characters without the terminator: 11_31",
    .mistake = "An unknown type has no size, and so no data. A text without a length has room for no character. A type "
               "10 needs DataMembers; with any other type, DataMembers play no part",
    .choices = TagTypes,
    .onlyChoices = true,
};

// The list of a struct's members.
extern const Element DataMembers;

} // namespace plcctl::schema
