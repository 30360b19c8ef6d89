#pragma once

#include <cstdint>
#include <optional>
#include <vector>

namespace plcctl {

// A request before it becomes a message on the queue.
struct RequestMessage
{
    std::uint16_t mainOpcode = 0;
    std::uint16_t opcode = 0; // RequestOpcode, or for a test any other number
    std::uint16_t id = 0;
    std::int8_t publishState = 0;
    std::uint32_t statusOperand = 0;
    std::vector<std::uint8_t> payload;
    std::optional<std::size_t> length; // cuts the message there, or fills it up with zeros
};

// Whether a record with this opcode has the place for an ID, and one for the operand address of a status byte.
bool hasId(std::uint16_t opcode);
bool hasStatusOperand(std::uint16_t opcode);

// The message as it goes to the queue, no longer than what its opcode needs.
std::vector<std::uint8_t> encode(const RequestMessage& request);

} // namespace plcctl
