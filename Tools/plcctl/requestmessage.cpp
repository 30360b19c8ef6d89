#include "requestmessage.h"

#include "Records/requestrecords.h"

#include <cstddef>

namespace plcctl {

namespace {

constexpr std::size_t OpcodesSize = offsetof(MQTTRequestMsg, uniqueID);

bool isStateRequest(std::uint16_t opcode)
{
    return opcode == MRO_PAUSE || opcode == MRO_START;
}

template<typename Record>
std::vector<std::uint8_t> bytesOf(const Record& record, std::size_t size)
{
    const auto* const bytes = reinterpret_cast<const std::uint8_t*>(&record);
    return {bytes, bytes + size};
}

std::vector<std::uint8_t> head(const RequestMessage& request)
{
    if (isStateRequest(request.opcode)) {
        const MQTTStateRequestMsg record{request.mainOpcode, request.opcode, request.statusOperand};
        return bytesOf(record, sizeof record);
    }
    MQTTRequestMsg record{};
    record.mainOpcode = request.mainOpcode;
    record.reqId = request.opcode;
    record.uniqueID = request.id;
    record.publishState = request.publishState;
    record.statusAddress = request.statusOperand;
    return bytesOf(record, hasId(request.opcode) ? offsetof(MQTTRequestMsg, payload) : OpcodesSize);
}

} // namespace

bool hasId(std::uint16_t opcode)
{
    return !isStateRequest(opcode) && hasStatusOperand(opcode);
}

bool hasStatusOperand(std::uint16_t opcode)
{
    // The second packet is answered in the status byte of the first.
    return opcode != MRO_SET_BROKER_CFG_SECOND_PACKET;
}

std::vector<std::uint8_t> encode(const RequestMessage& request)
{
    std::vector<std::uint8_t> message = head(request);
    message.insert(message.end(), request.payload.begin(), request.payload.end());
    message.resize(request.length.value_or(message.size()));
    return message;
}

} // namespace plcctl
