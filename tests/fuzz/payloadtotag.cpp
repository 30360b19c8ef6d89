#include "Entities/subscriber.h"
#include "fuzzing.h"
#include "guardedtagmemory.h"
#include "Records/generalrecords.h"
#include "Records/subscriptionrecords.h"
#include "secondreading.h"
#include "Services/mqttStatusLogManager.h"

#include <algorithm>
#include <memory>
#include <optional>
#include <QJsonDocument>
#include <QJsonObject>

// A message on its way into a tag: the format, the tag's address, the datum, the number of its members, which count for
// a struct only (offset, key and datum of each); then the payload.

namespace {

using GuardedTagMemory::Place;
using GuardedTagMemory::WriteRecord;

constexpr int Formats[16] = {PF_BUFFER, PF_JSON, PF_PROTOBUF, PF_TRIGGERED_OP, PF_NOT_CONFIGURED, -1,
                             PF_JSON,   PF_JSON, PF_JSON,     PF_BUFFER,       PF_BUFFER,         PF_JSON,
                             PF_JSON,   PF_JSON, PF_JSON,     PF_JSON};

constexpr unsigned int Addresses[16] = {4096,       0,          1,          2048,      65535, 65536,
                                        1U << 20,   1U << 24,   0x7FFFFFFF, 1 << 30,   12345, 0x80000000,
                                        0x80000001, 0xC0000000, 4096,       0xF0000000};

constexpr int MemberCounts[16] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 1, 2, 3, 4, 5};

constexpr unsigned int RecordAddress = 0xFFFF0000;
constexpr unsigned int StatisticsAddress = 0xFFFFF000;

Subscriber chooseSubscription(Fuzzing::Input& input)
{
    Subscriber subscriber;
    subscriber.m_CallerType = CT_SUBSCRIBER;
    subscriber.m_Topic = "line/set";
    subscriber.m_SubAddr = RecordAddress;
    subscriber.m_PayloadFormat = input.choose(Formats);
    subscriber.m_DataAddress = input.choose(Addresses);
    const Fuzzing::Datum datum(input);
    subscriber.m_DataType = datum.type;
    subscriber.m_Entries = datum.entries;
    subscriber.m_DataLen = datum.length;
    const int members = datum.type == AT_STRUCT ? input.choose(MemberCounts) : 0;
    for (int i = 0; i < members; ++i) {
        JsonDataMember member;
        member.Offset = Fuzzing::chooseOffset(input);
        member.Name = Fuzzing::chooseKey(input);
        const Fuzzing::Datum memberDatum(input);
        member.Type = memberDatum.type;
        member.Entry = memberDatum.entries;
        member.Len = memberDatum.length;
        subscriber.m_DataMembers.append(member);
    }
    subscriber.CalcDataSize();
    return subscriber;
}

// The tag's bytes after this payload; nothing when the tag stays as it was.
std::optional<QByteArray> expectedTag(const Subscriber& subscriber, const QByteArray& payload)
{
    if (subscriber.m_DataSize > MAX_TAG_BYTES)
        return std::nullopt;
    QByteArray tag(std::max(subscriber.m_DataSize, 0), '\0');
    if (subscriber.m_PayloadFormat == PF_BUFFER) {
        std::copy_n(payload.begin(), std::min(tag.size(), payload.size()), tag.begin());
        return tag;
    }
    if (subscriber.m_PayloadFormat != PF_JSON)
        return std::nullopt;
    QString text = QString::fromUtf8(payload.constData());
    if (subscriber.m_DataType != AT_STRUCT)
        return SecondReading::simpleToTag(tag, text, subscriber.m_DataType, subscriber.m_Entries, subscriber.m_DataLen);
    const QJsonDocument document = QJsonDocument::fromJson(text.toUtf8());
    if (document.isNull())
        return std::nullopt;
    QJsonObject object = document.object();
    for (const JsonDataMember& member : subscriber.m_DataMembers) {
        const auto offset = static_cast<int>(std::min(member.Offset, static_cast<unsigned int>(tag.size())));
        tag = tag.left(offset) +
              SecondReading::objectToTag(tag.mid(offset), object, member.Type, member.Name, member.Entry);
    }
    return tag;
}

// In chunks of 1020 bytes. Where exactly one chunk remains, it is lost: two writes of nothing stand in its place.
std::vector<WriteRecord> expectedWrites(unsigned long address, const QByteArray& tag)
{
    std::vector<WriteRecord> writes;
    int written = 0;
    for (int i = 0; i < tag.size() / 1020 + 1; ++i) {
        const int remaining = tag.size() - written;
        const int chunk = remaining > 1020 ? 1020 : remaining % 1020;
        writes.push_back({address + static_cast<unsigned long>(written), tag.mid(written, chunk)});
        written += chunk;
    }
    return writes;
}

void deliver(Subscriber& subscriber, const QByteArray& payload)
{
    // Of exactly its size, without a terminator: whatever is read behind it is seen.
    const auto bytes = std::make_unique<char[]>(static_cast<std::size_t>(payload.size()));
    std::copy(payload.begin(), payload.end(), bytes.get());
    MQTTClient_message message = MQTTClient_message_initializer;
    message.payload = payload.isEmpty() ? nullptr : bytes.get();
    message.payloadlen = payload.size();
    char topic[] = "line/set";
    Fuzzing::require(subscriber.MessageArrived(topic, 0, &message), "the topic matches");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Fuzzing::Input input(data, size);
    Subscriber subscriber = chooseSubscription(input);
    const QByteArray payload = input.rest();
    MQTTStatusLogManager::instance()->UpdateMQTTStructsAddress(0, StatisticsAddress);
    GuardedTagMemory::reset(
        {Place{RecordAddress, sizeof(SubscriberStatusStruct)}, Place{StatisticsAddress, sizeof(MQTTStatisticsStruct)},
         Place{subscriber.m_DataAddress, static_cast<unsigned long>(std::max(subscriber.m_DataSize, 0))}});
    deliver(subscriber, payload);
    if (Fuzzing::escapesSurrogate(payload))
        return 0;

    const auto& writes = GuardedTagMemory::writes();
    Fuzzing::require(writes.size() >= 2 && writes[0].address == RecordAddress && writes[1].address == StatisticsAddress,
                     "the record is written first, then the statistics");
    Fuzzing::require(writes[0].bytes.at(0) == 1 && writes[0].bytes.at(2) == 1, "the record says what arrived");

    const auto tag = expectedTag(subscriber, payload);
    std::vector<WriteRecord> dataWrites(writes.begin() + 2, writes.end());
    if (tag) {
        Fuzzing::require(dataWrites == expectedWrites(subscriber.m_DataAddress, *tag),
                         "the tag gets the bytes that the rules give, in the chunks that the rules give");
        return 0;
    }
    const bool isInvalid = subscriber.m_Status.m_SubscriptionStatus == SSC_ERROR_INVALID_JSON;
    Fuzzing::require(dataWrites.size() == (isInvalid ? 1 : 0), "a message that is refused leaves the tag as it was");
    return 0;
}
