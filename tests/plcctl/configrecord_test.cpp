#include "configrecord.h"

#include <algorithm>
#include <gtest/gtest.h>

using namespace plcctl;

namespace {

using Bytes = std::vector<std::uint8_t>;

const RecordField& fieldNamed(EntityKind kind, const std::string& name)
{
    const auto fields = configFields(kind);
    const auto found =
        std::find_if(fields.begin(), fields.end(), [&](const auto& field) { return field.name == name; });
    EXPECT_NE(found, fields.end()) << name;
    return *found;
}

// A record that is zero but for these bytes.
ConfigRecord recordWith(EntityKind kind, std::size_t offset, const Bytes& bytes)
{
    Bytes record(configRecordSize(kind));
    std::copy(bytes.begin(), bytes.end(), record.begin() + static_cast<std::ptrdiff_t>(offset));
    return {kind, record};
}

ConfigRecord emptyRecord(EntityKind kind)
{
    return recordWith(kind, 0, {});
}

Bytes bytesAt(const ConfigRecord& record, std::size_t offset, std::size_t size)
{
    const auto part = record.bytes().subspan(offset, size);
    return {part.begin(), part.end()};
}

struct FieldCase
{
    EntityKind kind;
    const char* name;
    std::size_t offset;
    Bytes bytes;
    Json value; // as JSON shows it
};

constexpr EntityKind Broker = EntityKind::Broker;
constexpr EntityKind Publication = EntityKind::Publication;
constexpr EntityKind Subscription = EntityKind::Subscription;

const std::vector<FieldCase> FieldCases{
    {Broker, "IPorUrl", 0, {'a', 0, 0xE4, 0}, "a\u00E4"},
    {Broker, "Port", 256, {0x5B, 0x07}, 1883},
    {Broker, "AutoConnect", 258, {1}, true},
    {Broker, "ClientID", 260, {'b', 0}, "b"},
    {Broker, "Username", 724, {0xAC, 0x20}, "\u20AC"},
    {Broker, "Password", 980, {'c', 0}, "c"},
    {Broker, "LastWillTopic", 1492, {0x3D, 0xD8, 0x00, 0xDE}, "\U0001F600"},
    {Broker, "ReconnectTrials", 2004, {4, 3, 2, 1}, 0x01020304},
    {Broker, "KeepAliveTime", 2008, {0xFF, 0xFF}, 65535},
    {Broker, "Encryption", 2010, {5}, 5},
    {Broker, "CleanSessionFlag", 2011, {1}, true},
    {Publication, "Topic", 0, {'t', 0, '/', 0}, "t/"},
    {Publication, "QoS", 512, {2}, 2},
    {Publication, "PayloadFormat", 513, {3}, 3},
    {Publication, "Retained", 514, {1}, true},
    {Subscription, "Topic", 0, {'+', 0}, "+"},
    {Subscription, "QoS", 512, {1}, 1},
    {Subscription, "PayloadFormat", 513, {2}, 2},
    {Subscription, "SubscribeAtBoot", 514, {1}, true},
    {Subscription, "Buffered", 515, {1}, true},
};

} // namespace

TEST(ConfigRecord, EveryFieldIsReadFromItsPlace)
{
    for (const FieldCase& row : FieldCases) {
        const ConfigRecord record = recordWith(row.kind, row.offset, row.bytes);
        for (const RecordField& field : configFields(row.kind)) {
            const Json empty = fieldJson(emptyRecord(row.kind), field, Secrets::Shown);
            EXPECT_EQ(fieldJson(record, field, Secrets::Shown), field.name == std::string(row.name) ? row.value : empty)
                << row.name << " in " << field.name;
        }
    }
}

TEST(ConfigRecord, EveryFieldIsWrittenToItsPlaceAndNowhereElse)
{
    for (const FieldCase& row : FieldCases) {
        ConfigRecord record = emptyRecord(row.kind);
        const RecordField& field = fieldNamed(row.kind, row.name);
        if (field.kind == FieldKind::Text)
            EXPECT_TRUE(record.setText(field, row.value.get<std::string>())) << row.name;
        else
            EXPECT_TRUE(record.setNumber(field, row.value.is_boolean() ? 1 : row.value.get<std::uint64_t>()))
                << row.name;
        const ConfigRecord expected = recordWith(row.kind, row.offset, row.bytes);
        EXPECT_TRUE(std::ranges::equal(record.bytes(), expected.bytes())) << row.name;
    }
}

TEST(ConfigRecord, TheTableOfCasesHasEveryField)
{
    std::size_t fields = 0;
    for (const EntityKind kind : {Broker, Publication, Subscription})
        fields += configFields(kind).size();
    EXPECT_EQ(FieldCases.size(), fields);
}

TEST(ConfigRecord, TheSizesAreThoseOfTheRecords)
{
    EXPECT_EQ(configRecordSize(Broker), 2012U);
    EXPECT_EQ(configRecordSize(Publication), 516U);
    EXPECT_EQ(configRecordSize(Subscription), 516U);
    EXPECT_THROW(ConfigRecord(Broker, Bytes(2011)), std::invalid_argument);
}

TEST(ConfigRecord, ATextWithoutATerminatorEndsWithItsFieldAndSaysSo)
{
    // 129 units from the beginning: the address fills its field, and the last one stands where the port is.
    Bytes units;
    for (int unit = 0; unit < 129; ++unit)
        units.insert(units.end(), {'x', 0});
    const ConfigRecord record = recordWith(Broker, 0, units);
    const RecordField& address = fieldNamed(Broker, "IPorUrl");
    EXPECT_EQ(record.text(address), std::string(128, 'x'));
    EXPECT_FALSE(record.isTerminated(address));
    EXPECT_FALSE(record.isSound(address));
    EXPECT_EQ(fieldText(record, address, Secrets::Shown), "'" + std::string(128, 'x') + "', runs into the next field");
    EXPECT_EQ(record.number(fieldNamed(Broker, "Port")), static_cast<std::uint32_t>('x'));
    EXPECT_TRUE(record.isSound(fieldNamed(Broker, "ClientID")));
}

TEST(ConfigRecord, WhatStandsBehindATerminatorDoesNotCount)
{
    const ConfigRecord record = recordWith(Publication, 0, {'a', 0, 0, 0, 'b', 0});
    EXPECT_EQ(record.text(fieldNamed(Publication, "Topic")), "a");
}

TEST(ConfigRecord, ATextThatIsSetLeavesNothingOfALongerOneBehind)
{
    ConfigRecord record = emptyRecord(Publication);
    const RecordField& topic = fieldNamed(Publication, "Topic");
    EXPECT_TRUE(record.setText(topic, "long"));
    EXPECT_TRUE(record.setText(topic, "s"));
    EXPECT_EQ(bytesAt(record, 0, 8), (Bytes{'s', 0, 0, 0, 0, 0, 0, 0}));
}

TEST(ConfigRecord, ATextFitsWithItsTerminatorOrIsRefused)
{
    const struct
    {
        EntityKind kind;
        const char* name;
        std::size_t longest;
    } rows[] = {{Broker, "IPorUrl", 127},    {Broker, "ClientID", 231},      {Broker, "Username", 127},
                {Broker, "Password", 255},   {Broker, "LastWillTopic", 255}, {Publication, "Topic", 255},
                {Subscription, "Topic", 255}};
    for (const auto& row : rows) {
        const RecordField& field = fieldNamed(row.kind, row.name);
        ConfigRecord record = emptyRecord(row.kind);
        EXPECT_TRUE(record.setText(field, std::string(row.longest, 'x'))) << row.name;
        EXPECT_FALSE(record.setText(field, std::string(row.longest + 1, 'y'))) << row.name;
        EXPECT_EQ(record.text(field), std::string(row.longest, 'x')) << row.name;
    }
}

TEST(ConfigRecord, ACharacterOutsideTheBasicPlaneTakesTwoUnits)
{
    ConfigRecord record = emptyRecord(Broker);
    const RecordField& address = fieldNamed(Broker, "IPorUrl");
    std::string text;
    for (int character = 0; character < 63; ++character)
        text += "\U0001F600";
    EXPECT_TRUE(record.setText(address, text + "x"));
    EXPECT_FALSE(record.setText(address, text + "\U0001F600"));
}

TEST(ConfigRecord, NumbersThatTheServiceDoesNotTakeAreRefusedAndNamed)
{
    const struct
    {
        EntityKind kind;
        const char* name;
        std::uint64_t highest;
    } rows[] = {
        {Broker, "Port", 65535},           {Broker, "KeepAliveTime", 65535},  {Broker, "ReconnectTrials", 4294967295},
        {Publication, "QoS", 2},           {Publication, "PayloadFormat", 3}, {Subscription, "QoS", 2},
        {Subscription, "PayloadFormat", 3}};
    for (const auto& row : rows) {
        ConfigRecord record = emptyRecord(row.kind);
        EXPECT_TRUE(record.setNumber(fieldNamed(row.kind, row.name), row.highest)) << row.name;
        EXPECT_FALSE(record.setNumber(fieldNamed(row.kind, row.name), row.highest + 1)) << row.name;
        EXPECT_EQ(record.number(fieldNamed(row.kind, row.name)), row.highest) << row.name;
    }
    const ConfigRecord unknown = recordWith(Publication, 513, {255});
    EXPECT_FALSE(unknown.isSound(fieldNamed(Publication, "PayloadFormat")));
    EXPECT_EQ(fieldText(unknown, fieldNamed(Publication, "PayloadFormat"), Secrets::Shown),
              "255, unknown to the service");
}

TEST(ConfigRecord, ATextThatIsNoUtf8IsRefused)
{
    ConfigRecord record = emptyRecord(Broker);
    EXPECT_FALSE(record.setText(fieldNamed(Broker, "Username"), "\xFF"));
}

TEST(ConfigRecord, FieldsAreShownByTheirKind)
{
    const auto shown = [](const char* name, std::size_t offset, const Bytes& bytes) {
        return fieldText(recordWith(Broker, offset, bytes), fieldNamed(Broker, name), Secrets::Hidden);
    };
    EXPECT_EQ(shown("IPorUrl", 0, {'\n', 0}), "'\\n'");
    EXPECT_EQ(shown("Port", 256, {1, 1}), "257");
    EXPECT_EQ(shown("AutoConnect", 258, {0}), "false");
    EXPECT_EQ(shown("AutoConnect", 258, {7}), "true (byte 7)");
    EXPECT_EQ(shown("Encryption", 2010, {0}), "not reported, whatever the level is");
    EXPECT_EQ(shown("Encryption", 2010, {3}), "3");
}

TEST(ConfigRecord, APasswordIsHiddenUnlessItIsEmptyOrAskedFor)
{
    const RecordField& password = fieldNamed(Broker, "Password");
    const ConfigRecord record = recordWith(Broker, 980, {'s', 0});
    EXPECT_EQ(fieldText(record, password, Secrets::Hidden), "hidden, --show-passwords shows it");
    EXPECT_EQ(fieldJson(record, password, Secrets::Hidden), Json(nullptr));
    EXPECT_EQ(fieldText(record, password, Secrets::Shown), "'s'");
    EXPECT_EQ(fieldJson(record, password, Secrets::Shown), Json("s"));
    EXPECT_EQ(fieldText(emptyRecord(Broker), password, Secrets::Hidden), "''");
    EXPECT_EQ(fieldJson(emptyRecord(Broker), password, Secrets::Hidden), Json(""));
    for (const RecordField& field : configFields(Broker))
        EXPECT_EQ(field.isSecret, field.name == std::string("Password"));
}

TEST(ConfigRecord, AnEncryptionThatIsNotReportedIsNoLevelInJson)
{
    EXPECT_EQ(fieldJson(emptyRecord(Broker), fieldNamed(Broker, "Encryption"), Secrets::Shown), Json(nullptr));
}
