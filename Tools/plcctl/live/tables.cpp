#include "tables.h"

#include <string>

namespace plcctl::live {

namespace {

Cell numberCell(std::int64_t number)
{
    return {std::to_string(number), Style::Plain, static_cast<double>(number)};
}

Cell ageCell(std::optional<double> seconds)
{
    return {ageText(seconds), Style::Plain, seconds};
}

Cell rateCell(std::optional<double> perSecond)
{
    return {rateText(perSecond), Style::Plain, perSecond};
}

// A result of a broker or subscription; 0 is no trouble.
Cell codeCell(CodeDomain domain, int code)
{
    return {codeName(domain, code), code == 0 ? Style::Plain : Style::Warning, static_cast<double>(code)};
}

Cell acknowledgementCell(const PublicationData& publication)
{
    if (!publication.acknowledgement)
        return {"-"};
    return {*publication.acknowledgement == 0 ? "0" : std::to_string(*publication.acknowledgement)};
}

Cell subscribedCell(const SubscriptionData& subscription, bool hasProcessEnded)
{
    if (!subscription.record)
        return {"?", Style::Warning};
    if (hasProcessEnded)
        return {"(ended)", Style::Dim};
    return subscription.record->m_Subscribed != 0 ? Cell{"in force", Style::Good} : Cell{"no", Style::Dim};
}

} // namespace

std::string codeName(CodeDomain domain, int code)
{
    const CodeText text = describeCode(domain, code);
    return *text.name == '\0' ? std::to_string(code) : text.name;
}

Cell brokerState(const BrokerData& broker, bool hasProcessEnded)
{
    if (!broker.block)
        return {"no record", Style::Warning};
    if (hasProcessEnded)
        return {"(ended)", Style::Dim};
    if (broker.block->m_Connected != 0)
        return {"connected", Style::Good};
    if (broker.block->m_ReturnCode == CB_CONNECTION_LOST)
        return {"lost", Style::Bad};
    return {"not connected", broker.block->m_ReturnCode == 0 ? Style::Plain : Style::Bad};
}

Cell handOverState(const SubscriptionData& subscription)
{
    if (!subscription.entry.buffered || !subscription.record)
        return {"-"};
    const SubscriberStatusStruct& record = *subscription.record;
    if (record.m_QueueFull != 0)
        return {"full", Style::Bad};
    switch (record.m_BufferedDataStatus) {
    case BDS_HANDING_OVER:
        return {"handing over", Style::Warning};
    case BDS_WAITING:
        return {record.m_ReceivedBit != 0 ? "waiting" : "asked for", Style::Warning};
    default:
        return {"empty"};
    }
}

Style styleOf(Severity severity)
{
    switch (severity) {
    case Severity::Fatal:
    case Severity::Error:
        return Style::Bad;
    case Severity::Warn:
        return Style::Warning;
    case Severity::Info:
        return Style::Plain;
    default:
        return Style::Dim;
    }
}

Table brokersTable(const LiveData& data, Charset charset)
{
    Table table{{{"ID", 5, Align::Right},
                 {"name", 14},
                 {"state", 13},
                 {"session", 7, Align::Left, 80},
                 {"last code", 20},
                 {"since", 7, Align::Right, 80},
                 {"lost", 4, Align::Right, 100},
                 {"subs", 7, Align::Right, 80},
                 {"pubs", 4, Align::Right, 100},
                 {"host", 0, Align::Left, 100}},
                {},
                "no broker is configured"};
    for (const BrokerData& broker : data.brokers) {
        const auto& block = broker.block;
        table.rows.push_back({table.rows.size(),
                              {numberCell(broker.entry.id),
                               {safe(broker.entry.name, charset)},
                               brokerState(broker, data.hasProcessEnded),
                               {!block                         ? "?"
                                : block->m_SessionPresent != 0 ? "stored"
                                                               : "new"},
                               block ? codeCell(CodeDomain::Broker, block->m_ReturnCode) : Cell{"?"},
                               ageCell(broker.sinceSeconds),
                               numberCell(static_cast<std::int64_t>(broker.losses)),
                               {std::to_string(broker.subscribed) + "/" + std::to_string(broker.subscriptions),
                                Style::Plain, static_cast<double>(broker.subscribed)},
                               numberCell(static_cast<std::int64_t>(broker.publications)),
                               {safe(broker.entry.host + ":" + std::to_string(broker.entry.port), charset)}}});
    }
    return table;
}

Table publicationsTable(const LiveData& data, Charset charset)
{
    Table table{{{"ID", 5, Align::Right},
                 {"name", 16},
                 {"broker", 12, Align::Left, 110},
                 {"period", 7, Align::Right},
                 {"sent/s", 6, Align::Right},
                 {"acks/s", 6, Align::Right, 80},
                 {"ack", 3, Align::Right, 80},
                 {"last ack", 8, Align::Right},
                 {"value now", 0},
                 {"topic", 30, Align::Left, 130}},
                {},
                "no publication is configured"};
    for (const PublicationData& publication : data.publications) {
        const auto period = publication.periodMilliseconds;
        table.rows.push_back(
            {table.rows.size(),
             {numberCell(publication.entry.id),
              {safe(publication.entry.name, charset), publication.connected ? Style::Plain : Style::Dim},
              {safe(publication.broker, charset)},
              period ? Cell{periodText(*period), Style::Plain, static_cast<double>(*period)} : Cell{"request"},
              rateCell(publication.sentRate),
              rateCell(publication.acknowledgementRate),
              acknowledgementCell(publication),
              ageCell(publication.acknowledgementSeconds),
              {safe(publication.value, charset)},
              {safe(publication.topic, charset)}}});
    }
    return table;
}

Table subscriptionsTable(const LiveData& data, Charset charset)
{
    Table table{{{"ID", 5, Align::Right},
                 {"name", 16},
                 {"broker", 12, Align::Left, 110},
                 {"state", 8},
                 {"last result", 20, Align::Left, 130},
                 {"age", 7, Align::Right},
                 {"per s", 5, Align::Right, 110},
                 {"bit", 3, Align::Right, 110},
                 {"buffer", 9, Align::Left, 80},
                 {"last topic", 0},
                 {"value now", 20, Align::Left, 110}},
                {},
                "no subscription is configured"};
    for (const SubscriptionData& subscription : data.subscriptions) {
        const auto& record = subscription.record;
        const int result = record ? record->m_SubscriptionStatus : 0;
        Cell state = subscribedCell(subscription, data.hasProcessEnded);
        if (result != 0 && state.style == Style::Dim && !data.hasProcessEnded)
            state.style = Style::Bad;
        table.rows.push_back({table.rows.size(),
                              {numberCell(subscription.entry.id),
                               {safe(subscription.entry.name, charset)},
                               {safe(subscription.broker, charset)},
                               state,
                               record ? codeCell(CodeDomain::Subscription, result) : Cell{"?"},
                               ageCell(subscription.ageSeconds),
                               rateCell(subscription.rate),
                               record ? numberCell(record->m_ReceivedBit) : Cell{"?"},
                               handOverState(subscription),
                               {subscription.ageSeconds ? safe(subscription.topic, charset) : "no message yet",
                                subscription.ageSeconds ? Style::Plain : Style::Dim},
                               {safe(subscription.value, charset)}}});
    }
    return table;
}

Table logTable(const LiveData& data, Severity mildest, Charset charset)
{
    Table table{{{"date", 10, Align::Left, 130},
                 {"time", 12},
                 {"what", 5},
                 {"message", 0},
                 {"function", 20, Align::Left, 130},
                 {"place", 24, Align::Left, 160}},
                {},
                data.logProblem.empty() ? "no such line yet"
                                        : "there is no log to read: " + safe(data.logProblem, charset)};
    for (const NumberedLogRow& each : data.log) {
        if (each.row.severity < mildest)
            continue;
        const Style style = styleOf(each.row.severity);
        table.rows.push_back({each.number,
                              {{safe(each.row.date, charset), Style::Dim},
                               {safe(each.row.time, charset), Style::Dim},
                               {nameOf(each.row.severity), style, static_cast<double>(each.row.severity)},
                               {safe(each.row.message, charset), style},
                               {safe(each.row.function, charset), Style::Dim},
                               {safe(each.row.place, charset), Style::Dim}}});
    }
    return table;
}

} // namespace plcctl::live
