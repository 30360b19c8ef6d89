#pragma once

#include "convert/tagform.h"
#include "output.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace plcctl {

// Where the values of a tag differ from what its message says, and why. `wanted` is the message as JSON has it; nothing
// where it is none. `bytes` are the part's in the tag. One sentence without a full stop each.
std::vector<std::string> surprisesOf(const TagPart& part, bool isMember, std::string_view payload,
                                     const std::optional<Json>& wanted, std::span<const std::uint8_t> bytes);

} // namespace plcctl
