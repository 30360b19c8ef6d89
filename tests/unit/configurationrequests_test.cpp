#include "requesttest.h"

#include <cstring>

namespace {

using testing::ElementsAre;

// One entity of each kind, paused. There is no configuration directory here, so nothing can be written back.
class ConfigurationRequests : public RequestTest
{
protected:
    ConfigurationRequests()
    {
        addBroker(1);
        addSubscription(2, 1);
        addPublication(3, 1, 500);
        createClients();
        manager().UpdateProcessStatus(PS_PAUSED);
        FakeTagMemory::state().writes.clear();
    }

    using Handler = StatusCodes (MQTTClientManager::*)(const MQTTRequestMsg*);

    static MQTTRequestMsg requestFor(int id)
    {
        MQTTRequestMsg request{};
        request.uniqueID = static_cast<std::uint16_t>(id);
        request.statusAddress = StatusOperand;
        std::memcpy(request.payload, &RecordOperand, sizeof RecordOperand);
        return request;
    }

    static StatusCodes ask(Handler handler, int id)
    {
        const MQTTRequestMsg request = requestFor(id);
        FakeTagMemory::state().conversions.clear();
        return (manager().*handler)(&request);
    }

    static ClientBroker& broker() { return manager().m_clientBrokers[0]; }

    static constexpr std::uint32_t RecordOperand = 20'000;
};

struct Family
{
    const char* name;
    StatusCodes (MQTTClientManager::*get)(const MQTTRequestMsg*);
    StatusCodes (MQTTClientManager::*set)(const MQTTRequestMsg*);
    int id;
};

const Family Families[] = {
    {"broker", &MQTTClientManager::HandleGetClientBrokerCfg, &MQTTClientManager::HandleSetClientBrokerCfg, 1},
    {"subscription", &MQTTClientManager::HandleGetSubscriptionCfg, &MQTTClientManager::HandleSetSubscriptionCfg, 2},
    {"publication", &MQTTClientManager::HandleGetPublicationCfg, &MQTTClientManager::HandleSetPublicationCfg, 3},
};

class AnyConfiguration : public ConfigurationRequests, public testing::WithParamInterface<Family>
{
};

INSTANTIATE_TEST_SUITE_P(All, AnyConfiguration, testing::ValuesIn(Families),
                         [](const auto& each) { return each.param.name; });

TEST_P(AnyConfiguration, ofAnUnknownIdConvertsNoRecordAddress)
{
    EXPECT_EQ(ask(GetParam().get, 9999), SC_AC_ERROR_INVALID_ID);
    EXPECT_THAT(FakeTagMemory::state().conversions, ElementsAre(StatusOperand));
    EXPECT_EQ(ask(GetParam().get, GetParam().id), SC_AC_OK);
    EXPECT_THAT(FakeTagMemory::state().conversions, ElementsAre(StatusOperand, RecordOperand));
}

TEST_P(AnyConfiguration, thatTagMemoryDoesNotTakeIsAFailedReadBack)
{
    FakeTagMemory::state().writeResults = {0, -1, -1};
    EXPECT_EQ(ask(GetParam().get, GetParam().id), SC_AC_ERROR_GET_CFG_FAILED);
    EXPECT_THAT(statusTag(), ElementsAre(Bytes{2}, Bytes{0xFD}));
}

TEST_P(AnyConfiguration, isRefusedAheadOfTheLookUpWhileRunning)
{
    manager().UpdateProcessStatus(PS_TIME_NOT_SET);
    EXPECT_EQ(ask(GetParam().set, 9999), SC_AC_ERROR_NOT_PAUSED);
    EXPECT_THAT(statusTag(), ElementsAre(Bytes{2}, Bytes{0xFC}));
}

TEST_P(AnyConfiguration, thatCanNotBeWrittenBackIsAnswered)
{
    EXPECT_EQ(ask(GetParam().set, GetParam().id), SC_AC_ERROR_WRITE_BACK_FAILED);
    EXPECT_THAT(statusTag(), ElementsAre(Bytes{2}, Bytes{0xFF}));
}

TEST_F(ConfigurationRequests, entityStaysWhenItsFileCanNotBeWritten)
{
    ask(&MQTTClientManager::HandleSetPublicationCfg, 3);
    EXPECT_EQ(manager().m_publications.at(0).m_Topic, "p/3");
    ask(&MQTTClientManager::HandleSetSubscriptionCfg, 2);
    EXPECT_EQ(manager().m_subscriptions.at(0).m_Topic, "s/2");
    ask(&MQTTClientManager::HandleSetClientBrokerCfg, 1);
    EXPECT_EQ(broker().m_secondPacketPending, false);
}

TEST_F(ConfigurationRequests, secondPacketIsTakenOverEvenWhenTheFileCanNotBeWritten)
{
    broker().m_secondPacketPending = true;
    broker().m_cfgStatusTag = 4711;
    broker().CleanSessionFlag = true;
    MQTTRequestMsg message{};
    CBrokerConfigurationStruct record{};
    record.Password[0] = u'p';
    record.ReconnectTrials = 90'000;
    record.KeepAliveTime = 65'535;
    std::memcpy(reinterpret_cast<std::uint8_t*>(&message) + 4,
                reinterpret_cast<const std::uint8_t*>(&record) + FirstBrokerPacketSize,
                sizeof record - FirstBrokerPacketSize);

    EXPECT_EQ(manager().HandleSetClientBrokerCfgSecondPacket(&message), SC_AC_ERROR_WRITE_BACK_FAILED);
    EXPECT_THAT(FakeTagMemory::writesAt(4711), ElementsAre(Bytes{0xFF}));
    EXPECT_EQ(broker().Password, "p");
    EXPECT_EQ(broker().ConnectionInterval, 90'000U);
    EXPECT_EQ(broker().KeepAliveTime, 65'535U);
    EXPECT_FALSE(broker().CleanSessionFlag);
    EXPECT_FALSE(broker().m_secondPacketPending);
}

TEST_F(ConfigurationRequests, secondPacketThatNobodyWaitsForEndsWith1AndWritesNothing)
{
    const LogCapture log;
    const MQTTRequestMsg message{};
    EXPECT_EQ(static_cast<int>(manager().HandleSetClientBrokerCfgSecondPacket(&message)), 1);
    EXPECT_THAT(FakeTagMemory::state().writes, testing::IsEmpty());
    EXPECT_THAT(log.lines(), ElementsAre("DEBUG Enter function", "DEBUG End function (rtnstatus is 1)"));
}

struct TopicCase
{
    const char16_t* topic;
    bool isSpecial;
};

TEST(TakeConfiguration, wildcardsMakeATopicSpecialAndTheirLackClearsThat)
{
    SubscriptionConfigurationStruct subscription{};
    PublicationConfigurationStruct publication{};
    Subscriber subscriber;
    Publisher publisher;
    for (const TopicCase& each :
         {TopicCase{u"a/+", true}, {u"a/b", false}, {u"a/#", true}, {u"", false}, {u"x#y", true}}) {
        const QString topic = QString::fromUtf16(each.topic);
        std::memcpy(subscription.Topic, topic.utf16(), (topic.size() + 1) * sizeof(char16_t));
        std::memcpy(publication.Topic, topic.utf16(), (topic.size() + 1) * sizeof(char16_t));
        subscriber.TakeConfiguration(subscription);
        publisher.TakeConfiguration(publication);
        EXPECT_EQ(subscriber.m_Topic, topic);
        EXPECT_EQ(publisher.m_Topic, topic);
        EXPECT_EQ(subscriber.m_Special, each.isSpecial) << topic.toStdString();
        EXPECT_EQ(publisher.m_Special, each.isSpecial) << topic.toStdString();
    }
}

TEST(TakeConfiguration, aTopicKeepsItsByteOrderMark)
{
    SubscriptionConfigurationStruct record{};
    record.Topic[0] = u'\uFEFF';
    record.Topic[1] = u'a';
    Subscriber subscriber;
    subscriber.TakeConfiguration(record);
    EXPECT_EQ(subscriber.m_Topic.size(), 2);
}

TEST(TakeConfiguration, encryptionIsTheFilesAlone)
{
    ClientBroker broker;
    broker.Encryption = ENC_SSL_CA_CERTIFICATE_ONLY;
    CBrokerConfigurationStruct record{};
    record.Encryption = ENC_NONE;
    broker.TakeFirstPacket(record);
    broker.TakeSecondPacket(record);
    EXPECT_EQ(broker.Encryption, ENC_SSL_CA_CERTIFICATE_ONLY);
}

} // namespace
