#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace plcctl::live {

// Texts as they stand on a terminal. Widths are columns of the terminal.

// What the terminal shows. Set once, from the locale, before anything is drawn.
enum class Charset
{
    Ascii,
    Unicode
};

enum class Align
{
    Left,
    Right
};

// Any text on one line, without a character that could command or disturb a terminal: control characters as \n or
// \x1b, and those that reorder text, or are unknown to the locale, as a question mark.
std::string safe(std::string_view utf8, Charset charset);

// Of a safe text.
int columnsOf(std::string_view safeText);

// A safe text in exactly `width` columns: filled up with blanks, or cut with a sign at the cut.
std::string fitted(std::string_view safeText, int width, Align align, Charset charset);

// A safe text on lines of at most `width` columns.
std::vector<std::string> wrapped(std::string_view safeText, int width);

// One column for each value, the last ones if there are more; the highest value is the full height.
std::string plot(const std::vector<double>& values, int width, Charset charset);

// "[####    ]" with `part` of `whole` filled.
std::string bar(double part, double whole, int width);

// "0.4 s", "59 s", "3 min", "5 h", "12 d"; "-" for what isn't known.
std::string ageText(std::optional<double> seconds);

// "0.25", "12.3", "1240"; "-" for what isn't known.
std::string rateText(std::optional<double> perSecond);

// "500 ms", "2 s", "90 s"
std::string periodText(int milliseconds);

} // namespace plcctl::live
