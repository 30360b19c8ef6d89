#pragma once

#include "deviceconfig.h"
#include "output.h"

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace plcctl {

// What the command line calls an ArgType, "INT32"; null for a struct and for numbers that are no type.
const char* typeNameOf(int type);

// The data of a publication's or subscription's tag as its configured type says. `bytes` may be shorter than the tag:
// what lies behind them is left out. Data of a type that nobody knows shows as bytes.

// One line: "12.5", "1 2 3", "'cola'", or for a struct "sugar 8.5, name 'cola'".
std::string textOfData(const ValueLayout& value, const std::vector<MemberEntry>& members,
                       std::span<const std::uint8_t> bytes);
std::string textOfData(const SubscriptionEntry& subscription, std::span<const std::uint8_t> bytes);

// A value, a list, or for a struct an object.
Json jsonOfData(const ValueLayout& value, const std::vector<MemberEntry>& members, std::span<const std::uint8_t> bytes);
Json jsonOfData(const SubscriptionEntry& subscription, std::span<const std::uint8_t> bytes);

} // namespace plcctl
