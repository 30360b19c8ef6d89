#include "Services/mqttscheduler.h"
#include "unittest.h"

#include "Services/mqttStatusLogManager.h"

#include <algorithm>
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QThread>
#include <thread>

namespace {

using namespace std::chrono_literals;

// A condition that the event loop brings about within the deadline.
template<typename Condition>
bool comesTrue(Condition condition, int deadline = 10'000)
{
    QElapsedTimer timer;
    timer.start();
    while (!condition()) {
        if (timer.elapsed() > deadline)
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
    }
    return true;
}

class Scheduler : public BrokerTest
{
protected:
    Scheduler()
    {
        MQTTStatusLogManager::instance()->UpdateMQTTStructsAddress(1000, 2000);
        MQTTStatusLogManager::instance()->m_MQTTStatisticsStruct = {};
        broker.ConnectionInterval = 1;
    }

    Publisher& addPublication(int id, int period)
    {
        auto& publisher = *m_publishers.emplace_back(std::make_unique<Publisher>());
        publisher.m_cBroker = &broker;
        publisher.m_UniqueID = id;
        publisher.m_PerInterval = period;
        publisher.m_PayloadFormat = PF_BUFFER;
        publisher.m_DataSize = 1;
        publisher.m_Name = "p" + QString::number(id);
        publisher.m_Topic = publisher.m_Name;
        m_publications.append(&publisher);
        return publisher;
    }

    void run()
    {
        scheduler.SetPeriodicalPublications(m_publications);
        scheduler.RunScheduler();
    }

    static std::size_t published() { return FakeMqttClient::state().publishes.size(); }
    static int sent() { return static_cast<int>(MQTTStatusLogManager::instance()->m_MQTTStatisticsStruct.m_SentPubs); }

    MQTTScheduler scheduler;
    QList<Publisher*> m_publications;

private:
    std::vector<std::unique_ptr<Publisher>> m_publishers;
};

TEST_F(Scheduler, waitsOneSecondBeforeItStartsAndAfterItStopped)
{
    scheduler.RunScheduler();
    EXPECT_THAT(FakeSleep::waits(), testing::ElementsAre(1000ms));
    scheduler.StopScheduler();
    EXPECT_THAT(FakeSleep::waits(), testing::ElementsAre(1000ms, 1000ms));
}

TEST_F(Scheduler, publishesAndCountsWhatTheLibraryTook)
{
    connectBroker();
    addPublication(1, 5);
    run();
    EXPECT_EQ(published(), 0U); // the first tick comes an interval later
    ASSERT_TRUE(comesTrue([] { return published() >= 3; }));
    EXPECT_EQ(sent(), static_cast<int>(published()));
}

TEST_F(Scheduler, aFailedTickCountsNothingAndTheNextTriesAgain)
{
    connectBroker();
    FakeMqttClient::state().publishResult = -1;
    addPublication(1, 5);
    run();
    ASSERT_TRUE(comesTrue([] { return published() >= 3; }));
    EXPECT_EQ(sent(), 0);
}

TEST_F(Scheduler, aSuspendedPublicationKeepsItsTimerAndPublishesNothing)
{
    connectBroker();
    addPublication(1, 5);
    addPublication(2, 5);
    run();
    EXPECT_TRUE(scheduler.ChangePublicationPublishState(1, false));
    ASSERT_TRUE(comesTrue([] { return published() >= 5; }));
    for (const auto& call : FakeMqttClient::state().publishes)
        EXPECT_EQ(call.topic, "p2");
    EXPECT_TRUE(scheduler.m_PublisherTimers[0].isActive());

    EXPECT_TRUE(scheduler.ChangePublicationPublishState(1, true));
    EXPECT_TRUE(comesTrue([] {
        const auto& calls = FakeMqttClient::state().publishes;
        return std::any_of(calls.begin(), calls.end(), [](const auto& call) { return call.topic == "p1"; });
    }));
}

TEST_F(Scheduler, aSuspensionBelongsToTheRowAndOutlivesItsPublication)
{
    addPublication(1, 5000);
    run();
    ASSERT_TRUE(scheduler.ChangePublicationPublishState(1, false));
    m_publications.clear();
    addPublication(2, 5000);
    scheduler.SetPeriodicalPublications(m_publications);
    EXPECT_FALSE(scheduler.m_ScheduledPublishers[0].m_PublishEnabled);
}

TEST_F(Scheduler, enablingBeginsNoNewPhase)
{
    addPublication(1, 60'000);
    run();
    const int before = scheduler.m_PublisherTimers[0].remainingTime();
    std::this_thread::sleep_for(100ms);
    scheduler.ChangePublicationPublishState(1, false);
    scheduler.ChangePublicationPublishState(1, true);
    EXPECT_LE(scheduler.m_PublisherTimers[0].remainingTime(), before - 90);
}

TEST_F(Scheduler, aTickLeavesAtOnceWhenTheProcessEnds)
{
    connectBroker();
    addPublication(1, 5);
    run();
    const ProcessEndingUndone ending;
    scheduler.m_ScheduledPublishers[0].ScheduledPublish();
    ScheduledClientBroker row;
    row.m_ClientBroker = &broker;
    row.ScheduledConnect();
    EXPECT_TRUE(FakeMqttClient::state().calls.empty());
}

TEST_F(Scheduler, startsNothingWhenTheProcessEnds)
{
    addPublication(1, 5);
    const ProcessEndingUndone ending;
    run();
    EXPECT_FALSE(scheduler.m_PublisherTimers[0].isActive());
}

TEST_F(Scheduler, everyRowWithTheIdChangesItsState)
{
    addPublication(1, 5000);
    addPublication(1, 5000);
    run();
    EXPECT_TRUE(scheduler.ChangePublicationPublishState(1, false));
    EXPECT_FALSE(scheduler.m_ScheduledPublishers[0].m_PublishEnabled);
    EXPECT_FALSE(scheduler.m_ScheduledPublishers[1].m_PublishEnabled);
}

TEST_F(Scheduler, aPublicationWithoutARowCannotChangeItsState)
{
    addPublication(1, 5000);
    run();
    EXPECT_FALSE(scheduler.ChangePublicationPublishState(7, false));
}

TEST_F(Scheduler, namesPublicationsForWhichThereIsNoRoom)
{
    for (int id = 0; id < 302; ++id)
        addPublication(id, 60'000);
    const LogCapture log;
    run();
    EXPECT_EQ(scheduler.m_ScheduledPublishersCounter, 300);
    EXPECT_TRUE(log.contains("ERROR publication 'p300' is not scheduled: there is room for 300 only"));
    EXPECT_TRUE(log.contains("ERROR publication 'p301' is not scheduled: there is room for 300 only"));
    EXPECT_EQ(log.lines().size(), 2U);
}

TEST_F(Scheduler, namesBrokersForWhichThereIsNoRoom)
{
    std::vector<std::unique_ptr<ClientBroker>> owner;
    QList<ClientBroker*> brokers;
    for (int i = 0; i < 31; ++i) {
        brokers.append(owner.emplace_back(std::make_unique<ClientBroker>()).get());
        brokers.back()->Name = "b" + QString::number(i);
    }
    const LogCapture log;
    scheduler.SetPeriodicConnectAttempt(brokers);
    EXPECT_EQ(scheduler.m_ScheduledClientBrokersCounter, 30);
    EXPECT_THAT(log.lines(), testing::ElementsAre("ERROR broker 'b30' is not scheduled: there is room for 30 only"));
}

TEST_F(Scheduler, namesAPublicationWithANegativePeriod)
{
    addPublication(1, -5);
    const LogCapture log;
    run();
    EXPECT_TRUE(log.contains("ERROR publication 'p1' never goes out: its period is -5 ms"));
    EXPECT_FALSE(scheduler.m_PublisherTimers[0].isActive());
}

TEST_F(Scheduler, stoppingStopsEveryTimer)
{
    connectBroker();
    addPublication(1, 5);
    run();
    scheduler.StopScheduler();
    EXPECT_FALSE(scheduler.m_PublisherTimers[0].isActive());
    QCoreApplication::processEvents();
    EXPECT_EQ(published(), 0U);
    EXPECT_EQ(scheduler.m_ScheduledPublishersCounter, 1);
}

TEST_F(Scheduler, runningAgainTicksOnce)
{
    connectBroker();
    addPublication(1, 50);
    run();
    run();
    ASSERT_TRUE(comesTrue([] { return published() >= 1; }));
    EXPECT_EQ(published(), 1U);
}

TEST_F(Scheduler, stoppingFromAnotherThreadLeavesTheTimersToTheirOwn)
{
    addPublication(1, 60'000);
    run();
    std::thread cleanUp([this] { scheduler.StopScheduler(); });
    cleanUp.join();
    EXPECT_TRUE(scheduler.m_PublisherTimers[0].isActive());
    EXPECT_TRUE(comesTrue([this] { return !scheduler.m_PublisherTimers[0].isActive(); }));
}

class RetryRows : public Scheduler
{
protected:
    void run()
    {
        QList<ClientBroker*> brokers{&broker};
        scheduler.SetPeriodicConnectAttempt(brokers);
        scheduler.RunScheduler();
    }

    QTimer& timer() { return scheduler.m_ConnectTimers[0]; }
};

TEST_F(RetryRows, tryAtTheConnectionInterval)
{
    broker.ConnectionInterval = 3;
    run();
    EXPECT_EQ(timer().interval(), 3000);
    EXPECT_TRUE(timer().isActive());
    EXPECT_EQ(scheduler.m_ScheduledClientBrokers[0].m_Idx, 0);
}

TEST_F(RetryRows, anIntervalThatNoTimerHoldsIsCut)
{
    broker.ConnectionInterval = 4'000'000'000U;
    run();
    EXPECT_EQ(timer().interval(), 2'147'483'647);
    EXPECT_TRUE(timer().isActive());
}

TEST_F(RetryRows, stopOnSuccess)
{
    FakeMqttClient::state().connectResults = {-1, -1};
    run();
    timer().start(5); // the row's own slot, sooner than once a second
    ASSERT_TRUE(comesTrue([this] { return !timer().isActive(); }));
    EXPECT_EQ(FakeMqttClient::state().connects.size(), 3U);
    EXPECT_EQ(scheduler.m_ScheduledClientBrokersCounter, 1);
    EXPECT_EQ(scheduler.m_ScheduledClientBrokers[0].m_Idx, 0);
}

TEST_F(RetryRows, stopWhenSomebodyElseConnected)
{
    run();
    connectBroker();
    timer().start(5);
    ASSERT_TRUE(comesTrue([this] { return !timer().isActive(); }));
    EXPECT_TRUE(FakeMqttClient::state().connects.size() == 1);
}

TEST_F(RetryRows, goOnWhileTheBrokerFails)
{
    FakeMqttClient::state().connectResults.assign(100, -1);
    run();
    timer().start(5);
    ASSERT_TRUE(comesTrue([] { return FakeMqttClient::state().connects.size() >= 5; }));
    EXPECT_TRUE(timer().isActive());
}

TEST_F(RetryRows, goOnWithoutALinkAndWithoutTraffic)
{
    setLink(0, 0);
    run();
    timer().start(5);
    ASSERT_TRUE(comesTrue([this] { return FakeTagMemory::writesAt(BlockAddress).size() >= 3; }));
    EXPECT_TRUE(FakeMqttClient::state().calls.empty());
    EXPECT_TRUE(timer().isActive());
}

TEST_F(RetryRows, aRowThatNeverRanIsLeftAlone)
{
    QList<ClientBroker*> brokers{&broker};
    scheduler.SetPeriodicConnectAttempt(brokers);
    timer().start(60'000);
    scheduler.StopScheduler();
    EXPECT_TRUE(timer().isActive());
}

TEST_F(RetryRows, areStoppedWithTheScheduler)
{
    FakeMqttClient::state().connectResults.assign(100, -1);
    run();
    scheduler.StopScheduler();
    EXPECT_FALSE(timer().isActive());
    // The row's signal reaches nobody any more: a timer that somebody starts goes on after a success.
    FakeMqttClient::state().connectResults.clear();
    timer().start(60'000);
    scheduler.m_ScheduledClientBrokers[0].ScheduledConnect();
    EXPECT_TRUE(timer().isActive());
}

TEST_F(Scheduler, stoppingWithoutRowsOnlyWaits)
{
    scheduler.StopScheduler();
    EXPECT_THAT(FakeSleep::waits(), testing::ElementsAre(1000ms));
}

} // namespace
