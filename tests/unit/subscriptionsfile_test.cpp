#include "Entities/subscriber.h"
#include "Services/mqttmanagerservices.h"
#include "Services/mqttXmlParser.h"
#include "unittest.h"

namespace {

class SubscriptionsFile : public ServiceTest
{
protected:
    bool parse(const QByteArray& content)
    {
        return MQTTXmlParser::instance()->ParseXMLFileSubscriptions(TestFile(content).path(), subscriptions, version);
    }

    Subscriber parseOne(const QByteArray& attributes, const QByteArray& children = {})
    {
        EXPECT_TRUE(parse("<SubscriptionsConf Version='1.2'><Subscriptions><SubscriptionConf " + attributes + ">" +
                          children + "</SubscriptionConf></Subscriptions></SubscriptionsConf>"));
        EXPECT_EQ(subscriptions.size(), 1);
        return subscriptions.takeFirst();
    }

    QList<Subscriber> subscriptions;
    QString version;
};

TEST_F(SubscriptionsFile, fillsEveryMember)
{
    MQTTManagerServices::instance()->m_plcMac = "00:11:22";
    const Subscriber subscriber = parseOne("ID='3' Name='setpoint' Topic='cmd/{PLC.MAC}/#' QOS='1' "
                                           "PayloadEncryption='4' DataAddr='8192' IsBuffered='0' SubscribeAtBoot='1' "
                                           "CBrokerID='9' SubAddr='4294967295' Ent='4' PayloadFormat='1' DataType='8'");
    EXPECT_EQ(version, "1.2");
    EXPECT_EQ(subscriber.m_CallerType, 1);
    EXPECT_EQ(subscriber.m_UniqueID, 3);
    EXPECT_EQ(subscriber.m_Name, "setpoint");
    EXPECT_EQ(subscriber.m_Topic, "cmd/00:11:22/#");
    EXPECT_TRUE(subscriber.m_Special);
    EXPECT_EQ(subscriber.m_QoS, 1);
    EXPECT_EQ(subscriber.m_PayloadEnc, 4);
    EXPECT_EQ(subscriber.m_DataAddress, 8192U);
    EXPECT_FALSE(subscriber.m_BufferedFlag);
    EXPECT_TRUE(subscriber.m_SubscribeAtBootTime);
    EXPECT_EQ(subscriber.m_CBrokerID, 9);
    EXPECT_EQ(subscriber.m_SubAddr, 4294967295U);
    EXPECT_EQ(subscriber.m_Entries, 4);
    EXPECT_EQ(subscriber.m_PayloadFormat, PF_JSON);
    EXPECT_EQ(subscriber.m_DataType, AT_REAL);
    EXPECT_EQ(subscriber.m_DataSize, 16);
    EXPECT_EQ(subscriber.m_cBroker, nullptr);
}

TEST_F(SubscriptionsFile, missingAttributesGiveZero)
{
    const Subscriber subscriber = parseOne("");
    EXPECT_EQ(subscriber.m_UniqueID, 0);
    EXPECT_EQ(subscriber.m_Topic, "");
    EXPECT_FALSE(subscriber.m_Special);
    EXPECT_EQ(subscriber.m_QoS, 0);
    EXPECT_FALSE(subscriber.m_BufferedFlag);
    EXPECT_FALSE(subscriber.m_SubscribeAtBootTime);
    EXPECT_EQ(subscriber.m_SubAddr, 0U);
    EXPECT_EQ(subscriber.m_PayloadFormat, 0);
    EXPECT_EQ(subscriber.m_DataSize, -1);
}

struct FlagCase
{
    const char* text;
    bool value;
};

class SubscriptionFlag : public SubscriptionsFile, public testing::WithParamInterface<FlagCase>
{
};

TEST_P(SubscriptionFlag, isAnyNumberButZero)
{
    const Subscriber subscriber =
        parseOne(QByteArray("IsBuffered='") + GetParam().text + "' SubscribeAtBoot='" + GetParam().text + "'");
    EXPECT_EQ(subscriber.m_BufferedFlag, GetParam().value);
    EXPECT_EQ(subscriber.m_SubscribeAtBootTime, GetParam().value);
}

INSTANTIATE_TEST_SUITE_P(Texts, SubscriptionFlag,
                         testing::Values(FlagCase{"0", false}, FlagCase{"1", true}, FlagCase{"2", true},
                                         FlagCase{"-1", true}, FlagCase{"true", false}, FlagCase{"", false}));

TEST_F(SubscriptionsFile, anEmptyVariableKeepsTheSeparatorsAroundIt)
{
    MQTTManagerServices::instance()->m_plcMac = "";
    EXPECT_EQ(parseOne("Topic='cmd/{PLC.MAC}/x'").m_Topic, "cmd//x");
}

TEST_F(SubscriptionsFile, aStructTakesItsMembersInFileOrder)
{
    const Subscriber subscriber =
        parseOne("DataType='10' PayloadFormat='1'",
                 "<DataMembers><DataMember Off='0x4' DataType='11_16' DName='label' Ent='5'/>"
                 "<DataMember Off='0x0' DataType='7' DName='counter' Ent='0'/></DataMembers>");
    ASSERT_EQ(subscriber.m_DataMembers.size(), 2);
    EXPECT_EQ(subscriber.m_DataMembers.at(0).Name, "label");
    EXPECT_EQ(subscriber.m_DataMembers.at(0).Type, AT_STR8);
    EXPECT_EQ(subscriber.m_DataMembers.at(0).Len, 16);
    EXPECT_EQ(subscriber.m_DataMembers.at(0).Offset, 4U);
    EXPECT_EQ(subscriber.m_DataMembers.at(1).Name, "counter");
    EXPECT_EQ(subscriber.m_DataSize, 4); // of the last member alone
}

TEST_F(SubscriptionsFile, aStructWithoutMembersHasNoSize)
{
    EXPECT_EQ(parseOne("DataType='10'").m_DataSize, -1);
}

TEST_F(SubscriptionsFile, everyElementBehindTheFirstSubscriptionIsRead)
{
    EXPECT_TRUE(parse("<SubscriptionsConf><Subscriptions><SubscriptionConf ID='1' CBrokerID='77'/><X ID='2'/>"
                      "</Subscriptions></SubscriptionsConf>"));
    ASSERT_EQ(subscriptions.size(), 2); // whether their broker exists or not
    EXPECT_EQ(subscriptions.at(1).m_UniqueID, 2);
    EXPECT_EQ(subscriptions.at(1).m_CallerType, 1);
}

TEST_F(SubscriptionsFile, wrongElementsGiveNoSubscriptionAndNoFailure)
{
    EXPECT_TRUE(parse("<SubscriptionsConf><Subscription/></SubscriptionsConf>"));
    EXPECT_TRUE(subscriptions.isEmpty());
}

TEST_F(SubscriptionsFile, failuresAreNamed)
{
    const LogCapture log;
    EXPECT_FALSE(MQTTXmlParser::instance()->ParseXMLFileSubscriptions("/nonexistent/x", subscriptions, version));
    EXPECT_FALSE(parse("<a"));
    EXPECT_THAT(log.lines(), testing::ElementsAre("ERROR can't open xml file for read",
                                                  testing::StartsWith("ERROR invalid content due to ")));
}

} // namespace
