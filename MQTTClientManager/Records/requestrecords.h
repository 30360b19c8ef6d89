#pragma once

#include "brokerrecords.h"

#include <cstddef>
#include <cstdint>

// The queue on which the controller's runtime sends its requests. The runtime creates it; the service only reads.
inline constexpr char RequestQueueName[] = "/MQTTQueue";
// Largest record on the queue, and so the message size to create it with, in bytes.
inline constexpr std::size_t RequestRecordSize = 1500;

// What a request asks for.
enum RequestOpcode : std::uint16_t
{
    MRO_SUBSCRIBE_TO_TOPIC = 0,
    MRO_SUBSCRIBE_ALL = 1,
    MRO_UNSUBSCRIBE_FROM_TOPIC = 2,
    MRO_UNSUBSCRIBE_ALL = 3,
    MRO_CONNECT_BROKER = 4,
    MRO_DISCONNECT_BROKER = 5,
    MRO_SEND_APERIODIC = 6,
    MRO_GET_BROKER_CFG = 7,
    MRO_SET_BROKER_CFG = 8,
    MRO_GET_SUBSCRIPTION_CFG = 9,
    MRO_SET_SUBSCRIPTION_CFG = 10,
    MRO_GET_PUBLICATION_CFG = 11,
    MRO_SET_PUBLICATION_CFG = 12,
    MRO_PAUSE = 13,
    MRO_START = 14,
    MRO_SET_PUBLISH_STATE = 15,
    MRO_SET_BROKER_CFG_SECOND_PACKET = 16
};

#pragma pack(push, 1)

// A request on the queue. Little-endian, offsets binding; a message may end earlier, what it leaves out reads as 0.
struct MQTTRequestMsg
{
    std::uint16_t mainOpcode; // the runtime's own; not looked at
    std::uint16_t reqId;      // RequestOpcode
    std::uint16_t uniqueID;   // of the broker, subscription or publication
    std::int8_t publishState; // MRO_SET_PUBLISH_STATE: anything but 0 is on
    std::uint8_t reserved;
    std::uint32_t statusAddress; // operand address of the byte that answers the request, see StatusCodes
    // A configuration record that is to be set, or the operand address (32 bits) where one that is read back goes.
    std::uint8_t payload[1488];
};

// The same for MRO_PAUSE and MRO_START, which address no entity.
struct MQTTStateRequestMsg
{
    std::uint16_t mainOpcode;
    std::uint16_t reqId;
    std::uint32_t statusAddress;
};

// The configuration record of a broker is larger than a message. MRO_SET_BROKER_CFG has its first bytes as payload;
// this message, which names no broker, follows it with the rest.
inline constexpr std::size_t FirstBrokerPacketSize = offsetof(CBrokerConfigurationStruct, Password);
struct MQTTSecondPacketMsg
{
    std::uint16_t mainOpcode;
    std::uint16_t reqId;
    std::uint8_t record[sizeof(CBrokerConfigurationStruct) - FirstBrokerPacketSize];
};

#pragma pack(pop)

static_assert(sizeof(MQTTRequestMsg) == RequestRecordSize);
static_assert(offsetof(MQTTRequestMsg, mainOpcode) == 0);
static_assert(offsetof(MQTTRequestMsg, reqId) == 2);
static_assert(offsetof(MQTTRequestMsg, uniqueID) == 4);
static_assert(offsetof(MQTTRequestMsg, publishState) == 6);
static_assert(offsetof(MQTTRequestMsg, reserved) == 7);
static_assert(offsetof(MQTTRequestMsg, statusAddress) == 8);
static_assert(offsetof(MQTTRequestMsg, payload) == 12);

static_assert(FirstBrokerPacketSize == 980);
static_assert(sizeof(MQTTSecondPacketMsg) == 1036);
static_assert(offsetof(MQTTSecondPacketMsg, mainOpcode) == 0);
static_assert(offsetof(MQTTSecondPacketMsg, reqId) == 2);
static_assert(offsetof(MQTTSecondPacketMsg, record) == 4);

static_assert(sizeof(MQTTStateRequestMsg) == 8);
static_assert(offsetof(MQTTStateRequestMsg, mainOpcode) == 0);
static_assert(offsetof(MQTTStateRequestMsg, reqId) == 2);
static_assert(offsetof(MQTTStateRequestMsg, statusAddress) == 4);
