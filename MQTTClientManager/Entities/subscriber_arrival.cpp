#include "Entities/subscriber.h"

#include "Entities/clientbroker.h"
#include "logging.h"
#include "Services/mqttmanagerservices.h"
#include "Services/mqttStatusLogManager.h"
#include "tagmemory.h"
#include "Utils/jsontext.h"

#include <algorithm>
#include <cstring>
#include <QDateTime>
#include <QJsonDocument>
#include <QJsonObject>
#include <QVarLengthArray>
#include <utility>

// What happens to a message when it arrives runs inside the client library's message callback: one thread of the
// library serves all brokers. Buffered messages reach their tag on the main thread, later.

namespace {

// No UTF-8 text of more bytes than this fits the record: 255 units of at most three bytes each.
constexpr std::size_t RecordTopicBytes = 255 * 3 + 1;

constexpr int MaximalJsonBytes = 16 * 1024 * 1024;

} // namespace

bool Subscriber::MessageArrived(char* topicName, int topicLen, MQTTClient_message* message)
{
    if (!isTopicMine(topicName))
        return false;
    m_Status.m_Subscribed = 1; // receiving proves the subscription
    if (m_BufferedFlag) {
        bufferMessage(topicName, topicLen, *message);
        return true;
    }
    m_Status.m_ReceivedBit = 1;
    m_Status.m_BufferedDataStatus = BDS_NONE;
    noteArrival(topicName);
    // Intended: the record tells of the message a moment ahead of its data.
    UpdateCfgStruct();
    m_StatusLogManager->UpdateReceivedSubscriptions();
    SetDataInSubscription(message->payload, message->payloadlen);
    return true;
}

bool Subscriber::isTopicMine(const char* topic)
{
    PrepareTopic();
    // Intended: a filter with wildcards matches a topic that is the filter's own text.
    if (m_Filter.equals(topic))
        return true;
    return m_Special && (m_Filter.matchesLevels(topic) || m_Filter.matchesPrefix(topic));
}

bool Subscriber::isContinedInSingleLevelTopic(char* topicName, int /*topicLen*/)
{
    PrepareTopic();
    return m_Filter.matchesLevels(topicName);
}

bool Subscriber::isContinedInInMultiLevelTopic(char* topicName, int /*topicLen*/)
{
    PrepareTopic();
    return m_Filter.matchesPrefix(topicName);
}

void Subscriber::noteArrival(const char* topicName)
{
    m_Status.m_LastMessageUTC = static_cast<std::uint32_t>(QDateTime::currentSecsSinceEpoch());
    const auto bytes = static_cast<int>(strnlen(topicName, RecordTopicBytes));
    if (!m_Status.m_LastMessageTopic.store(QString::fromUtf8(topicName, bytes))) {
        PLOG_WARNING
            << QString("subscription '%1': the topic of its last message is cut in its status record").arg(m_Name);
    }
}

void Subscriber::bufferMessage(const char* topicName, int topicLen, const MQTTClient_message& message)
{
    // Intended: a message that finds the queue full is lost without a line or a count.
    if (m_BufferedMessages.countWhenAppending() < BUFFERED_QUEUE_CAPACITY && appendCopy(topicName, topicLen, message)) {
        m_Status.m_ReceivedBit = 1;
        m_Status.m_BufferedDataStatus = BDS_WAITING;
        noteArrival(topicName);
        m_StatusLogManager->UpdateReceivedSubscriptions();
        noteFullQueue();
    }
    UpdateCfgStruct();
}

bool Subscriber::appendCopy(const char* topicName, int topicLen, const MQTTClient_message& message)
{
    if (!m_BufferedMessages.hasBytesFor(message.payloadlen)) {
        PLOG_WARNING << QString("subscription '%1': a message of %2 bytes is dropped, its queue may hold %3 in sum")
                            .arg(m_Name, QString::number(message.payloadlen), QString::number(BUFFERED_QUEUE_BYTES));
        return false;
    }
    auto copy = MQTTMessage::copyOf(topicName, topicLen, message.payload, message.payloadlen);
    m_Services->PrintMQTTMessageDebug(copy.get());
    if (!copy || !m_BufferedMessages.append(std::move(copy))) {
        PLOG_ERROR << QString("subscription '%1': a message of %2 bytes is dropped for want of memory")
                          .arg(m_Name, QString::number(message.payloadlen));
        return false;
    }
    return true;
}

void Subscriber::noteFullQueue()
{
    const int count = m_BufferedMessages.countWhenAppending();
    if (count != BUFFERED_QUEUE_CAPACITY)
        return;
    PLOG_DEBUG << QString("Buffered message queue is full (%1) for '%2'").arg(QString::number(count), m_Name);
    m_Status.m_QueueFull = 1;
}

Turn Subscriber::TakeBufferedMessages()
{
    using namespace std::chrono_literals;
    return {m_BufferedMessagesInUse, 0us, 0ms};
}

void Subscriber::DestoryBufferedMessages()
{
    const Turn turn = TakeBufferedMessages();
    if (!turn.isMine())
        return;
    for (int count = m_BufferedMessages.count(); count > 0; --count)
        m_BufferedMessages.takeFirst().reset();
}

std::uint8_t Subscriber::RefreshReceivedBit()
{
    std::uint8_t bit = m_Status.m_ReceivedBit; // stays when tag memory can't be read
    TagMemory::Read(sizeof bit, m_SubAddr + offsetof(SubscriberStatusStruct, m_ReceivedBit), &bit);
    m_Status.m_ReceivedBit = bit;
    return bit;
}

void Subscriber::ShowBufferedDataStatus(BufferedDataStatus status)
{
    m_Status.m_BufferedDataStatus = status;
    const std::uint8_t byte = status;
    TagMemory::Write(sizeof byte, m_SubAddr + offsetof(SubscriberStatusStruct, m_BufferedDataStatus), &byte);
}

void Subscriber::ShowReceivedBit()
{
    // Intended: m_ReceivedBit doesn't follow; the next check takes it over from tag memory.
    const std::uint8_t byte = 1;
    TagMemory::Write(sizeof byte, m_SubAddr + offsetof(SubscriberStatusStruct, m_ReceivedBit), &byte);
}

bool Subscriber::SetDataInSubscription(void* payload, int payloadLen)
{
    PLOG_DEBUG << QString("Size=%1  Address=%2  Name=%3  PayloadLen=%4  DataLen=%5")
                      .arg(QString::number(m_DataSize), QString::number(m_DataAddress), m_Name,
                           QString::number(payloadLen), QString::number(m_DataLen));
    const int size = std::max(m_DataSize, 0);
    if (size > MAX_TAG_BYTES) {
        PLOG_ERROR << QString("subscription '%1': its tag of %2 bytes is too large to be written")
                          .arg(m_Name, QString::number(size));
        return false;
    }
    QVarLengthArray<char, StackTagBytes> data(size);
    std::fill(data.begin(), data.end(), '\0');
    switch (m_PayloadFormat) {
    case PF_BUFFER:
        if (payloadLen > 0)
            std::memcpy(data.data(), payload, static_cast<std::size_t>(std::min(size, payloadLen)));
        break;
    case PF_JSON:
        if (!assembleBufferFromJsonString(TagSpace(data.data(), size), payload, payloadLen))
            return false;
        break;
    default:
        return false;
    }
    return m_Services->WriteBufferToMemory(size, static_cast<int>(m_DataAddress), data.constData()) == 0;
}

bool Subscriber::assembleBufferFromJsonString(TagSpace buffer, void* payload, int payloadLen)
{
    if (payloadLen > MaximalJsonBytes) {
        PLOG_WARNING << QString("subscription '%1': a message of %2 bytes is too large for JSON")
                            .arg(m_Name, QString::number(payloadLen));
        noteResult(SSC_ERROR_INVALID_JSON);
        return false;
    }
    // Intended: a zero byte ends the text.
    const auto* bytes = static_cast<const char*>(payload);
    const int length = payloadLen > 0 ? static_cast<int>(qstrnlen(bytes, static_cast<uint>(payloadLen))) : 0;
    QString text = QString::fromUtf8(bytes, length);
    if (m_DataType != AT_STRUCT) {
        m_Services->JsonSimpleStringToBufferConversion(text, m_DataType, m_Entries, m_DataLen, buffer);
        return true;
    }

    QJsonParseError error{};
    const QJsonDocument document = QJsonDocument::fromJson(JsonText::withoutReplacedContainers(text.toUtf8()), &error);
    if (document.isNull()) {
        noteInvalidJson(text, error.errorString());
        return false;
    }
    QJsonObject object = document.object();
    for (const JsonDataMember& member : qAsConst(m_DataMembers)) {
        m_Services->JsonObjStringToBufferConversion(object, member.Type, member.Name, member.Entry,
                                                    buffer.from(member.Offset));
    }
    return true;
}

void Subscriber::noteInvalidJson(const QString& text, const QString& error)
{
    PLOG_DEBUG << QString("Invalid JSON for '%1'. Json (%2) error is (%3)").arg(m_Name, text, error);
    noteResult(SSC_ERROR_INVALID_JSON);
}
