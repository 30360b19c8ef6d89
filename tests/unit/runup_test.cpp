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
