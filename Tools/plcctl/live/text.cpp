#include "text.h"

#include "output.h"
#include "utf.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cwchar>

namespace plcctl::live {

namespace {

// Characters without a shape of their own that turn the order of text around or join what stands beside them.
bool isFormatCharacter(char32_t c)
{
    return c == 0xAD || (c >= 0x200B && c <= 0x200F) || (c >= 0x2028 && c <= 0x202E) || (c >= 0x2060 && c <= 0x206F) ||
           c == 0xFEFF || (c >= 0xFFF9 && c <= 0xFFFB) || c >= 0xE0000;
}

int columnsOf(char32_t c)
{
    return c < 0x7F ? 1 : std::max(wcwidth(static_cast<wchar_t>(c)), 0);
}

// What a character becomes; nothing for one that stands on top of the one before it.
std::optional<char32_t> shownAs(char32_t c, Charset charset)
{
    if (c < 0x7F)
        return c;
    if (charset == Charset::Ascii || isFormatCharacter(c))
        return U'?';
    const int width = wcwidth(static_cast<wchar_t>(c));
    if (width == 0)
        return std::nullopt;
    return width < 0 ? U'?' : c;
}

std::string formatted(const char* format, double value)
{
    std::array<char, 48> text{};
    std::snprintf(text.data(), text.size(), format, value);
    return text.data();
}

} // namespace

std::string safe(std::string_view utf8, Charset charset)
{
    std::u32string result;
    for (const char32_t c : decodeUtf8Lossy(printable(utf8))) {
        if (const auto character = shownAs(c, charset))
            result += *character;
    }
    return encodeUtf8(result);
}

int columnsOf(std::string_view safeText)
{
    int columns = 0;
    for (const char32_t c : decodeUtf8Lossy(safeText))
        columns += columnsOf(c);
    return columns;
}

std::string fitted(std::string_view safeText, int width, Align align, Charset charset)
{
    if (width <= 0)
        return "";
    const int columns = columnsOf(safeText);
    if (columns <= width) {
        const std::string blanks(static_cast<std::size_t>(width - columns), ' ');
        return align == Align::Left ? std::string(safeText) + blanks : blanks + std::string(safeText);
    }
    const char32_t cut = charset == Charset::Unicode ? U'\u2026' : U'~';
    std::u32string kept;
    int used = 1;
    for (const char32_t c : decodeUtf8Lossy(safeText)) {
        if (used + columnsOf(c) > width)
            break;
        used += columnsOf(c);
        kept += c;
    }
    return encodeUtf8(kept + cut) + std::string(static_cast<std::size_t>(width - used), ' ');
}

std::vector<std::string> wrapped(std::string_view safeText, int width)
{
    std::vector<std::string> lines;
    std::u32string line;
    int used = 0;
    for (const char32_t c : decodeUtf8Lossy(safeText)) {
        if (used + columnsOf(c) > width && !line.empty()) {
            lines.push_back(encodeUtf8(line));
            line.clear();
            used = 0;
        }
        line += c;
        used += columnsOf(c);
    }
    lines.push_back(encodeUtf8(line));
    return lines;
}

std::string plot(const std::vector<double>& values, int width, Charset charset)
{
    static constexpr std::u32string_view Blocks = U" \u2581\u2582\u2583\u2584\u2585\u2586\u2587\u2588";
    static constexpr std::u32string_view Letters = U" .:-=+*#%";
    const std::u32string_view steps = charset == Charset::Unicode ? Blocks : Letters;
    const auto shownValues = std::min(values.size(), static_cast<std::size_t>(std::max(width, 0)));
    const auto begin = values.end() - static_cast<std::ptrdiff_t>(shownValues);
    const double highest = shownValues == 0 ? 0 : *std::max_element(begin, values.end());
    std::u32string columns(static_cast<std::size_t>(std::max(width, 0)) - shownValues, U' ');
    for (auto value = begin; value != values.end(); ++value) {
        const double height = highest > 0 ? *value / highest * static_cast<double>(steps.size() - 1) : 0;
        columns += steps[static_cast<std::size_t>(std::ceil(height))];
    }
    return encodeUtf8(columns);
}

std::string bar(double part, double whole, int width)
{
    const double share = whole > 0 ? std::clamp(part / whole, 0.0, 1.0) : 0;
    const auto filled = static_cast<std::size_t>(std::ceil(share * width));
    return "[" + std::string(filled, '#') + std::string(static_cast<std::size_t>(width) - filled, ' ') + "]";
}

std::string ageText(std::optional<double> seconds)
{
    constexpr double Minute = 60;
    constexpr double Hour = 60 * Minute;
    constexpr double Day = 24 * Hour;
    if (!seconds)
        return "-";
    const double age = std::max(*seconds, 0.0);
    if (age < 10)
        return formatted("%.1f s", age);
    if (age < 2 * Minute)
        return formatted("%.0f s", std::floor(age));
    if (age < 2 * Hour)
        return formatted("%.0f min", std::floor(age / Minute));
    if (age < 2 * Day)
        return formatted("%.0f h", std::floor(age / Hour));
    return formatted("%.0f d", std::floor(age / Day));
}

std::string rateText(std::optional<double> perSecond)
{
    if (!perSecond)
        return "-";
    if (*perSecond == 0)
        return "0";
    if (*perSecond < 9.995)
        return formatted("%.2f", *perSecond);
    return formatted(*perSecond < 99.95 ? "%.1f" : "%.0f", *perSecond);
}

std::string periodText(int milliseconds)
{
    return milliseconds % 1000 == 0 ? std::to_string(milliseconds / 1000) + " s" : std::to_string(milliseconds) + " ms";
}

} // namespace plcctl::live
