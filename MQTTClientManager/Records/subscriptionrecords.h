#pragma once

#include <cstddef>
#include <cstdint>

// What m_BufferedDataStatus tells the control application.
enum BufferedDataStatus : std::uint8_t
{
    BDS_NONE = 0,
    BDS_HANDING_OVER = 1, // the tag is being written
    BDS_WAITING = 2       // messages wait in the queue
};

#pragma pack(push, 1)

// A subscription's state, at its SubAddr in tag memory. Little-endian, offsets binding.
struct SubscriberStatusStruct
{
    std::uint8_t m_Subscribed;         // 1 while the broker holds the subscription, as far as the service knows
    std::int8_t m_SubscriptionStatus;  // SubscriptionStatusCodes, or the low byte of a client library result
    std::uint8_t m_ReceivedBit;        // the service sets it to 1; the control application clears it in tag memory
    std::uint8_t m_QueueFull;          // 1 while the queue of a buffered subscription is full
    char16_t m_LastMessageTopic[256];  // zero-terminated; what follows the terminator has no meaning
    std::uint32_t m_LastMessageUTC;    // seconds since 1970
    std::uint8_t m_BufferedDataStatus; // a BufferedDataStatus
    std::uint8_t Padding[3];
};

// A subscription's configuration as a request reads it back or sets it. Little-endian, offsets binding.
struct SubscriptionConfigurationStruct
{
    char16_t Topic[256]; // zero-terminated; what follows the terminator has no meaning
    std::uint8_t QoS;
    std::uint8_t PayloadFormat;
    std::uint8_t SubscribeAtBoot;
    std::uint8_t Buffered;
};

#pragma pack(pop)

static_assert(sizeof(SubscriberStatusStruct) == 524);
static_assert(offsetof(SubscriberStatusStruct, m_Subscribed) == 0);
static_assert(offsetof(SubscriberStatusStruct, m_SubscriptionStatus) == 1);
static_assert(offsetof(SubscriberStatusStruct, m_ReceivedBit) == 2);
static_assert(offsetof(SubscriberStatusStruct, m_QueueFull) == 3);
static_assert(offsetof(SubscriberStatusStruct, m_LastMessageTopic) == 4);
static_assert(offsetof(SubscriberStatusStruct, m_LastMessageUTC) == 516);
static_assert(offsetof(SubscriberStatusStruct, m_BufferedDataStatus) == 520);
static_assert(offsetof(SubscriberStatusStruct, Padding) == 521);

static_assert(sizeof(SubscriptionConfigurationStruct) == 516);
static_assert(offsetof(SubscriptionConfigurationStruct, Topic) == 0);
static_assert(offsetof(SubscriptionConfigurationStruct, QoS) == 512);
static_assert(offsetof(SubscriptionConfigurationStruct, PayloadFormat) == 513);
static_assert(offsetof(SubscriptionConfigurationStruct, SubscribeAtBoot) == 514);
static_assert(offsetof(SubscriptionConfigurationStruct, Buffered) == 515);
