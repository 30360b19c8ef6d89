#include "Entities/mqttmessage.h"
#include "Entities/recordtext.h"
#include "Records/brokerrecords.h"
#include "Records/generalrecords.h"
#include "Records/publicationrecords.h"
#include "Records/subscriptionrecords.h"
#include "Services/debugdump.h"
#include "Services/mqttmanagerservices.h"
#include "tagmemory.h"

#include <QVector>

namespace {

// What of a text is shown, in bytes.
constexpr uint ShownBytes = 4096;

QString quotedBytes(const char* bytes, int length)
{
    const uint shown = qstrnlen(bytes, qMin(static_cast<uint>(qMax(length, 0)), ShownBytes));
    return quoted(QString::fromUtf8(bytes, static_cast<int>(shown)));
}

template<std::size_t Units>
QString quotedField(const char16_t (&field)[Units])
{
    return quoted(fieldText(field));
}

} // namespace

void MQTTManagerServices::PrintDebug(QString first, QString second)
{
    if (m_verboseMode)
        debugDump() << first << second;
}

void MQTTManagerServices::PrintMQTTGeneralStructDebug(MQTTGeneralStruct* record, unsigned int address)
{
    if (!m_verboseMode || !record)
        return;
    debugDump() << QString("MQTTGeneralStruct members (address %1):").arg(address)
                << " ProcessStatus=" << record->m_ProcessStatus << ", BrokersNumber=" << record->m_BrokersNumber
                << ", PublicationsNumber=" << record->m_PublicationsNumber
                << ", SubscriptionsNumber=" << record->m_SubscriptionsNumber;
}

void MQTTManagerServices::PrintMQTTStatisticsStructDebug(MQTTStatisticsStruct& record)
{
    if (!m_verboseMode)
        return;
    // Intended: the other record's heading.
    debugDump() << "MQTTGeneralStruct members are: SentPubs=" << record.m_SentPubs << ", AckPubs=" << record.m_AckPubs
                << ", ReceivedSub=" << record.m_ReceivedSub << ", DroppedSubs=" << record.m_DroppedSubs;
}

void MQTTManagerServices::PrintClientBrokerStructDebug(CBrokerConfigurationStruct record)
{
    if (!m_verboseMode)
        return;
    debugDump() << "CBrokerConfigurationStruct members are: IPorUrl=" << quotedField(record.IPorUrl)
                << ", Port=" << record.Port << ", Auto-connect=" << record.AutoConnect
                << ", ClientID=" << quotedField(record.ClientID) << ", Username=" << quotedField(record.Username)
                << ", Password=" << quotedField(record.Password)
                << ", LastWillTopic=" << quotedField(record.LastWillTopic)
                << ", ReconnectTrials=" << record.ReconnectTrials << ", KeepAliveTime=" << record.KeepAliveTime
                << ", Encryption=" << record.Encryption << ", CleanSessionFlag=" << record.CleanSessionFlag;
}

void MQTTManagerServices::PrintSubscriptionStructDebug(SubscriptionConfigurationStruct record)
{
    if (!m_verboseMode)
        return;
    debugDump() << "SubscriptionConfigurationStruct members are: Topic=" << quotedField(record.Topic)
                << ", QoS=" << record.QoS << ", PayloadFormat=" << record.PayloadFormat
                << ", SubscribeAtBoot=" << record.SubscribeAtBoot << ", Buffered=" << record.Buffered;
}

void MQTTManagerServices::PrintPublicationStructDebug(PublicationConfigurationStruct record)
{
    if (!m_verboseMode)
        return;
    debugDump() << "PublicationConfigurationStruct members are: Topic=" << quotedField(record.Topic)
                << ", QoS=" << record.QoS << ", PayloadFormat=" << record.PayloadFormat
                << ", Retained=" << record.Retained;
}

void MQTTManagerServices::PrintMQTTMessageDebug(MQTTMessage* message)
{
    if (!m_verboseMode || !message)
        return;
    debugDump() << "MQTTMessage members are: Guid=" << message->Guid
                << ", topicName=" << quotedBytes(message->topicName, static_cast<int>(ShownBytes))
                << ", topicLen=" << message->topicLen
                << ", Payload=" << quotedBytes(message->Payload, message->PayloadLen)
                << ", PayloadLen=" << message->PayloadLen;
}

void MQTTManagerServices::PrintRegisteredTagsDebug(QVector<HdrOperandData_t>& operands, int count)
{
    if (!m_verboseMode)
        return;
    QDebug line = debugDump();
    line << "Registered tags number is " << count << ". Details:";
    for (const HdrOperandData_t& operand : qAsConst(operands))
        line << " Address=" << operand.Address << " Length=" << operand.length << ';';
}
