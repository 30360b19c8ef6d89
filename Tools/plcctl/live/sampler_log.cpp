#include "sampler.h"

#include <algorithm>

namespace plcctl::live {

namespace {

// Of each severity, so that many lines of a mild one push none of a worse one out.
constexpr std::size_t RowsKept = 500;

// The name in "Publication 'line speed' Publish Size=4 ...", the debug line of a publication that went out.
std::optional<std::string> publishedName(const std::string& message)
{
    constexpr std::string_view Head = "Publication '";
    constexpr std::string_view Tail = "' Publish Size=";
    if (!message.starts_with(Head))
        return std::nullopt;
    const std::size_t end = message.find(Tail);
    if (end == std::string::npos)
        return std::nullopt;
    return message.substr(Head.size(), end - Head.size());
}

} // namespace

void Sampler::lookAtLog(LiveData& data)
{
    for (LogRow& row : m_log.look())
        takeLogRow(std::move(row));
    m_wasLogRead = true;
    data.logProblem = m_log.problem();
    data.logBytesSkipped = m_log.skipped();
    // What was left out may have held any number of publications.
    if (m_logSkipped != m_log.skipped())
        m_sent.clear();
    m_logSkipped = m_log.skipped();
    for (auto& [name, sent] : m_sent) {
        sent.series.add(m_time, sent.events);
        sent.events = 0;
    }
    for (const auto& rows : m_rowsBySeverity)
        data.log.insert(data.log.end(), rows.begin(), rows.end());
    std::sort(data.log.begin(), data.log.end(),
              [](const NumberedLogRow& one, const NumberedLogRow& other) { return one.number > other.number; });
}

void Sampler::takeLogRow(LogRow row)
{
    // What stood there already may be of another process, or of any time.
    if (const auto name = m_wasLogRead ? publishedName(row.message) : std::nullopt) {
        SentSeries& sent = m_sent[*name];
        ++sent.events;
        sent.lastNanoseconds = m_now;
    }
    auto& rows = m_rowsBySeverity[static_cast<std::size_t>(row.severity)];
    rows.push_back({m_logRows++, std::move(row)});
    if (rows.size() > RowsKept)
        rows.pop_front();
}

} // namespace plcctl::live
