#include "unittest.h"

#include "Services/mqttStatusLogManager.h"

#include <thread>

namespace {

using testing::ElementsAre;

constexpr char NobodysMessage[] = "DEBUG Accepted message does not belong to any topic";

// A caller that keeps what its broker tells it.
class RecordingCaller : public MQTTCallerBase
{
public:
    RecordingCaller(int type, bool subscribed, bool takes = true) : m_subscribed(subscribed), m_takes(takes)
    {
        m_CallerType = type;
    }

    bool IsSubscribed() override { return m_subscribed; }

    bool MessageArrived(char* topicName, int topicLen, MQTTClient_message* message) override
    {
        const std::string payload(static_cast<char*>(message->payload), static_cast<std::size_t>(message->payloadlen));
        m_heard.push_back(std::string(topicName) + " " + std::to_string(topicLen) + " " + payload);
        return m_takes;
    }

    void DeliveryComplete(int token) override { m_heard.push_back("delivered " + std::to_string(token)); }

    std::vector<std::string> m_heard;

private:
    bool m_subscribed;
    bool m_takes;
};

class Callbacks : public BrokerTest
{
protected:
    Callbacks()
    {
        connectBroker();
        MQTTStatusLogManager::instance()->UpdateMQTTStructsAddress(1000, 2000);
        MQTTStatusLogManager::instance()->m_MQTTStatisticsStruct = {};
    }

    void addCallers(const std::vector<RecordingCaller*>& callers)
    {
        for (RecordingCaller* caller : callers)
            broker.m_Callers.append(caller);
    }

    int arrive(const std::string& topic, const std::string& payload)
    {
        return FakeMqttClient::arrive(broker.m_MQTTClient, topic, payload);
    }

    static Bytes acknowledged() { return FakeTagMemory::bytesAt(2004, 4); }
};

TEST_F(Callbacks, aMessageReachesEverySubscribedSubscriberAndIsReleasedOnce)
{
    RecordingCaller first(CT_SUBSCRIBER, true);
    RecordingCaller second(CT_SUBSCRIBER, true);
    addCallers({&first, &second});
    EXPECT_EQ(arrive("a/b", "data"), 1);
    EXPECT_THAT(first.m_heard, ElementsAre("a/b 3 data"));
    EXPECT_THAT(second.m_heard, ElementsAre("a/b 3 data"));
    EXPECT_EQ(FakeMqttClient::state().freedMessages, 1);
    EXPECT_EQ(FakeMqttClient::state().freedTopics, 1);
}

TEST_F(Callbacks, publishersAndUnsubscribedSubscribersAreNotOfferedMessages)
{
    RecordingCaller unsubscribed(CT_SUBSCRIBER, false);
    RecordingCaller publisher(CT_PUBLISHER, true);
    addCallers({&unsubscribed, &publisher});
    const LogCapture log;
    EXPECT_EQ(arrive("a", "x"), 1);
    EXPECT_TRUE(unsubscribed.m_heard.empty());
    EXPECT_TRUE(publisher.m_heard.empty());
    EXPECT_TRUE(log.contains(NobodysMessage));
    EXPECT_EQ(FakeMqttClient::state().freedMessages, 1);
}

TEST_F(Callbacks, aMessageThatNobodyTakesIsLoggedAndConsumed)
{
    RecordingCaller declines(CT_SUBSCRIBER, true, false);
    addCallers({&declines});
    const LogCapture log;
    EXPECT_EQ(arrive("a", "x"), 1);
    EXPECT_EQ(log.count(NobodysMessage), 1);
}

TEST_F(Callbacks, oneTakerIsEnough)
{
    RecordingCaller takes(CT_SUBSCRIBER, true, true);
    RecordingCaller declines(CT_SUBSCRIBER, true, false);
    addCallers({&takes, &declines});
    const LogCapture log;
    arrive("a", "x");
    EXPECT_EQ(declines.m_heard.size(), 1U);
    EXPECT_FALSE(log.contains(NobodysMessage));
}

TEST_F(Callbacks, aTopicWithAZeroByteEndsThere)
{
    RecordingCaller subscriber(CT_SUBSCRIBER, true);
    addCallers({&subscriber});
    arrive(std::string("ab\0cd", 5), "x");
    EXPECT_THAT(subscriber.m_heard, ElementsAre("ab 2 x"));
}

TEST_F(Callbacks, aDeliveryIsOfferedToEveryPublisherAndCountedOnce)
{
    RecordingCaller first(CT_PUBLISHER, false);
    RecordingCaller subscriber(CT_SUBSCRIBER, true);
    RecordingCaller second(CT_PUBLISHER, false);
    addCallers({&first, &subscriber, &second});
    FakeMqttClient::deliver(broker.m_MQTTClient, 9);
    EXPECT_THAT(first.m_heard, ElementsAre("delivered 9"));
    EXPECT_THAT(second.m_heard, ElementsAre("delivered 9"));
    EXPECT_TRUE(subscriber.m_heard.empty());
    EXPECT_EQ(acknowledged(), (Bytes{1, 0, 0, 0}));
}

TEST_F(Callbacks, aDeliveryWithoutAnyPublisherStillCounts)
{
    FakeMqttClient::deliver(broker.m_MQTTClient, 9);
    FakeMqttClient::deliver(broker.m_MQTTClient, 9);
    EXPECT_EQ(acknowledged(), (Bytes{2, 0, 0, 0}));
}

TEST_F(Callbacks, aMessageIsReleasedAfterTheLastSubscriber)
{
    class Looker : public RecordingCaller
    {
    public:
        using RecordingCaller::RecordingCaller;
        bool MessageArrived(char* topicName, int topicLen, MQTTClient_message* message) override
        {
            EXPECT_EQ(FakeMqttClient::state().freedMessages, 0);
            EXPECT_EQ(FakeMqttClient::state().freedTopics, 0);
            return RecordingCaller::MessageArrived(topicName, topicLen, message);
        }
    };
    Looker first(CT_SUBSCRIBER, true);
    Looker second(CT_SUBSCRIBER, true);
    addCallers({&first, &second});
    arrive("a", "x");
    EXPECT_EQ(second.m_heard.size(), 1U);
    EXPECT_EQ(FakeMqttClient::state().freedMessages, 1);
}

// Without a session to keep, the library drops its messages at the end of an attempt.
TEST_F(Callbacks, aMessageDuringAnAttemptIsLeftToTheLibrary)
{
    RecordingCaller subscriber(CT_SUBSCRIBER, true);
    addCallers({&subscriber});
    FakeMqttClient::setConnected(broker.m_MQTTClient, false);
    int consumed = -1;
    FakeMqttClient::state().duringConnect = [&] { consumed = arrive("a", "x"); };
    EXPECT_EQ(broker.Connect(), CB_OK);
    EXPECT_EQ(consumed, 0);
    EXPECT_TRUE(subscriber.m_heard.empty());
    EXPECT_EQ(FakeMqttClient::state().freedMessages, 0);
}

TEST_F(Callbacks, aMessageOfAKeptSessionIsTakenDuringAnAttempt)
{
    broker.CleanSessionFlag = false;
    RecordingCaller subscriber(CT_SUBSCRIBER, true);
    addCallers({&subscriber});
    FakeMqttClient::setConnected(broker.m_MQTTClient, false);
    int consumed = -1;
    FakeMqttClient::state().duringConnect = [&] { consumed = arrive("a", "x"); };
    EXPECT_EQ(broker.Connect(), CB_OK);
    EXPECT_EQ(consumed, 1);
    EXPECT_EQ(subscriber.m_heard.size(), 1U);
}

TEST_F(Callbacks, aPublicationWaitsForTheMessageThatIsBeingTaken)
{
    class Slow : public RecordingCaller
    {
    public:
        using RecordingCaller::RecordingCaller;
        bool MessageArrived(char*, int, MQTTClient_message*) override
        {
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
            publishedMeanwhile = FakeMqttClient::state().publishes.size();
            return true;
        }
        std::size_t publishedMeanwhile = 99;
    };
    Slow slow(CT_SUBSCRIBER, true);
    addCallers({&slow});
    std::thread library([this] { arrive("a", "x"); });
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    MQTTClient_deliveryToken token = 0;
    EXPECT_EQ(broker.Publish("t", "p", 1, 0, false, token), 0);
    library.join();
    EXPECT_EQ(slow.publishedMeanwhile, 0U);
}

TEST_F(Callbacks, deliveriesAndLossesLeaveAtOnceWhenTheProcessEnds)
{
    const ProcessEndingUndone ending;
    FakeMqttClient::deliver(broker.m_MQTTClient, 1);
    FakeMqttClient::loseConnection(broker.m_MQTTClient);
    EXPECT_TRUE(FakeTagMemory::state().writes.empty());
}

TEST_F(Callbacks, aLossThatComesWhileTheBlockIsWrittenStandsInTheEnd)
{
    // The loss comes between composing the block and its arrival in tag memory.
    FakeTagMemory::state().duringWrite = [this] {
        FakeTagMemory::state().duringWrite = nullptr;
        broker.m_Connected = 0;
        broker.m_ReturnCode = CB_CONNECTION_LOST;
    };
    broker.m_ReturnCode = 0;
    broker.UpdateClientBrokerStruct();
    EXPECT_EQ(FakeTagMemory::writesAt(BlockAddress), (std::vector<Bytes>{{1, 0, 0, 0}, {0, 0, 0xF3, 0}}));
}

TEST_F(Callbacks, aLossShowsInTheStatusBlock)
{
    broker.m_SessionPresent = 1;
    const LogCapture log;
    FakeMqttClient::loseConnection(broker.m_MQTTClient);
    EXPECT_EQ(FakeTagMemory::writesAt(BlockAddress), (std::vector<Bytes>{{0, 0, 0xF3, 0}}));
    EXPECT_TRUE(log.contains("INFO ClientBroker 'plant' lost is connection"));
}

TEST_F(Callbacks, aDeliveryCountsAfterThePublishersHaveHeardOfIt)
{
    class Looker : public RecordingCaller
    {
    public:
        using RecordingCaller::RecordingCaller;
        void DeliveryComplete(int token) override
        {
            EXPECT_EQ(FakeTagMemory::bytesAt(2004, 4), (Bytes{0, 0, 0, 0}));
            RecordingCaller::DeliveryComplete(token);
        }
    };
    Looker publisher(CT_PUBLISHER, false);
    addCallers({&publisher});
    FakeMqttClient::deliver(broker.m_MQTTClient, 9);
    EXPECT_EQ(publisher.m_heard.size(), 1U);
    EXPECT_EQ(acknowledged(), (Bytes{1, 0, 0, 0}));
}

} // namespace
