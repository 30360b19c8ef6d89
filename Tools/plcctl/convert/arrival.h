#pragma once

#include "convert/tagform.h"

#include "Entities/subscriber.h"

#include <cstdint>
#include <string>
#include <vector>

namespace plcctl {

// One value of the tag after a message.
struct PartReport
{
    TagPart part;
    std::vector<std::uint8_t> bytes;
    std::vector<std::string> notes;
};

// What became of a payload.
struct Arrival
{
    std::string title;
    int size = 0; // of the tag
    bool isWritten = false;
    signed char result = 0;        // in the subscription's record
    std::vector<std::uint8_t> tag; // as far as it was written
    std::vector<PartReport> parts;
    std::vector<std::string> notes;
};

// Hands the payload to the subscription, by the service's code, and looks at what it would have written. Its addresses
// change on the way.
Arrival arrive(Subscriber& subscriber, const std::string& payload, const std::string& title);

} // namespace plcctl
