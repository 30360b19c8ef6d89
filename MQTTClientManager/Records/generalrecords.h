#pragma once

#include <cstddef>
#include <cstdint>

// The two process-wide records in tag memory. Little-endian, offsets binding: control applications read them.

#pragma pack(push, 1)

struct MQTTGeneralStruct
{
    std::int32_t m_ProcessStatus; // a ProcessStatus
    std::uint16_t m_BrokersNumber;
    std::uint16_t m_PublicationsNumber;
    std::uint16_t m_SubscriptionsNumber;
    std::uint16_t m_Reserved; // always 0
};

struct MQTTStatisticsStruct
{
    std::uint32_t m_SentPubs;    // publications that the client library took
    std::uint32_t m_AckPubs;     // delivery confirmations
    std::uint32_t m_ReceivedSub; // messages taken by a subscription
    std::uint32_t m_DroppedSubs; // one for each subscription of a broker at each lost connection
};

#pragma pack(pop)

static_assert(sizeof(MQTTGeneralStruct) == 12);
static_assert(offsetof(MQTTGeneralStruct, m_ProcessStatus) == 0);
static_assert(offsetof(MQTTGeneralStruct, m_BrokersNumber) == 4);
static_assert(offsetof(MQTTGeneralStruct, m_PublicationsNumber) == 6);
static_assert(offsetof(MQTTGeneralStruct, m_SubscriptionsNumber) == 8);
static_assert(offsetof(MQTTGeneralStruct, m_Reserved) == 10);

static_assert(sizeof(MQTTStatisticsStruct) == 16);
static_assert(offsetof(MQTTStatisticsStruct, m_SentPubs) == 0);
static_assert(offsetof(MQTTStatisticsStruct, m_AckPubs) == 4);
static_assert(offsetof(MQTTStatisticsStruct, m_ReceivedSub) == 8);
static_assert(offsetof(MQTTStatisticsStruct, m_DroppedSubs) == 12);
