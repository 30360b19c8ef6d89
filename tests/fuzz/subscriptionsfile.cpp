#include "Entities/subscriber.h"
#include "entityfile.h"
#include "guardedtagmemory.h"
#include "Records/generalrecords.h"
#include "Records/subscriptionrecords.h"
#include "Services/mqttStatusLogManager.h"

#include <algorithm>

// The subscriptions' configuration file, and a message for the first of them.

namespace {

// Larger tags would only take time: thousands of writes each.
constexpr int LargestTag = 100'000;

void deliver(Subscriber& subscriber)
{
    MQTTStatusLogManager::instance()->UpdateMQTTStructsAddress(0, 0);
    GuardedTagMemory::reset(
        {{0, sizeof(MQTTStatisticsStruct)},
         {subscriber.m_SubAddr, sizeof(SubscriberStatusStruct)},
         {subscriber.m_DataAddress, static_cast<unsigned long>(std::max(subscriber.m_DataSize, 0))}});
    QByteArray payload = R"({"a":[1,2,3],"b":"text","c":true,"d":1.5,"e":null})";
    MQTTClient_message message = MQTTClient_message_initializer;
    message.payload = payload.data();
    message.payloadlen = payload.size();
    QByteArray topic = subscriber.m_Topic.toUtf8();
    Fuzzing::require(subscriber.MessageArrived(topic.data(), 0, &message), "a topic that is the filter's own text");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    QList<Subscriber> subscribers = Fuzzing::readEntities(&MQTTXmlParser::ParseXMLFileSubscriptions, data, size);
    if (!subscribers.isEmpty() && subscribers.first().m_DataSize <= LargestTag)
        deliver(subscribers.first());
    return 0;
}
