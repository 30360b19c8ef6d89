#pragma once

#include "Entities/bufferedmessages.h"
#include "Entities/mqttcallerbase.h"
#include "Entities/topicfilter.h"
#include "Entities/turn.h"
#include "Records/statuscodes.h"
#include "Records/subscriptionrecords.h"
#include "Services/tagspace.h"
#include "Utils/sharedscalar.h"
#include "Utils/sharedtext.h"

// One configured subscription: a topic filter on one broker, and the tag that its messages fill.
//   subscriber.cpp           subscribing, what becomes of the connection, the records
//   subscriber_arrival.cpp   a message on its way into the tag, or into the queue of a buffered subscription
// Subscribing belongs to the main or the request thread, arrivals to the client library's receive thread, lost
// connections to a thread of theirs. Buffered messages are handed over by the main thread. The status fields are each
// written as a whole, and the last write of the record carries what all of them hold.
class Subscriber : public MQTTCallerBase
{
public:
    // Block until the broker has answered, for some 10 s at most. Every result is kept in the status record.
    SubscriptionStatusCodes Subscribe();
    SubscriptionStatusCodes UnSubscribe();

    // Takes the filter apart, once. Every use does so as well; ahead of the first message it costs no message anything.
    void PrepareTopic();

    bool IsSubscribed() override;
    // Writes the 524-byte status record; true when tag memory took it.
    bool UpdateCfgStruct() override;
    void ClearCfgStruct() override;
    void ConnectionLost() override;
    void Disconnect() override;
    // The broker has kept the subscription of an earlier session.
    void PresentSessionEstablished() override;
    // True when the topic matches, whatever became of the data. `topicName` ends at its zero byte; the message stays
    // the caller's.
    bool MessageArrived(char* topicName, int topicLen, MQTTClient_message* message) override;

    bool isContinedInSingleLevelTopic(char* topicName, int topicLen);
    bool isContinedInInMultiLevelTopic(char* topicName, int topicLen);

    // Converts a payload and writes it to the tag; true when the data reached tag memory. A payload that is shorter
    // than the tag of a raw subscription leaves the rest zero.
    bool SetDataInSubscription(void* payload, int payloadLen);

    // A JSON payload to the tag's bytes, which start zeroed. False for a struct whose payload is no JSON and for more
    // than 16 MiB; the record then says so.
    bool assembleBufferFromJsonString(TagSpace buffer, void* payload, int payloadLen);

    // The hand-over of buffered messages. Whoever takes messages from the queue needs the turn, which never waits: the
    // clean-up thread throws them away beside a main thread that may be handing one over.
    [[nodiscard]] Turn TakeBufferedMessages();
    // Throws away what is in the queue, and leaves the record as it is. Does nothing while a message is being handed
    // over: at the end of the process the memory goes with the process.
    void DestoryBufferedMessages();
    // Takes the received bit over from tag memory, where the control application clears it, and returns it.
    std::uint8_t RefreshReceivedBit();
    // Write one byte of the status record. The received bit becomes 1 in tag memory only.
    void ShowBufferedDataStatus(BufferedDataStatus status);
    void ShowReceivedBit();

    // Writes the 516-byte configuration record; true when tag memory took it.
    bool UpdateSubscriberConfigurationStruct(unsigned int address);
    // Takes over what the record holds. While paused only: nothing else may use the entity.
    void TakeConfiguration(const SubscriptionConfigurationStruct& record);
    void PrintCallerEntityDebug() override;
    // The status record as it stands, as a line on Qt's debug output, in verbose mode only.
    void PrintCfgStructDebug();

    // The fields of the status record, see SubscriberStatusStruct.
    struct StatusFields
    {
        Relaxed<std::uint8_t> m_Subscribed;
        Relaxed<std::int8_t> m_SubscriptionStatus;
        Relaxed<std::uint8_t> m_ReceivedBit;
        Relaxed<std::uint8_t> m_QueueFull;
        Relaxed<std::uint8_t> m_BufferedDataStatus;
        Relaxed<std::uint32_t> m_LastMessageUTC;
        SharedText<256> m_LastMessageTopic;
    };

    BufferedMessages m_BufferedMessages;
    StatusFields m_Status;
    unsigned int m_SubAddr = 0; // position of the status record in tag memory, used as it is
    bool m_BufferedFlag = false;
    bool m_SubscribeAtBootTime = false;

private:
    [[nodiscard]] int subscribeAtBroker();
    [[nodiscard]] int unsubscribeAtBroker();
    // Puts it into the record, writes that, and returns it.
    int noteResult(int result);
    [[nodiscard]] SubscriberStatusStruct statusRecord() const;
    bool isTopicMine(const char* topic);
    void noteArrival(const char* topicName);
    void bufferMessage(const char* topicName, int topicLen, const MQTTClient_message& message);
    [[nodiscard]] bool appendCopy(const char* topicName, int topicLen, const MQTTClient_message& message);
    void noteFullQueue();
    void noteInvalidJson(const QString& text, const QString& error);

    Ordered<bool> m_BufferedMessagesInUse; // the turn of who takes messages
    TopicFilter m_Filter;                  // m_Topic as messages are compared with it; see PrepareTopic
};
