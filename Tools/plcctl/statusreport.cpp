#include "statusreport.h"

#include "reporttext.h"

#include <algorithm>

namespace plcctl {

namespace {

std::string counted(std::uint32_t number, const std::string& what)
{
    return std::to_string(number) + " " + what + (number == 1 ? "" : "s");
}

std::string generalLine(const StatusReport& report)
{
    const std::string label = lineHead("general", report.generalAddress);
    if (!report.general)
        return label + absence(report.generalAddress);
    const MQTTGeneralStruct& general = *report.general;
    return label + describe(CodeDomain::Process, general.m_ProcessStatus) + "; " +
           counted(general.m_BrokersNumber, "broker") + ", " + counted(general.m_PublicationsNumber, "publication") +
           ", " + counted(general.m_SubscriptionsNumber, "subscription") +
           (general.m_Reserved == 0 ? "" : ", reserved " + std::to_string(general.m_Reserved));
}

std::string statisticsLine(const StatusReport& report)
{
    const std::string label = lineHead("statistics", report.statisticsAddress);
    if (!report.statistics)
        return label + absence(report.statisticsAddress);
    const MQTTStatisticsStruct& statistics = *report.statistics;
    return label + std::to_string(statistics.m_SentPubs) + " sent, " + std::to_string(statistics.m_AckPubs) +
           " acknowledged, " + std::to_string(statistics.m_ReceivedSub) + " received, " +
           std::to_string(statistics.m_DroppedSubs) + " dropped";
}

std::string brokerLine(const BrokerStatus& status)
{
    const BrokerEntry& broker = status.broker;
    const std::string label = lineHead("broker " + std::to_string(broker.id), broker.statusAddress) +
                              inQuotes(broker.name) + " " + printable(broker.host) + ":" + std::to_string(broker.port) +
                              ", ";
    if (!status.block)
        return label + absence(broker.statusAddress);
    const BrokerStatusBlock& block = *status.block;
    return label + flag(block.m_Connected, "connected", "not connected") + ", " +
           flag(block.m_SessionPresent, "stored session", "no stored session") + "; last result " +
           describe(CodeDomain::Broker, block.m_ReturnCode) +
           (block.m_Reserved == 0 ? "" : "; reserved " + std::to_string(block.m_Reserved));
}

Json generalJson(const StatusReport& report)
{
    if (!report.general)
        return nullptr;
    const MQTTGeneralStruct& general = *report.general;
    return {{"address", *report.generalAddress},
            {"processStatus", codeJson(CodeDomain::Process, general.m_ProcessStatus)},
            {"brokers", std::uint16_t{general.m_BrokersNumber}},
            {"publications", std::uint16_t{general.m_PublicationsNumber}},
            {"subscriptions", std::uint16_t{general.m_SubscriptionsNumber}},
            {"reserved", std::uint16_t{general.m_Reserved}}};
}

Json statisticsJson(const StatusReport& report)
{
    if (!report.statistics)
        return nullptr;
    const MQTTStatisticsStruct& statistics = *report.statistics;
    return {{"address", *report.statisticsAddress},
            {"sent", std::uint32_t{statistics.m_SentPubs}},
            {"acknowledged", std::uint32_t{statistics.m_AckPubs}},
            {"received", std::uint32_t{statistics.m_ReceivedSub}},
            {"dropped", std::uint32_t{statistics.m_DroppedSubs}}};
}

Json brokerJson(const BrokerStatus& status)
{
    const BrokerEntry& broker = status.broker;
    Json result{{"id", broker.id},
                {"name", broker.name},
                {"host", broker.host},
                {"port", broker.port},
                {"address", broker.statusAddress}};
    if (!status.block) {
        result["block"] = nullptr;
        return result;
    }
    const BrokerStatusBlock& block = *status.block;
    result["block"] = {{"connected", block.m_Connected},
                       {"sessionPresent", block.m_SessionPresent},
                       {"returnCode", codeJson(CodeDomain::Broker, block.m_ReturnCode)},
                       {"reserved", block.m_Reserved}};
    return result;
}

} // namespace

StatusReport readStatus(const TagReader& reader, const DeviceConfig& config)
{
    StatusReport report;
    report.generalAddress = config.generalAddress;
    report.general = readRecord<MQTTGeneralStruct>(reader, config.generalAddress);
    report.statisticsAddress = config.statisticsAddress;
    report.statistics = readRecord<MQTTStatisticsStruct>(reader, config.statisticsAddress);
    for (const BrokerEntry& broker : config.brokers)
        report.brokers.push_back({broker, readRecord<BrokerStatusBlock>(reader, broker.statusAddress)});
    for (const SubscriptionEntry& subscription : config.subscriptions) {
        report.subscriptions.push_back(
            {subscription, readRecord<SubscriberStatusStruct>(reader, subscription.recordAddress)});
    }
    report.problems = config.problems;
    report.complete = report.general && report.statistics && report.problems.empty() &&
                      std::all_of(report.brokers.begin(), report.brokers.end(),
                                  [](const BrokerStatus& status) { return status.block.has_value(); }) &&
                      std::all_of(report.subscriptions.begin(), report.subscriptions.end(),
                                  [](const SubscriptionStatus& status) { return status.record.has_value(); });
    return report;
}

std::vector<std::string> linesOf(const StatusReport& report)
{
    std::vector<std::string> lines{generalLine(report), statisticsLine(report)};
    for (const BrokerStatus& status : report.brokers)
        lines.push_back(brokerLine(status));
    for (const SubscriptionStatus& status : report.subscriptions)
        lines.push_back(subscriptionLine(status));
    return lines;
}

Json jsonOf(const StatusReport& report)
{
    Json brokers = Json::array();
    for (const BrokerStatus& status : report.brokers)
        brokers.push_back(brokerJson(status));
    Json subscriptions = Json::array();
    for (const SubscriptionStatus& status : report.subscriptions)
        subscriptions.push_back(subscriptionJson(status));
    Json problems = Json::array();
    for (const FileProblem& problem : report.problems)
        problems.push_back({{"file", problem.file}, {"text", problem.text}});
    return {{"general", generalJson(report)},
            {"statistics", statisticsJson(report)},
            {"brokers", brokers},
            {"subscriptions", subscriptions},
            {"problems", problems},
            {"complete", report.complete}};
}

} // namespace plcctl
