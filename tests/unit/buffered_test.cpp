#include "subscribertest.h"

#include "Entities/scheduledbufferedsubscriptionsmanager.h"
#include "Services/mqttmanagerservices.h"

#include <optional>
#include <QDateTime>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>

namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using Write = FakeTagMemory::WriteRecord;

Bytes bytesOf(std::uint32_t number)
{
    Bytes bytes(sizeof number);
    std::memcpy(bytes.data(), &number, sizeof number);
    return bytes;
}

// A buffered subscription, subscribed, and the worker that serves it.
class BufferedTest : public SubscriberTest
{
protected:
    BufferedTest()
    {
        subscriber.m_BufferedFlag = true;
        serve(subscriber);
        subscribe();
    }
    ~BufferedTest() override { FakeSleep::duringWait() = nullptr; }

    void serve(Subscriber& another)
    {
        worker.m_Subscribers.append(&another);
        worker.m_SubscribersCount = worker.m_Subscribers.size();
    }

    void arriveNumber(std::uint32_t number, const std::string& topic = "line/set")
    {
        const Bytes bytes = bytesOf(number);
        arrive(topic, std::string(bytes.begin(), bytes.end()));
    }

    void fillQueue()
    {
        for (std::uint32_t number = 1; number <= 15; ++number)
            arriveNumber(number);
        FakeTagMemory::state().writes.clear();
    }

    // What the control application does when it is ready for the next message.
    static void clearBit() { FakeTagMemory::put(BitAddress, {0}); }
    static int bit() { return FakeTagMemory::bytesAt(BitAddress, 1)[0]; }
    static int status() { return FakeTagMemory::bytesAt(StatusAddress, 1)[0]; }
    static Bytes tag() { return FakeTagMemory::bytesAt(DataAddress, 4); }
    static unsigned received() { return MQTTStatusLogManager::instance()->m_MQTTStatisticsStruct.m_ReceivedSub; }

    void tick() { worker.ScheduledBufferedSubscriptionsCheck(); }
    // A tick that finds the application ready.
    void handOver()
    {
        clearBit();
        FakeTagMemory::state().writes.clear();
        FakeSleep::waits().clear();
        tick();
    }

    // Lets something happen in the pause with this number, counted from 1 and from now.
    static void inPause(int wanted, std::function<void()> happening)
    {
        FakeSleep::duringWait() = [wanted, happening] {
            if (FakeSleep::waits().size() == static_cast<std::size_t>(wanted))
                happening();
        };
    }

    static std::vector<Write> writes() { return FakeTagMemory::state().writes; }

    ScheduledBufferedSubscriptionsManager worker;
    static constexpr unsigned BitAddress = RecordAddress + 2;
    static constexpr unsigned StatusAddress = RecordAddress + 520;
};

using BufferedArrival = BufferedTest;

TEST_F(BufferedArrival, countsTheMessageThenShowsThatItWaitsAndLeavesTheTagAlone)
{
    const auto before = static_cast<std::uint32_t>(QDateTime::currentSecsSinceEpoch());
    EXPECT_EQ(arrive("line/set", "abcd"), 1);
    const auto after = static_cast<std::uint32_t>(QDateTime::currentSecsSinceEpoch());
    EXPECT_THAT(writeOrder(), ElementsAre(StatisticsAddress, RecordAddress));
    EXPECT_EQ(record().m_Subscribed, 1);
    EXPECT_EQ(record().m_SubscriptionStatus, 0);
    EXPECT_EQ(record().m_ReceivedBit, 1);
    EXPECT_EQ(record().m_QueueFull, 0);
    EXPECT_EQ(record().m_BufferedDataStatus, 2);
    EXPECT_EQ(topicIn(record()), u"line/set");
    EXPECT_GE(record().m_LastMessageUTC, before);
    EXPECT_LE(record().m_LastMessageUTC, after);
    EXPECT_EQ(received(), 1U);
}

TEST_F(BufferedArrival, ofAnotherTopicChangesNothing)
{
    arrive("line/other", "abcd");
    EXPECT_TRUE(writes().empty());
    EXPECT_EQ(subscriber.m_BufferedMessages.count(), 0);
}

TEST_F(BufferedArrival, provesTheSubscriptionEvenWhenTheMessageIsDropped)
{
    fillQueue();
    subscriber.m_Status.m_Subscribed = 0;
    MQTTClient_message message = MQTTClient_message_initializer;
    char topic[] = "line/set";
    EXPECT_TRUE(subscriber.MessageArrived(topic, 8, &message));
    EXPECT_EQ(record().m_Subscribed, 1);
}

TEST_F(BufferedArrival, theFifteenthFillsTheQueueAndSaysSo)
{
    for (std::uint32_t number = 1; number <= 14; ++number)
        arriveNumber(number);
    EXPECT_EQ(record().m_QueueFull, 0);
    const LogCapture log;
    arriveNumber(15);
    EXPECT_EQ(record().m_QueueFull, 1);
    EXPECT_EQ(received(), 15U);
    EXPECT_THAT(log.lines(), ElementsAre("DEBUG Buffered message queue is full (15) for 'setpoint'"));
}

TEST_F(BufferedArrival, theSixteenthIsLostWithoutATraceButAnotherRecord)
{
    subscriber.m_Topic = "line/#";
    subscriber.m_Special = true;
    fillQueue();
    subscriber.m_Status.m_LastMessageUTC = 77;
    const LogCapture log;
    arriveNumber(16, "line/late");
    EXPECT_THAT(writeOrder(), ElementsAre(RecordAddress));
    EXPECT_EQ(topicIn(record()), u"line/set");
    EXPECT_EQ(record().m_LastMessageUTC, 77U);
    EXPECT_EQ(record().m_QueueFull, 1);
    EXPECT_EQ(received(), 15U);
    EXPECT_EQ(subscriber.m_BufferedMessages.count(), 15);
    EXPECT_THAT(log.lines(), IsEmpty());
}

// The record goes out whole, with the bit as the service last knew it.
TEST_F(BufferedArrival, aLostMessageTakesTheApplicationsRequestBack)
{
    fillQueue();
    clearBit();
    arriveNumber(16);
    EXPECT_EQ(bit(), 1);
    tick();
    EXPECT_EQ(subscriber.m_BufferedMessages.count(), 15);
}

TEST_F(BufferedArrival, anotherMessageBeforeTheHandOverTakesTheRequestBackAsWell)
{
    arriveNumber(1);
    clearBit();
    arriveNumber(2);
    tick();
    EXPECT_EQ(tag(), bytesOf(0));
    handOver();
    EXPECT_EQ(tag(), bytesOf(1));
}

TEST_F(BufferedArrival, keepsNothingOfTheLibrarys)
{
    char topic[] = "line/set";
    char payload[] = "abcd";
    MQTTClient_message message = MQTTClient_message_initializer;
    message.payload = payload;
    message.payloadlen = 4;
    EXPECT_TRUE(subscriber.MessageArrived(topic, 8, &message));
    std::memset(topic, 'x', 8);
    std::memset(payload, 'x', 4);
    const auto kept = subscriber.m_BufferedMessages.takeFirst();
    ASSERT_TRUE(kept);
    EXPECT_STREQ(kept->topicName, "line/set");
    EXPECT_EQ(kept->topicLen, 8);
    EXPECT_STREQ(kept->Payload, "abcd");
    EXPECT_EQ(kept->PayloadLen, 4);
}

TEST_F(BufferedArrival, givesEachMessageAnIdentityOfItsOwn)
{
    arriveNumber(1);
    arriveNumber(2);
    const QString first = subscriber.m_BufferedMessages.takeFirst()->Guid;
    const QString second = subscriber.m_BufferedMessages.takeFirst()->Guid;
    EXPECT_NE(first, second);
    EXPECT_FALSE(QUuid::fromString(first).isNull());
    EXPECT_EQ(first.size(), 36); // no braces
}

TEST_F(BufferedArrival, anEmptyPayloadMayComeWithoutAPointer)
{
    FakeTagMemory::put(DataAddress, Bytes(4, 0xEE));
    MQTTClient_message message = MQTTClient_message_initializer;
    message.payload = nullptr;
    message.payloadlen = 0;
    char topic[] = "line/set";
    EXPECT_TRUE(subscriber.MessageArrived(topic, 8, &message));
    EXPECT_EQ(subscriber.m_BufferedMessages.count(), 1);
    handOver();
    EXPECT_EQ(tag(), bytesOf(0));
}

TEST_F(BufferedArrival, aLongTopicIsCutInTheRecord)
{
    subscriber.m_Topic = "#";
    subscriber.m_Special = true;
    const LogCapture log;
    arrive(std::string(65'535, 'x'), "abcd");
    EXPECT_EQ(topicIn(record()), std::u16string(255, u'x'));
    EXPECT_TRUE(
        log.contains("WARN subscription 'setpoint': the topic of its last message is cut in its status record"));
}

// The same bytes for every message: only their number matters.
class BufferedBytes : public BufferedTest
{
protected:
    void arriveBytes(int count)
    {
        m_bytes.resize(static_cast<std::size_t>(count));
        MQTTClient_message message = MQTTClient_message_initializer;
        message.payload = m_bytes.data();
        message.payloadlen = count;
        char topic[] = "line/set";
        EXPECT_TRUE(subscriber.MessageArrived(topic, 8, &message));
    }

    static constexpr int Limit = 64 * 1024 * 1024;

private:
    std::vector<char> m_bytes;
};

TEST_F(BufferedBytes, whatExceedsTheQueuesShareOfMemoryIsDroppedWithAWarning)
{
    arriveBytes(Limit - 10);
    const LogCapture log;
    arriveBytes(11);
    EXPECT_THAT(log.lines(), ElementsAre("WARN subscription 'setpoint': a message of 11 bytes is dropped, its queue "
                                         "may hold 67108864 in sum"));
    EXPECT_EQ(subscriber.m_BufferedMessages.count(), 1);
    EXPECT_EQ(received(), 1U);
    EXPECT_EQ(record().m_QueueFull, 0);
    arriveBytes(10);
    EXPECT_EQ(subscriber.m_BufferedMessages.count(), 2);
}

TEST_F(BufferedBytes, aMessageThatIsTakenLeavesItsShareToOthers)
{
    arriveBytes(Limit);
    arriveBytes(1);
    EXPECT_EQ(subscriber.m_BufferedMessages.count(), 1);
    subscriber.m_BufferedMessages.takeFirst().reset();
    arriveBytes(Limit);
    EXPECT_EQ(subscriber.m_BufferedMessages.count(), 1);
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__) // they take no such limit
TEST_F(BufferedBytes, aMessageForWhichThereIsNoMemoryIsDroppedWithAnErrorLine)
{
    arriveBytes(Limit); // so that the test's own buffer stands already
    subscriber.DestoryBufferedMessages();
    rlimit before{};
    ASSERT_EQ(getrlimit(RLIMIT_AS, &before), 0);
    rlimit now = before;
    unsigned long pages = 0;
    FILE* file = std::fopen("/proc/self/statm", "r");
    ASSERT_TRUE(file);
    ASSERT_EQ(std::fscanf(file, "%lu", &pages), 1); // NOLINT(cert-err34-c): the kernel's own number
    std::fclose(file);
    now.rlim_cur = pages * static_cast<unsigned long>(sysconf(_SC_PAGESIZE)) + Limit / 2;
    const LogCapture log;
    ASSERT_EQ(setrlimit(RLIMIT_AS, &now), 0);
    arriveBytes(Limit);
    ASSERT_EQ(setrlimit(RLIMIT_AS, &before), 0);
    EXPECT_THAT(log.lines(), ElementsAre("ERROR subscription 'setpoint': a message of 67108864 bytes is dropped for "
                                         "want of memory"));
    EXPECT_EQ(subscriber.m_BufferedMessages.count(), 0);
    EXPECT_EQ(received(), 1U);
    arriveBytes(Limit);
    EXPECT_EQ(subscriber.m_BufferedMessages.count(), 1);
}
#endif

using HandOver = BufferedTest;

TEST_F(HandOver, ofTheLastMessageGoesThroughItsStates)
{
    arriveNumber(7);
    clearBit();
    FakeTagMemory::state().writes.clear();
    const LogCapture log;
    tick();
    ASSERT_THAT(writeOrder(), ElementsAre(StatusAddress, RecordAddress, DataAddress, StatusAddress));
    EXPECT_EQ(writes()[0].bytes, Bytes{1});
    EXPECT_EQ(recordOf(writes()[1].bytes).m_BufferedDataStatus, 1);
    EXPECT_EQ(recordOf(writes()[1].bytes).m_ReceivedBit, 0);
    EXPECT_EQ(recordOf(writes()[1].bytes).m_QueueFull, 0);
    EXPECT_EQ(topicIn(recordOf(writes()[1].bytes)), u"line/set");
    EXPECT_EQ(writes()[2].bytes, bytesOf(7));
    EXPECT_EQ(writes()[3].bytes, Bytes{0});
    EXPECT_THAT(FakeSleep::waits(), ElementsAre(1000ms, 1000ms));
    EXPECT_EQ(log.lines().at(0), "DEBUG Proccesing message of 'setpoint', queue count is '0', ReceiveFlag '0'");
    EXPECT_EQ(bit(), 0);
    EXPECT_EQ(status(), 0);
}

TEST_F(HandOver, withOthersWaitingAnnouncesTheNext)
{
    arriveNumber(7);
    arriveNumber(8);
    const LogCapture log;
    handOver();
    ASSERT_THAT(writeOrder(),
                ElementsAre(StatusAddress, RecordAddress, DataAddress, StatusAddress, StatusAddress, BitAddress));
    EXPECT_EQ(writes()[3].bytes, Bytes{0});
    EXPECT_EQ(writes()[4].bytes, Bytes{2});
    EXPECT_EQ(writes()[5].bytes, Bytes{1});
    EXPECT_THAT(FakeSleep::waits(), ElementsAre(1000ms, 1000ms, 1000ms));
    EXPECT_EQ(log.lines().at(0), "DEBUG Proccesing message of 'setpoint', queue count is '1', ReceiveFlag '0'");
}

// What the control application sees in each pause.
TEST_F(HandOver, showsEachStateForASecond)
{
    arriveNumber(7);
    arriveNumber(8);
    clearBit();
    std::vector<std::array<int, 3>> seen;
    FakeSleep::duringWait() = [&seen] { seen.push_back({bit(), status(), tag()[0]}); };
    tick();
    EXPECT_THAT(seen, ElementsAre(std::array{0, 1, 7}, std::array{0, 0, 7}, std::array{1, 2, 7}));
}

TEST_F(HandOver, waitsUntilTheApplicationHasClearedTheBit)
{
    arriveNumber(7);
    for (const int value : {1, 2, 255}) {
        FakeTagMemory::put(BitAddress, {static_cast<std::uint8_t>(value)});
        FakeTagMemory::state().writes.clear();
        for (int ticks = 0; ticks < 100; ++ticks)
            tick();
        EXPECT_TRUE(writes().empty());
        EXPECT_EQ(subscriber.m_Status.m_ReceivedBit, value);
    }
    EXPECT_TRUE(FakeSleep::waits().empty());
    handOver();
    EXPECT_EQ(tag(), bytesOf(7));
}

TEST_F(HandOver, ofAnEmptyQueueOnlyLooksAtTheBit)
{
    subscriber.m_Status.m_ReceivedBit = 1;
    tick();
    EXPECT_TRUE(writes().empty());
    EXPECT_TRUE(FakeSleep::waits().empty());
    EXPECT_EQ(subscriber.m_Status.m_ReceivedBit, 0);
}

TEST_F(HandOver, doesNotBeginWhileTheBitCannotBeRead)
{
    arriveNumber(7);
    clearBit();
    FakeTagMemory::state().unreadable = {BitAddress};
    tick();
    EXPECT_EQ(subscriber.m_BufferedMessages.count(), 1);
    FakeTagMemory::state().unreadable.clear();
    tick();
    EXPECT_EQ(tag(), bytesOf(7));
}

TEST_F(HandOver, keepsTheOrderOfArrival)
{
    fillQueue();
    std::vector<std::uint8_t> order;
    for (int message = 0; message < 15; ++message) {
        handOver();
        order.push_back(tag()[0]);
        EXPECT_EQ(bit(), message < 14 ? 1 : 0);
        EXPECT_EQ(status(), message < 14 ? 2 : 0);
    }
    EXPECT_THAT(order, ElementsAre(1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15));
    handOver();
    EXPECT_TRUE(writes().empty());
}

TEST_F(HandOver, makesRoomForOneMessageAtATime)
{
    fillQueue();
    handOver();
    EXPECT_EQ(record().m_QueueFull, 0);
    arriveNumber(16);
    EXPECT_EQ(record().m_QueueFull, 1);
    arriveNumber(17);
    EXPECT_EQ(subscriber.m_BufferedMessages.count(), 15);
    handOver();
    EXPECT_EQ(record().m_QueueFull, 0);
}

TEST_F(HandOver, servesEachReadySubscriptionInOneTick)
{
    Subscriber second = subscriber;
    second.m_Topic = "line/second";
    second.m_SubAddr = 6000;
    second.m_DataAddress = 800;
    Subscriber third = second;
    third.m_Topic = "line/third";
    third.m_SubAddr = 7000;
    third.m_DataAddress = 900;
    broker.m_Callers.append(&second);
    broker.m_Callers.append(&third);
    serve(second);
    serve(third);
    arriveNumber(1);
    arriveNumber(2, "line/second");
    arriveNumber(3, "line/third");
    FakeTagMemory::put(7002, {0});
    handOver();
    EXPECT_THAT(writeOrder(),
                ElementsAre(StatusAddress, RecordAddress, DataAddress, StatusAddress, 7520, 7000, 900, 7520));
    EXPECT_EQ(FakeTagMemory::bytesAt(800, 4), bytesOf(0));
    EXPECT_EQ(FakeTagMemory::bytesAt(900, 4), bytesOf(3));
}

TEST_F(HandOver, servesAsManyAsAreCounted)
{
    arriveNumber(1);
    worker.m_SubscribersCount = 0;
    handOver();
    EXPECT_TRUE(writes().empty());
}

class ArrivalInAPause : public HandOver, public testing::WithParamInterface<int>
{
};

TEST_P(ArrivalInAPause, isOutOfStepAndFoundAgainByTheNextTick)
{
    arriveNumber(1);
    arriveNumber(2);
    std::array<int, 2> seen{};
    inPause(GetParam(), [&] {
        arriveNumber(3);
        seen = {bit(), status()};
    });
    handOver();
    FakeSleep::duringWait() = nullptr;
    EXPECT_EQ(seen, (std::array{1, 2}));
    EXPECT_EQ(bit(), 1);
    EXPECT_EQ(status(), 2);
    tick();
    EXPECT_EQ(tag(), bytesOf(1));
    for (const std::uint32_t number : {2, 3}) {
        handOver();
        EXPECT_EQ(tag(), bytesOf(number));
    }
    EXPECT_EQ(bit(), 0);
    EXPECT_EQ(status(), 0);
}

INSTANTIATE_TEST_SUITE_P(Pauses, ArrivalInAPause, testing::Values(1, 2, 3));

TEST_F(HandOver, announcesAMessageThatArrivedMeanwhile)
{
    for (const int pause : {1, 2}) {
        arriveNumber(1);
        inPause(pause, [&] { arriveNumber(2); });
        handOver();
        FakeSleep::duringWait() = nullptr;
        EXPECT_THAT(FakeSleep::waits(), ElementsAre(1000ms, 1000ms, 1000ms));
        EXPECT_EQ(bit(), 1);
        EXPECT_EQ(status(), 2);
        handOver();
        EXPECT_EQ(tag(), bytesOf(2));
    }
}

TEST_F(HandOver, thatBeganWithAnArrivalLogsTheBit)
{
    arriveNumber(1);
    const LogCapture log;
    clearBit();
    FakeTagMemory::state().duringWrite = [this] { // of the first state
        FakeTagMemory::state().duringWrite = nullptr;
        arriveNumber(2);
    };
    tick();
    EXPECT_TRUE(log.contains("DEBUG Proccesing message of 'setpoint', queue count is '1', ReceiveFlag '1'"));
}

TEST_F(HandOver, aRequestInTheLastPauseIsServedByTheNextTick)
{
    arriveNumber(1);
    arriveNumber(2);
    inPause(3, [] { clearBit(); });
    handOver();
    FakeSleep::duringWait() = nullptr;
    tick();
    EXPECT_EQ(tag(), bytesOf(2));
}

TEST_F(HandOver, aRequestInAnEarlierPauseIsNone)
{
    for (const int pause : {1, 2}) {
        arriveNumber(1);
        arriveNumber(2);
        inPause(pause, [] { clearBit(); });
        handOver();
        FakeSleep::duringWait() = nullptr;
        tick();
        EXPECT_EQ(tag(), bytesOf(1));
        subscriber.DestoryBufferedMessages();
    }
}

// The service's own bit stays 0 when the next message is announced, and a record that is written for another reason
// carries it.
TEST_F(HandOver, aLossInTheLastPauseCountsAsARequest)
{
    arriveNumber(1);
    arriveNumber(2);
    inPause(3, [this] { subscriber.ConnectionLost(); });
    handOver();
    FakeSleep::duringWait() = nullptr;
    EXPECT_EQ(subscriber.m_Status.m_ReceivedBit, 0);
    EXPECT_EQ(bit(), 0);
    tick();
    EXPECT_EQ(tag(), bytesOf(2));
}

TEST_F(HandOver, aTickTakesTheAnnouncedBitOver)
{
    arriveNumber(1);
    arriveNumber(2);
    handOver();
    EXPECT_EQ(subscriber.m_Status.m_ReceivedBit, 0);
    tick();
    EXPECT_EQ(subscriber.m_Status.m_ReceivedBit, 1);
    subscriber.ConnectionLost();
    EXPECT_EQ(bit(), 1);
}

TEST_F(HandOver, goesOnWithoutASubscription)
{
    arriveNumber(1);
    arriveNumber(2);
    EXPECT_EQ(subscriber.UnSubscribe(), SSC_OK);
    handOver();
    EXPECT_EQ(tag(), bytesOf(1));
    FakeMqttClient::loseConnection(broker.m_MQTTClient);
    handOver();
    EXPECT_EQ(tag(), bytesOf(2));
    EXPECT_EQ(record().m_Subscribed, 0);
}

TEST_F(HandOver, ofBadJsonRunsOnAndLeavesTheTag)
{
    subscriber.m_PayloadFormat = PF_JSON;
    subscriber.m_DataType = AT_STRUCT;
    subscriber.m_DataMembers = {{"a", AT_UINT32, 0, NO_DATA_LEN, 0}};
    subscriber.CalcDataSize();
    arrive("line/set", R"({"a":1})");
    arrive("line/set", R"({"a":)");
    arrive("line/set", R"({"a":3})");
    handOver();
    EXPECT_EQ(tag(), bytesOf(1));
    EXPECT_EQ(record().m_SubscriptionStatus, 0);
    handOver();
    EXPECT_THAT(writeOrder(),
                ElementsAre(StatusAddress, RecordAddress, RecordAddress, StatusAddress, StatusAddress, BitAddress));
    EXPECT_EQ(tag(), bytesOf(1));
    EXPECT_EQ(record().m_SubscriptionStatus, -12);
    EXPECT_EQ(bit(), 1);
    EXPECT_EQ(status(), 2);
    handOver();
    EXPECT_EQ(tag(), bytesOf(3));
    EXPECT_EQ(record().m_SubscriptionStatus, -12);
}

TEST_F(HandOver, beginsNothingWhenTheProcessEnds)
{
    arriveNumber(1);
    const ProcessEndingUndone ending;
    handOver();
    EXPECT_TRUE(writes().empty());
    EXPECT_THAT(FakeTagMemory::state().reads, testing::Not(testing::Contains(BitAddress)));
}

TEST_F(HandOver, leavesOffAtTheNextPauseWhenTheProcessEnds)
{
    Subscriber second = subscriber;
    second.m_Topic = "line/second";
    broker.m_Callers.append(&second);
    serve(second);
    for (const std::size_t pause : {1, 2, 3}) {
        arriveNumber(1);
        arriveNumber(2);
        arriveNumber(3, "line/second");
        std::optional<ProcessEndingUndone> ending;
        inPause(static_cast<int>(pause), [&] { ending.emplace(); });
        handOver();
        FakeSleep::duringWait() = nullptr;
        EXPECT_EQ(FakeSleep::waits().size(), pause);
        EXPECT_EQ(writes().size(), std::vector<std::size_t>({3, 4, 6}).at(pause - 1));
        EXPECT_EQ(second.m_BufferedMessages.count(), 1);
        subscriber.DestoryBufferedMessages();
        second.DestoryBufferedMessages();
    }
}

TEST_F(HandOver, doesNotPauseAnyMoreWhenTheProcessEndsWithTheData)
{
    arriveNumber(1);
    std::optional<ProcessEndingUndone> ending;
    clearBit();
    FakeTagMemory::state().duringWrite = [&] {
        if (!ending)
            ending.emplace();
    };
    tick();
    EXPECT_TRUE(FakeSleep::waits().empty());
}

using ThrowingAway = BufferedTest;

TEST_F(ThrowingAway, emptiesTheQueueAndLeavesTheRecord)
{
    fillQueue();
    subscriber.DestoryBufferedMessages();
    EXPECT_TRUE(writes().empty());
    EXPECT_EQ(subscriber.m_BufferedMessages.count(), 0);
    EXPECT_EQ(subscriber.m_Status.m_QueueFull, 1);
    EXPECT_EQ(subscriber.m_Status.m_BufferedDataStatus, 2);
    clearBit();
    tick();
    EXPECT_TRUE(writes().empty());
    arriveNumber(1);
    EXPECT_EQ(record().m_QueueFull, 1); // until the next hand-over
    handOver();
    EXPECT_EQ(record().m_QueueFull, 0);
    EXPECT_EQ(tag(), bytesOf(1));
}

TEST_F(ThrowingAway, ofAnEmptyQueueDoesNothing)
{
    subscriber.DestoryBufferedMessages();
    EXPECT_TRUE(writes().empty());
}

TEST_F(ThrowingAway, leavesTheQueueToAHandOverThatIsUnderWay)
{
    arriveNumber(1);
    arriveNumber(2);
    inPause(1, [this] {
        std::thread cleanUp([this] { subscriber.DestoryBufferedMessages(); });
        cleanUp.join();
    });
    handOver();
    EXPECT_EQ(subscriber.m_BufferedMessages.count(), 1);
    subscriber.DestoryBufferedMessages();
    EXPECT_EQ(subscriber.m_BufferedMessages.count(), 0);
}

TEST_F(ThrowingAway, keepsAHandOverOut)
{
    arriveNumber(1);
    {
        const Turn cleanUp = subscriber.TakeBufferedMessages();
        ASSERT_TRUE(cleanUp.isMine());
        handOver();
        EXPECT_TRUE(writes().empty());
    }
    handOver();
    EXPECT_EQ(tag(), bytesOf(1));
}

TEST_F(ThrowingAway, aCopyOfTheSubscriptionHasAQueueOfItsOwn)
{
    arriveNumber(1);
    Subscriber copy = subscriber;
    EXPECT_EQ(copy.m_BufferedMessages.count(), 0);
    EXPECT_EQ(subscriber.m_BufferedMessages.count(), 1);
}

TEST(BufferedMessages, holdFifteenAndNotOneMore)
{
    BufferedMessages queue;
    for (int number = 0; number < 15; ++number) {
        EXPECT_EQ(queue.countWhenAppending(), number);
        EXPECT_TRUE(queue.append(MQTTMessage::copyOf("t", 1, &number, sizeof number)));
        EXPECT_EQ(queue.count(), number + 1);
    }
    EXPECT_FALSE(queue.append(MQTTMessage::copyOf("t", 1, "x", 1)));
    EXPECT_EQ(queue.count(), 15);
    EXPECT_TRUE(queue.takeFirst());
    EXPECT_TRUE(queue.append(MQTTMessage::copyOf("t", 1, "x", 1)));
}

TEST(BufferedMessages, passBetweenTwoThreadsInOrder)
{
    constexpr int Count = 50'000;
    BufferedMessages queue;
    std::thread library([&] {
        for (int number = 0; number < Count;) {
            if (queue.countWhenAppending() == BUFFERED_QUEUE_CAPACITY)
                std::this_thread::yield();
            else if (queue.append(MQTTMessage::copyOf("t", 1, &number, sizeof number)))
                ++number;
        }
    });
    for (int expected = 0; expected < Count;) {
        const auto message = queue.takeFirst();
        if (!message) {
            std::this_thread::yield();
            continue;
        }
        int number = -1;
        std::memcpy(&number, message->Payload, sizeof number);
        ASSERT_EQ(number, expected++);
    }
    library.join();
    EXPECT_EQ(queue.count(), 0);
    EXPECT_TRUE(queue.hasBytesFor(static_cast<int>(BUFFERED_QUEUE_BYTES))); // every share was given back
}

// Arrivals beside hand-overs, and an application that is always ready: what was counted reaches the tag, in order.
TEST_F(HandOver, besideArrivalsLosesNothingThatWasCounted)
{
    std::atomic<bool> isDone{false};
    std::thread library([&] {
        char topic[] = "line/set";
        for (std::uint32_t number = 1; number <= 3'000; ++number) {
            MQTTClient_message message = MQTTClient_message_initializer;
            message.payload = &number;
            message.payloadlen = sizeof number;
            subscriber.MessageArrived(topic, 8, &message);
        }
        isDone = true;
    });
    while (!isDone || subscriber.m_BufferedMessages.count() > 0) {
        clearBit();
        tick();
    }
    library.join();
    const auto handedOver = FakeTagMemory::writesAt(DataAddress);
    EXPECT_EQ(handedOver.size(), received());
    EXPECT_GE(handedOver.size(), 15U);
    std::uint32_t last = 0;
    for (const Bytes& bytes : handedOver) {
        std::uint32_t number = 0;
        std::memcpy(&number, bytes.data(), sizeof number);
        ASSERT_GT(number, last);
        last = number;
    }
    EXPECT_EQ(record().m_QueueFull, 0);
}

// The clean-up thread throws messages away beside a main thread that hands them over.
TEST_F(ThrowingAway, besideHandOversFreesEachMessageOnce)
{
    std::atomic<bool> isDone{false};
    std::thread cleanUp([&] {
        while (!isDone) {
            subscriber.DestoryBufferedMessages();
            std::this_thread::yield();
        }
    });
    for (std::uint32_t number = 1; number <= 2'000; ++number) {
        arriveNumber(number);
        clearBit();
        tick();
    }
    isDone = true;
    cleanUp.join();
    EXPECT_LE(FakeTagMemory::writesAt(DataAddress).size(), 2'000U);
    EXPECT_LE(subscriber.m_BufferedMessages.count(), 1);
}

// Qt's debug output while it lives.
class DebugOutput
{
public:
    DebugOutput()
    {
        text().clear();
        m_before = qInstallMessageHandler([](QtMsgType /*type*/, const QMessageLogContext& /*context*/,
                                             const QString& line) { text() += line.toStdString() + "\n"; });
    }
    ~DebugOutput() { qInstallMessageHandler(m_before); }
    DebugOutput(const DebugOutput&) = delete;
    DebugOutput& operator=(const DebugOutput&) = delete;

    static std::string& text()
    {
        static std::string instance;
        return instance;
    }

private:
    QtMessageHandler m_before;
};

class MessageDump : public BufferedTest
{
protected:
    ~MessageDump() override { services->SetVerboseMode(false); }

    MQTTManagerServices* services = MQTTManagerServices::instance();
};

TEST_F(MessageDump, isMadeInVerboseModeOnly)
{
    const DebugOutput output;
    arriveNumber(1);
    EXPECT_EQ(output.text(), "");
    services->SetVerboseMode(true);
    services->PrintMQTTMessageDebug(nullptr);
    EXPECT_EQ(output.text(), "");
    arrive("line/set", "abcd");
    EXPECT_NE(output.text(), "");
}

TEST_F(MessageDump, tellsDateTimeAndEveryMember)
{
    services->SetVerboseMode(true);
    const auto message = MQTTMessage::copyOf("line/é", 7, "12\n\x1b[2J\"x\"", 10);
    const DebugOutput output;
    services->PrintMQTTMessageDebug(message.get());
    EXPECT_THAT(output.text(),
                testing::MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3} .*\n"));
    EXPECT_THAT(output.text(), HasSubstr(" MQTTClientManager ** MQTTMessage members are: Guid=" +
                                         message->Guid.toStdString() + ", topicName=\"line/é\", topicLen=7, Payload="));
    EXPECT_THAT(output.text(), HasSubstr(R"(Payload="12\n\u001B[2J\"x\"", PayloadLen=10)"));
}

TEST_F(MessageDump, isMadeAtTheArrivalAndAtTheHandOver)
{
    services->SetVerboseMode(true);
    const DebugOutput output;
    arriveNumber(1);
    const std::string atArrival = output.text();
    EXPECT_THAT(atArrival, HasSubstr("Guid="));
    handOver();
    const auto guidIn = [](const std::string& text) { return text.substr(text.find("Guid="), 41); };
    EXPECT_EQ(guidIn(output.text().substr(atArrival.size())), guidIn(atArrival));
}

TEST_F(MessageDump, endsBinaryDataAtItsZeroAndLongTextAtItsLimit)
{
    services->SetVerboseMode(true);
    const DebugOutput output;
    arrive("line/set", std::string("ab\0cd", 5));
    EXPECT_THAT(output.text(), HasSubstr(R"(Payload="ab", PayloadLen=5)"));
    arrive("line/set", std::string(1'000'000, 'x'));
    EXPECT_THAT(output.text(), HasSubstr("Payload=\"" + std::string(4096, 'x') + "\", PayloadLen=1000000"));
}

} // namespace
