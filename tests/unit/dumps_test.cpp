#include "debugoutput.h"
#include "Entities/mqttmessage.h"
#include "Entities/subscriber.h"
#include "Records/brokerrecords.h"
#include "Records/generalrecords.h"
#include "Records/publicationrecords.h"
#include "Records/subscriptionrecords.h"
#include "Services/mqttmanagerservices.h"
#include "unittest.h"

#include <algorithm>
#include <QVector>

namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;
using testing::MatchesRegex;

class Dumps : public ServiceTest
{
protected:
    Dumps() { services().SetVerboseMode(true); }
    ~Dumps() override { services().SetVerboseMode(false); }

    static MQTTManagerServices& services() { return *MQTTManagerServices::instance(); }

    const DebugOutput output;
};

template<std::size_t Units>
void fill(char16_t (&field)[Units], char16_t unit)
{
    std::fill(field, field + Units, unit);
}

TEST_F(Dumps, beginWithTheTimeAndTheServicesName)
{
    services().PrintDebug("one, ", "two");
    EXPECT_THAT(output.lines(),
                ElementsAre(MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3} "
                                         "MQTTClientManager \\*\\* one, two")));
}

TEST_F(Dumps, needVerboseMode)
{
    services().SetVerboseMode(false);
    MQTTGeneralStruct general{};
    MQTTStatisticsStruct statistics{};
    MQTTMessage message;
    QVector<HdrOperandData_t> operands;
    services().PrintDebug("one", "two");
    services().PrintMQTTGeneralStructDebug(&general, 1);
    services().PrintMQTTStatisticsStructDebug(statistics);
    services().PrintClientBrokerStructDebug({});
    services().PrintSubscriptionStructDebug({});
    services().PrintPublicationStructDebug({});
    services().PrintMQTTMessageDebug(&message);
    services().PrintRegisteredTagsDebug(operands, 0);
    Subscriber().PrintCallerEntityDebug();
    Subscriber().PrintCfgStructDebug();
    Publisher().PrintCallerEntityDebug();
    ClientBroker().PrintBrokerEntityDebug();
    ClientBroker().PrintBrokerCfgStructDebug();
    EXPECT_THAT(output.lines(), IsEmpty());
}

TEST_F(Dumps, ofTheGeneralRecordNameItsAddress)
{
    MQTTGeneralStruct record{1, 2, 3, 4, 0};
    services().PrintMQTTGeneralStructDebug(&record, 1024);
    services().PrintMQTTGeneralStructDebug(nullptr, 1024);
    EXPECT_THAT(output.lines(), ElementsAre(EndsWith("MQTTGeneralStruct members (address 1024): ProcessStatus=1, "
                                                     "BrokersNumber=2, PublicationsNumber=3, SubscriptionsNumber=4")));
}

TEST_F(Dumps, ofTheStatisticsHaveTheHeadingOfTheOtherRecord)
{
    MQTTStatisticsStruct record{1, 2, 3, 4};
    services().PrintMQTTStatisticsStructDebug(record);
    EXPECT_THAT(
        output.lines(),
        ElementsAre(EndsWith("MQTTGeneralStruct members are: SentPubs=1, AckPubs=2, ReceivedSub=3, DroppedSubs=4")));
}

TEST_F(Dumps, ofRecordsStopAtTheEndOfAField)
{
    CBrokerConfigurationStruct broker{};
    fill(broker.IPorUrl, u'h');
    fill(broker.LastWillTopic, u'w');
    broker.Encryption = 5;
    services().PrintClientBrokerStructDebug(broker);
    PublicationConfigurationStruct publication{};
    fill(publication.Topic, u't');
    services().PrintPublicationStructDebug(publication);
    const std::string host(128, 'h');
    const std::string topic(256, 'w');
    EXPECT_THAT(
        output.lines(),
        ElementsAre(EndsWith("CBrokerConfigurationStruct members are: IPorUrl=\"" + host +
                             "\", Port=0, Auto-connect=0, ClientID=\"\", Username=\"\", Password=\"\", "
                             "LastWillTopic=\"" +
                             topic + "\", ReconnectTrials=0, KeepAliveTime=0, Encryption=5, CleanSessionFlag=0"),
                    EndsWith("PublicationConfigurationStruct members are: Topic=\"" + std::string(256, 't') +
                             "\", QoS=0, PayloadFormat=0, Retained=0")));
}

TEST_F(Dumps, ofATextWithLineFeedsStayOneLine)
{
    SubscriptionConfigurationStruct record{};
    record.Topic[0] = u'\n';
    record.Topic[1] = u'"';
    services().PrintSubscriptionStructDebug(record);
    EXPECT_THAT(
        output.lines(),
        ElementsAre(EndsWith("SubscriptionConfigurationStruct members are: Topic=\"\\n\\\"\", QoS=0, PayloadFormat=0, "
                             "SubscribeAtBoot=0, Buffered=0")));
}

TEST_F(Dumps, ofTheRegisteredTagsCountThem)
{
    QVector<HdrOperandData_t> operands{{4, 0, 2048}, {1, 0, 44}};
    services().PrintRegisteredTagsDebug(operands, operands.size());
    EXPECT_THAT(output.lines(),
                ElementsAre(EndsWith("Registered tags number is 2. Details: Address=2048 Length=4; Address=44 "
                                     "Length=1;")));
}

TEST_F(Dumps, ofACallerBeginWithWhatAllHaveInCommon)
{
    Publisher publisher;
    publisher.m_UniqueID = 7;
    publisher.m_Name = "speed";
    publisher.m_CBrokerID = 2;
    publisher.m_PayloadFormat = PF_JSON;
    publisher.m_PayloadEnc = 3;
    publisher.m_DataType = AT_STR8;
    publisher.m_DataLen = 20;
    publisher.m_DataAddress = 2048;
    publisher.SetTopic("line/speed");
    publisher.CalcDataSize();
    publisher.PrintCallerEntityDebug();
    Subscriber subscriber;
    subscriber.PrintCallerEntityDebug();
    ASSERT_EQ(output.lines().size(), 4U);
    EXPECT_THAT(
        output.lines()[0],
        EndsWith("Caller Entity members are: UniqueID=7, Name=\"speed\", CBrokerID=2, Topic=\"line/speed\" (NOT "
                 "SPECIAL), QoS=0, PayloadFormat=1, PayloadEnc=3, DataType=11, TypeName=AT_STR8, DataLen=20, "
                 "DataSize=21, DataAddress=2048, Ent=NOT AN ARRAY"));
    EXPECT_THAT(output.lines()[1], testing::HasSubstr("Publisher Entity members are: RetainFlag=false"));
    EXPECT_THAT(output.lines()[2], testing::HasSubstr("Caller Entity members are: "));
    EXPECT_THAT(output.lines()[3], testing::HasSubstr("Subscriber Entity members are: SubAddr="));
}

TEST_F(Dumps, ofTheStatusBlocksShowWhatStands)
{
    ClientBroker broker;
    broker.UniqueID = 3;
    broker.m_ReturnCode = -13;
    broker.UpdateClientBrokerStruct();
    Subscriber subscriber;
    subscriber.m_Status.m_SubscriptionStatus = -15;
    subscriber.UpdateCfgStruct();
    EXPECT_THAT(
        output.lines(),
        ElementsAre(
            EndsWith("Broker Cfg Struct members are: UniqueID=3, Name=\"\", Connected=0, "
                     "SessionPresent=0, ReturnCode=-13"),
            EndsWith("Subscriber Cfg Struct members are: UniqueID=0, Subscribed=0, "
                     "SubscriptionStatus=-15, ReceivedBit=0, QueueFull=0, LastMessageTopic=\"\", LastMessageUTC=0, "
                     "BufferedDataStatus=0")));
}

} // namespace
