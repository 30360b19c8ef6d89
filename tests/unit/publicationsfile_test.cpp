#include "Services/mqttmanagerservices.h"
#include "Services/mqttXmlParser.h"
#include "unittest.h"

namespace {

class PublicationsFile : public ServiceTest
{
protected:
    bool parse(const QByteArray& content)
    {
        return MQTTXmlParser::instance()->ParseXMLFilePublications(TestFile(content).path(), publications, version);
    }

    Publisher parseOne(const QByteArray& attributes, const QByteArray& children = {})
    {
        EXPECT_TRUE(parse("<PublicationsConf Version='1.1'><Publications><PublicationConf " + attributes + ">" +
                          children + "</PublicationConf></Publications></PublicationsConf>"));
        EXPECT_EQ(publications.size(), 1);
        return publications.takeFirst();
    }

    QList<Publisher> publications;
    QString version;
};

TEST_F(PublicationsFile, fillsEveryMember)
{
    const Publisher publisher =
        parseOne("ID='5' Name='speed' Topic='line/speed' QOS='2' PayloadEncryption='3' RetainFlag='1' "
                 "PeriodicInterval='-1' DataAddr='4294967295' BrokerReceivedAddr='-1' CBrokerID='9' Ent='4' "
                 "PayloadFormat='0' DataType='6'");
    EXPECT_EQ(version, "1.1");
    EXPECT_EQ(publisher.m_CallerType, 2);
    EXPECT_EQ(publisher.m_UniqueID, 5);
    EXPECT_EQ(publisher.m_Name, "speed");
    EXPECT_EQ(publisher.m_Topic, "line/speed");
    EXPECT_FALSE(publisher.m_Special);
    EXPECT_EQ(publisher.m_QoS, 2);
    EXPECT_EQ(publisher.m_PayloadEnc, 3);
    EXPECT_TRUE(publisher.m_RetainFlag);
    EXPECT_EQ(publisher.m_PerInterval, NO_PERIOD);
    EXPECT_EQ(publisher.m_DataAddress, 4294967295U);
    EXPECT_EQ(publisher.m_ReceiveAddress, NO_RECEIVE_ADDRESS);
    EXPECT_EQ(publisher.m_CBrokerID, 9);
    EXPECT_EQ(publisher.m_Entries, 4);
    EXPECT_EQ(publisher.m_PayloadFormat, PF_BUFFER);
    EXPECT_EQ(publisher.m_DataType, AT_UINT32);
    EXPECT_EQ(publisher.m_DataSize, 16);
    EXPECT_EQ(publisher.m_cBroker, nullptr);
}

TEST_F(PublicationsFile, missingAttributesGiveZero)
{
    const Publisher publisher = parseOne("");
    EXPECT_EQ(publisher.m_PayloadFormat, 0); // and not the 255 of a publication that nobody configured
    EXPECT_EQ(publisher.m_PerInterval, 0);
    EXPECT_EQ(publisher.m_ReceiveAddress, 0U);
    EXPECT_EQ(publisher.m_DataSize, -1);
}

TEST_F(PublicationsFile, withoutAFormatGetsASizeFromItsType)
{
    EXPECT_EQ(parseOne("DataType='4'").m_DataSize, 2);
}

TEST_F(PublicationsFile, numbersOutOfRangeStand)
{
    const Publisher publisher = parseOne("QOS='7' PayloadFormat='255' PeriodicInterval='-5'");
    EXPECT_EQ(publisher.m_QoS, 7);
    EXPECT_EQ(publisher.m_PayloadFormat, 255);
    EXPECT_EQ(publisher.m_PerInterval, -5);
}

TEST_F(PublicationsFile, wildcardsMakeATopicSpecialAlsoThroughAVariable)
{
    MQTTManagerServices::instance()->m_plcSerial = "a+b";
    EXPECT_TRUE(parseOne("Topic='a/#'").m_Special);
    EXPECT_TRUE(parseOne("Topic='a/+/b'").m_Special);
    EXPECT_TRUE(parseOne("Topic='x/{PLC.SN}'").m_Special);
    EXPECT_FALSE(parseOne("Topic='a/b'").m_Special);
}

TEST_F(PublicationsFile, aTextWithoutALengthHasNoBytes)
{
    const Publisher publisher = parseOne("DataType='11'");
    EXPECT_EQ(publisher.m_DataLen, NO_DATA_LEN);
    EXPECT_EQ(publisher.m_DataSize, 0);
}

TEST_F(PublicationsFile, aTextWithALengthHasItsTerminator)
{
    const Publisher publisher = parseOne("DataType='11_16'");
    EXPECT_EQ(publisher.m_DataLen, 16);
    EXPECT_EQ(publisher.m_DataSize, 17);
}

TEST_F(PublicationsFile, aStructTakesItsMembersInFileOrder)
{
    MQTTManagerServices::instance()->m_plcSerial = "";
    MQTTManagerServices::instance()->m_plcMac = "MAC";
    const Publisher publisher =
        parseOne("Topic='line/{PLC.NAME}/+/state' DataType='10' PayloadFormat='1'",
                 "<DataMembers><DataMember Off='0x0' DataType='7' DName='counter' Ent='0'/>"
                 "<DataMember Off='0x4' DataType='11_16' DName='label' Ent='5'/></DataMembers>");
    EXPECT_EQ(publisher.m_Topic, "line/MAC/+/state");
    EXPECT_TRUE(publisher.m_Special);
    ASSERT_EQ(publisher.m_DataMembers.size(), 2);
    const JsonDataMember& first = publisher.m_DataMembers.at(0);
    EXPECT_EQ(first.Name, "counter");
    EXPECT_EQ(first.Type, AT_INT32);
    EXPECT_EQ(first.Len, NO_DATA_LEN);
    EXPECT_EQ(first.Entry, 0);
    EXPECT_EQ(first.Offset, 0U);
    const JsonDataMember& second = publisher.m_DataMembers.at(1);
    EXPECT_EQ(second.Name, "label");
    EXPECT_EQ(second.Type, AT_STR8);
    EXPECT_EQ(second.Len, 16);
    EXPECT_EQ(second.Entry, 5);
    EXPECT_EQ(second.Offset, 4U);
    EXPECT_EQ(publisher.m_DataSize, 21);
}

TEST_F(PublicationsFile, membersOfOtherTypesAreIgnored)
{
    EXPECT_TRUE(parseOne("DataType='7'", "<DataMembers><DataMember/></DataMembers>").m_DataMembers.isEmpty());
}

TEST_F(PublicationsFile, everyElementBehindTheFirstMemberIsRead)
{
    const Publisher publisher = parseOne("DataType='10'", "<DataMembers><X DName='no'/><DataMember DName='a'/>"
                                                          "<X DName='b'/></DataMembers>");
    ASSERT_EQ(publisher.m_DataMembers.size(), 2);
    EXPECT_EQ(publisher.m_DataMembers.at(0).Name, "a");
    EXPECT_EQ(publisher.m_DataMembers.at(1).Name, "b");
}

TEST_F(PublicationsFile, aStructWithoutMembersHasNoSize)
{
    EXPECT_EQ(parseOne("DataType='10'").m_DataSize, -1);
    EXPECT_EQ(parseOne("DataType='10'", "<DataMembers/>").m_DataSize, -1);
}

struct OffsetCase
{
    const char* text;
    unsigned offset;
};

class MemberOffset : public PublicationsFile, public testing::WithParamInterface<OffsetCase>
{
};

TEST_P(MemberOffset, isHexadecimalBehindTwoCharacters)
{
    const QByteArray member = QByteArray("<DataMembers><DataMember Off='") + GetParam().text + "'/></DataMembers>";
    const Publisher publisher = parseOne("DataType='10'", member);
    ASSERT_EQ(publisher.m_DataMembers.size(), 1);
    EXPECT_EQ(publisher.m_DataMembers.at(0).Offset, GetParam().offset);
    EXPECT_EQ(publisher.m_DataMembers.at(0).Name, "");
}

INSTANTIATE_TEST_SUITE_P(Texts, MemberOffset,
                         testing::Values(OffsetCase{"0x10", 16}, OffsetCase{"10", 0}, OffsetCase{"1234", 0x34},
                                         OffsetCase{"xxFF", 255}, OffsetCase{"0xffffffff", 0xFFFFFFFF},
                                         OffsetCase{"0x100000000", 0}, OffsetCase{"0xZZ", 0}, OffsetCase{"0x-5", 0},
                                         OffsetCase{"x", 0}, OffsetCase{"", 0}));

TEST_F(PublicationsFile, everyElementBehindTheFirstPublicationIsRead)
{
    EXPECT_TRUE(parse("<PublicationsConf><Publications><PublicationConf ID='1'/><X ID='2'/></Publications>"
                      "</PublicationsConf>"));
    ASSERT_EQ(publications.size(), 2);
    EXPECT_EQ(publications.at(1).m_UniqueID, 2);
}

TEST_F(PublicationsFile, wrongElementsGiveNoPublicationAndNoFailure)
{
    EXPECT_TRUE(parse("<Publications/>"));
    EXPECT_TRUE(publications.isEmpty());
}

TEST_F(PublicationsFile, failuresAreNamed)
{
    const LogCapture log;
    EXPECT_FALSE(MQTTXmlParser::instance()->ParseXMLFilePublications("/nonexistent/x", publications, version));
    EXPECT_FALSE(parse("<a"));
    EXPECT_THAT(log.lines(), testing::ElementsAre("ERROR can't open xml file for read",
                                                  testing::StartsWith("ERROR invalid content due to ")));
}

TEST_F(PublicationsFile, valuesOutOfRangeCanBeMadeValid)
{
    const MQTTXmlParser& parser = *MQTTXmlParser::instance();
    EXPECT_EQ(parser.validateQOSValue(QOS_EXACTLY_ONCE), 2);
    EXPECT_EQ(parser.validateQOSValue(static_cast<MQTTQualityOfService>(3)), 0);
    EXPECT_EQ(parser.validatePayloadFormatValue(PF_TRIGGERED_OP), 3);
    EXPECT_EQ(parser.validatePayloadFormatValue(PF_NOT_CONFIGURED), 0);
}

} // namespace
