#include "bufferedtest.h"

#include <atomic>
#include <thread>

namespace {

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

} // namespace
