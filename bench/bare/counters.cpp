#include "bench/bare/counters.h"

#include "MQTTClientManager/Records/generalrecords.h"
#include "Platform/TagMemory/tagmemory.h"

void Counters::addSent()
{
    m_sent.fetch_add(1, std::memory_order_relaxed);
    write();
}

void Counters::addAcknowledged()
{
    m_acknowledged.fetch_add(1, std::memory_order_release);
    write();
}

void Counters::addReceived()
{
    m_received.fetch_add(1, std::memory_order_relaxed);
    write();
}

void Counters::write() const
{
    const MQTTStatisticsStruct record{sent(), acknowledged(), m_received.load(std::memory_order_relaxed), 0};
    (void)TagMemory::Write(sizeof record, m_address, reinterpret_cast<const unsigned char*>(&record));
}
