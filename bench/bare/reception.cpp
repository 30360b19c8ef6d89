#include "bench/bare/reception.h"

#include "bench/bare/sample.h"
#include "Platform/TagMemory/tagmemory.h"

#include <QString>

#include <algorithm>
#include <array>
#include <cstring>
#include <ctime>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace {

bool isAscii(std::string_view text)
{
    return std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

void storeTopic(std::string_view topic, char16_t (&field)[256])
{
    if (topic.size() < std::size(field) && isAscii(topic)) {
        *std::copy(topic.begin(), topic.end(), field) = u'\0';
        return;
    }
    const QString text = QString::fromUtf8(topic.data(), static_cast<int>(topic.size())).left(std::size(field) - 1);
    std::copy_n(text.utf16(), text.size() + 1, field);
}

} // namespace

Reception::Reception(const Workload& workload, Counters& counters)
    : m_counters(counters), m_isJson(workload.json != 0), m_size(workload.size)
{
    std::ifstream file(workload.filters);
    std::string line;
    for (unsigned i = 0; i < static_cast<unsigned>(workload.subscriptions) && std::getline(file, line); ++i) {
        m_subscriptions.push_back({Filter(line),
                                   workload.recordsAddress + i * static_cast<unsigned>(sizeof(SubscriberStatusStruct)),
                                   workload.dataAddress + i * static_cast<unsigned>(workload.spacing),
                                   {}});
    }
    if (m_subscriptions.size() != static_cast<std::size_t>(workload.subscriptions))
        throw std::runtime_error("too few filters in '" + workload.filters + "'");
}

std::vector<std::string> Reception::filters() const
{
    std::vector<std::string> texts;
    for (const Subscription& subscription : m_subscriptions)
        texts.push_back(subscription.filter.text());
    return texts;
}

void Reception::take(const char* topic, const void* payload, int size)
{
    const std::string_view text = topic;
    for (Subscription& subscription : m_subscriptions) {
        if (subscription.filter.matches(topic, text.size()))
            store(subscription, text, payload, size);
    }
}

void Reception::store(Subscription& subscription, std::string_view topic, const void* payload, int size)
{
    SubscriberStatusStruct& record = subscription.record;
    record.m_Subscribed = 1;
    record.m_ReceivedBit = 1;
    record.m_LastMessageUTC = static_cast<std::uint32_t>(std::time(nullptr));
    storeTopic(topic, record.m_LastMessageTopic);
    (void)TagMemory::Write(sizeof record, subscription.recordAddress, reinterpret_cast<const unsigned char*>(&record));
    m_counters.addReceived();
    if (m_isJson)
        storeSample(subscription.dataAddress, payload, size);
    else
        storeBytes(subscription.dataAddress, payload, size);
}

void Reception::storeSample(unsigned address, const void* payload, int size) const
{
    Sample sample{};
    if (parseSample(static_cast<const char*>(payload), size, sample))
        (void)TagMemory::Write(SampleSize, address, reinterpret_cast<const unsigned char*>(&sample));
}

void Reception::storeBytes(unsigned address, const void* payload, int size) const
{
    std::array<unsigned char, LargestPayload> bytes;
    const int present = std::clamp(size, 0, m_size);
    std::memcpy(bytes.data(), payload, static_cast<std::size_t>(present));
    std::fill(bytes.begin() + present, bytes.begin() + m_size, '\0');
    (void)TagMemory::Write(static_cast<unsigned short>(m_size), address, bytes.data());
}
