// Prints what the headers say of the records that cross a boundary, as one JSON object: the documents are held against
// it.

#include "Records/argtype.h"
#include "Records/brokerrecords.h"
#include "Records/generalrecords.h"
#include "Records/linkstates.h"
#include "Records/publicationrecords.h"
#include "Records/requestrecords.h"
#include "Records/statuscodes.h"
#include "Records/subscriptionrecords.h"

#include <iostream>
#include <nlohmann/json.hpp>

namespace {

using nlohmann::json;

// A field's name, offset and size in bytes.
#define FIELD(record, field) json::array({#field, offsetof(record, field), sizeof(record::field)})
#define RECORD(record, ...)                                                                                            \
    {                                                                                                                  \
#record, json                                                                                                  \
        {                                                                                                              \
            {"size", sizeof(record)},                                                                                  \
            {                                                                                                          \
                "fields", json::array({__VA_ARGS__})                                                                   \
            }                                                                                                          \
        }                                                                                                              \
    }
#define ENUMERATOR(name)                                                                                               \
    {                                                                                                                  \
        std::to_string(int{name}), #name                                                                               \
    }

json records()
{
    using Broker = CBrokerConfigurationStruct;
    using Publication = PublicationConfigurationStruct;
    using Subscription = SubscriptionConfigurationStruct;
    using State = SubscriberStatusStruct;
    json result = json::object(
        {RECORD(MQTTGeneralStruct, FIELD(MQTTGeneralStruct, m_ProcessStatus), FIELD(MQTTGeneralStruct, m_BrokersNumber),
                FIELD(MQTTGeneralStruct, m_PublicationsNumber), FIELD(MQTTGeneralStruct, m_SubscriptionsNumber),
                FIELD(MQTTGeneralStruct, m_Reserved)),
         RECORD(MQTTStatisticsStruct, FIELD(MQTTStatisticsStruct, m_SentPubs), FIELD(MQTTStatisticsStruct, m_AckPubs),
                FIELD(MQTTStatisticsStruct, m_ReceivedSub), FIELD(MQTTStatisticsStruct, m_DroppedSubs)),
         RECORD(BrokerStatusBlock, FIELD(BrokerStatusBlock, m_Connected), FIELD(BrokerStatusBlock, m_SessionPresent),
                FIELD(BrokerStatusBlock, m_ReturnCode), FIELD(BrokerStatusBlock, m_Reserved)),
         RECORD(SubscriberStatusStruct, FIELD(State, m_Subscribed), FIELD(State, m_SubscriptionStatus),
                FIELD(State, m_ReceivedBit), FIELD(State, m_QueueFull), FIELD(State, m_LastMessageTopic),
                FIELD(State, m_LastMessageUTC), FIELD(State, m_BufferedDataStatus), FIELD(State, Padding)),
         RECORD(CBrokerConfigurationStruct, FIELD(Broker, IPorUrl), FIELD(Broker, Port), FIELD(Broker, AutoConnect),
                FIELD(Broker, Padding), FIELD(Broker, ClientID), FIELD(Broker, Username), FIELD(Broker, Password),
                FIELD(Broker, LastWillTopic), FIELD(Broker, ReconnectTrials), FIELD(Broker, KeepAliveTime),
                FIELD(Broker, Encryption), FIELD(Broker, CleanSessionFlag)),
         RECORD(PublicationConfigurationStruct, FIELD(Publication, Topic), FIELD(Publication, QoS),
                FIELD(Publication, PayloadFormat), FIELD(Publication, Retained), FIELD(Publication, Padding)),
         RECORD(SubscriptionConfigurationStruct, FIELD(Subscription, Topic), FIELD(Subscription, QoS),
                FIELD(Subscription, PayloadFormat), FIELD(Subscription, SubscribeAtBoot),
                FIELD(Subscription, Buffered)),
         RECORD(MQTTRequestMsg, FIELD(MQTTRequestMsg, mainOpcode), FIELD(MQTTRequestMsg, reqId),
                FIELD(MQTTRequestMsg, uniqueID), FIELD(MQTTRequestMsg, publishState), FIELD(MQTTRequestMsg, reserved),
                FIELD(MQTTRequestMsg, statusAddress), FIELD(MQTTRequestMsg, payload)),
         RECORD(MQTTStateRequestMsg, FIELD(MQTTStateRequestMsg, mainOpcode), FIELD(MQTTStateRequestMsg, reqId),
                FIELD(MQTTStateRequestMsg, statusAddress)),
         RECORD(MQTTSecondPacketMsg, FIELD(MQTTSecondPacketMsg, mainOpcode), FIELD(MQTTSecondPacketMsg, reqId),
                FIELD(MQTTSecondPacketMsg, record))});
    return result;
}

json opcodes()
{
    return {ENUMERATOR(MRO_SUBSCRIBE_TO_TOPIC),
            ENUMERATOR(MRO_SUBSCRIBE_ALL),
            ENUMERATOR(MRO_UNSUBSCRIBE_FROM_TOPIC),
            ENUMERATOR(MRO_UNSUBSCRIBE_ALL),
            ENUMERATOR(MRO_CONNECT_BROKER),
            ENUMERATOR(MRO_DISCONNECT_BROKER),
            ENUMERATOR(MRO_SEND_APERIODIC),
            ENUMERATOR(MRO_GET_BROKER_CFG),
            ENUMERATOR(MRO_SET_BROKER_CFG),
            ENUMERATOR(MRO_GET_SUBSCRIPTION_CFG),
            ENUMERATOR(MRO_SET_SUBSCRIPTION_CFG),
            ENUMERATOR(MRO_GET_PUBLICATION_CFG),
            ENUMERATOR(MRO_SET_PUBLICATION_CFG),
            ENUMERATOR(MRO_PAUSE),
            ENUMERATOR(MRO_START),
            ENUMERATOR(MRO_SET_PUBLISH_STATE),
            ENUMERATOR(MRO_SET_BROKER_CFG_SECOND_PACKET)};
}

json types()
{
    return {ENUMERATOR(AT_NOTYPE), ENUMERATOR(AT_BOOL),   ENUMERATOR(AT_INT8),   ENUMERATOR(AT_UINT8),
            ENUMERATOR(AT_INT16),  ENUMERATOR(AT_UINT16), ENUMERATOR(AT_UINT32), ENUMERATOR(AT_INT32),
            ENUMERATOR(AT_REAL),   ENUMERATOR(AT_STR32),  ENUMERATOR(AT_STRUCT), ENUMERATOR(AT_STR8),
            ENUMERATOR(AT_STR16)};
}

// Every code of a byte, signed or not, that has a text: its name and its text.
json codesOf(CodeDomain domain)
{
    json codes = json::object();
    const std::string unknown = describeCode(domain, 1000).text;
    for (int code = -128; code <= 255; ++code) {
        const CodeText text = describeCode(domain, code);
        if (text.text != unknown)
            codes[std::to_string(code)] = {text.name, text.text};
    }
    return codes;
}

} // namespace

int main()
{
    const json all{
        {"records", records()},
        {"firstBrokerPacket", FirstBrokerPacketSize},
        {"queue", RequestQueueName},
        {"linkStates", LinkStatePositions},
        {"opcodes", opcodes()},
        {"types", types()},
        {"bufferedData", {ENUMERATOR(BDS_NONE), ENUMERATOR(BDS_HANDING_OVER), ENUMERATOR(BDS_WAITING)}},
        {"codes",
         {{"request", codesOf(CodeDomain::RequestStatus)},
          {"process", codesOf(CodeDomain::Process)},
          {"broker", codesOf(CodeDomain::Broker)},
          {"publication", codesOf(CodeDomain::Publication)},
          {"subscription", codesOf(CodeDomain::Subscription)}}},
    };
    std::cout << all.dump(2) << "\n";
    return std::cout.good() ? 0 : 1;
}
