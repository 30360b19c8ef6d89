#include "sampler.h"

#include "configuredvalue.h"
#include "reporttext.h"
#include "subscriptionreport.h"
#include "tagtypes.h"

#include "Records/argtype.h"

#include <algorithm>

namespace plcctl::live {

namespace {

enum PayloadFormat
{
    JsonFormat = 1,
    ProtobufFormat = 2,
    TriggeredFormat = 3
};

int numberOf(const Attributes& attributes, const char* name)
{
    const auto found = attributes.find(name);
    return found == attributes.end() ? 0 : std::atoi(found->second.c_str()); // NOLINT(cert-err34-c): 0 is what is meant
}

std::string textOf(const Attributes& attributes, const char* name)
{
    const auto found = attributes.find(name);
    return found == attributes.end() ? "" : found->second;
}

// A publication's tag as its payload would show it.
std::string publishedValue(const PublicationEntry& entry, const std::vector<std::uint8_t>& bytes)
{
    switch (numberOf(entry.attributes, "PayloadFormat")) {
    case JsonFormat:
        return jsonOfData(entry.value, entry.members, bytes).dump(-1, ' ', false, Json::error_handler_t::replace);
    case ProtobufFormat:
        return "made by a script from " + textOfData(entry.value, entry.members, bytes);
    case TriggeredFormat:
        return "runs a script with " + textOfData(entry.value, entry.members, bytes);
    default:
        return entry.value.type == AT_STRUCT ? hexBytes(bytes) : textOfData(entry.value, entry.members, bytes);
    }
}

} // namespace

void Sampler::EventSeries::take(double time, std::uint64_t events)
{
    series.add(time, events >= seen ? events - seen : 0);
    seen = events;
}

void Sampler::fillBrokers(LiveData& data)
{
    for (const BrokerEntry& entry : m_config.brokers) {
        BrokerData broker;
        broker.entry = entry;
        if (m_reader)
            broker.block = readRecord<BrokerStatusBlock>(*m_reader, entry.statusAddress);
        const Tally::Count count = m_tally.at(entry.statusAddress);
        broker.losses = count.events;
        broker.sinceSeconds = ageOf(count.writeNanoseconds);
        data.brokers.push_back(std::move(broker));
    }
}

void Sampler::fillPublications(LiveData& data)
{
    double expected = 0;
    for (const PublicationEntry& entry : m_config.publications) {
        PublicationData publication;
        publication.entry = entry;
        publication.broker = brokerName(entry.attributes);
        publication.topic = textOf(entry.attributes, "Topic");
        publication.connected = isConnected(data, entry.attributes);
        const int period = numberOf(entry.attributes, "PeriodicInterval");
        if (period != -1)
            publication.periodMilliseconds = period;
        if (publication.connected && period > 0)
            expected += 1000.0 / period;
        publication.value = publishedValue(entry, bytesAt(entry.dataAddress, entry.dataSize));
        // Rare events need a longer look to make a rate.
        const double window = std::max(RateWindow, 4 * period / 1000.0);
        if (entry.acknowledgeAddress && numberOf(entry.attributes, "QOS") != 0) {
            const auto byte = bytesAt(*entry.acknowledgeAddress, 1);
            if (!byte.empty())
                publication.acknowledgement = byte.front();
            const Tally::Count count = m_tally.at(*entry.acknowledgeAddress);
            publication.acknowledgementSeconds = ageOf(count.eventNanoseconds);
            EventSeries& events = m_events[*entry.acknowledgeAddress];
            events.take(m_time, count.events);
            publication.acknowledgementRate = events.series.perSecond(window);
        }
        if (const auto sent = m_sent.find(entry.name); sent != m_sent.end()) {
            publication.sentRate = sent->second.series.perSecond(window);
            publication.sentSeconds = ageOf(sent->second.lastNanoseconds);
        }
        data.publications.push_back(std::move(publication));
        for (BrokerData& broker : data.brokers)
            broker.publications += broker.entry.id == numberOf(entry.attributes, "CBrokerID") ? 1 : 0;
    }
    data.expectedRate = expected;
}

void Sampler::fillSubscriptions(LiveData& data)
{
    for (const SubscriptionEntry& entry : m_config.subscriptions) {
        SubscriptionData subscription;
        subscription.entry = entry;
        subscription.broker = brokerName(entry.attributes);
        subscription.filter = textOf(entry.attributes, "Topic");
        subscription.value = textOfData(entry, bytesAt(entry.dataAddress, entry.dataSize));
        if (m_reader)
            subscription.record = readRecord<SubscriberStatusStruct>(*m_reader, entry.recordAddress);
        if (subscription.record) {
            subscription.topic = lastTopic(*subscription.record);
            const std::uint32_t seconds = subscription.record->m_LastMessageUTC;
            if (seconds != 0)
                subscription.ageSeconds = static_cast<double>(m_now) / NanosecondsPerSecond - seconds;
            // The journal knows the moment, as far as it goes back; the record only the second.
            const Tally::Count count = m_tally.at(entry.recordAddress);
            const auto age = ageOf(count.eventNanoseconds);
            if (age && subscription.ageSeconds && std::abs(*age - *subscription.ageSeconds) < 2)
                subscription.ageSeconds = age;
            EventSeries& events = m_events[entry.recordAddress];
            events.take(m_time, count.events);
            subscription.rate = events.series.perSecond(RateWindow);
        }
        for (BrokerData& broker : data.brokers) {
            if (broker.entry.id != numberOf(entry.attributes, "CBrokerID"))
                continue;
            ++broker.subscriptions;
            broker.subscribed += subscription.record && subscription.record->m_Subscribed != 0 ? 1 : 0;
        }
        data.subscriptions.push_back(std::move(subscription));
    }
}

std::string Sampler::brokerName(const Attributes& attributes) const
{
    const int id = numberOf(attributes, "CBrokerID");
    const auto found = std::find_if(m_config.brokers.begin(), m_config.brokers.end(),
                                    [id](const BrokerEntry& broker) { return broker.id == id; });
    return found == m_config.brokers.end() ? std::to_string(id) + "?" : found->name;
}

bool Sampler::isConnected(const LiveData& data, const Attributes& attributes) const
{
    const int id = numberOf(attributes, "CBrokerID");
    const auto found = std::find_if(data.brokers.begin(), data.brokers.end(),
                                    [id](const BrokerData& broker) { return broker.entry.id == id; });
    return found != data.brokers.end() && found->block && found->block->m_Connected != 0 && !data.hasProcessEnded;
}

} // namespace plcctl::live
