#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <span>
#include <string>
#include <string_view>

namespace plcctl {

// Members keep the order in which they were set, so that people can read the objects as well.
using Json = nlohmann::ordered_json;

// One line of text on standard output.
void printLine(std::string_view line);

// The value as one line; bytes that are no UTF-8 become the replacement character.
void printJson(const Json& value);

// A line for people on standard error, headed by the program's name.
void printNote(std::string_view text);

// The text on one line: control characters and the backslash as \n, \t, \\ or \xNN. A tag may hold anything, also
// what would command a terminal.
std::string printable(std::string_view utf8);

std::string inQuotes(std::string_view utf8);

// "01 ff"; with an empty separator "01ff".
std::string hexBytes(std::span<const std::uint8_t> bytes, std::string_view separator = " ");

// The bytes as ASCII, with a point for each one that can't be shown.
std::string asciiBytes(std::span<const std::uint8_t> bytes);

// Local time, "2024-05-06 07:08:09.012345".
std::string localTime(std::int64_t nanosecondsSinceEpoch);

// Coordinated universal time, "2024-05-06T07:08:09.012345Z".
std::string utcTime(std::int64_t nanosecondsSinceEpoch);

// The same to the second, "2024-05-06T07:08:09Z".
std::string utcSeconds(std::uint32_t secondsSinceEpoch);

std::int64_t nowNanoseconds();

} // namespace plcctl
