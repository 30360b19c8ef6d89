#pragma once

#include "deviceconfig.h"
#include "output.h"

#include <cstdint>
#include <span>
#include <string>

namespace plcctl {

// The data of a subscription's tag as its configured type says. `bytes` may be shorter than the tag: what lies behind
// them is left out. Data of a type that nobody knows shows as bytes.

// One line: "12.5", "1 2 3", "'cola'", or for a struct "sugar 8.5, name 'cola'".
std::string textOfData(const SubscriptionEntry& subscription, std::span<const std::uint8_t> bytes);

// A value, a list, or for a struct an object.
Json jsonOfData(const SubscriptionEntry& subscription, std::span<const std::uint8_t> bytes);

} // namespace plcctl
