#pragma once

#include <cstddef>
#include <cstdint>

// A broker's two records in tag memory. Little-endian, offsets binding: control applications read them.

#pragma pack(push, 1)

// Written as one unit at the broker's BrokerAddr.
struct BrokerStatusBlock
{
    std::uint8_t m_Connected;      // 1 while the service believes that the connection stands
    std::uint8_t m_SessionPresent; // 1 after a connection on which the broker reported a stored session
    std::int8_t m_ReturnCode;      // low byte of the last CBrokerStatusCodes value
    std::uint8_t m_Reserved;       // always 0

    bool operator==(const BrokerStatusBlock&) const = default;
};

// A broker's configuration as a request reads it back or sets it. Texts are UTF-16 units with a terminating zero unit.
struct CBrokerConfigurationStruct
{
    char16_t IPorUrl[128];
    std::uint16_t Port;
    std::uint8_t AutoConnect;
    std::uint8_t Padding; // always 0
    char16_t ClientID[232];
    char16_t Username[128];
    char16_t Password[256];
    char16_t LastWillTopic[256];
    std::uint32_t ReconnectTrials; // in fact the seconds between connection attempts; the name is the record's own
    std::uint16_t KeepAliveTime;   // seconds
    std::uint8_t Encryption;
    std::uint8_t CleanSessionFlag;
};

#pragma pack(pop)

static_assert(sizeof(BrokerStatusBlock) == 4);
static_assert(offsetof(BrokerStatusBlock, m_Connected) == 0);
static_assert(offsetof(BrokerStatusBlock, m_SessionPresent) == 1);
static_assert(offsetof(BrokerStatusBlock, m_ReturnCode) == 2);
static_assert(offsetof(BrokerStatusBlock, m_Reserved) == 3);

static_assert(sizeof(CBrokerConfigurationStruct) == 2012);
static_assert(offsetof(CBrokerConfigurationStruct, IPorUrl) == 0);
static_assert(offsetof(CBrokerConfigurationStruct, Port) == 256);
static_assert(offsetof(CBrokerConfigurationStruct, AutoConnect) == 258);
static_assert(offsetof(CBrokerConfigurationStruct, Padding) == 259);
static_assert(offsetof(CBrokerConfigurationStruct, ClientID) == 260);
static_assert(offsetof(CBrokerConfigurationStruct, Username) == 724);
static_assert(offsetof(CBrokerConfigurationStruct, Password) == 980);
static_assert(offsetof(CBrokerConfigurationStruct, LastWillTopic) == 1492);
static_assert(offsetof(CBrokerConfigurationStruct, ReconnectTrials) == 2004);
static_assert(offsetof(CBrokerConfigurationStruct, KeepAliveTime) == 2008);
static_assert(offsetof(CBrokerConfigurationStruct, Encryption) == 2010);
static_assert(offsetof(CBrokerConfigurationStruct, CleanSessionFlag) == 2011);
