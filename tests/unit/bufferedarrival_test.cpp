#include "bufferedtest.h"

#include <QDateTime>
#include <sys/resource.h>
#include <unistd.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

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

} // namespace
