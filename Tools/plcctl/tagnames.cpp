#include "tagnames.h"

#include "output.h"

#include "Records/brokerrecords.h"
#include "Records/generalrecords.h"
#include "Records/linkstates.h"

namespace plcctl {

namespace {

constexpr std::uint64_t SubscriptionRecordSize = 524;

} // namespace

TagNames::TagNames(const DeviceConfig& config)
{
    add(LinkStatePositions[0], 1, "link of port 1");
    add(LinkStatePositions[1], 1, "link of port 2");
    if (config.generalAddress)
        add(*config.generalAddress, sizeof(MQTTGeneralStruct), "general");
    if (config.statisticsAddress)
        add(*config.statisticsAddress, sizeof(MQTTStatisticsStruct), "statistics");
    for (const BrokerEntry& broker : config.brokers) {
        const std::string name = "broker " + inQuotes(broker.name);
        add(broker.statusAddress, sizeof(BrokerStatusBlock), name + " status");
        if (broker.willAddress)
            add(*broker.willAddress, broker.willSize, name + " will");
    }
    for (const PublicationEntry& publication : config.publications) {
        const std::string name = "publication " + inQuotes(publication.name);
        add(publication.dataAddress, publication.dataSize, name + " data");
        if (publication.acknowledgeAddress)
            add(*publication.acknowledgeAddress, 1, name + " acknowledgement");
    }
    for (const SubscriptionEntry& subscription : config.subscriptions) {
        const std::string name = "subscription " + inQuotes(subscription.name);
        add(subscription.dataAddress, subscription.dataSize, name + " data");
        add(subscription.recordAddress, SubscriptionRecordSize, name + " record");
    }
}

void TagNames::add(std::uint64_t position, std::uint64_t size, std::string name)
{
    m_areas.push_back({position, position + size, std::move(name)});
}

std::string TagNames::describe(std::uint64_t position, std::uint64_t size) const
{
    std::string names;
    for (const Area& area : m_areas) {
        if (area.begin < position + size && position < area.end)
            names += (names.empty() ? "" : ", ") + area.name;
    }
    return names;
}

} // namespace plcctl
