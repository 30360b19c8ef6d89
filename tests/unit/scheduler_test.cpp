#include "Services/mqttscheduler.h"
#include "unittest.h"

#include "Entities/subscriber.h"
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

// Rows of the run-up for the brokers 1, 2 and 3, which a start replaces by entities with the same IDs.
class RowsAfterAStart : public Scheduler
{
protected:
    RowsAfterAStart()
    {
        FakeMqttClient::state().connectResults.assign(1000, -1);
        replaceBrokers({1, 2, 3});
        scheduler.SetPeriodicConnectAttempt(m_brokers);
        scheduler.RunScheduler();
    }

    // The entities before are freed, as those of an earlier reading of the files are.
    void replaceBrokers(const std::vector<int>& ids)
    {
        m_owned.clear();
        m_brokers.clear();
        for (const int id : ids) {
            ClientBroker& another = *m_owned.emplace_back(std::make_unique<ClientBroker>(broker));
            another.m_MQTTClient = nullptr;
            another.UniqueID = id;
            another.ConnectionInterval = static_cast<unsigned int>(id);
            another.CreateMQTTClient();
            m_brokers.append(&another);
        }
    }

    void startAnew(const std::vector<int>& ids)
    {
        scheduler.StopScheduler();
        replaceBrokers(ids);
        scheduler.BindBrokersAnew(m_brokers);
        scheduler.RunScheduler();
    }

    std::vector<int> scheduledIds()
    {
        std::vector<int> ids(static_cast<std::size_t>(scheduler.m_ScheduledClientBrokersCounter));
        for (std::size_t row = 0; row < ids.size(); ++row)
            ids[row] = scheduler.m_ScheduledClientBrokers[row].m_ClientBroker->UniqueID;
        return ids;
    }

    bool isActive(int row) { return scheduler.m_ConnectTimers[row].isActive(); }

    QList<ClientBroker*> m_brokers;

private:
    std::vector<std::unique_ptr<ClientBroker>> m_owned;
};

TEST_F(RowsAfterAStart, retryTheBrokersThatHaveTheirIds)
{
    startAnew({3, 9, 1, 2});
    EXPECT_EQ(scheduledIds(), (std::vector{1, 2, 3}));
    for (int row = 0; row < 3; ++row) {
        EXPECT_TRUE(isActive(row));
        EXPECT_EQ(scheduler.m_ConnectTimers[row].interval(), (row + 1) * 1000);
        EXPECT_TRUE(m_brokers.contains(scheduler.m_ScheduledClientBrokers[row].m_ClientBroker));
    }
}

TEST_F(RowsAfterAStart, areDroppedForGoodWhenTheirBrokerIsGone)
{
    startAnew({1, 3});
    EXPECT_EQ(scheduledIds(), (std::vector{1, 3}));
    EXPECT_TRUE(isActive(1));
    EXPECT_FALSE(isActive(2));
    startAnew({1, 2, 3});
    EXPECT_EQ(scheduledIds(), (std::vector{1, 3}));
    startAnew({});
    EXPECT_TRUE(scheduledIds().empty());
    EXPECT_FALSE(isActive(0));
}

TEST_F(RowsAfterAStart, areDroppedWhenTheirBrokerIsNotToBeRetriedAnyMore)
{
    scheduler.StopScheduler();
    replaceBrokers({1, 2, 3});
    m_brokers.at(0)->ConnectionInterval = 0;
    scheduler.BindBrokersAnew(m_brokers);
    scheduler.RunScheduler();
    EXPECT_EQ(scheduledIds(), (std::vector{2, 3}));
    EXPECT_EQ(scheduler.m_ConnectTimers[0].interval(), 2000);
}

TEST_F(RowsAfterAStart, beginAgainAlsoWhenTheyHadStopped)
{
    scheduler.SlotStopPeriodicConnectAttempt(1);
    startAnew({1, 2, 3});
    EXPECT_TRUE(isActive(1));
}

TEST_F(RowsAfterAStart, stopOnSuccessAfterAnyNumberOfStarts)
{
    for (int start = 0; start < 5; ++start) {
        startAnew({1, 2});
        FakeMqttClient::state().connectResults.clear();
        scheduler.m_ConnectTimers[1].start(5);
        EXPECT_TRUE(comesTrue([this] { return !isActive(1); }));
        EXPECT_TRUE(isActive(0));
        EXPECT_TRUE(m_brokers.at(1)->IsConnected());
    }
}

TEST_F(RowsAfterAStart, tryOnceInEachTickAfterAnyNumberOfStarts)
{
    for (int start = 0; start < 5; ++start)
        startAnew({1});
    FakeMqttClient::state().connects.clear();
    scheduler.m_ConnectTimers[0].start(50);
    ASSERT_TRUE(comesTrue([] { return !FakeMqttClient::state().connects.empty(); }));
    EXPECT_EQ(FakeMqttClient::state().connects.size(), 1U);
}

TEST_F(RowsAfterAStart, thatNeverRanAreBoundAsWell)
{
    MQTTScheduler another;
    another.SetPeriodicConnectAttempt(m_brokers);
    another.StopScheduler();
    replaceBrokers({2});
    another.BindBrokersAnew(m_brokers);
    ASSERT_EQ(another.m_ScheduledClientBrokersCounter, 1);
    EXPECT_EQ(another.m_ScheduledClientBrokers[0].m_ClientBroker, m_brokers.at(0));
}

class BufferedCheck : public Scheduler
{
protected:
    ~BufferedCheck() override { FakeSleep::duringWait() = nullptr; }

    void setSubscriptions(QList<Subscriber*> subscriptions) { scheduler.SetBufferdModeSubscriptions(subscriptions); }

    // How often the worker has looked at the received bit of a subscription with its record at 0.
    static long checks()
    {
        const auto& reads = FakeTagMemory::state().reads;
        return std::count(reads.begin(), reads.end(), 2UL);
    }

    QTimer& timer() { return scheduler.m_BufferedTimer; }

    Subscriber first;
    Subscriber second;
};

TEST_F(BufferedCheck, runsEvery400MillisecondsFromAheadOfTheWait)
{
    setSubscriptions({&first});
    bool isRunningInTheWait = false;
    FakeSleep::duringWait() = [&] { isRunningInTheWait = timer().isActive(); };
    scheduler.RunScheduler();
    EXPECT_TRUE(isRunningInTheWait);
    EXPECT_EQ(timer().interval(), 400);
    EXPECT_FALSE(timer().isSingleShot());
    EXPECT_TRUE(comesTrue([] { return checks() >= 2; }));
}

TEST_F(BufferedCheck, isNotStartedWithoutSubscriptions)
{
    setSubscriptions({});
    scheduler.RunScheduler();
    EXPECT_FALSE(timer().isActive());
    EXPECT_THAT(FakeSleep::waits(), testing::ElementsAre(1000ms));
}

TEST_F(BufferedCheck, servesAllThatWereSet)
{
    setSubscriptions({&first});
    setSubscriptions({&second});
    EXPECT_EQ(scheduler.m_BufferedManager.m_Subscribers, (QList<Subscriber*>{&first, &second}));
    EXPECT_EQ(scheduler.m_BufferedManager.m_SubscribersCount, 2);
}

TEST_F(BufferedCheck, stopsWithTheSchedulerWhichForgetsTheSubscriptions)
{
    setSubscriptions({&first});
    scheduler.RunScheduler();
    scheduler.StopScheduler();
    EXPECT_FALSE(timer().isActive());
    EXPECT_TRUE(scheduler.m_BufferedManager.m_Subscribers.isEmpty());
    EXPECT_EQ(scheduler.m_BufferedManager.m_SubscribersCount, 0);
}

TEST_F(BufferedCheck, looksOnceInEachTickAfterAnyNumberOfStarts)
{
    for (int start = 0; start < 5; ++start) {
        scheduler.StopScheduler();
        setSubscriptions({&first});
        scheduler.RunScheduler();
        scheduler.RunScheduler();
    }
    ASSERT_TRUE(comesTrue([] { return checks() > 0; }));
    EXPECT_EQ(checks(), 1);
}

TEST_F(BufferedCheck, isStoppedByItsOwnThread)
{
    setSubscriptions({&first});
    scheduler.RunScheduler();
    std::thread cleanUp([this] { scheduler.StopScheduler(); });
    cleanUp.join();
    EXPECT_EQ(scheduler.m_BufferedManager.m_SubscribersCount, 1);
    EXPECT_TRUE(comesTrue([this] { return !timer().isActive(); }));
    EXPECT_EQ(scheduler.m_BufferedManager.m_SubscribersCount, 0);
}

TEST_F(Scheduler, stoppingWithoutRowsOnlyWaits)
{
    scheduler.StopScheduler();
    EXPECT_THAT(FakeSleep::waits(), testing::ElementsAre(1000ms));
}

TEST_F(Scheduler, startsItsRowsBehindTheWait)
{
    addPublication(1, 60'000);
    QList<ClientBroker*> brokers{&broker};
    scheduler.SetPeriodicConnectAttempt(brokers);
    bool isEarly = false;
    FakeSleep::duringWait() = [&] {
        isEarly = scheduler.m_PublisherTimers[0].isActive() || scheduler.m_ConnectTimers[0].isActive();
    };
    run();
    FakeSleep::duringWait() = nullptr;
    EXPECT_FALSE(isEarly);
    EXPECT_TRUE(scheduler.m_PublisherTimers[0].isActive() && scheduler.m_ConnectTimers[0].isActive());
}

TEST_F(Scheduler, ticksThatAreMissedAreNotMadeUpFor)
{
    connectBroker();
    addPublication(1, 100);
    run();
    std::this_thread::sleep_for(450ms);
    QCoreApplication::processEvents();
    QCoreApplication::processEvents();
    EXPECT_LE(published(), 2U); // not four
}

} // namespace
