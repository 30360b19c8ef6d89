#include "bufferedtest.h"

#include <atomic>
#include <optional>
#include <thread>

namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;

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

} // namespace
