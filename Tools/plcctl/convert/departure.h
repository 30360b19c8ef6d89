#pragma once

#include "Entities/publisher.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace plcctl {

// The text of a publication, and what to know of it.
struct Departure
{
    std::string title;
    std::vector<std::uint8_t> tag;
    std::optional<std::string> payload;
    std::vector<std::string> notes;
};

// Forms the payload of a publication whose tag holds these bytes, by the service's code.
Departure depart(Publisher& publisher, std::vector<std::uint8_t> tag, const std::string& title);

} // namespace plcctl
