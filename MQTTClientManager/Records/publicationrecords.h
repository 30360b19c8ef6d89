#pragma once

#include <cstddef>
#include <cstdint>

#pragma pack(push, 1)

// A publication's configuration as a request reads it back or sets it. Little-endian, offsets binding.
struct PublicationConfigurationStruct
{
    char16_t Topic[256]; // zero-terminated; what follows the terminator has no meaning
    std::uint8_t QoS;
    std::uint8_t PayloadFormat;
    std::uint8_t Retained;
    std::uint8_t Padding;
};

#pragma pack(pop)

static_assert(sizeof(PublicationConfigurationStruct) == 516);
static_assert(offsetof(PublicationConfigurationStruct, Topic) == 0);
static_assert(offsetof(PublicationConfigurationStruct, QoS) == 512);
static_assert(offsetof(PublicationConfigurationStruct, PayloadFormat) == 513);
static_assert(offsetof(PublicationConfigurationStruct, Retained) == 514);
static_assert(offsetof(PublicationConfigurationStruct, Padding) == 515);
