#include "page.h"
#include "tables.h"

#include <algorithm>

namespace plcctl::live {

namespace {

constexpr int CounterWidth = 36; // of a counter's line ahead of its plot

Line plainLine(const std::string& text, int width, Charset charset)
{
    return {{fitted(text, width, Align::Left, charset), Style::Plain}};
}

std::vector<Line> counterLines(const LiveData& data, int width, Charset charset)
{
    std::vector<Line> lines{
        {{fitted("messages            total  per second  over time", width, Align::Left, charset), Style::Strong}}};
    for (const CounterData& counter : data.counters) {
        const std::string value = counter.value ? std::to_string(*counter.value) : "-";
        const bool isTrouble = std::string_view(counter.name) == "dropped" && counter.rate.value_or(0) > 0;
        const std::string head = fitted(counter.name, 13, Align::Left, charset) +
                                 fitted(value, 12, Align::Right, charset) +
                                 fitted(rateText(counter.rate), 9, Align::Right, charset) + "  ";
        lines.push_back({{head, isTrouble ? Style::Bad : Style::Plain},
                         {plot(counter.rates, width - CounterWidth, charset), isTrouble ? Style::Bad : Style::Good}});
    }
    return lines;
}

std::string linkText(const std::optional<std::uint8_t>& link)
{
    return !link ? "?" : *link == 1 ? "up" : "down";
}

std::string queueText(const QueueData& queue, Charset charset)
{
    if (!queue.problem.empty())
        return safe(queue.problem, charset);
    return bar(static_cast<double>(queue.waiting), static_cast<double>(queue.capacity), 10) + " " +
           std::to_string(queue.waiting) + " of " + std::to_string(queue.capacity) + " waiting";
}

// "buffered: 1 waiting, 1 full"
std::string bufferText(const LiveData& data)
{
    std::size_t waiting = 0;
    std::size_t full = 0;
    for (const SubscriptionData& subscription : data.subscriptions) {
        if (!subscription.entry.buffered || !subscription.record)
            continue;
        full += subscription.record->m_QueueFull != 0 ? 1 : 0;
        waiting += subscription.record->m_BufferedDataStatus != BDS_NONE ? 1 : 0;
    }
    return "; buffered: " + std::to_string(waiting) + " with messages, " + std::to_string(full) + " full";
}

std::vector<Line> factLines(const LiveData& data, int width, Charset charset)
{
    const auto inForce =
        std::count_if(data.subscriptions.begin(), data.subscriptions.end(), [](const SubscriptionData& subscription) {
            return subscription.record && subscription.record->m_Subscribed != 0;
        });
    return {plainLine("request queue " + queueText(data.queue, charset) + "   links " + linkText(data.links[0]) + ", " +
                          linkText(data.links[1]) +
                          (data.lostWrites > 0 ? "   journal lost " + std::to_string(data.lostWrites) : ""),
                      width, charset),
            plainLine("publications  " + std::to_string(data.publications.size()) + ", their periods make " +
                          rateText(data.expectedRate) + " per second on connected brokers",
                      width, charset),
            plainLine("subscriptions " + std::to_string(inForce) + " of " + std::to_string(data.subscriptions.size()) +
                          " in force" + bufferText(data),
                      width, charset)};
}

// The brokers that need a look first: those that aren't connected.
std::vector<Line> brokerLines(const LiveData& data, int width, std::size_t most, Charset charset)
{
    Table table = brokersTable(data, charset);
    std::stable_partition(table.rows.begin(), table.rows.end(), [&data](const TableRow& row) {
        const auto& block = data.brokers[row.key].block;
        return !block || block->m_Connected == 0;
    });
    std::vector<Line> lines{headLine(table, width, std::nullopt, false, charset)};
    for (std::size_t at = 0; at < std::min(most, table.rows.size()); ++at)
        lines.push_back(rowLine(table, table.rows[at], width, false, charset));
    if (table.rows.size() > most)
        lines.back() =
            plainLine("and " + std::to_string(table.rows.size() - most + 1) + " more: press 2", width, charset);
    return lines;
}

std::vector<Line> logLines(const LiveData& data, int width, std::size_t most, Charset charset)
{
    LiveData some;
    some.logProblem = data.logProblem;
    for (const NumberedLogRow& row : data.log) {
        if (some.log.size() < most && row.row.severity >= Severity::Info)
            some.log.push_back(row);
    }
    const Table table = logTable(some, Severity::Info, charset);
    std::vector<Line> lines;
    if (table.rows.empty())
        lines.push_back(plainLine(table.empty, width, charset));
    for (const TableRow& row : table.rows)
        lines.push_back(rowLine(table, row, width, false, charset));
    return lines;
}

} // namespace

std::vector<Line> overviewLines(const LiveData& data, Charset charset, int width, int height)
{
    constexpr std::size_t FewestLogLines = 3;
    std::vector<Line> lines = counterLines(data, width, charset);
    const auto append = [&lines](const std::vector<Line>& more) {
        lines.insert(lines.end(), more.begin(), more.end());
    };
    append(factLines(data, width, charset));
    lines.emplace_back();
    const auto room = static_cast<std::size_t>(height);
    const std::size_t rest = room > lines.size() ? room - lines.size() : 0;
    // A head and an empty line go with the brokers.
    const std::size_t brokers = rest > FewestLogLines + 3 ? rest - FewestLogLines - 2 : 1;
    append(brokerLines(data, width, brokers, charset));
    lines.emplace_back();
    append(logLines(data, width, room > lines.size() ? room - lines.size() : 0, charset));
    lines.resize(std::min(lines.size(), room));
    return lines;
}

} // namespace plcctl::live
