#include "Services/mqttStatusLogManager.h"

#include "logging.h"
#include "Services/mqttmanagerservices.h"
#include "tagmemory.h"

MQTTStatusLogManager* MQTTStatusLogManager::m_instance = nullptr;

namespace {

template<typename Record>
void writeRecord(unsigned int address, const Record& record)
{
    static_assert(sizeof(Record) <= 0xFFFF);
    TagMemory::Write(sizeof record, address, reinterpret_cast<const unsigned char*>(&record));
}

} // namespace

MQTTStatusLogManager* MQTTStatusLogManager::instance()
{
    if (!m_instance)
        m_instance = new MQTTStatusLogManager;
    return m_instance;
}

MQTTStatusLogManager::MQTTStatusLogManager() : m_services(MQTTManagerServices::instance())
{
    TagMemory::Open();
}

void MQTTStatusLogManager::UpdateMQTTStructsAddress(unsigned int general, unsigned int statistics)
{
    m_GeneralAddress = general;
    m_StatisticsAddress = statistics;
}

void MQTTStatusLogManager::UpdateMQTTGeneralStruct()
{
    const MQTTGeneralStruct record{m_MQTTGeneralStruct.m_ProcessStatus, m_MQTTGeneralStruct.m_BrokersNumber,
                                   m_MQTTGeneralStruct.m_PublicationsNumber, m_MQTTGeneralStruct.m_SubscriptionsNumber,
                                   0};
    const unsigned int address = m_GeneralAddress;
    PLOG_DEBUG << QString("Wrote data to address (%1) sizeof (%2). Process status is (%3)")
                      .arg(address)
                      .arg(sizeof record)
                      .arg(qint32{record.m_ProcessStatus});
    writeRecord(address, record);
}

void MQTTStatusLogManager::UpdateMQTTStatisticsStruct()
{
    const MQTTStatisticsStruct record{m_MQTTStatisticsStruct.m_SentPubs, m_MQTTStatisticsStruct.m_AckPubs,
                                      m_MQTTStatisticsStruct.m_ReceivedSub, m_MQTTStatisticsStruct.m_DroppedSubs};
    writeRecord(m_StatisticsAddress, record);
}

void MQTTStatusLogManager::UpdatePublicationSent()
{
    countUp(m_MQTTStatisticsStruct.m_SentPubs);
}

void MQTTStatusLogManager::UpdatePublicationAckReceived()
{
    countUp(m_MQTTStatisticsStruct.m_AckPubs);
}

void MQTTStatusLogManager::UpdateReceivedSubscriptions()
{
    countUp(m_MQTTStatisticsStruct.m_ReceivedSub);
}

void MQTTStatusLogManager::UpdateDroppedSubscriptions()
{
    countUp(m_MQTTStatisticsStruct.m_DroppedSubs);
}

void MQTTStatusLogManager::countUp(Relaxed<std::uint32_t>& counter)
{
    counter.increment();
    UpdateMQTTStatisticsStruct();
}

void MQTTStatusLogManager::UpdateStatusTag(unsigned int address, StatusCodes status)
{
    PLOG_DEBUG << QString("Wrote stauts (%1) to address (%2) sizeof (%3)").arg(int{status}).arg(address).arg(1);
    const auto lowByte = static_cast<unsigned char>(status);
    TagMemory::Write(1, address, &lowByte);
}
