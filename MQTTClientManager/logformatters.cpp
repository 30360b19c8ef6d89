#include "logformatters.h"

#include <cstring>
#include <ctime>
#include <iomanip>
#include <sstream>

namespace {

constexpr std::size_t LongestMessage = 32000; // characters

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

bool isContinuation(char c)
{
    return (static_cast<unsigned char>(c) & 0xC0) == 0x80;
}

// The message, cut behind its last character that fits; a character of UTF-8 stays whole.
std::string cutToLength(std::string message)
{
    if (message.size() <= LongestMessage)
        return message;
    std::size_t characters = 0;
    for (std::size_t i = 0; i < message.size(); ++i) {
        if (isContinuation(message[i]) || ++characters <= LongestMessage)
            continue;
        message.resize(i);
        return message + "...";
    }
    return message;
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
    std::ostringstream row;
    putDate(row, time, '/');
    row << ';';
    putTime(row, time, record.getTime().millitm);
    row << ';' << plog::severityToString(record.getSeverity()) << ';' << record.getTid() << ';' << processName() << ';'
        << record.getFunc() << ';' << baseName(record.getFile()) << ';' << record.getLine() << ';';
    putQuoted(row, cutToLength(record.getMessage()));
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
