#include "Services/mqttStatusLogManager.h"
#include "unittest.h"

#include <cstdlib>
#include <malloc.h>
#include <memory>
#include <thread>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;
using namespace std::chrono_literals;

using Events = std::vector<std::string>;

// Keeps what its broker tells it, together with all others.
class Told : public MQTTCallerBase
{
public:
    Told(Events& events, int type, const QString& name, bool isSubscribed)
        : m_events(events), m_isSubscribed(isSubscribed)
    {
        m_CallerType = type;
        m_Name = name;
        m_Topic = "topic/" + name;
    }

    bool IsSubscribed() override { return m_isSubscribed; }
    void ConnectionLost() override
    {
        note("lost");
        m_isSubscribed = false;
    }
    bool UpdateCfgStruct() override
    {
        note("written");
        return true;
    }
    void Disconnect() override { note("disconnected"); }
    void PresentSessionEstablished() override
    {
        note("session");
        m_isSubscribed = true;
    }

private:
    void note(const char* what) { m_events.push_back(m_Name.toStdString() + " " + what); }

    Events& m_events;
    bool m_isSubscribed;
};

class Reconnection : public BrokerTest
{
protected:
    Reconnection()
    {
        connectBroker();
        MQTTStatusLogManager::instance()->UpdateMQTTStructsAddress(1000, 2000);
        MQTTStatusLogManager::instance()->m_MQTTStatisticsStruct = {};
    }

    void add(int type, const QString& name, bool isSubscribed = true)
    {
        callers.push_back(std::make_unique<Told>(events, type, name, isSubscribed));
        broker.m_Callers.append(callers.back().get());
        broker.PrepareCallers();
    }

    // A loss whose reconnection the test makes itself.
    void loseWithoutRetry()
    {
        broker.ConnectionInterval = 0;
        loseConnection();
    }

    static quint32 droppedSubscriptions()
    {
        return MQTTStatusLogManager::instance()->m_MQTTStatisticsStruct.m_DroppedSubs;
    }

    static std::vector<std::string>& calls() { return FakeMqttClient::state().calls; }

    Events events;
    std::vector<std::unique_ptr<Told>> callers;
};

class DisConnecting : public Reconnection
{
};

TEST_F(DisConnecting, notConnectedIsACodeOfItsOwnAndTouchesNothing)
{
    add(CT_SUBSCRIBER, "s0");
    FakeMqttClient::setConnected(broker.m_MQTTClient, false);
    broker.m_SessionPresent = 1;
    EXPECT_EQ(broker.DisConnect(), CB_NOT_CONNECTED);
    EXPECT_EQ(statusBlock(), (Bytes{1, 1, 0xF4, 0}));
    EXPECT_THAT(calls(), IsEmpty());
    EXPECT_THAT(events, IsEmpty());
}

TEST_F(DisConnecting, unsubscribesAndTellsEachSubscriberInListOrderAndThenDisconnects)
{
    add(CT_SUBSCRIBER, "s0", true);
    add(CT_SUBSCRIBER, "s1", false);
    add(CT_PUBLISHER, "p0");
    EXPECT_EQ(broker.DisConnect(), CB_OK);
    EXPECT_THAT(calls(), ElementsAre("unsubscribe", "unsubscribe", "disconnect"));
    EXPECT_EQ(FakeMqttClient::state().subscribes[0].topic, "topic/s0");
    EXPECT_EQ(FakeMqttClient::state().subscribes[1].topic, "topic/s1");
    EXPECT_THAT(events, ElementsAre("s0 disconnected", "s1 disconnected"));
    EXPECT_THAT(FakeMqttClient::state().disconnectTimeouts, ElementsAre(10'000));
}

TEST_F(DisConnecting, clearsTheStatusBlockAndLogs)
{
    broker.m_SessionPresent = 1;
    const LogCapture log;
    EXPECT_EQ(broker.DisConnect(), CB_OK);
    EXPECT_EQ(statusBlock(), (Bytes{0, 0, 0, 0}));
    EXPECT_THAT(log.lines(), ElementsAre("DEBUG DISCONNECT by cBroker 'plant' endded with (0). Stats are "
                                         "(Connected(0) | ReturnCode(0) | SessionPresent(0))"));
}

TEST_F(DisConnecting, goesOnWhenABrokerDoesNotUnsubscribe)
{
    add(CT_SUBSCRIBER, "s0");
    add(CT_SUBSCRIBER, "s1");
    FakeMqttClient::state().subscribeResult = -1;
    EXPECT_EQ(broker.DisConnect(), CB_OK);
    EXPECT_THAT(calls(), ElementsAre("unsubscribe", "unsubscribe", "disconnect"));
}

TEST_F(DisConnecting, aFailureLeavesItConnectedWithTheLibrarysCode)
{
    add(CT_SUBSCRIBER, "s0");
    FakeMqttClient::state().disconnectResults = {-1};
    EXPECT_EQ(broker.DisConnect(), -1);
    EXPECT_EQ(statusBlock(), (Bytes{1, 0, 0xFF, 0}));
    EXPECT_THAT(events, ElementsAre("s0 disconnected"));
}

TEST_F(DisConnecting, aLossMeanwhileDoesNotComeBackAsConnected)
{
    FakeMqttClient::state().disconnectResults = {-3};
    FakeMqttClient::state().duringDisconnect = [](MQTTClient handle) { FakeMqttClient::loseConnection(handle); };
    EXPECT_EQ(broker.DisConnect(), -3);
    EXPECT_EQ(statusBlock(), (Bytes{0, 0, 0xFD, 0}));
}

TEST_F(DisConnecting, keepsMessagesOfACleanSessionAwayWhileTheLibraryMayFreeThem)
{
    FakeMqttClient::state().disconnectResults = {-1}; // the session stays
    int consumed = -1;
    FakeMqttClient::state().duringDisconnect = [&](MQTTClient handle) {
        consumed = FakeMqttClient::arrive(handle, "t", "x");
    };
    broker.DisConnect();
    EXPECT_EQ(consumed, 0);
    EXPECT_EQ(FakeMqttClient::arrive(broker.m_MQTTClient, "t", "x"), 1);
}

// Lets a message be looked at until the test lets go.
class Slow : public MQTTCallerBase
{
public:
    Slow() { m_CallerType = CT_SUBSCRIBER; }
    bool IsSubscribed() override { return true; }
    bool MessageArrived(char* /*topicName*/, int /*topicLen*/, MQTTClient_message* /*message*/) override
    {
        isInside = true;
        while (!mayLeave)
            std::this_thread::sleep_for(1ms);
        return true;
    }

    std::atomic<bool> isInside{false};
    std::atomic<bool> mayLeave{false};
};

TEST_F(DisConnecting, waitsForTheMessageThatIsBeingLookedAt)
{
    Slow slow;
    broker.m_Callers.append(&slow);
    std::thread library([this] { FakeMqttClient::arrive(broker.m_MQTTClient, "t", "x"); });
    while (!slow.isInside)
        std::this_thread::sleep_for(1ms);
    std::atomic<bool> isDone{false};
    bool wasLeft = false;
    // A subscription request of the disconnect waits for the callback as well, so this one has no caller to
    // unsubscribe.
    slow.m_CallerType = CT_PUBLISHER;
    FakeMqttClient::state().duringDisconnect = [&](MQTTClient) { wasLeft = slow.mayLeave; };
    std::thread request([&] {
        broker.DisConnect();
        isDone = true;
    });
    std::this_thread::sleep_for(30ms);
    EXPECT_FALSE(isDone);
    slow.mayLeave = true;
    request.join();
    library.join();
    EXPECT_TRUE(wasLeft);
}

TEST_F(DisConnecting, anotherThreadsAttemptFindsItConnectedUntilItIsDone)
{
    std::thread other;
    CBrokerStatusCodes attempt = CB_OK;
    FakeMqttClient::state().duringDisconnect = [&](MQTTClient) {
        FakeMqttClient::state().duringDisconnect = nullptr;
        other = std::thread([&] { attempt = broker.Connect(); });
        std::this_thread::sleep_for(30ms);
    };
    broker.DisConnect();
    other.join();
    EXPECT_EQ(attempt, CB_OK);
    EXPECT_EQ(statusBlock(), (Bytes{1, 0, 0, 0}));
}

TEST_F(DisConnecting, isWhatFreesAPublicationThatIsStuckInTheLibrary)
{
    add(CT_SUBSCRIBER, "s0");
    std::atomic<bool> isInside{false};
    std::atomic<bool> isFree{false};
    FakeMqttClient::state().duringDisconnect = [&](MQTTClient) { isFree = true; };
    FakeMqttClient::state().duringPublish = [&](MQTTClient, int) {
        isInside = true;
        while (!isFree)
            std::this_thread::sleep_for(1ms);
    };
    std::thread publishing([this] {
        MQTTClient_deliveryToken token = 0;
        broker.Publish("t", "x", 1, 0, false, token);
    });
    while (!isInside)
        std::this_thread::sleep_for(1ms);
    EXPECT_EQ(broker.DisConnect(), CB_OK);
    publishing.join();
    EXPECT_THAT(events, ElementsAre("s0 disconnected"));
}

TEST_F(DisConnecting, aConnectionThatIsLeftIsClosedBeforeItsClientIsDestroyed)
{
    add(CT_SUBSCRIBER, "s0");
    broker.DestroyMQTTClient();
    EXPECT_THAT(calls(), ElementsAre("disconnect", "destroy"));
    EXPECT_THAT(events, ElementsAre("s0 disconnected"));
    EXPECT_EQ(statusBlock(), (Bytes{0, 0, 0, 0}));
}

TEST_F(DisConnecting, theEndOfTheProcessSaysNoGoodbye)
{
    const ProcessEndingUndone ending;
    broker.DestroyMQTTClient();
    EXPECT_THAT(calls(), ElementsAre("destroy"));
}

TEST_F(DisConnecting, tellsEachSubscriberRightBehindItsUnsubscribeAndSaysGoodbyeLast)
{
    add(CT_SUBSCRIBER, "s0");
    add(CT_SUBSCRIBER, "s1");
    FakeMqttClient::state().duringSubscribe = [this](MQTTClient) { events.push_back("unsubscribe"); };
    FakeMqttClient::state().duringDisconnect = [this](MQTTClient) { events.push_back("goodbye"); };
    broker.DisConnect();
    EXPECT_THAT(events, ElementsAre("unsubscribe", "s0 disconnected", "unsubscribe", "s1 disconnected", "goodbye"));
}

TEST_F(DisConnecting, logsItsFailures)
{
    broker.m_SessionPresent = 1;
    const LogCapture log;
    FakeMqttClient::state().disconnectResults = {-1};
    broker.DisConnect();
    FakeMqttClient::setConnected(broker.m_MQTTClient, false);
    broker.DisConnect();
    EXPECT_THAT(log.lines(), ElementsAre("DEBUG DISCONNECT by cBroker 'plant' endded with (-1). Stats are "
                                         "(Connected(1) | ReturnCode(-1) | SessionPresent(1))",
                                         "DEBUG DISCONNECT by cBroker 'plant' endded with (-12). Stats are "
                                         "(Connected(1) | ReturnCode(-12) | SessionPresent(1))"));
}

class Loss : public Reconnection
{
};

TEST_F(Loss, tellsEverySubscriberAndCountsEachOne)
{
    add(CT_SUBSCRIBER, "s0", false);
    add(CT_SUBSCRIBER, "s1", true);
    add(CT_SUBSCRIBER, "s2", false);
    add(CT_PUBLISHER, "p0");
    loseWithoutRetry();
    EXPECT_THAT(events, ElementsAre("s0 lost", "s0 written", "s1 lost", "s1 written", "s2 lost", "s2 written"));
    EXPECT_EQ(droppedSubscriptions(), 3U);
    EXPECT_EQ(broker.SubDuringCLIdxList.size(), 1U);
    EXPECT_EQ(broker.SubDuringCLIdxList.at(0), 1);
    EXPECT_EQ(statusBlock(), (Bytes{0, 0, 0xF3, 0}));
}

TEST_F(Loss, logsItselfTheSubscribedOnesAndTheLoopInThisOrder)
{
    add(CT_SUBSCRIBER, "s0");
    const LogCapture log;
    loseWithoutRetry();
    EXPECT_THAT(log.lines(),
                ElementsAre("INFO ClientBroker 'plant' lost is connection",
                            "DEBUG Added caller s0' idx (0) to SubDuringCLIdxList", "DEBUG FIRED ('plant')",
                            "DEBUG Done reconnecting, State is (1) broker 'plant'"));
}

TEST_F(Loss, aSecondOneAddsTheSameSubscribersAgain)
{
    add(CT_SUBSCRIBER, "s0");
    add(CT_SUBSCRIBER, "s1");
    for (const std::uint64_t expected : {2U, 4U}) {
        loseWithoutRetry();
        EXPECT_EQ(broker.SubDuringCLIdxList.size(), expected);
        broker.Connect();
        callers[0]->PresentSessionEstablished();
        callers[1]->PresentSessionEstablished();
    }
    EXPECT_EQ(broker.SubDuringCLIdxList.at(0), 0);
    EXPECT_EQ(broker.SubDuringCLIdxList.at(1), 1);
}

TEST_F(Loss, makesNoCallIntoTheLibraryBeforeTheCallbackReturns)
{
    add(CT_SUBSCRIBER, "s0");
    int asked = 0; // isConnected is left out of the calls
    FakeMqttClient::state().duringIsConnected = [&] { ++asked; };
    loseWithoutRetry();
    FakeMqttClient::state().duringIsConnected = nullptr;
    EXPECT_THAT(calls(), IsEmpty());
    EXPECT_EQ(asked, 0);
}

class Loop : public Reconnection
{
protected:
    Loop() { broker.ConnectionInterval = 6; }

    // One loop on the test's own thread, after a loss that started none of its own.
    void loop()
    {
        const unsigned interval = broker.ConnectionInterval;
        loseWithoutRetry();
        broker.ConnectionInterval = interval;
        calls().clear();
        FakeSleep::waits().clear();
        broker.TryReconnect(1);
    }

    static std::vector<std::chrono::milliseconds> seconds(std::size_t count)
    {
        return std::vector<std::chrono::milliseconds>(count, 1000ms);
    }
};

TEST_F(Loop, sleepsTheIntervalAheadOfEachAttemptUntilOneSucceeds)
{
    std::vector<std::size_t> slept;
    FakeMqttClient::state().connectResults = {-1, -1, 0};
    FakeMqttClient::state().duringConnect = [&] { slept.push_back(FakeSleep::waits().size()); };
    loop();
    EXPECT_THAT(slept, ElementsAre(6U, 12U, 18U));
    EXPECT_EQ(statusBlock(), (Bytes{1, 0, 0, 0}));
}

TEST_F(Loop, runsOnAThreadOfItsOwn)
{
    const std::thread::id here = std::this_thread::get_id();
    std::thread::id there = here;
    FakeMqttClient::state().duringConnect = [&] { there = std::this_thread::get_id(); };
    loseConnection();
    EXPECT_NE(there, here);
    EXPECT_EQ(statusBlock(), (Bytes{1, 0, 0, 0}));
}

TEST_F(Loop, withoutAnIntervalThereIsNoAttempt)
{
    broker.ConnectionInterval = 0;
    const LogCapture log;
    loop();
    EXPECT_THAT(calls(), IsEmpty());
    EXPECT_TRUE(log.contains("DEBUG Done reconnecting, State is (1) broker 'plant'"));
}

TEST_F(Loop, aLinkThatIsDownIsAnAttemptEachIntervalWithoutTraffic)
{
    setLink(0, 0);
    int attempts = 0;
    FakeTagMemory::state().duringWrite = nullptr;
    const LogCapture log;
    std::function<void()> look = [&] {
        if (++attempts == 8) // the block is written twice at the loss and once an attempt
            setLink(1, 0);
        FakeTagMemory::state().duringWrite = look;
    };
    FakeTagMemory::state().duringWrite = look;
    loop();
    FakeTagMemory::state().duringWrite = nullptr;
    EXPECT_GE(log.count("DEBUG CONNECT by cBroker 'plant' endded with (-11). Stats are (Connected(0) | "
                        "ReturnCode(-11) | SessionPresent(0)). returned.sessionPresent is (0)"),
              3);
    EXPECT_THAT(calls(), ElementsAre("setCallbacks", "connect"));
}

TEST_F(Loop, aPauseEndsItWithoutAnotherUseOfTheClient)
{
    FakeMqttClient::state().connectResults = {-1};
    FakeMqttClient::state().duringConnect = [this] { broker.m_State = PS_PAUSED; };
    const LogCapture log;
    loop();
    EXPECT_THAT(calls(), ElementsAre("setCallbacks", "connect"));
    EXPECT_TRUE(log.contains("DEBUG Done reconnecting, State is (2) broker 'plant'"));
}

TEST_F(Loop, inAPausedServiceItDoesNotBegin)
{
    broker.m_State = PS_PAUSED;
    loop();
    EXPECT_THAT(calls(), IsEmpty());
    EXPECT_THAT(FakeSleep::waits(), IsEmpty());
}

TEST_F(Loop, aPauseDuringItsSleepEndsItWithoutAnAttempt)
{
    FakeSleep::duringWait() = [this] { broker.m_State = PS_PAUSED; };
    const LogCapture log;
    loop();
    FakeSleep::duringWait() = nullptr;
    EXPECT_THAT(calls(), IsEmpty());
    EXPECT_EQ(FakeSleep::waits().size(), 1U);
    EXPECT_TRUE(log.contains("DEBUG Done reconnecting, State is (2) broker 'plant'"));
}

TEST_F(Loop, isNotBusyWhileItSleeps)
{
    bool wasBusyAsleep = false;
    bool wasBusyInAttempt = false;
    FakeSleep::duringWait() = [&] { wasBusyAsleep |= broker.IsBusy(); };
    FakeMqttClient::state().connectResults = {-1, 0}; // a sleep behind an attempt as well
    FakeMqttClient::state().duringConnect = [&] { wasBusyInAttempt = broker.IsBusy(); };
    loop();
    FakeSleep::duringWait() = nullptr;
    EXPECT_FALSE(wasBusyAsleep);
    EXPECT_TRUE(wasBusyInAttempt);
    EXPECT_FALSE(broker.IsBusy());
}

TEST_F(Loop, leavesABrokerToTheLoopOfANewerLoss)
{
    FakeMqttClient::state().connectResults = {-1};
    FakeMqttClient::state().duringConnect = [this] {
        FakeMqttClient::state().duringConnect = nullptr;
        broker.ConnectionInterval = 0; // the newer loop has nothing to do
        loseConnection();
        broker.ConnectionInterval = 6;
    };
    loop();
    EXPECT_THAT(calls(), ElementsAre("setCallbacks", "connect"));
}

TEST_F(Loop, aConnectRequestMeanwhileIsAnExtraAttemptAndOneSuccessEndsBoth)
{
    FakeMqttClient::state().connectResults = {-1, 0};
    int attempts = 0;
    std::thread request;
    FakeMqttClient::state().duringConnect = [&] {
        if (++attempts == 1)
            request = std::thread([this] { broker.Connect(); });
    };
    loop();
    request.join();
    EXPECT_EQ(attempts, 2);
    EXPECT_EQ(broker.m_Connected, 1);
}

TEST_F(Loop, endsWithTheProcess)
{
    FakeMqttClient::state().connectResults = {-1, -1, -1};
    std::unique_ptr<ProcessEndingUndone> ending;
    FakeMqttClient::state().duringConnect = [&] { ending = std::make_unique<ProcessEndingUndone>(); };
    loop();
    EXPECT_THAT(calls(), ElementsAre("setCallbacks", "connect"));
}

TEST_F(Loop, keepsWhatItWorksOnAlive)
{
    auto generation = std::make_shared<int>(0);
    const std::weak_ptr<int> watch = generation;
    broker.m_Generation = generation;
    FakeMqttClient::state().duringConnect = [&] {
        generation.reset();
        EXPECT_FALSE(watch.expired());
    };
    loseConnection();
    while (!watch.expired())
        std::this_thread::sleep_for(1ms);
}

class Session : public Reconnection
{
protected:
    Session()
    {
        broker.CleanSessionFlag = false;
        FakeMqttClient::state().sessionPresent = 1;
    }

    void reconnect()
    {
        loseWithoutRetry();
        events.clear();
        broker.Connect();
    }
};

TEST_F(Session, tellsAllSubscribersThatWereSubscribed)
{
    add(CT_SUBSCRIBER, "s0");
    add(CT_SUBSCRIBER, "s1");
    add(CT_PUBLISHER, "p0");
    reconnect();
    EXPECT_THAT(events, ElementsAre("s0 session", "s1 session"));
    EXPECT_EQ(statusBlock(), (Bytes{1, 1, 0, 0}));
}

TEST_F(Session, tellsThemBeforeTheStatusBlockShowsTheConnection)
{
    add(CT_SUBSCRIBER, "s0");
    loseWithoutRetry();
    events.clear();
    FakeTagMemory::state().duringWrite = [this] { events.push_back("block"); };
    broker.Connect();
    FakeTagMemory::state().duringWrite = nullptr;
    EXPECT_THAT(events, ElementsAre("s0 session", "block"));
}

TEST_F(Session, theNoticeHasItsLine)
{
    loseWithoutRetry();
    const LogCapture log;
    broker.Connect();
    EXPECT_EQ(log.count("DEBUG FIRED"), 1);
    FakeMqttClient::setConnected(broker.m_MQTTClient, false);
    FakeMqttClient::state().sessionPresent = 0;
    broker.Connect();
    EXPECT_EQ(log.count("DEBUG FIRED"), 1);
}

TEST_F(Session, anUnsubscribedOneAheadShiftsThePairsSoThatNobodyIsTold)
{
    add(CT_SUBSCRIBER, "s0", false);
    add(CT_SUBSCRIBER, "s1", true);
    reconnect();
    EXPECT_THAT(events, IsEmpty());
}

TEST_F(Session, aShiftedPairStillMeetsACallerWithTheSameTopic)
{
    add(CT_SUBSCRIBER, "s0", false);
    add(CT_SUBSCRIBER, "s1", true);
    callers[0]->m_Topic = callers[1]->m_Topic;
    reconnect();
    EXPECT_THAT(events, ElementsAre("s0 session"));
}

TEST_F(Session, pairsOfAnEarlierLossStayAtTheFront)
{
    add(CT_SUBSCRIBER, "s0", true);
    add(CT_SUBSCRIBER, "s1", false);
    reconnect(); // the pair (0, s0) stands at position 0 from now on
    callers[0]->ConnectionLost();
    callers[1]->PresentSessionEstablished();
    reconnect(); // adds (1, s1) at position 1, where the caller is s1
    EXPECT_THAT(events, ElementsAre("s0 session", "s1 session"));
}

TEST_F(Session, withoutAStoredSessionNobodyIsTold)
{
    FakeMqttClient::state().sessionPresent = 0;
    add(CT_SUBSCRIBER, "s0");
    reconnect();
    EXPECT_THAT(events, IsEmpty());
}

TEST_F(Session, aLossInsideTheNoticeTakesItBack)
{
    add(CT_SUBSCRIBER, "s0");
    loseWithoutRetry();
    events.clear();
    FakeMqttClient::state().duringConnect = [this] {
        FakeMqttClient::loseConnection(broker.m_MQTTClient);
        FakeMqttClient::setConnected(broker.m_MQTTClient, true); // as the library sees it a moment longer
    };
    broker.Connect();
    EXPECT_THAT(events, ElementsAre("s0 lost", "s0 written", "s0 session", "s0 lost"));
    EXPECT_FALSE(callers[0]->IsSubscribed());
    EXPECT_EQ(statusBlock(), (Bytes{0, 0, 0xF3, 0}));
}

TEST_F(Session, whatTheBrokerHasKeptWaitsForTheNotice)
{
    add(CT_SUBSCRIBER, "s0");
    loseWithoutRetry();
    std::thread library;
    const LogCapture log;
    FakeMqttClient::state().duringConnect = [&] {
        library = std::thread([this] { FakeMqttClient::arrive(broker.m_MQTTClient, "topic/s0", "kept"); });
        std::this_thread::sleep_for(20ms);
    };
    broker.Connect();
    library.join();
    EXPECT_FALSE(log.contains("DEBUG Accepted message does not belong to any topic"));
}

TEST_F(Session, aBrokerThatSendsBeforeItAnswersHoldsTheOthersUpOnceOnly)
{
    std::vector<std::chrono::milliseconds> times;
    FakeMqttClient::state().duringConnect = [&] {
        for (int i = 0; i < 3; ++i) {
            const auto begin = std::chrono::steady_clock::now();
            FakeMqttClient::arrive(broker.m_MQTTClient, "t", "early");
            times.push_back(
                std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - begin));
        }
    };
    FakeMqttClient::setConnected(broker.m_MQTTClient, false);
    broker.Connect();
    EXPECT_GE(times[0], 100ms);
    EXPECT_LT(times[1], times[0]);
    EXPECT_LT(times[2], times[0]);
}

// Bytes in use on the heap; 0 where a sanitizer has put its own in place.
std::size_t heapInUse()
{
    return mallinfo2().uordblks;
}

// LOSSES in the environment sets another number of losses; 100,000 take a minute.
TEST_F(Reconnection, lossesAndReconnectionsLeaveNoMemoryBehind)
{
    const char* wanted = std::getenv("LOSSES");
    const int losses = wanted ? std::atoi(wanted) : 500;
    add(CT_SUBSCRIBER, "s0");
    broker.CleanSessionFlag = false;
    broker.ConnectionInterval = 1;
    FakeMqttClient::state().sessionPresent = 1;
    const auto loseAndReturn = [this] {
        loseConnection();
        ASSERT_EQ(broker.m_Connected, 1);
        // What the fakes keep of each call.
        FakeMqttClient::state().calls.clear();
        FakeMqttClient::state().connects.clear();
        FakeTagMemory::state().writes.clear();
        FakeTagMemory::state().reads.clear();
        FakeSleep::waits().clear();
        events.clear();
    };
    for (int i = 0; i < 50; ++i)
        loseAndReturn();
    const std::size_t before = heapInUse();
    for (int i = 0; i < losses; ++i)
        loseAndReturn();
    EXPECT_EQ(broker.SubDuringCLIdxList.size(), static_cast<std::uint64_t>(losses) + 50);
    EXPECT_LT(heapInUse(), before + 16 * 1024);
}

TEST_F(Reconnection, manyLossesTakeNoMemoryAndCountOn)
{
    add(CT_SUBSCRIBER, "s0");
    for (std::uint64_t i = 0; i < 1000; ++i)
        broker.SubDuringCLIdxList.append(0);
    EXPECT_EQ(broker.SubDuringCLIdxList.size(), 1000U);
    EXPECT_EQ(broker.SubDuringCLIdxList.at(0), 0);
    EXPECT_EQ(broker.SubDuringCLIdxList.at(999), LostSubscriptions::NotKept);
}

TEST_F(ServiceTest, aBrokerThatGoesTakesItsClientAlong)
{
    {
        ClientBroker broker;
        broker.CreateMQTTClient();
        FakeMqttClient::state().calls.clear();
    }
    EXPECT_THAT(FakeMqttClient::state().calls, ElementsAre("destroy"));
}

} // namespace
