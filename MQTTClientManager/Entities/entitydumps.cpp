#include "Entities/clientbroker.h"
#include "Entities/publisher.h"
#include "Entities/recordtext.h"
#include "Entities/subscriber.h"
#include "Services/debugdump.h"
#include "Services/mqttmanagerservices.h"

void MQTTCallerBase::PrintCallerEntityDebug()
{
    if (!m_Services->m_verboseMode)
        return;
    QDebug line = debugDump();
    line << "Caller Entity members are: UniqueID=" << m_UniqueID << ", Name=" << quoted(m_Name)
         << ", CBrokerID=" << m_CBrokerID << ", Topic=" << quoted(m_Topic)
         << (m_Special ? " (SPECIAL)" : " (NOT SPECIAL)") << ", QoS=" << m_QoS << ", PayloadFormat=" << m_PayloadFormat
         << ", PayloadEnc=" << m_PayloadEnc << ", DataType=" << int{m_DataType}
         << ", TypeName=" << m_Services->GetTypeName(m_DataType) << ", DataLen=" << m_DataLen
         << ", DataSize=" << m_DataSize << ", DataAddress=" << m_DataAddress
         << ", Ent=" << (m_Entries == 0 ? QString("NOT AN ARRAY") : QString("%1 LEN ARRAY").arg(m_Entries));
    for (const JsonDataMember& member : qAsConst(m_DataMembers)) {
        line << "; Name=" << quoted(member.Name) << ", Type=" << int{member.Type} << ", Entry=" << member.Entry
             << ", Len=" << member.Len << ", Offset=" << member.Offset;
    }
}

void Publisher::PrintCallerEntityDebug()
{
    MQTTCallerBase::PrintCallerEntityDebug();
    if (!m_Services->m_verboseMode)
        return;
    debugDump() << "Publisher Entity members are: RetainFlag=" << m_RetainFlag << ", PerInterval=" << m_PerInterval
                << ", ReceiveAddress=" << m_ReceiveAddress;
}

void Subscriber::PrintCallerEntityDebug()
{
    MQTTCallerBase::PrintCallerEntityDebug();
    if (!m_Services->m_verboseMode)
        return;
    debugDump() << "Subscriber Entity members are: SubAddr=" << m_SubAddr << ", BufferedFlag=" << m_BufferedFlag
                << ", SubscribeAtBootTime=" << m_SubscribeAtBootTime;
}

void Subscriber::PrintCfgStructDebug()
{
    if (!m_Services->m_verboseMode)
        return;
    const SubscriberStatusStruct record = statusRecord();
    debugDump() << "Subscriber Cfg Struct members are: UniqueID=" << m_UniqueID
                << ", Subscribed=" << record.m_Subscribed << ", SubscriptionStatus=" << int{record.m_SubscriptionStatus}
                << ", ReceivedBit=" << record.m_ReceivedBit << ", QueueFull=" << record.m_QueueFull
                << ", LastMessageTopic=" << quoted(fieldText(record.m_LastMessageTopic))
                << ", LastMessageUTC=" << record.m_LastMessageUTC
                << ", BufferedDataStatus=" << record.m_BufferedDataStatus;
}

void ClientBroker::PrintBrokerEntityDebug()
{
    if (!m_Services->m_verboseMode)
        return;
    debugDump() << "Broker Entity members are: UniqueID=" << UniqueID << ", Name=" << quoted(Name)
                << ", IPorURL=" << quoted(IPorURL) << ", AddressingMode=" << AddressingMode << ", Port=" << Port
                << ", ClientID=" << quoted(ClientID) << ", Encryption=" << Encryption
                << ", SetCAFileName=" << quoted(SetCAFileName)
                << ", ClientCertificateFileName=" << quoted(ClientCertificateFileName)
                << ", ClientKeyFileName=" << quoted(ClientKeyFileName)
                << ", GoogleCloudProjectID=" << quoted(GoogleCloudProjectID)
                << ", JWTAlgorithm=" << quoted(JWTAlgorithm) << ", UserName=" << quoted(UserName)
                << ", Password=" << quoted(Password) << ", LastWillTopic=" << quoted(LastWillTopic)
                << ", LastWillAddr=" << LastWillAddr << ", LastWillDataType=" << int{LastWillDataType}
                << ", LastWillDataLen=" << LastWillDataLen << ", LastWillDataSize=" << LastWillDataSize
                << ", KeepAliveTime=" << KeepAliveTime << ", ConnectionInterval=" << ConnectionInterval
                << ", CleanSessionFlag=" << CleanSessionFlag << ", AutoConnectFlag=" << AutoConnectFlag
                << ", BrokerAddr=" << BrokerAddr << ", CallersCounter=" << m_Callers.size();
}

void ClientBroker::PrintBrokerCfgStructDebug()
{
    if (!m_Services->m_verboseMode)
        return;
    debugDump() << "Broker Cfg Struct members are: UniqueID=" << UniqueID << ", Name=" << quoted(Name)
                << ", Connected=" << m_Connected << ", SessionPresent=" << m_SessionPresent
                << ", ReturnCode=" << int{m_ReturnCode};
}
