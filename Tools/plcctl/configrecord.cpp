#include "configrecord.h"

#include "reporttext.h"
#include "utf.h"

#include "Records/brokerrecords.h"
#include "Records/publicationrecords.h"
#include "Records/subscriptionrecords.h"

#include <array>
#include <cstddef>
#include <cstring>
#include <limits>
#include <stdexcept>

namespace plcctl {

namespace {

constexpr std::uint32_t HighestQoS = 2;
constexpr std::uint32_t HighestPayloadFormat = 3;

constexpr RecordField textField(const char* name, std::size_t offset, std::size_t size, const char* attribute)
{
    return {name, FieldKind::Text, offset, size, 0, attribute};
}

constexpr RecordField secretField(const char* name, std::size_t offset, std::size_t size, const char* attribute)
{
    return {name, FieldKind::Text, offset, size, 0, attribute, true};
}

// Throughout the width of its bytes.
template<typename Number>
constexpr RecordField numberField(const char* name, std::size_t offset, const char* attribute)
{
    return {name, FieldKind::Number, offset, sizeof(Number), std::numeric_limits<Number>::max(), attribute};
}

constexpr RecordField byteField(const char* name, std::size_t offset, std::uint32_t highest, const char* attribute)
{
    return {name, FieldKind::Number, offset, 1, highest, attribute};
}

constexpr RecordField flagField(const char* name, std::size_t offset, const char* attribute)
{
    return {name, FieldKind::Flag, offset, 1, std::numeric_limits<std::uint8_t>::max(), attribute};
}

using Broker = CBrokerConfigurationStruct;
using Publication = PublicationConfigurationStruct;
using Subscription = SubscriptionConfigurationStruct;

constexpr std::array BrokerFields{
    textField("IPorUrl", offsetof(Broker, IPorUrl), sizeof(Broker::IPorUrl), "IPOrURL"),
    numberField<decltype(Broker::Port)>("Port", offsetof(Broker, Port), "Port"),
    flagField("AutoConnect", offsetof(Broker, AutoConnect), "AutoConnect"),
    textField("ClientID", offsetof(Broker, ClientID), sizeof(Broker::ClientID), "ClientID"),
    textField("Username", offsetof(Broker, Username), sizeof(Broker::Username), "UserName"),
    secretField("Password", offsetof(Broker, Password), sizeof(Broker::Password), "Password"),
    textField("LastWillTopic", offsetof(Broker, LastWillTopic), sizeof(Broker::LastWillTopic), "LastWillTopic"),
    numberField<decltype(Broker::ReconnectTrials)>("ReconnectTrials", offsetof(Broker, ReconnectTrials),
                                                   "ConnectionInterval"),
    numberField<decltype(Broker::KeepAliveTime)>("KeepAliveTime", offsetof(Broker, KeepAliveTime), "KeepAlive"),
    numberField<decltype(Broker::Encryption)>("Encryption", offsetof(Broker, Encryption), nullptr),
    flagField("CleanSessionFlag", offsetof(Broker, CleanSessionFlag), "CleanSession"),
};

constexpr std::array PublicationFields{
    textField("Topic", offsetof(Publication, Topic), sizeof(Publication::Topic), "Topic"),
    byteField("QoS", offsetof(Publication, QoS), HighestQoS, "QOS"),
    byteField("PayloadFormat", offsetof(Publication, PayloadFormat), HighestPayloadFormat, "PayloadFormat"),
    flagField("Retained", offsetof(Publication, Retained), "RetainFlag"),
};

constexpr std::array SubscriptionFields{
    textField("Topic", offsetof(Subscription, Topic), sizeof(Subscription::Topic), "Topic"),
    byteField("QoS", offsetof(Subscription, QoS), HighestQoS, "QOS"),
    byteField("PayloadFormat", offsetof(Subscription, PayloadFormat), HighestPayloadFormat, "PayloadFormat"),
    flagField("SubscribeAtBoot", offsetof(Subscription, SubscribeAtBoot), "SubscribeAtBoot"),
    flagField("Buffered", offsetof(Subscription, Buffered), "IsBuffered"),
};

// What every row may be without and still leave the record whole: one byte of padding.
template<typename Rows>
constexpr bool fillTheRecord(const Rows& rows, std::size_t recordSize)
{
    std::size_t end = 0;
    for (const RecordField& row : rows) {
        if (row.offset < end || row.offset > end + 1)
            return false;
        end = row.offset + row.size;
    }
    return end == recordSize || end + 1 == recordSize;
}

static_assert(fillTheRecord(BrokerFields, sizeof(Broker)));
static_assert(fillTheRecord(PublicationFields, sizeof(Publication)));
static_assert(fillTheRecord(SubscriptionFields, sizeof(Subscription)));

// An encryption level of 0 means that none was reported: a service reports no other.
bool isReported(const ConfigRecord& record, const RecordField& field)
{
    return field.attribute != nullptr || record.number(field) != 0;
}

bool isHidden(const ConfigRecord& record, const RecordField& field, Secrets secrets)
{
    return field.isSecret && secrets == Secrets::Hidden && !record.text(field).empty();
}

} // namespace

std::size_t configRecordSize(EntityKind kind)
{
    switch (kind) {
    case EntityKind::Broker:
        return sizeof(Broker);
    case EntityKind::Subscription:
        return sizeof(Subscription);
    case EntityKind::Publication:
        break;
    }
    return sizeof(Publication);
}

std::span<const RecordField> configFields(EntityKind kind)
{
    switch (kind) {
    case EntityKind::Broker:
        return BrokerFields;
    case EntityKind::Subscription:
        return SubscriptionFields;
    case EntityKind::Publication:
        break;
    }
    return PublicationFields;
}

ConfigRecord::ConfigRecord(EntityKind kind, std::vector<std::uint8_t> bytes) : m_kind(kind), m_bytes(std::move(bytes))
{
    if (m_bytes.size() != configRecordSize(kind))
        throw std::invalid_argument("a configuration record of another size");
}

std::u16string ConfigRecord::units(const RecordField& field) const
{
    std::u16string result(field.size / sizeof(char16_t), u'\0');
    std::memcpy(result.data(), m_bytes.data() + field.offset, field.size);
    return result;
}

std::string ConfigRecord::text(const RecordField& field) const
{
    const std::u16string all = units(field);
    return encodeUtf8(decodeUtf16Lossy(all.substr(0, all.find(u'\0'))));
}

bool ConfigRecord::isTerminated(const RecordField& field) const
{
    return units(field).find(u'\0') != std::u16string::npos;
}

bool ConfigRecord::isFull(const RecordField& field) const
{
    return units(field).find(u'\0') >= longestText(field);
}

std::uint32_t ConfigRecord::number(const RecordField& field) const
{
    std::uint32_t value = 0;
    std::memcpy(&value, m_bytes.data() + field.offset, field.size);
    return value;
}

bool ConfigRecord::isSound(const RecordField& field) const
{
    return field.kind == FieldKind::Text ? isTerminated(field) : number(field) <= field.highest;
}

bool ConfigRecord::setText(const RecordField& field, const std::string& utf8)
{
    const auto characters = decodeUtf8(utf8);
    if (!characters)
        return false;
    std::u16string text = encodeUtf16(*characters);
    if (text.size() > longestText(field))
        return false;
    text.resize(longestText(field) + 1);
    std::memcpy(m_bytes.data() + field.offset, text.data(), field.size);
    return true;
}

bool ConfigRecord::setNumber(const RecordField& field, std::uint64_t value)
{
    if (value > field.highest)
        return false;
    std::memcpy(m_bytes.data() + field.offset, &value, field.size);
    return true;
}

std::string fieldText(const ConfigRecord& record, const RecordField& field, Secrets secrets)
{
    if (!isReported(record, field))
        return "not reported, whatever the level is";
    if (isHidden(record, field, secrets))
        return "hidden, --show-passwords shows it";
    switch (field.kind) {
    case FieldKind::Text:
        return inQuotes(record.text(field)) + (record.isTerminated(field) ? "" : ", runs into the next field");
    case FieldKind::Flag:
        return flag(static_cast<std::uint8_t>(record.number(field)), "true", "false");
    case FieldKind::Number:
        break;
    }
    return std::to_string(record.number(field)) + (record.isSound(field) ? "" : ", unknown to the service");
}

Json fieldJson(const ConfigRecord& record, const RecordField& field, Secrets secrets)
{
    if (!isReported(record, field) || isHidden(record, field, secrets))
        return nullptr;
    switch (field.kind) {
    case FieldKind::Text:
        return record.text(field);
    case FieldKind::Flag:
        return record.number(field) != 0;
    case FieldKind::Number:
        break;
    }
    return record.number(field);
}

} // namespace plcctl
