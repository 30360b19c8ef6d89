#include "Entities/subscriber.h"
#include "Entities/topicsieve.h"
#include "fuzzing.h"
#include "guardedtagmemory.h"
#include "Records/generalrecords.h"
#include "Records/subscriptionrecords.h"
#include "Services/mqttStatusLogManager.h"

#include <QList>
#include <QStringList>

// The filter is the input's first line, the topic all that follows. The rules are read a second time here, on lists of
// levels.

namespace {

constexpr unsigned int RecordAddress = 8192;
constexpr unsigned int StatisticsAddress = 1024;

template<typename Text>
bool matchesLevels(const Text& filter, const Text& topic)
{
    const auto filterLevels = filter.split('/');
    const auto topicLevels = topic.split('/');
    if (filterLevels.size() != topicLevels.size())
        return false;
    for (int i = 0; i < filterLevels.size(); ++i) {
        const bool isWildcard = filterLevels.at(i).contains('+') && filterLevels.at(i).size() == 1;
        if (filterLevels.at(i) != topicLevels.at(i) && !isWildcard)
            return false;
    }
    return true;
}

template<typename Text>
bool matchesPrefix(const Text& filter, const Text& topic)
{
    const int size = filter.indexOf('#');
    return size == -1 ? topic == filter : topic.left(size) == filter.left(size);
}

template<typename Text>
void compare(const QString& filterText, const Text& filter, const QByteArray& topicBytes, const Text& topic)
{
    Subscriber subscriber;
    subscriber.m_Topic = filterText;
    subscriber.m_SubAddr = RecordAddress;
    subscriber.m_Special = filter.contains('+') || filter.contains('#');
    QByteArray received = topicBytes; // the callback's argument isn't const
    const bool level = subscriber.isContinedInSingleLevelTopic(received.data(), received.size());
    const bool prefix = subscriber.isContinedInInMultiLevelTopic(received.data(), received.size());
    Fuzzing::require(level == matchesLevels(filter, topic), "level by level, as the rules say");
    Fuzzing::require(prefix == matchesPrefix(filter, topic), "up to the \"#\", as the rules say");

    MQTTClient_message message = MQTTClient_message_initializer;
    const bool isMine = subscriber.MessageArrived(received.data(), received.size(), &message);
    Fuzzing::require(isMine == (filter == topic || (subscriber.m_Special && (level || prefix))),
                     "a message is taken by the filter's own text, or by one of both rules");

    TopicSieve sieve;
    sieve.addFilter(TopicFilter(filterText), subscriber.m_Special);
    Fuzzing::require(!isMine || sieve.mayMatch(0, topicBytes.constData(), static_cast<std::size_t>(topicBytes.size())),
                     "the sieve holds nothing back that matches");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const QByteArray input(reinterpret_cast<const char*>(data), static_cast<int>(size));
    const int lineEnd = input.indexOf('\n');
    const QString filter = QString::fromUtf8(input.left(lineEnd).constData());
    const QByteArray topic = lineEnd == -1 ? QByteArray() : QByteArray(input.mid(lineEnd + 1).constData());

    MQTTStatusLogManager::instance()->UpdateMQTTStructsAddress(0, StatisticsAddress);
    GuardedTagMemory::reset(
        {{RecordAddress, sizeof(SubscriberStatusStruct)}, {StatisticsAddress, sizeof(MQTTStatisticsStruct)}});

    const QString topicText = QString::fromUtf8(topic);
    // Bytes that are no UTF-8 are compared as bytes; of texts, the characters count.
    if (topicText.toUtf8() == topic)
        compare(filter, filter, topic, topicText);
    compare(filter, filter.toUtf8(), topic, topic);
    return 0;
}
