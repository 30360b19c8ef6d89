#include "convert/arrival.h"

#include "convert/surprises.h"
#include "servicecode/privatetagmemory.h"
#include "utf.h"

#include <algorithm>
#include <optional>
#include <span>

namespace plcctl {

namespace {

using Bytes = std::vector<std::uint8_t>;

// Where the service's code writes the status record, away from all data.
constexpr unsigned int RecordPosition = 0xF0000000;

std::span<const std::uint8_t> bytesOf(const TagPart& part, std::span<const std::uint8_t> tag)
{
    const std::size_t begin = std::min<std::size_t>(part.offset, tag.size());
    return tag.subspan(begin, std::min<std::size_t>(sizeOf(part.layout), tag.size() - begin));
}

std::vector<std::string> rawNotes(std::size_t payload, std::size_t tag)
{
    if (payload < tag)
        return {"the payload has " + std::to_string(payload) + " of the tag's " + std::to_string(tag) +
                " bytes: the rest is 0"};
    if (payload > tag)
        return {"the payload has " + std::to_string(payload) + " bytes, the tag " + std::to_string(tag) +
                ": the rest is dropped"};
    return {};
}

std::optional<Json> parsedJson(const std::string& text)
{
    Json value = Json::parse(text, nullptr, false);
    return value.is_discarded() ? std::nullopt : std::optional(std::move(value));
}

std::optional<Json> memberOf(const std::optional<Json>& object, const std::string& key)
{
    if (!object || !object->is_object() || !object->contains(key))
        return std::nullopt;
    return object->at(key);
}

void noteJson(Arrival& arrival, const Subscriber& subscriber, const std::string& payload)
{
    const std::string text = payload.substr(0, payload.find('\0'));
    if (text.size() < payload.size())
        arrival.notes.push_back("a zero byte ends a JSON payload: the " + std::to_string(payload.size() - text.size()) +
                                " bytes from it on are not looked at");
    if (encodeUtf8(decodeUtf8Lossy(text)) != text)
        arrival.notes.emplace_back("the payload is no UTF-8: wrong bytes become the replacement character");
    const std::optional<Json> wanted = parsedJson(text);
    const bool isStruct = subscriber.m_DataType == AT_STRUCT;
    if (isStruct && wanted && !wanted->is_object())
        arrival.notes.emplace_back("the payload is no JSON object: no member finds its key");
    for (PartReport& report : arrival.parts)
        report.notes = surprisesOf(report.part, isStruct, text, isStruct ? memberOf(wanted, report.part.name) : wanted,
                                   report.bytes);
}

// In the order of their positions: chunks lie side by side.
Bytes writtenTag()
{
    Bytes tag;
    for (const PrivateTagMemory::WriteRecord& write : PrivateTagMemory::writes()) {
        if (write.position < RecordPosition)
            tag.insert(tag.end(), write.bytes.begin(), write.bytes.end());
    }
    return tag;
}

void noteSize(Arrival& arrival)
{
    const auto size = static_cast<std::size_t>(std::max(arrival.size, 0));
    if (arrival.isWritten && arrival.tag.size() < size)
        arrival.notes.push_back("only " + std::to_string(arrival.tag.size()) + " of the tag's " + std::to_string(size) +
                                " bytes are written, since its size is a multiple of 1020: make the tag one byte "
                                "larger");
    if (arrival.size <= 0)
        arrival.notes.emplace_back("the configured type gives the tag no size: nothing can be written");
}

} // namespace

Arrival arrive(Subscriber& subscriber, const std::string& payload, const std::string& title)
{
    subscriber.m_DataAddress = 0;
    subscriber.m_SubAddr = RecordPosition;
    PrivateTagMemory::reset();
    Arrival arrival;
    arrival.title = title;
    arrival.size = subscriber.m_DataSize;
    std::string copy = payload;
    arrival.isWritten = subscriber.SetDataInSubscription(copy.data(), static_cast<int>(copy.size()));
    arrival.result = subscriber.m_Status.m_SubscriptionStatus;
    arrival.tag = writtenTag();
    noteSize(arrival);
    if (subscriber.m_PayloadFormat == PF_BUFFER && arrival.size > 0) {
        const std::vector<std::string> notes = rawNotes(payload.size(), static_cast<std::size_t>(arrival.size));
        arrival.notes.insert(arrival.notes.end(), notes.begin(), notes.end());
    }
    if (subscriber.m_PayloadFormat != PF_BUFFER && subscriber.m_PayloadFormat != PF_JSON)
        arrival.notes.push_back("PayloadFormat " + std::to_string(subscriber.m_PayloadFormat) +
                                ": a subscription writes nothing with it, only 0 and 1 are for subscriptions");
    if (!arrival.isWritten)
        return arrival;
    for (const TagPart& part : partsOf(subscriber)) {
        const auto bytes = bytesOf(part, arrival.tag);
        arrival.parts.push_back({part, {bytes.begin(), bytes.end()}, {}});
    }
    if (subscriber.m_PayloadFormat == PF_JSON)
        noteJson(arrival, subscriber, payload);
    return arrival;
}

} // namespace plcctl
