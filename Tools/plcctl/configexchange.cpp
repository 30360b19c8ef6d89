#include "configexchange.h"

#include "failure.h"

#include "Records/requestrecords.h"
#include "Records/statuscodes.h"

#include <cstring>

namespace plcctl {

namespace {

struct Opcodes
{
    RequestOpcode get;
    RequestOpcode set;
};

Opcodes opcodesOf(EntityKind kind)
{
    switch (kind) {
    case EntityKind::Broker:
        return {MRO_GET_BROKER_CFG, MRO_SET_BROKER_CFG};
    case EntityKind::Subscription:
        return {MRO_GET_SUBSCRIPTION_CFG, MRO_SET_SUBSCRIPTION_CFG};
    case EntityKind::Publication:
        break;
    }
    return {MRO_GET_PUBLICATION_CFG, MRO_SET_PUBLICATION_CFG};
}

std::vector<std::uint8_t> copyOf(std::span<const std::uint8_t> bytes)
{
    return {bytes.begin(), bytes.end()};
}

RequestMessage messageTo(const EntityReference& entity, std::uint16_t opcode, std::uint32_t statusOperand,
                         std::span<const std::uint8_t> payload)
{
    RequestMessage message;
    message.opcode = opcode;
    message.id = entity.id;
    message.statusOperand = statusOperand;
    message.payload = copyOf(payload);
    return message;
}

std::uint32_t operandAt(std::uint64_t position)
{
    return static_cast<std::uint32_t>(*operandOf(position));
}

// The service writes "in progress" when it takes the first part up, and once more when that part is in the file.
constexpr int MarksOfFirstPart = 2;

} // namespace

std::vector<RequestMessage> messagesToSet(const EntityReference& entity, const ConfigRecord& record,
                                          std::uint32_t statusOperand)
{
    const RequestOpcode opcode = opcodesOf(entity.kind).set;
    if (entity.kind != EntityKind::Broker)
        return {messageTo(entity, opcode, statusOperand, record.bytes())};
    RequestMessage second;
    second.opcode = MRO_SET_BROKER_CFG_SECOND_PACKET;
    second.payload = copyOf(record.bytes().subspan(FirstBrokerPacketSize));
    return {messageTo(entity, opcode, statusOperand, record.bytes().first(FirstBrokerPacketSize)), second};
}

ConfigExchange::ConfigExchange(const EntityReference& entity, const ConfigPlaces& places, double timeoutSeconds)
    : m_entity(entity), m_places(places), m_timeoutSeconds(timeoutSeconds), m_queue(RequestQueue::forSending())
{
}

ReadBack ConfigExchange::readBack()
{
    const std::uint32_t recordOperand = operandAt(m_places.record);
    std::vector<std::uint8_t> payload(sizeof recordOperand);
    std::memcpy(payload.data(), &recordOperand, sizeof recordOperand);

    RequestExchange exchange(m_queue, m_places.status);
    const std::size_t size = configRecordSize(m_entity.kind);
    const std::vector<std::uint8_t> before = exchange.tags().read(m_places.record, size);
    exchange.send(encode(messageTo(m_entity, opcodesOf(m_entity.kind).get, operandAt(m_places.status), payload)));
    const int code = exchange.finalAnswer(m_timeoutSeconds);
    if (code != SC_AC_OK)
        return {code, std::nullopt};
    ConfigRecord record(m_entity.kind, exchange.tags().read(m_places.record, size));
    // A password must not lie about in tag memory.
    if (m_places.isRecordScratch)
        writeTag(m_places.record, before);
    return {code, std::move(record)};
}

ConfigExchange::SetAnswer ConfigExchange::set(const ConfigRecord& record)
{
    const std::vector<RequestMessage> messages = messagesToSet(m_entity, record, operandAt(m_places.status));
    RequestExchange exchange(m_queue, m_places.status);
    exchange.send(encode(messages.front()));
    if (messages.size() == 1)
        return {exchange.finalAnswer(m_timeoutSeconds)};

    const int first = answerToPart(exchange, MarksOfFirstPart);
    if (first != SC_AC_IN_PROGRESS)
        return {first};
    exchange.send(encode(messages.back()));
    return {answerToPart(exchange, std::nullopt), true};
}

int ConfigExchange::answerToPart(RequestExchange& exchange, std::optional<int> marks) const
{
    int code = SC_AC_OK;
    int seen = 0;
    const bool answered = exchange.follow(m_timeoutSeconds, [&](const Answer& answer) {
        code = answer.code;
        seen += code == SC_AC_IN_PROGRESS ? 1 : 0;
        return code == SC_AC_IN_PROGRESS && seen != marks;
    });
    if (!answered) {
        exchange.failWithoutAnswer("; a part of the record may be set: set it again, or `plcctl request start` takes "
                                   "what the file has");
    }
    return code;
}

} // namespace plcctl
