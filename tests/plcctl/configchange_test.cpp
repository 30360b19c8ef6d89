#include "configchange.h"

#include "failure.h"

#include <gtest/gtest.h>

using namespace plcctl;

namespace {

const Attributes BrokerAttributes{{"IPOrURL", "127.0.0.1"},
                                  {"Port", "1883"},
                                  {"AutoConnect", "1"},
                                  {"ClientID", ""},
                                  {"UserName", "m\u00FCller"},
                                  {"Password", "p"},
                                  {"LastWillTopic", "plant/{PLC.NAME}"},
                                  {"ConnectionInterval", "5"},
                                  {"KeepAlive", "30"},
                                  {"CleanSession", "0"},
                                  {"EncryptionType", "2"}};

ConfigRecord zeroRecord(EntityKind kind)
{
    return {kind, std::vector<std::uint8_t>(configRecordSize(kind))};
}

ConfigRecord recordWith(EntityKind kind, const std::vector<std::string>& texts)
{
    ConfigRecord record = zeroRecord(kind);
    assign(record, parseAssignments(kind, texts));
    return record;
}

ConfigRecord reportedBroker()
{
    return recordWith(EntityKind::Broker, {"IPorUrl=127.0.0.1", "Port=1883", "AutoConnect=1", "ClientID=made-up",
                                           "Username=m\u00C3\u00BCller", "Password=p", "LastWillTopic=plant/press",
                                           "ReconnectTrials=5", "KeepAliveTime=30"});
}

ConfigChange brokerChange(const Attributes* attributes, const std::vector<std::string>& texts)
{
    return {reportedBroker(), attributes, parseAssignments(EntityKind::Broker, texts)};
}

std::string valueOf(const ConfigRecord& record, const std::string& name)
{
    for (const RecordField& field : configFields(record.kind())) {
        if (field.name == name)
            return fieldText(record, field, Secrets::Shown);
    }
    return "no such field";
}

// The text of the failure; empty if there was none.
std::string refusal(const ConfigRecord& reported, const Attributes* attributes, const std::vector<std::string>& texts)
{
    try {
        static_cast<void>(ConfigChange(reported, attributes, parseAssignments(reported.kind(), texts)));
    } catch (const Failure& failure) {
        EXPECT_EQ(failure.code, ExitCode::Failed);
        return failure.what();
    }
    return "";
}

// A publication whose topic fills its field without an end.
ConfigRecord spilledPublication()
{
    return {EntityKind::Publication, std::vector<std::uint8_t>(516, 1)};
}

constexpr char TopicRefused[] = "Topic has a value that the request can't carry, so that setting another field would "
                                "change it: set it as well, or edit Publications.xml; nothing was changed";

} // namespace

TEST(ConfigChange, OnlyTheGivenFieldsDifferFromTheFile)
{
    const ConfigChange change = brokerChange(&BrokerAttributes, {"Port=8883"});
    EXPECT_EQ(valueOf(change.before(), "Port"), "1883");
    EXPECT_EQ(valueOf(change.after(), "Port"), "8883");
    // The service reported other texts.
    EXPECT_EQ(valueOf(change.after(), "LastWillTopic"), "'plant/{PLC.NAME}'");
    EXPECT_EQ(valueOf(change.after(), "ClientID"), "''");
    EXPECT_EQ(valueOf(change.after(), "Username"), "'m\u00FCller'");
    Attributes expected = BrokerAttributes;
    expected["Port"] = "8883";
    EXPECT_TRUE(change.isIn(&expected));
}

TEST(ConfigChange, WithoutAFileTheOtherFieldsAreThoseThatWereReported)
{
    const ConfigChange change = brokerChange(nullptr, {"Port=8883"});
    EXPECT_EQ(valueOf(change.after(), "LastWillTopic"), "'plant/press'");
    EXPECT_EQ(valueOf(change.after(), "Port"), "8883");
}

TEST(ConfigChange, AnAttributeThatTheFileLeavesOutIsTakenFromTheReport)
{
    const Attributes some{{"Port", "1"}};
    const ConfigChange change = brokerChange(&some, {"AutoConnect=0"});
    EXPECT_EQ(valueOf(change.after(), "Port"), "1");
    EXPECT_EQ(valueOf(change.after(), "ClientID"), "'made-up'");
}

TEST(ConfigChange, ATextThatWasCutIsRefusedUnlessItIsSet)
{
    EXPECT_EQ(refusal(spilledPublication(), nullptr, {"QoS=1", "PayloadFormat=1"}), TopicRefused);
    EXPECT_EQ(refusal(spilledPublication(), nullptr, {"Topic=short"}), "");
}

TEST(ConfigChange, ATextThatFillsItsFieldMayHaveBeenCutUnlessTheFileHasItSo)
{
    const std::string full(255, 'x');
    const ConfigRecord reported = recordWith(EntityKind::Publication, {"Topic=" + full});
    EXPECT_EQ(refusal(reported, nullptr, {"QoS=1"}), TopicRefused);
    const Attributes attributes{{"Topic", full}};
    EXPECT_EQ(refusal(reported, &attributes, {"QoS=1"}), "");
    const ConfigRecord shorter = recordWith(EntityKind::Publication, {"Topic=" + full.substr(1)});
    EXPECT_EQ(refusal(shorter, nullptr, {"QoS=1"}), "");
}

TEST(ConfigChange, AFileWhoseTextNoRecordHoldsIsRefusedUnlessTheFieldIsSet)
{
    const Attributes attributes{{"Topic", std::string(256, 'x')}};
    const ConfigRecord reported = zeroRecord(EntityKind::Publication);
    EXPECT_EQ(refusal(reported, &attributes, {"QoS=1"}), TopicRefused);
    EXPECT_EQ(refusal(reported, &attributes, {"Topic=short"}), "");
}

TEST(ConfigChange, NumbersThatTheServiceWouldChangeAreRefusedUnlessTheyAreSet)
{
    const ConfigRecord reported = zeroRecord(EntityKind::Publication);
    const Attributes unknownFormat{{"PayloadFormat", "7"}};
    EXPECT_NE(refusal(reported, &unknownFormat, {"QoS=1"}), "");
    EXPECT_EQ(refusal(reported, &unknownFormat, {"PayloadFormat=1"}), "");
    const Attributes wide{{"KeepAlive", "70000"}};
    EXPECT_NE(refusal(reportedBroker(), &wide, {"Port=1"}), "");
    const Attributes negative{{"Port", "-1"}};
    EXPECT_NE(refusal(reportedBroker(), &negative, {"AutoConnect=1"}), "");
}

TEST(ConfigChange, NumbersInTheFileCountAsTheServiceReadsThem)
{
    const Attributes attributes{{"Port", " 12 "}, {"KeepAlive", "x"}, {"AutoConnect", "7"}, {"CleanSession", ""}};
    const ConfigChange change = brokerChange(&attributes, {"Username=u"});
    EXPECT_EQ(valueOf(change.after(), "Port"), "12");
    EXPECT_EQ(valueOf(change.after(), "KeepAliveTime"), "0");
    EXPECT_EQ(valueOf(change.after(), "AutoConnect"), "true");
    EXPECT_EQ(valueOf(change.after(), "CleanSessionFlag"), "false");
}

TEST(ConfigChange, AFileThatHasTheOldValueOrNoEntityDoesNotHoldTheChange)
{
    const ConfigChange change = brokerChange(&BrokerAttributes, {"Port=8883"});
    EXPECT_FALSE(change.isIn(&BrokerAttributes));
    EXPECT_FALSE(change.isIn(nullptr));
}

TEST(ConfigFile, TheFirstEntityWithTheIdCounts)
{
    DeviceConfig config;
    config.brokers.resize(2);
    for (BrokerEntry& entry : config.brokers)
        entry.id = 3;
    config.brokers[0].attributes = {{"Name", "first"}};
    config.brokers[1].attributes = {{"Name", "second"}};
    ASSERT_NE(attributesOf(config, EntityKind::Broker, 3), nullptr);
    EXPECT_EQ(attributesOf(config, EntityKind::Broker, 3)->at("Name"), "first");
    EXPECT_EQ(attributesOf(config, EntityKind::Broker, 4), nullptr);
    EXPECT_EQ(attributesOf(config, EntityKind::Publication, 3), nullptr);
}
