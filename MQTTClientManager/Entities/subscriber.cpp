#include "Entities/subscriber.h"

#include "Entities/clientbroker.h"
#include "Entities/recordtext.h"
#include "Entities/subscriptionrequest.h"
#include "logging.h"
#include "Services/mqttmanagerservices.h"
#include "tagmemory.h"

#include <cstring>
#include <iterator>

void Subscriber::PrepareTopic()
{
    if (!m_Filter.isOf(m_Topic))
        m_Filter = TopicFilter(m_Topic);
}

SubscriptionStatusCodes Subscriber::Subscribe()
{
    const int result = subscribeAtBroker();
    PLOG_DEBUG << QString("SUBSCRIBE by subscriber %1 ended with status (%2) to topic '%3'")
                      .arg(m_Name, QString::number(result), m_Topic);
    return static_cast<SubscriptionStatusCodes>(result);
}

int Subscriber::subscribeAtBroker()
{
    if (!m_cBroker || !m_cBroker->IsConnected())
        return noteResult(SSC_ERROR_NOT_CONNECTED);
    if (m_Status.m_Subscribed != 0)
        return noteResult(SSC_ERROR_ALREADY_SUBSCRIBED);
    PrepareTopic();
    SubscriptionRequest request(*m_cBroker);
    const int result = request.subscribe(*this, m_Filter.utf8(), m_QoS);
    // A message that came ahead of a refusal has made it 1.
    m_Status.m_Subscribed = result == SSC_OK ? 1 : 0;
    noteResult(result);
    // The loss of the connection may have been reported, on its own thread, before this one got here.
    if (result == SSC_OK && request.isConnectionLost()) {
        m_Status.m_Subscribed = 0;
        noteResult(SSC_ERROR_CONNECTION_LOST);
    }
    return result;
}

SubscriptionStatusCodes Subscriber::UnSubscribe()
{
    const int result = unsubscribeAtBroker();
    PLOG_DEBUG << QString("UNSUBSCRIBE by subscriber '%1' ended with status (%2) from topic '%3'")
                      .arg(m_Name, QString::number(result), m_Topic);
    return static_cast<SubscriptionStatusCodes>(result);
}

int Subscriber::unsubscribeAtBroker()
{
    if (!m_cBroker || !m_cBroker->IsConnected())
        return noteResult(SSC_ERROR_NOT_CONNECTED);
    if (m_Status.m_Subscribed != 1)
        return noteResult(SSC_ERROR_NOT_SUBSCRIBED);
    PrepareTopic();
    SubscriptionRequest request(*m_cBroker);
    const int result = request.unsubscribe(m_Filter.utf8());
    if (result == SSC_OK)
        m_Status.m_Subscribed = 0;
    return noteResult(result);
}

int Subscriber::noteResult(int result)
{
    m_Status.m_SubscriptionStatus = static_cast<std::int8_t>(result);
    UpdateCfgStruct();
    return result;
}

bool Subscriber::IsSubscribed()
{
    return m_Status.m_Subscribed == 1;
}

bool Subscriber::UpdateCfgStruct()
{
    // Another thread may change a field, and write it, between the look at the fields here and the write: the record
    // would then show what was before.
    SubscriberStatusStruct record = statusRecord();
    while (true) {
        const bool isWritten =
            TagMemory::Write(sizeof record, m_SubAddr, reinterpret_cast<const unsigned char*>(&record)) == 0;
        const SubscriberStatusStruct now = statusRecord();
        if (std::memcmp(&record, &now, sizeof record) == 0) {
            PrintCfgStructDebug();
            return isWritten;
        }
        record = now;
    }
}

SubscriberStatusStruct Subscriber::statusRecord() const
{
    SubscriberStatusStruct record{};
    record.m_Subscribed = m_Status.m_Subscribed;
    record.m_SubscriptionStatus = m_Status.m_SubscriptionStatus;
    record.m_ReceivedBit = m_Status.m_ReceivedBit;
    record.m_QueueFull = m_Status.m_QueueFull;
    m_Status.m_LastMessageTopic.copyTo(record.m_LastMessageTopic);
    record.m_LastMessageUTC = m_Status.m_LastMessageUTC;
    record.m_BufferedDataStatus = m_Status.m_BufferedDataStatus;
    return record;
}

void Subscriber::ClearCfgStruct()
{
    // Intended: the state of the queue stays.
    m_Status.m_Subscribed = 0;
    m_Status.m_SubscriptionStatus = SSC_OK;
    m_Status.m_ReceivedBit = 0;
    m_Status.m_LastMessageUTC = 0;
    m_Status.m_LastMessageTopic.clear();
    UpdateCfgStruct();
}

void Subscriber::ConnectionLost()
{
    if (!IsSubscribed())
        return;
    m_Status.m_Subscribed = 0;
    noteResult(SSC_ERROR_CONNECTION_LOST);
}

void Subscriber::Disconnect()
{
    if (!IsSubscribed())
        return;
    // Intended: the last result stays.
    m_Status.m_Subscribed = 0;
    UpdateCfgStruct();
}

void Subscriber::PresentSessionEstablished()
{
    m_Status.m_Subscribed = 1;
    noteResult(SSC_OK);
    PLOG_DEBUG << QString("Subscriber '%1' session established").arg(m_Name);
}

bool Subscriber::UpdateSubscriberConfigurationStruct(unsigned int address)
{
    using Record = SubscriptionConfigurationStruct;
    RecordBytes<sizeof(Record)> record;
    if (!record.putTextInField(offsetof(Record, Topic), std::size(Record{}.Topic), m_Topic)) {
        PLOG_WARNING << QString("subscription '%1': its topic is cut to %2 characters in its configuration record")
                            .arg(m_Name, QString::number(std::size(Record{}.Topic) - 1));
    }
    record.putNumber<quint8>(offsetof(Record, QoS), m_QoS);
    record.putNumber<quint8>(offsetof(Record, PayloadFormat), m_PayloadFormat);
    record.putNumber<quint8>(offsetof(Record, SubscribeAtBoot), m_SubscribeAtBootTime);
    record.putNumber<quint8>(offsetof(Record, Buffered), m_BufferedFlag);
    m_Services->PrintSubscriptionStructDebug(record.as<Record>());
    PLOG_DEBUG << QString("Wrote stats cfg to address (%1) sizeof (%2)").arg(address).arg(sizeof(Record));
    return TagMemory::Write(sizeof(Record), address, record.bytes()) == 0;
}

void Subscriber::TakeConfiguration(const SubscriptionConfigurationStruct& record)
{
    m_BufferedFlag = record.Buffered != 0;
    m_PayloadFormat = record.PayloadFormat;
    m_QoS = record.QoS;
    SetTopic(fieldText(record.Topic)); // the filter is taken apart anew at its next use
    m_SubscribeAtBootTime = record.SubscribeAtBoot != 0;
}
