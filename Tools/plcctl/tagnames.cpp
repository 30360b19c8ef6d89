#include "tagnames.h"

#include "output.h"

#include "Records/brokerrecords.h"
#include "Records/generalrecords.h"
#include "Records/linkstates.h"
#include "Records/subscriptionrecords.h"

#include <algorithm>
#include <array>
#include <cstddef>

namespace plcctl {

namespace {

// A field of a subscription's record, by its place in the record.
struct Field
{
    std::uint64_t offset;
    std::uint64_t size;
    const char* name;
};

constexpr std::array SubscriptionFields{
    Field{offsetof(SubscriberStatusStruct, m_Subscribed), 1, "subscribed"},
    Field{offsetof(SubscriberStatusStruct, m_SubscriptionStatus), 1, "last result"},
    Field{offsetof(SubscriberStatusStruct, m_ReceivedBit), 1, "received bit"},
    Field{offsetof(SubscriberStatusStruct, m_QueueFull), 1, "queue full"},
    Field{offsetof(SubscriberStatusStruct, m_LastMessageTopic), sizeof(SubscriberStatusStruct::m_LastMessageTopic),
          "topic of the last message"},
    Field{offsetof(SubscriberStatusStruct, m_LastMessageUTC), sizeof(SubscriberStatusStruct::m_LastMessageUTC),
          "time of the last message"},
    Field{offsetof(SubscriberStatusStruct, m_BufferedDataStatus), 1, "hand-over state"},
};

// ": received bit" for bytes that lie within that one field, else nothing.
std::string fieldSuffix(std::uint64_t offset, std::uint64_t size)
{
    for (const Field& field : SubscriptionFields) {
        if (field.offset <= offset && offset + size <= field.offset + field.size)
            return std::string(": ") + field.name;
    }
    return "";
}

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
        add(subscription.recordAddress, sizeof(SubscriberStatusStruct), name + " record");
        m_areas.back().isSubscriptionRecord = true;
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
        if (!touches(area, position, size))
            continue;
        names += (names.empty() ? "" : ", ") + area.name;
        if (area.isSubscriptionRecord && position >= area.begin)
            names += fieldSuffix(position - area.begin, size);
    }
    return names;
}

std::uint64_t TagNames::firstUnnamed(std::uint64_t position, std::uint64_t size) const
{
    while (true) {
        const auto inTheWay = std::find_if(m_areas.begin(), m_areas.end(), [position, size](const Area& area) {
            return touches(area, position, size);
        });
        if (inTheWay == m_areas.end())
            return position;
        position = inTheWay->end;
    }
}

bool TagNames::touches(const Area& area, std::uint64_t position, std::uint64_t size)
{
    return area.begin < position + size && position < area.end;
}

} // namespace plcctl
