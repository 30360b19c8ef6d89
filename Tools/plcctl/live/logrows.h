#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace plcctl::live {

// The service's log, from the mildest severity on.
enum class Severity
{
    Verbose,
    Debug,
    Info,
    Warn,
    Error,
    Fatal
};

inline constexpr std::size_t Severities = 6;

// "WARN"
const char* nameOf(Severity severity);

// One row of the log file, as it stands there but for the quotes.
struct LogRow
{
    std::string date; // 2024/05/06
    std::string time; // 07:08:09.012
    Severity severity = Severity::Fatal;
    std::string function;
    std::string place; // file and line
    std::string message;
};

// The row in this text, without its line feed; nothing for a heading, and for what is no row.
std::optional<LogRow> parseLogRow(std::string_view text);

// Cuts the text of a log file into rows, as it comes piece by piece.
class LogRows
{
public:
    // What is dropped: the text up to the first row that begins with a line.
    void beginInTheMiddle();

    // Forgets an unfinished row.
    void begin();

    // The rows that these bytes complete.
    [[nodiscard]] std::vector<LogRow> take(std::string_view bytes);

private:
    [[nodiscard]] bool findFirstRow();

    std::string m_rest;
    std::size_t m_scanned = 0; // of m_rest
    bool m_inQuotes = false;
    bool m_searching = false;
};

} // namespace plcctl::live
