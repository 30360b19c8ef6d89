#include "Communication/cominterface.h"
#include "mqttclientmanager.h"
#include "Services/mqttmanagerservices.h"
#include "Services/mqttscheduler.h"
#include "Services/mqttStatusLogManager.h"
#include "unittest.h"

#include <QCoreApplication>

namespace {

using testing::ElementsAre;

class Manager : public ServiceTest
{
protected:
    Manager() { resetSingletons(); }
    ~Manager() override { resetSingletons(); }

    MQTTClientManager& manager() { return *MQTTClientManager::instance(); }

    void addBroker(int id, const QString& name = {})
    {
        ClientBroker broker;
        broker.UniqueID = id;
        broker.Name = name;
        broker.BrokerAddr = 100 + 4 * static_cast<unsigned>(manager().m_clientBrokers.size());
        manager().m_clientBrokers.append(broker);
    }

    void addPublication(int id, int brokerId, const QString& name = {})
    {
        Publisher publisher;
        publisher.m_UniqueID = id;
        publisher.m_CBrokerID = brokerId;
        publisher.m_Name = name;
        publisher.m_CallerType = CT_PUBLISHER;
        manager().m_publications.append(publisher);
    }
};

TEST_F(Manager, isMadeOnceWithItsServices)
{
    EXPECT_EQ(MQTTClientManager::instance(), &manager());
    EXPECT_EQ(manager().m_services, MQTTManagerServices::instance());
    EXPECT_EQ(manager().m_statusLogManager, MQTTStatusLogManager::instance());
    EXPECT_EQ(manager().m_logIndent, "    ");
    EXPECT_FALSE(manager().m_isInitDone);
}

TEST_F(Manager, passesTheVerboseModeOnAndTellsAboutTracing)
{
    const LogCapture log;
    manager().SetVerboseMode(true);
    EXPECT_TRUE(manager().m_verboseMode);
    EXPECT_TRUE(manager().m_services->m_verboseMode);
    EXPECT_THAT(log.lines(),
                ElementsAre("DEBUG ##########################", testing::_, "DEBUG    export MQTT_C_CLIENT_TRACE=ON",
                            "DEBUG    export MQTT_C_CLIENT_TRACE_LEVEL=PROTOCOL", "DEBUG ##########################"));
}

TEST_F(Manager, findsTheFirstOfTwoEntitiesWithOneId)
{
    for (const int id : {5, 6, 6})
        addBroker(id);
    for (const int id : {9, 8, 8})
        addPublication(id, 5);
    EXPECT_EQ(manager().getClientBrokerIdxbyUniqueID(6), 1);
    EXPECT_EQ(manager().getPublisherbyIdxUniqueID(8), 1);
    EXPECT_EQ(manager().getClientBrokerIdxbyUniqueID(999), -1);
    EXPECT_EQ(manager().getPublisherbyIdxUniqueID(999), -1);
}

TEST_F(Manager, tiesSubscriptionsAheadOfPublications)
{
    addBroker(1);
    addPublication(10, 1);
    Subscriber subscriber;
    subscriber.m_CBrokerID = 1;
    for (const int id : {20, 21, 21}) {
        subscriber.m_UniqueID = id;
        manager().m_subscriptions.append(subscriber);
    }
    EXPECT_EQ(manager().createMQTTClients(), SC_AC_OK);
    std::vector<int> ids;
    for (const MQTTCallerBase* caller : qAsConst(manager().m_clientBrokers[0].m_Callers))
        ids.push_back(caller->m_UniqueID);
    EXPECT_THAT(ids, ElementsAre(20, 21, 21, 10));
    EXPECT_EQ(manager().m_subscriptions[0].m_cBroker, &manager().m_clientBrokers[0]);
    EXPECT_EQ(manager().getSubscriberbIdxyUniqueID(21), 1);
    EXPECT_EQ(manager().getSubscriberbIdxyUniqueID(999), -1);
}

TEST_F(Manager, clearsTheRecordsOfSubscriptionsAheadOfTheBrokers)
{
    addBroker(1);
    Subscriber subscriber;
    subscriber.m_SubAddr = 5000;
    subscriber.m_Status.m_Subscribed = 1;
    manager().m_subscriptions.append(subscriber);
    manager().clearCfgStructs();
    const auto& writes = FakeTagMemory::state().writes;
    ASSERT_EQ(writes.size(), 2U);
    EXPECT_EQ(writes[0].address, 5000U);
    EXPECT_EQ(writes[0].bytes, Bytes(524, 0));
    EXPECT_EQ(writes[1].address, 100U);
}

TEST_F(Manager, tiesPublicationsToTheirBrokersInFileOrder)
{
    addBroker(1);
    addBroker(2);
    addPublication(10, 2);
    addPublication(11, 1);
    addPublication(12, 2);
    EXPECT_EQ(manager().createMQTTClients(), SC_AC_OK);
    ClientBroker& second = manager().m_clientBrokers[1];
    EXPECT_EQ(manager().m_publications[0].m_cBroker, &second);
    EXPECT_THAT(second.m_Callers, ElementsAre(&manager().m_publications[0], &manager().m_publications[2]));
}

TEST_F(Manager, namesAPublicationWithoutABroker)
{
    addBroker(1);
    addPublication(10, 7, "orphan");
    const LogCapture log;
    EXPECT_EQ(manager().createMQTTClients(), SC_AC_OK);
    EXPECT_EQ(manager().m_publications[0].m_cBroker, nullptr);
    EXPECT_EQ(manager().m_publications[0].Publish(), PSC_ERROR_NOT_PUBLISHED);
    EXPECT_TRUE(log.contains("ERROR 'orphan' with ID (10) names broker 7, which is not configured: it counts as not "
                             "connected"));
}

TEST_F(Manager, stopsAtTheFirstClientThatCannotBeMade)
{
    for (const int id : {1, 2, 3})
        addBroker(id, "b" + QString::number(id));
    FakeMqttClient::state().createResults = {0, -2};
    const LogCapture log;
    EXPECT_EQ(manager().createMQTTClients(), SC_AC_ERROR_CLIENT_CREATE_FAILED);
    EXPECT_EQ(FakeMqttClient::state().creates.size(), 2U);
    EXPECT_NE(manager().m_clientBrokers[0].m_MQTTClient, nullptr);
    EXPECT_TRUE(log.contains("DEBUG failed with status (-2)"));
    EXPECT_TRUE(log.contains("ERROR the client of broker 'b2' can't be created"));
}

TEST_F(Manager, withoutItsFilesEndsAndWritesNothing)
{
    const LogCapture log;
    FakeTagMemory::state().writes.clear();
    EXPECT_FALSE(manager().Initilize()); // there is no configuration on the machine of the tests
    EXPECT_TRUE(FakeTagMemory::state().writes.empty());
    EXPECT_THAT(log.lines(),
                testing::IsSupersetOf({"DEBUG FIRED", "DEBUG     initilize failed in parseConfigurationFiles"}));
}

TEST_F(Manager, clearsTheStatusBlocksOfAllBrokers)
{
    addBroker(1);
    addBroker(2);
    manager().m_clientBrokers[0].m_Connected = 1;
    manager().clearCfgStructs();
    EXPECT_THAT(FakeTagMemory::state().writes, ElementsAre(FakeTagMemory::WriteRecord{100, {0, 0, 0, 0}},
                                                           FakeTagMemory::WriteRecord{104, {0, 0, 0, 0}}));
}

TEST_F(Manager, changesTheStateOfAllBrokers)
{
    addBroker(1);
    addBroker(2);
    manager().changeEntitiesState(PS_PAUSED);
    EXPECT_EQ(manager().m_clientBrokers.at(0).m_State, PS_PAUSED);
    EXPECT_EQ(manager().m_clientBrokers.at(1).m_State, PS_PAUSED);
}

TEST_F(Manager, storesAndWritesTheProcessStatus)
{
    manager().m_statusLogManager->UpdateMQTTStructsAddress(1000, 2000);
    manager().UpdateProcessStatus(PS_TIME_NOT_SET);
    EXPECT_EQ(FakeTagMemory::bytesAt(1000, 4), (Bytes{4, 0, 0, 0}));
}

class Finalizing : public Manager
{
protected:
    Finalizing()
    {
        addBroker(1, "plant");
        addBroker(2, "office");
        EXPECT_EQ(manager().createMQTTClients(), SC_AC_OK);
        manager().m_comInterface = new ComInterface;
        manager().m_isInitDone = true;
        FakeMqttClient::state().calls.clear();
    }

    ~Finalizing() override { manager().m_isInitDone = false; }

    // What was left to the scheduler's own thread in a process that ends.
    void finalize()
    {
        const ProcessEndingUndone ending;
        manager().Finalize();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        manager().m_scheduler = nullptr;
    }
};

TEST_F(Finalizing, takesDownInOrder)
{
    manager().m_regIDs = {7, 9};
    Subscriber orders;
    orders.m_Name = "orders";
    orders.m_BufferedFlag = true;
    manager().m_subscriptions.append(orders);
    const LogCapture log;
    finalize();
    EXPECT_THAT(log.lines(),
                ElementsAre("DEBUG START (isInitDone? (1))", "DEBUG     Unregister operands",
                            "DEBUG     Unregister operands", "DEBUG     Subscriber 'orders' released it messages",
                            "DEBUG     Destory MQTTClient of 'plant'", "DEBUG     Destory MQTTClient of 'office'",
                            "DEBUG END"));
    EXPECT_THAT(FakeTagMemory::state().unregistered, ElementsAre(testing::Pair(7, 10), testing::Pair(9, 10)));
    EXPECT_THAT(FakeMqttClient::state().calls, ElementsAre("destroy", "destroy"));
    EXPECT_EQ(manager().m_clientBrokers.at(0).m_State, PS_PAUSED);
    EXPECT_EQ(manager().m_clientBrokers.at(1).m_State, PS_PAUSED);
}

TEST_F(Finalizing, tellsEverybodyThatTheProcessEnds)
{
    manager().Finalize();
    EXPECT_TRUE(ProcessEnding::hasBegun());
    const ProcessEndingUndone undone;
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    manager().m_scheduler = nullptr;
}

TEST_F(Finalizing, waitsForTheSchedulersSecondFirst)
{
    finalize();
    EXPECT_THAT(FakeSleep::waits(), ElementsAre(std::chrono::milliseconds(1000)));
}

TEST_F(Finalizing, leavesAClientInUseToTheEndOfTheProcess)
{
    const ClientUse use(manager().m_clientBrokers[0]);
    finalize();
    EXPECT_THAT(FakeMqttClient::state().calls, ElementsAre("destroy"));
}

TEST_F(Finalizing, destroysNothingWhileABrokerConnects)
{
    FakeMqttClient::state().duringConnect = [this] { finalize(); };
    manager().m_clientBrokers[0].Connect();
    EXPECT_THAT(FakeMqttClient::state().calls, testing::Not(testing::Contains("destroy")));
}

TEST_F(Finalizing, doesNotWaitForEverForARegistration)
{
    manager().m_regIDs = {7};
    manager().m_isRegistering = true;
    finalize();
    EXPECT_TRUE(FakeTagMemory::state().unregistered.empty());
}

TEST_F(Finalizing, endsARegistrationAfterThePacketThatIsUnderWay)
{
    for (int i = 0; i < 400; ++i)
        addPublication(i, 1);
    for (int i = 0; i < 400; ++i)
        manager().m_publications[i].m_DataAddress = 1000 + static_cast<unsigned>(i);
    const ProcessEndingUndone ending;
    manager().ManageTagsRegistration();
    EXPECT_EQ(FakeTagMemory::state().registrations.size(), 1U);
}

TEST_F(Finalizing, endsTheRunUpOfTheBrokers)
{
    for (ClientBroker& broker : manager().m_clientBrokers)
        broker.AutoConnectFlag = true;
    const ProcessEndingUndone ending;
    EXPECT_EQ(manager().ManageClientBrokers(), SC_AC_OK);
    EXPECT_TRUE(FakeMqttClient::state().calls.empty());
}

TEST_F(Manager, finalizingBeforeInitilizeDoesNothing)
{
    addBroker(1);
    ASSERT_EQ(manager().createMQTTClients(), SC_AC_OK);
    FakeMqttClient::state().calls.clear();
    const LogCapture log;
    manager().Finalize();
    EXPECT_THAT(log.lines(), ElementsAre("DEBUG START (isInitDone? (0))", "DEBUG END"));
    EXPECT_TRUE(FakeMqttClient::state().calls.empty());
}

} // namespace
