#include "mqttclientmanager.h"
#include "Services/mqttscheduler.h"
#include "unittest.h"

namespace {

class RunUp : public ServiceTest
{
protected:
    RunUp() { resetSingletons(); }
    ~RunUp() override { resetSingletons(); }

    MQTTClientManager& manager() { return *MQTTClientManager::instance(); }
    MQTTScheduler& scheduler() { return *manager().m_scheduler; }

    void addBroker(const QString& name, bool autoConnect, unsigned interval)
    {
        ClientBroker broker;
        broker.Name = name;
        broker.AutoConnectFlag = autoConnect;
        broker.ConnectionInterval = interval;
        manager().m_clientBrokers.append(broker);
    }

    void addPublication(int period)
    {
        Publisher publisher;
        publisher.m_PerInterval = period;
        publisher.m_UniqueID = 100 + manager().m_publications.size();
        publisher.m_Name = "p";
        manager().m_publications.append(publisher);
    }
};

TEST_F(RunUp, connectsOnlyBrokersThatWantIt)
{
    addBroker("manual", false, 5);
    addBroker("automatic", true, 5);
    manager().createMQTTClients();
    EXPECT_EQ(manager().ManageClientBrokers(), SC_AC_OK);
    EXPECT_FALSE(manager().m_clientBrokers[0].IsConnected());
    EXPECT_TRUE(manager().m_clientBrokers[1].IsConnected());
    EXPECT_EQ(scheduler().m_ScheduledClientBrokersCounter, 0);
}

TEST_F(RunUp, leavesFailedBrokersWithAnIntervalToTheScheduler)
{
    addBroker("a", true, 5);
    addBroker("b", true, 0);
    addBroker("c", false, 5);
    addBroker("d", true, 7);
    manager().createMQTTClients();
    FakeMqttClient::state().connectResults = {-1, -1, 5};
    EXPECT_EQ(manager().ManageClientBrokers(), SC_AC_OK);
    ASSERT_EQ(scheduler().m_ScheduledClientBrokersCounter, 2);
    EXPECT_EQ(scheduler().m_ScheduledClientBrokers[0].m_ClientBroker, &manager().m_clientBrokers[0]);
    EXPECT_EQ(scheduler().m_ScheduledClientBrokers[1].m_ClientBroker, &manager().m_clientBrokers[3]);
}

TEST_F(RunUp, handsOverAlsoAnEmptyListOfFailedBrokers)
{
    addBroker("a", true, 5);
    manager().createMQTTClients();
    FakeMqttClient::state().connectResults = {-1};
    manager().ManageClientBrokers();
    ASSERT_EQ(scheduler().m_ScheduledClientBrokersCounter, 1);
    manager().ManageClientBrokers();
    EXPECT_EQ(scheduler().m_ScheduledClientBrokersCounter, 0);
}

TEST_F(RunUp, subscribesWhatWantsItAtStart)
{
    addBroker("plant", true, 0);
    for (const bool atBoot : {true, false, true}) {
        Subscriber subscriber;
        subscriber.m_CallerType = CT_SUBSCRIBER;
        subscriber.m_Topic = QString("t/%1").arg(manager().m_subscriptions.size());
        subscriber.m_SubscribeAtBootTime = atBoot;
        manager().m_subscriptions.append(subscriber);
    }
    manager().createMQTTClients();
    manager().ManageClientBrokers();
    const LogCapture log;
    EXPECT_EQ(manager().ManageSubscriptions(true), SC_AC_OK);
    EXPECT_EQ(log.lines().front(), "DEBUG FIRED");
    const auto& subscribes = FakeMqttClient::state().subscribes;
    ASSERT_EQ(subscribes.size(), 2U);
    EXPECT_EQ(subscribes[0].topic, "t/0");
    EXPECT_EQ(subscribes[1].topic, "t/2");
}

TEST_F(RunUp, goesOnBehindASubscriptionThatFailed)
{
    addBroker("plant", true, 0);
    Subscriber subscriber;
    subscriber.m_SubscribeAtBootTime = true;
    manager().m_subscriptions = {subscriber, subscriber};
    manager().m_subscriptions[0].m_CBrokerID = 99; // no such broker
    manager().createMQTTClients();
    manager().ManageClientBrokers();
    EXPECT_EQ(manager().ManageSubscriptions(true), SC_AC_ERROR_SUBSCRIPTION_FAILED);
    EXPECT_FALSE(manager().m_subscriptions[0].IsSubscribed());
    EXPECT_TRUE(manager().m_subscriptions[1].IsSubscribed());
}

TEST_F(RunUp, subscribesNothingWhenItIsNotAStart)
{
    addBroker("plant", true, 0);
    Subscriber subscriber;
    subscriber.m_SubscribeAtBootTime = true;
    manager().m_subscriptions = {subscriber};
    manager().createMQTTClients();
    manager().ManageClientBrokers();
    EXPECT_EQ(manager().ManageSubscriptions(false), SC_AC_OK);
    EXPECT_TRUE(FakeMqttClient::state().subscribes.empty());
}

TEST_F(RunUp, handsEveryBufferedSubscriptionToTheSchedulerSubscribedAtBootOrNot)
{
    addBroker("plant", true, 0);
    Subscriber direct;
    Subscriber buffered;
    buffered.m_Name = "orders";
    buffered.m_UniqueID = 7;
    buffered.m_BufferedFlag = true;
    Subscriber atBoot = buffered;
    atBoot.m_SubscribeAtBootTime = true;
    manager().m_subscriptions = {direct, buffered, atBoot};
    manager().createMQTTClients();
    manager().ManageClientBrokers();
    const LogCapture log;
    manager().ManageSubscriptions(true);
    EXPECT_THAT(scheduler().m_BufferedManager.m_Subscribers,
                testing::ElementsAre(&manager().m_subscriptions[1], &manager().m_subscriptions[2]));
    EXPECT_EQ(log.count("DEBUG     'orders' with ID (7) added to bufferdModeSubscriptionsList"), 2);
    EXPECT_TRUE(manager().m_subscriptions[2].IsSubscribed());
}

TEST_F(RunUp, schedulesEveryPublicationWithAPeriod)
{
    for (const int period : {1000, NO_PERIOD, 0})
        addPublication(period);
    const LogCapture log;
    EXPECT_TRUE(manager().ManagePeriodicPublications());
    ASSERT_EQ(scheduler().m_ScheduledPublishersCounter, 2);
    EXPECT_EQ(scheduler().m_ScheduledPublishers[1].m_Publisher, &manager().m_publications[2]);
    EXPECT_EQ(scheduler().m_ScheduledPublishers[1].m_UniqueID, 102);
    EXPECT_THAT(log.lines(),
                testing::ElementsAre("DEBUG FIRED", "DEBUG     'p' with ID (100) added to periodicPublisherList",
                                     "DEBUG     'p' with ID (102) added to periodicPublisherList"));
}

TEST_F(RunUp, aClockScriptThatCannotBeStartedCountsAsAClockThatIsSet)
{
    EXPECT_EQ(manager().CheckSystemTime(), SC_AC_OK);
}

} // namespace
