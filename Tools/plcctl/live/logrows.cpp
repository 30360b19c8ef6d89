#include "logrows.h"

#include <algorithm>
#include <array>
#include <cctype>

namespace plcctl::live {

namespace {

constexpr std::array<const char*, Severities> Names{"VERB", "DEBUG", "INFO", "WARN", "ERROR", "FATAL"};

// Longer than any row of the service: a message has 32,000 characters at most.
constexpr std::size_t LongestRow = 512 * 1024;

// "2024/05/06;07:08:09.012;", with 0 for any digit.
constexpr std::string_view RowBegin = "0000/00/00;00:00:00.000;";

bool beginsRow(std::string_view text)
{
    return text.size() >= RowBegin.size() &&
           std::equal(RowBegin.begin(), RowBegin.end(), text.begin(), [](char wanted, char c) {
               return wanted == '0' ? std::isdigit(static_cast<unsigned char>(c)) != 0 : c == wanted;
           });
}

std::optional<Severity> severityOf(std::string_view name)
{
    const auto* const found = std::find(Names.begin(), Names.end(), name);
    if (found == Names.end())
        return std::nullopt;
    return static_cast<Severity>(found - Names.begin());
}

std::string withoutQuotes(std::string_view quoted)
{
    if (quoted.starts_with('"'))
        quoted.remove_prefix(1);
    if (quoted.ends_with('"'))
        quoted.remove_suffix(1);
    std::string text;
    for (std::size_t at = 0; at < quoted.size(); ++at) {
        text += quoted[at];
        if (quoted[at] == '"' && at + 1 < quoted.size() && quoted[at + 1] == '"')
            ++at;
    }
    return text;
}

} // namespace

const char* nameOf(Severity severity)
{
    return Names[static_cast<std::size_t>(severity)];
}

std::optional<LogRow> parseLogRow(std::string_view text)
{
    if (!beginsRow(text))
        return std::nullopt;
    std::array<std::string_view, 8> fields;
    for (std::string_view& field : fields) {
        const std::size_t end = text.find(';');
        if (end == std::string_view::npos)
            return std::nullopt;
        field = text.substr(0, end);
        text.remove_prefix(end + 1);
    }
    const auto severity = severityOf(fields[2]);
    if (!severity)
        return std::nullopt;
    return LogRow{std::string(fields[0]),
                  std::string(fields[1]),
                  *severity,
                  std::string(fields[5]),
                  std::string(fields[6]) + ":" + std::string(fields[7]),
                  withoutQuotes(text)};
}

void LogRows::begin()
{
    m_rest.clear();
    m_scanned = 0;
    m_inQuotes = false;
    m_searching = false;
}

void LogRows::beginInTheMiddle()
{
    begin();
    m_searching = true;
}

bool LogRows::findFirstRow()
{
    for (std::size_t line = m_rest.find('\n'); line != std::string::npos; line = m_rest.find('\n', line + 1)) {
        if (!beginsRow(std::string_view(m_rest).substr(line + 1)))
            continue;
        m_rest.erase(0, line + 1);
        m_searching = false;
        return true;
    }
    // What may be the first part of a row's begin is kept.
    if (m_rest.size() > RowBegin.size())
        m_rest.erase(0, m_rest.size() - RowBegin.size());
    return false;
}

std::vector<LogRow> LogRows::take(std::string_view bytes)
{
    std::vector<LogRow> rows;
    m_rest += bytes;
    if (m_searching && !findFirstRow())
        return rows;
    std::size_t begin = 0;
    for (; m_scanned < m_rest.size(); ++m_scanned) {
        const char c = m_rest[m_scanned];
        // A message may hold line feeds, so a row ends at the first one outside its quotes.
        if (c == '"')
            m_inQuotes = !m_inQuotes;
        if (c != '\n' || m_inQuotes)
            continue;
        if (auto row = parseLogRow(std::string_view(m_rest).substr(begin, m_scanned - begin)))
            rows.push_back(std::move(*row));
        begin = m_scanned + 1;
    }
    m_rest.erase(0, begin);
    m_scanned = m_rest.size();
    // Text that is no log, or a row that was cut off by an end of the service: the next row is looked for.
    if (m_rest.size() > LongestRow)
        beginInTheMiddle();
    return rows;
}

} // namespace plcctl::live
