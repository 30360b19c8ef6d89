#include "tally.h"

#include "Records/brokerrecords.h"
#include "Records/generalrecords.h"
#include "Records/statuscodes.h"
#include "Records/subscriptionrecords.h"

#include <cstddef>

namespace plcctl::live {

void Tally::watch(const DeviceConfig& config)
{
    m_places.clear();
    restart();
    const auto add = [&](std::uint64_t position, Kind kind, std::size_t size) {
        m_places.try_emplace(position, Place{kind, static_cast<std::uint32_t>(size), {}});
    };
    if (config.generalAddress)
        add(*config.generalAddress, Kind::Record, sizeof(MQTTGeneralStruct));
    if (config.statisticsAddress)
        add(*config.statisticsAddress, Kind::Record, sizeof(MQTTStatisticsStruct));
    for (const BrokerEntry& broker : config.brokers)
        add(broker.statusAddress, Kind::BrokerBlock, sizeof(BrokerStatusBlock));
    for (const SubscriptionEntry& subscription : config.subscriptions)
        add(subscription.recordAddress, Kind::SubscriptionRecord, sizeof(SubscriberStatusStruct));
    for (const PublicationEntry& publication : config.publications) {
        if (publication.acknowledgeAddress)
            add(*publication.acknowledgeAddress, Kind::Acknowledgement, 1);
    }
}

void Tally::look(const TagMemoryImage::Image& image)
{
    const bool first = !m_cursor;
    if (first)
        m_cursor.emplace(image, oldestWrite(image));
    const std::uint64_t end = writesEver(image);
    while (m_cursor->next() < end) {
        const auto step = m_cursor->step();
        if (!step)
            return;
        if (step->write)
            take(*step->write);
        else if (!first)
            m_lost += step->lost;
    }
}

void Tally::restart()
{
    m_cursor.reset();
    m_processId.reset();
    for (auto& [position, place] : m_places)
        place.count = {};
}

Tally::Count Tally::at(std::uint64_t position) const
{
    const auto place = m_places.find(position);
    return place == m_places.end() ? Count{} : place->second.count;
}

void Tally::take(const TagMemoryImage::Write& write)
{
    const auto found = m_places.find(write.position);
    if (found == m_places.end() || found->second.size != write.size)
        return;
    Place& place = found->second;
    // Anybody writes single bytes: a control application clears its acknowledgements.
    if (place.kind != Kind::Acknowledgement)
        m_processId = write.processId;
    place.count.writeNanoseconds = write.timeNanoseconds;
    if (!isEvent(place.kind, write))
        return;
    ++place.count.events;
    place.count.eventNanoseconds = write.timeNanoseconds;
}

bool Tally::isEvent(Kind kind, const TagMemoryImage::Write& write)
{
    switch (kind) {
    case Kind::Acknowledgement:
        return write.bytes[0] == 1;
    case Kind::SubscriptionRecord:
        // An arrival sets the bit. A record that is written for another reason while the bit stands counts as well.
        return write.bytes[offsetof(SubscriberStatusStruct, m_ReceivedBit)] != 0;
    case Kind::BrokerBlock:
        return static_cast<std::int8_t>(write.bytes[offsetof(BrokerStatusBlock, m_ReturnCode)]) == CB_CONNECTION_LOST;
    case Kind::Record:
        return false;
    }
    return false;
}

} // namespace plcctl::live
