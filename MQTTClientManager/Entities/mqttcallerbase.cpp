#include "Entities/mqttcallerbase.h"

#include "Services/mqttmanagerservices.h"
#include "Services/mqttStatusLogManager.h"

#include <limits>

MQTTCallerBase::MQTTCallerBase()
    : m_StatusLogManager(MQTTStatusLogManager::instance()), m_Services(MQTTManagerServices::instance())
{
}

void MQTTCallerBase::CalcDataSize()
{
    m_DataSize = -1;
    if (m_PayloadFormat == PF_NOT_CONFIGURED)
        return;
    m_DataSize =
        m_DataType == AT_STRUCT ? structSize() : m_Services->GetTypeSizeInBytes(m_DataType, m_DataLen, m_Entries);
}

void MQTTCallerBase::SetTopic(const QString& topic)
{
    m_Topic = topic;
    m_Special = topic.contains('#') || topic.contains('+');
}

int MQTTCallerBase::structSize() const
{
    if (m_DataMembers.isEmpty())
        return -1;
    const JsonDataMember& last = m_DataMembers.constLast();
    const qint64 size = qint64{m_Services->GetTypeSizeInBytes(last.Type, last.Len, last.Entry)} + last.Offset;
    return size > std::numeric_limits<int>::max() ? -1 : static_cast<int>(size);
}
