#include "output.h"

#include <array>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <iostream>

namespace plcctl {

namespace {

constexpr std::int64_t NanosecondsPerSecond = 1'000'000'000;

std::string fractionOf(std::int64_t nanoseconds)
{
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), ".%06d", static_cast<int>(nanoseconds / 1000));
    return text.data();
}

// By the calendar, since the C library's times end in 2038 on 32-bit processors. "2024-05-06T07:08:09"
std::string utcText(std::int64_t secondsSinceEpoch)
{
    const std::chrono::sys_seconds time{std::chrono::seconds{secondsSinceEpoch}};
    const auto day = std::chrono::floor<std::chrono::days>(time);
    const std::chrono::year_month_day date{day};
    const std::chrono::hh_mm_ss clock{time - day};
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%04d-%02u-%02uT%02d:%02d:%02d", static_cast<int>(date.year()),
                  static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                  static_cast<int>(clock.hours().count()), static_cast<int>(clock.minutes().count()),
                  static_cast<int>(clock.seconds().count()));
    return text.data();
}

// Splits a time into whole seconds and nanoseconds from 0 up, also before 1970.
std::pair<std::int64_t, std::int64_t> split(std::int64_t nanosecondsSinceEpoch)
{
    std::int64_t seconds = nanosecondsSinceEpoch / NanosecondsPerSecond;
    std::int64_t rest = nanosecondsSinceEpoch % NanosecondsPerSecond;
    if (rest < 0) {
        rest += NanosecondsPerSecond;
        --seconds;
    }
    return {seconds, rest};
}

std::string hexByte(std::uint8_t byte)
{
    constexpr char Digits[] = "0123456789abcdef";
    return {Digits[byte >> 4], Digits[byte & 0xF]};
}

} // namespace

void printLine(std::string_view line)
{
    std::cout << line << '\n';
}

void printJson(const Json& value)
{
    printLine(value.dump(-1, ' ', false, Json::error_handler_t::replace));
}

void printNote(std::string_view text)
{
    std::cerr << "plcctl: " << text << '\n';
}

std::string printable(std::string_view utf8)
{
    std::string result;
    for (std::size_t at = 0; at < utf8.size(); ++at) {
        const auto byte = static_cast<std::uint8_t>(utf8[at]);
        const auto next = at + 1 < utf8.size() ? static_cast<std::uint8_t>(utf8[at + 1]) : std::uint8_t{0};
        // U+0080 to U+009F, two bytes in UTF-8, command terminals just as the ASCII control characters do.
        const bool highControl = byte == 0xC2 && next >= 0x80 && next <= 0x9F;
        if (byte == '\\')
            result += "\\\\";
        else if (byte == '\n')
            result += "\\n";
        else if (byte == '\t')
            result += "\\t";
        else if (byte < 0x20 || byte == 0x7F)
            result += "\\x" + hexByte(byte);
        else if (highControl)
            result += "\\x" + hexByte(next), ++at;
        else
            result += static_cast<char>(byte);
    }
    return result;
}

std::string inQuotes(std::string_view utf8)
{
    return "'" + printable(utf8) + "'";
}

std::string hexBytes(std::span<const std::uint8_t> bytes, std::string_view separator)
{
    std::string result;
    for (const std::uint8_t byte : bytes) {
        if (!result.empty())
            result += separator;
        result += hexByte(byte);
    }
    return result;
}

std::string asciiBytes(std::span<const std::uint8_t> bytes)
{
    std::string result;
    for (const std::uint8_t byte : bytes)
        result += byte >= 0x20 && byte < 0x7F ? static_cast<char>(byte) : '.';
    return result;
}

std::string localTime(std::int64_t nanosecondsSinceEpoch)
{
    const auto [seconds, rest] = split(nanosecondsSinceEpoch);
    const auto time = static_cast<std::time_t>(seconds);
    std::tm local{};
    localtime_r(&time, &local);
    std::array<char, 64> text{};
    std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &local);
    return text.data() + fractionOf(rest);
}

std::string utcTime(std::int64_t nanosecondsSinceEpoch)
{
    const auto [seconds, rest] = split(nanosecondsSinceEpoch);
    return utcText(seconds) + fractionOf(rest) + "Z";
}

std::string utcSeconds(std::uint32_t secondsSinceEpoch)
{
    return utcText(secondsSinceEpoch) + "Z";
}

std::int64_t nowNanoseconds()
{
    const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::nanoseconds>(sinceEpoch).count();
}

} // namespace plcctl
