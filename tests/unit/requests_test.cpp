#include "requesttest.h"
#include "Services/mqttscheduler.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using namespace std::chrono_literals;

class Requests : public RequestTest
{
protected:
    Requests()
    {
        addBroker(1);
        addBroker(2);
        addSubscription(11, 1);
        addSubscription(12, 1);
        addSubscription(13, 1);
        addSubscription(21, 2);
        addPublication(31, 1, NO_PERIOD);
        addPublication(32, 1, 500);
        createClients();
    }

    using Handler = StatusCodes (MQTTClientManager::*)(const MQTTRequestMsg*);

    StatusCodes ask(Handler handler, int id, int publishState = 0)
    {
        MQTTRequestMsg request{};
        request.uniqueID = static_cast<std::uint16_t>(id);
        request.publishState = static_cast<std::int8_t>(publishState);
        request.statusAddress = StatusOperand;
        return (manager().*handler)(&request);
    }

    void connectFirst()
    {
        ASSERT_EQ(manager().m_clientBrokers[0].Connect(), CB_OK);
        FakeMqttClient::state().calls.clear();
        FakeTagMemory::state().writes.clear();
    }

    static quint32 sent() { return MQTTStatusLogManager::instance()->m_MQTTStatisticsStruct.m_SentPubs; }
};

struct Family
{
    const char* name;
    StatusCodes (MQTTClientManager::*handler)(const MQTTRequestMsg*);
    int id; // of an entity that is there
};

const Family EveryRequest[] = {
    {"connect", &MQTTClientManager::HandleConnectClientBroker, 1},
    {"disconnect", &MQTTClientManager::HandleDisConnectClientBroker, 1},
    {"subscribe", &MQTTClientManager::HandleSubscribeToTopic, 11},
    {"unsubscribe", &MQTTClientManager::HandleUnSubscribeToTopic, 11},
    {"subscribeAll", &MQTTClientManager::HandleSubscribeAll, 1},
    {"unsubscribeAll", &MQTTClientManager::HandleUnSubscribeAll, 1},
    {"send", &MQTTClientManager::HandleSendAPeriodic, 31},
    {"publishState", &MQTTClientManager::HandleSetPublicationPublishState, 32},
};

class AnyRequest : public Requests, public testing::WithParamInterface<Family>
{
};

INSTANTIATE_TEST_SUITE_P(All, AnyRequest, testing::ValuesIn(EveryRequest),
                         [](const auto& each) { return each.param.name; });

TEST_P(AnyRequest, forAnUnknownIdIsRefusedAtOnceAndSaysSoLast)
{
    const LogCapture log;
    EXPECT_EQ(ask(GetParam().handler, 9999), SC_AC_ERROR_INVALID_ID);
    EXPECT_THAT(statusTag(), ElementsAre(Bytes{2}, Bytes{0xFE}));
    EXPECT_THAT(log.lines(),
                ElementsAre("DEBUG Enter function (ID=9999)", testing::StartsWith("DEBUG Wrote stauts (2)"),
                            testing::StartsWith("DEBUG Wrote stauts (-2)"), "DEBUG End function (rtnstatus is -2)"));
    EXPECT_THAT(FakeSleep::waits(), IsEmpty());
}

TEST_P(AnyRequest, isRefusedWhilePausedWithoutACallAlsoForAnUnknownId)
{
    manager().UpdateProcessStatus(PS_PAUSED);
    for (const int id : {GetParam().id, 9999}) {
        FakeTagMemory::state().writes.clear();
        EXPECT_EQ(ask(GetParam().handler, id), SC_AC_ERROR_PAUSED);
        EXPECT_THAT(statusTag(), ElementsAre(Bytes{2}, Bytes{0xFA}));
    }
    EXPECT_THAT(FakeMqttClient::state().calls, IsEmpty());
}

TEST_F(Requests, connectAndDisconnectReachTheBroker)
{
    EXPECT_EQ(ask(&MQTTClientManager::HandleConnectClientBroker, 2), SC_AC_OK);
    EXPECT_THAT(statusTag(), ElementsAre(Bytes{2}, Bytes{0}));
    EXPECT_TRUE(manager().m_clientBrokers[1].IsConnected());
    EXPECT_FALSE(manager().m_clientBrokers[0].IsConnected());
    EXPECT_EQ(ask(&MQTTClientManager::HandleDisConnectClientBroker, 2), SC_AC_OK);
    EXPECT_FALSE(manager().m_clientBrokers[1].IsConnected());
}

TEST_F(Requests, anyFailureOfABrokerIsOneCode)
{
    EXPECT_EQ(ask(&MQTTClientManager::HandleDisConnectClientBroker, 1), SC_AC_ERROR_BROKER_FAILED);
    EXPECT_THAT(statusTag(), ElementsAre(Bytes{2}, Bytes{0xF6}));
    FakeMqttClient::state().connectResults = {5};
    EXPECT_EQ(ask(&MQTTClientManager::HandleConnectClientBroker, 1), SC_AC_ERROR_BROKER_FAILED);
    connectFirst();
    EXPECT_EQ(ask(&MQTTClientManager::HandleConnectClientBroker, 1), SC_AC_ERROR_BROKER_FAILED);
}

TEST_F(Requests, subscribeAndUnsubscribeReachTheOneSubscription)
{
    connectFirst();
    EXPECT_EQ(ask(&MQTTClientManager::HandleSubscribeToTopic, 12), SC_AC_OK);
    EXPECT_FALSE(manager().m_subscriptions[0].IsSubscribed());
    EXPECT_TRUE(manager().m_subscriptions[1].IsSubscribed());
    EXPECT_EQ(ask(&MQTTClientManager::HandleSubscribeToTopic, 12), SC_AC_ERROR_SUBSCRIPTION_FAILED);
    EXPECT_EQ(ask(&MQTTClientManager::HandleUnSubscribeToTopic, 12), SC_AC_OK);
    EXPECT_FALSE(manager().m_subscriptions[1].IsSubscribed());
    EXPECT_EQ(ask(&MQTTClientManager::HandleUnSubscribeToTopic, 12), SC_AC_ERROR_SUBSCRIPTION_FAILED);
}

TEST_F(Requests, subscribeAllGoesOnAfterAFailureAndTellsOfIt)
{
    connectFirst();
    manager().m_subscriptions[0].Subscribe(); // so that a second time fails
    EXPECT_EQ(ask(&MQTTClientManager::HandleSubscribeAll, 1), SC_AC_ERROR_SUBSCRIPTION_FAILED);
    EXPECT_TRUE(manager().m_subscriptions[1].IsSubscribed());
    EXPECT_TRUE(manager().m_subscriptions[2].IsSubscribed());
    EXPECT_FALSE(manager().m_subscriptions[3].IsSubscribed());
    EXPECT_EQ(FakeTagMemory::bytesAt(StatusTag, 1), (Bytes{0xF5}));
}

TEST_F(Requests, subscribeAllIncludesBufferedOnesAndThoseThatAreNotSubscribedAtStart)
{
    connectFirst();
    manager().m_subscriptions[0].m_BufferedFlag = true;
    manager().m_subscriptions[1].m_SubscribeAtBootTime = true;
    EXPECT_EQ(ask(&MQTTClientManager::HandleSubscribeAll, 1), SC_AC_OK);
    EXPECT_EQ(FakeMqttClient::state().subscribes.size(), 3U);
}

TEST_F(Requests, allOfABrokerWithoutSubscriptionsIsASuccess)
{
    addBroker(3);
    EXPECT_EQ(ask(&MQTTClientManager::HandleSubscribeAll, 3), SC_AC_OK);
    EXPECT_EQ(ask(&MQTTClientManager::HandleUnSubscribeAll, 3), SC_AC_OK);
}

TEST_F(Requests, unsubscribeAllGoesOnAfterAFailureAndTellsOfIt)
{
    connectFirst();
    manager().m_subscriptions[1].Subscribe();
    EXPECT_EQ(ask(&MQTTClientManager::HandleUnSubscribeAll, 1), SC_AC_ERROR_SUBSCRIPTION_FAILED);
    EXPECT_FALSE(manager().m_subscriptions[1].IsSubscribed());
}

TEST_F(Requests, sendPublishesAfterItsDelayWhatTheTagHoldsThen)
{
    connectFirst();
    FakeTagMemory::put(700, {1, 2});
    const LogCapture log;
    EXPECT_EQ(ask(&MQTTClientManager::HandleSendAPeriodic, 31), SC_AC_OK);
    EXPECT_THAT(FakeSleep::waits(), ElementsAre(600ms));
    ASSERT_EQ(FakeMqttClient::state().publishes.size(), 1U);
    EXPECT_EQ(FakeMqttClient::state().publishes[0].payload, std::string("\1\2"));
    EXPECT_EQ(sent(), 1U);
    EXPECT_THAT(statusTag(), ElementsAre(Bytes{2}, Bytes{0}));
}

TEST_F(Requests, sendOfAPeriodicPublicationIsRefused)
{
    connectFirst();
    EXPECT_EQ(ask(&MQTTClientManager::HandleSendAPeriodic, 32), SC_AC_ERROR_NOT_APERIODIC);
    EXPECT_THAT(FakeMqttClient::state().calls, IsEmpty());
    EXPECT_THAT(FakeSleep::waits(), IsEmpty());
    EXPECT_EQ(sent(), 0U);
    EXPECT_THAT(statusTag(), ElementsAre(Bytes{2}, Bytes{0xF8}));
}

TEST_F(Requests, whateverFailsInASendIsOneCodeAndIsNotCounted)
{
    const LogCapture log;
    EXPECT_EQ(ask(&MQTTClientManager::HandleSendAPeriodic, 31), SC_AC_ERROR_DATA_BIG_THAN_BUFF);
    connectFirst();
    FakeMqttClient::state().publishResult = -1;
    EXPECT_EQ(ask(&MQTTClientManager::HandleSendAPeriodic, 31), SC_AC_ERROR_DATA_BIG_THAN_BUFF);
    EXPECT_EQ(sent(), 0U);
    EXPECT_EQ(log.count("DEBUG Error: SC_AC_ERROR_DATA_BIG_THAN_BUFF: -12"), 2);
    EXPECT_EQ(FakeTagMemory::bytesAt(StatusTag, 1), (Bytes{0xF4}));
}

TEST_F(Requests, aPauseInsideASendAnswersAsNotConnected)
{
    connectFirst();
    // The delay has no hook; the entity is what a pause leaves of it.
    manager().m_clientBrokers[0].DestroyMQTTClient();
    EXPECT_EQ(ask(&MQTTClientManager::HandleSendAPeriodic, 31), SC_AC_ERROR_DATA_BIG_THAN_BUFF);
}

TEST_F(Requests, publishStateSwitchesTheRow)
{
    manager().ManagePeriodicPublications();
    const auto& row = manager().m_scheduler->m_ScheduledPublishers[0];
    EXPECT_EQ(ask(&MQTTClientManager::HandleSetPublicationPublishState, 32, 0), SC_AC_OK);
    EXPECT_FALSE(row.m_PublishEnabled);
    EXPECT_EQ(ask(&MQTTClientManager::HandleSetPublicationPublishState, 32, -1), SC_AC_OK);
    EXPECT_TRUE(row.m_PublishEnabled);
}

TEST_F(Requests, publishStateOfAnAperiodicPublicationIsRefused)
{
    EXPECT_EQ(ask(&MQTTClientManager::HandleSetPublicationPublishState, 31, 1), SC_AC_ERROR_NOT_PERIODIC);
    EXPECT_THAT(statusTag(), ElementsAre(Bytes{2}, Bytes{0xF9}));
}

TEST_F(Requests, publishStateOfAPublicationWithoutARowFails)
{
    const LogCapture log;
    EXPECT_EQ(ask(&MQTTClientManager::HandleSetPublicationPublishState, 32, 1), SC_AC_ERROR_CHANGE_STATE_FAILED);
    EXPECT_TRUE(log.contains("DEBUG Error: SC_AC_ERROR_CHANGE_STATE_FAILED: -13"));
}

TEST_F(Requests, anEntityOfBeforeAStartLivesUntilItsRequestIsDone)
{
    connectFirst();
    FakeMqttClient::state().duringConnect = [this] {
        manager().m_clientBrokers.replace(std::make_shared<QList<ClientBroker>>());
    };
    EXPECT_EQ(ask(&MQTTClientManager::HandleConnectClientBroker, 2), SC_AC_OK);
}

} // namespace
