#include "fieldassignment.h"

#include "failure.h"

#include <gtest/gtest.h>

using namespace plcctl;

namespace {

// The text of the failure, which has to be one of usage; empty if there was none.
std::string refusal(EntityKind kind, const std::vector<std::string>& texts)
{
    try {
        static_cast<void>(parseAssignments(kind, texts)); // only the failure counts
    } catch (const Failure& failure) {
        EXPECT_EQ(failure.code, ExitCode::Usage);
        return failure.what();
    }
    return "";
}

std::string brokerRefusal(const std::string& text)
{
    return refusal(EntityKind::Broker, {text});
}

Json assigned(EntityKind kind, const std::string& text)
{
    ConfigRecord record(kind, std::vector<std::uint8_t>(configRecordSize(kind), 0));
    const auto assignments = parseAssignments(kind, {text});
    assign(record, assignments);
    return fieldJson(record, *assignments.front().field, Secrets::Shown);
}

} // namespace

TEST(FieldAssignment, FieldsAreFoundInAnyCase)
{
    const auto found = parseAssignments(EntityKind::Broker, {"PORT=1", "iporurl=a", "CleanSessionFlag=0"});
    ASSERT_EQ(found.size(), 3U);
    EXPECT_STREQ(found[0].field->name, "Port");
    EXPECT_STREQ(found[1].field->name, "IPorUrl");
    EXPECT_STREQ(found[2].field->name, "CleanSessionFlag");
}

TEST(FieldAssignment, TheValueIsAllBehindTheFirstEqualsSign)
{
    EXPECT_EQ(assigned(EntityKind::Broker, "Password=a=b c="), "a=b c=");
    EXPECT_EQ(assigned(EntityKind::Broker, "Username="), "");
}

TEST(FieldAssignment, FlagsTakeFourWords)
{
    for (const char* yes : {"1", "true", "TRUE"})
        EXPECT_EQ(assigned(EntityKind::Broker, std::string("AutoConnect=") + yes), true);
    for (const char* no : {"0", "false", "False"})
        EXPECT_EQ(assigned(EntityKind::Broker, std::string("AutoConnect=") + no), false);
    for (const char* other : {"", "2", "yes", "-1", "01"}) {
        EXPECT_EQ(brokerRefusal(std::string("AutoConnect=") + other), std::string("AutoConnect can't be '") + other +
                                                                          "': it is one of 0, 1, true, false; nothing "
                                                                          "was changed");
    }
}

TEST(FieldAssignment, NumbersStayInTheirRange)
{
    EXPECT_EQ(assigned(EntityKind::Broker, "Port=0"), 0);
    EXPECT_EQ(assigned(EntityKind::Broker, "Port=65535"), 65535);
    EXPECT_EQ(assigned(EntityKind::Broker, "ReconnectTrials=4294967295"), 4294967295);
    for (const char* other : {"65536", "-1", "", "x", "1.5", "0x10", " 1", "99999999999999999999"}) {
        EXPECT_EQ(brokerRefusal(std::string("Port=") + other),
                  std::string("Port can't be '") + other + "': it is a number from 0 to 65535; nothing was changed");
    }
    EXPECT_NE(refusal(EntityKind::Publication, {"QoS=3"}), "");
    EXPECT_NE(refusal(EntityKind::Subscription, {"PayloadFormat=4"}), "");
}

TEST(FieldAssignment, TextsHaveToFitWithTheirTerminator)
{
    EXPECT_EQ(brokerRefusal("IPorUrl=" + std::string(127, 'x')), "");
    EXPECT_NE(brokerRefusal("IPorUrl=" + std::string(128, 'x'))
                  .find("it has 128 UTF-16 units, and the field takes 127; nothing was changed"),
              std::string::npos);
}

TEST(FieldAssignment, TextsThatAConfigurationFileCannotHoldAreRefused)
{
    EXPECT_EQ(brokerRefusal("Username=a\tb\n"), "");
    EXPECT_EQ(brokerRefusal("Username=a\x01"),
              "Username can't be 'a\\x01': it has a character that can't stand in a configuration file; nothing was "
              "changed");
    EXPECT_NE(brokerRefusal("Username=\xFF").find("it is no UTF-8"), std::string::npos);
}

TEST(FieldAssignment, ARefusedPasswordIsNotRepeated)
{
    EXPECT_EQ(brokerRefusal("Password=secret\x01").find("secret"), std::string::npos);
}

TEST(FieldAssignment, AnUnknownFieldIsRefusedWithTheNearestAndAllOthers)
{
    EXPECT_EQ(brokerRefusal("Prot=1"),
              "a broker has no field 'Prot', did you mean Port?; there are IPorUrl, Port, AutoConnect, ClientID, "
              "Username, Password, LastWillTopic, ReconnectTrials, KeepAliveTime, Encryption, CleanSessionFlag");
    EXPECT_EQ(refusal(EntityKind::Publication, {"Buffered=1"}),
              "a publication has no field 'Buffered'; there are Topic, QoS, PayloadFormat, Retained");
}

TEST(FieldAssignment, EncryptionIsRefusedWithTheReason)
{
    EXPECT_EQ(brokerRefusal("encryption=2"),
              "Encryption can't be set by a request: the service reads it from its configuration file only and never "
              "writes it; edit the file (EncryptionType), then `plcctl request start`");
}

TEST(FieldAssignment, AFieldThatComesTwiceIsRefused)
{
    EXPECT_EQ(refusal(EntityKind::Broker, {"Port=1", "port=2"}), "Port is given twice");
}

TEST(FieldAssignment, WhatIsNoAssignmentIsRefused)
{
    EXPECT_EQ(brokerRefusal("Port"), "'Port' is no FIELD=VALUE");
    EXPECT_NE(brokerRefusal("=1"), "");
}
