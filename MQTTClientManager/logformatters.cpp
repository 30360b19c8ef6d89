#include "logformatters.h"

#include <cstring>
#include <ctime>
#include <iomanip>
#include <sstream>

namespace {

constexpr std::size_t LongestMessage = 32000;

std::string& processName()
{
    static std::string name;
    return name;
}

tm localTime(const plog::Record& record)
{
    tm time{};
    plog::util::localtime_s(&time, &record.getTime().time);
    return time;
}

void putDate(std::ostream& row, const tm& time, char separator)
{
    row << time.tm_year + 1900 << separator << std::setfill('0') << std::setw(2) << time.tm_mon + 1 << separator
        << std::setw(2) << time.tm_mday;
}

void putTime(std::ostream& row, const tm& time, unsigned milliseconds)
{
    row << std::setfill('0') << std::setw(2) << time.tm_hour << ':' << std::setw(2) << time.tm_min << ':'
        << std::setw(2) << time.tm_sec << '.' << std::setw(3) << milliseconds;
}

const char* baseName(const char* path)
{
    const char* slash = std::strrchr(path, '/');
    return slash ? slash + 1 : path;
}

// Every piece between two quotes is quoted, which doubles the quotes of the text.
void putQuoted(std::ostream& row, const std::string& text)
{
    row << '"';
    for (const char c : text) {
        if (c == '"')
            row << '"';
        row << c;
    }
    row << '"';
}

} // namespace

plog::util::nstring CsvLogFormatter::header()
{
    return "sep=;\nDate;Time;Severity;TID;Process;Function;File;Line;Message\n";
}

void CsvLogFormatter::setProcessName(const plog::util::nstring& name)
{
    processName() = name;
}

plog::util::nstring CsvLogFormatter::format(const plog::Record& record)
{
    const tm time = localTime(record);
    std::string message = record.getMessage();
    if (message.size() > LongestMessage) {
        message.resize(LongestMessage);
        message += "...";
    }

    std::ostringstream row;
    putDate(row, time, '/');
    row << ';';
    putTime(row, time, record.getTime().millitm);
    row << ';' << plog::severityToString(record.getSeverity()) << ';' << record.getTid() << ';' << processName() << ';'
        << record.getFunc() << ';' << baseName(record.getFile()) << ';' << record.getLine() << ';';
    putQuoted(row, message);
    row << '\n';
    return row.str();
}

plog::util::nstring ConsoleLogFormatter::header()
{
    return {};
}

plog::util::nstring ConsoleLogFormatter::format(const plog::Record& record)
{
    const tm time = localTime(record);
    std::ostringstream row;
    putDate(row, time, '-');
    row << ' ';
    putTime(row, time, record.getTime().millitm);
    row << ' ' << std::setfill(' ') << std::setw(5) << std::left << plog::severityToString(record.getSeverity()) << " ["
        << record.getTid() << "] [" << record.getFunc() << '@' << record.getLine() << "] " << record.getMessage()
        << '\n';
    return row.str();
}
