#pragma once

#include <span>
#include <string>
#include <string_view>

namespace plcctl {

// In lower case, of ASCII letters only.
std::string lowered(std::string_view text);

// The name that someone who typed `text` may have meant; empty where none is near. Case doesn't count.
std::string nearestName(std::span<const std::string> names, std::string_view text);

} // namespace plcctl
