#include "unittest.h"

#include <atomic>
#include <QElapsedTimer>
#include <thread>

namespace {

using namespace std::chrono_literals;

// How a broker waits for the acknowledgement of one message before it hands over the next.
class PublishingGate : public BrokerTest
{
protected:
    PublishingGate() { connectBroker(); }

    int publish(int qos) { return broker.Publish("t", "payload", 7, qos, false, m_token); }
    static std::size_t publishes() { return FakeMqttClient::state().publishes.size(); }

    // From now on the library acknowledges each message before the call returns.
    static void acknowledgeAtOnce()
    {
        FakeMqttClient::state().duringPublish = [](MQTTClient handle, int token) {
            if (token != 0)
                FakeMqttClient::deliver(handle, token);
        };
    }

    // Publishes, and lets the message before be acknowledged a little later: how many were published until then.
    std::size_t publishedAheadOfAcknowledgement(int qos)
    {
        std::size_t published = 0;
        std::thread library([&] {
            std::this_thread::sleep_for(50ms);
            published = publishes();
            FakeMqttClient::deliver(broker.m_MQTTClient, 1);
        });
        EXPECT_EQ(publish(qos), 0);
        library.join();
        return published;
    }

    MQTTClient_deliveryToken m_token = 0;
};

TEST_F(PublishingGate, aQualityOfServiceOutOfRangeIsRefusedWithoutACall)
{
    for (const int qos : {-1, 3, 4, 7})
        EXPECT_EQ(publish(qos), MQTTCLIENT_BAD_QOS);
    EXPECT_EQ(publishes(), 0U);
}

TEST_F(PublishingGate, withoutAClientNothingIsPublished)
{
    broker.DestroyMQTTClient();
    EXPECT_EQ(publish(0), PSC_ERROR_NOT_PUBLISHED);
    EXPECT_EQ(publishes(), 0U);
}

TEST_F(PublishingGate, messagesWithoutAcknowledgementNeverWait)
{
    for (int i = 0; i < 10; ++i)
        EXPECT_EQ(publish(0), 0);
    EXPECT_EQ(publishes(), 10U);
    EXPECT_EQ(m_token, 0);
}

TEST_F(PublishingGate, anAcknowledgementThatComesBeforeTheCallReturnsOpensTheGate)
{
    acknowledgeAtOnce();
    QElapsedTimer timer;
    timer.start();
    for (int i = 0; i < 100; ++i)
        EXPECT_EQ(publish(1), 0);
    EXPECT_EQ(publishes(), 100U);
    EXPECT_LT(timer.elapsed(), 5000);
}

TEST_F(PublishingGate, theNextMessageWaitsForTheAcknowledgement)
{
    EXPECT_EQ(publish(1), 0);
    EXPECT_EQ(publishedAheadOfAcknowledgement(0), 1U); // one without acknowledgement waits as well
    EXPECT_EQ(publishes(), 2U);
}

TEST_F(PublishingGate, aFailedMessageAwaitsNothing)
{
    FakeMqttClient::state().publishResult = -1;
    EXPECT_EQ(publish(1), -1);
    FakeMqttClient::state().publishResult = 0;
    EXPECT_EQ(publish(1), 0);
    EXPECT_EQ(publishes(), 2U);
}

TEST_F(PublishingGate, aLossEndsTheWait)
{
    EXPECT_EQ(publish(1), 0);
    std::thread library([&] {
        std::this_thread::sleep_for(50ms);
        FakeMqttClient::loseConnection(broker.m_MQTTClient);
    });
    EXPECT_EQ(publish(1), 0); // the library decides what to answer
    library.join();
    EXPECT_EQ(publishes(), 2U);
}

TEST_F(PublishingGate, aNewConnectionWithACleanSessionBeginsWithNothingInFlight)
{
    EXPECT_EQ(publish(1), 0);
    FakeMqttClient::loseConnection(broker.m_MQTTClient);
    EXPECT_EQ(broker.Connect(), CB_OK);
    QElapsedTimer timer;
    timer.start();
    EXPECT_EQ(publish(1), 0);
    EXPECT_LT(timer.elapsed(), 1000);
}

TEST_F(PublishingGate, aKeptSessionStillAwaitsWhatTheLibrarySendsAgain)
{
    broker.CleanSessionFlag = false;
    EXPECT_EQ(publish(1), 0);
    FakeMqttClient::loseConnection(broker.m_MQTTClient);
    FakeMqttClient::state().pendingTokens = {1};
    EXPECT_EQ(broker.Connect(), CB_OK);
    EXPECT_EQ(publishedAheadOfAcknowledgement(1), 1U);
}

TEST_F(PublishingGate, messagesOfAnEarlierLifeAreAwaited)
{
    broker.CleanSessionFlag = false;
    FakeMqttClient::loseConnection(broker.m_MQTTClient);
    FakeMqttClient::state().pendingTokens = {77, 78}; // restored from the library's files
    EXPECT_EQ(broker.Connect(), CB_OK);
    std::size_t publishedBefore = 0;
    std::thread library([&] {
        std::this_thread::sleep_for(50ms);
        FakeMqttClient::deliver(broker.m_MQTTClient, 77);
        std::this_thread::sleep_for(50ms);
        publishedBefore = publishes();
        FakeMqttClient::deliver(broker.m_MQTTClient, 78);
    });
    EXPECT_EQ(publish(0), 0);
    library.join();
    EXPECT_EQ(publishedBefore, 0U);
}

TEST_F(PublishingGate, publicationsOfTwoThreadsWaitForOneAnother)
{
    std::atomic<int> inside{0};
    std::atomic<int> mostInside{0};
    FakeMqttClient::state().duringPublish = [&](MQTTClient handle, int token) {
        mostInside = std::max(mostInside.load(), ++inside);
        std::this_thread::sleep_for(5ms);
        --inside;
        FakeMqttClient::deliver(handle, token);
    };
    const auto publishMany = [this] {
        MQTTClient_deliveryToken token = 0;
        for (int i = 0; i < 10; ++i)
            EXPECT_EQ(broker.Publish("t", "payload", 7, 1, false, token), 0);
    };
    std::thread other(publishMany);
    publishMany();
    other.join();
    EXPECT_EQ(publishes(), 20U);
    EXPECT_EQ(mostInside, 1);
}

TEST_F(PublishingGate, theEndOfTheProcessEndsTheWait)
{
    EXPECT_EQ(publish(1), 0);
    const ProcessEndingUndone ending;
    EXPECT_EQ(publish(1), MQTTCLIENT_MAX_MESSAGES_INFLIGHT);
}

TEST_F(PublishingGate, deliveriesOfAnEarlierLifeOpenNothingInAdvance)
{
    FakeMqttClient::deliver(broker.m_MQTTClient, 77);
    FakeMqttClient::deliver(broker.m_MQTTClient, 78);
    EXPECT_EQ(publish(1), 0);
    EXPECT_EQ(publishedAheadOfAcknowledgement(1), 1U);
}

TEST_F(PublishingGate, aBrokerThatNeverAcknowledgesIsGivenUpAfterTwentySeconds)
{
    EXPECT_EQ(publish(1), 0);
    QElapsedTimer timer;
    timer.start();
    EXPECT_EQ(publish(1), MQTTCLIENT_MAX_MESSAGES_INFLIGHT);
    EXPECT_GE(timer.elapsed(), 19'500);
    EXPECT_LT(timer.elapsed(), 25'000);

    timer.start();
    EXPECT_EQ(publish(0), MQTTCLIENT_MAX_MESSAGES_INFLIGHT); // from now on at once
    EXPECT_LT(timer.elapsed(), 1000);
    EXPECT_EQ(publishes(), 1U);

    FakeMqttClient::deliver(broker.m_MQTTClient, 1);
    acknowledgeAtOnce();
    EXPECT_EQ(publish(1), 0); // until it acknowledges again
    EXPECT_EQ(publishes(), 2U);
}

// A publication that stays inside the library until its connection is gone.
class StuckPublication : public PublishingGate
{
protected:
    StuckPublication()
    {
        FakeMqttClient::state().duringDisconnect = [this](MQTTClient) { isFree = true; };
        FakeMqttClient::state().duringPublish = [this](MQTTClient, int) {
            isInside = true;
            while (!isFree)
                std::this_thread::sleep_for(1ms);
        };
        publishing = std::thread([this] { publish(0); });
        while (!isInside)
            std::this_thread::sleep_for(1ms);
    }

    ~StuckPublication() override
    {
        isFree = true;
        if (publishing.joinable())
            publishing.join();
    }

    std::atomic<bool> isInside{false};
    std::atomic<bool> isFree{false};
    std::thread publishing;
};

TEST_F(StuckPublication, isFreedByGivingTheConnectionUpAsALostOne)
{
    const LogCapture log;
    std::this_thread::sleep_for(20ms);
    broker.endStalledPublication(20ms);
    publishing.join();
    EXPECT_THAT(FakeMqttClient::state().disconnectTimeouts, testing::ElementsAre(0));
    EXPECT_EQ(statusBlock(), (Bytes{0, 0, 0xF3, 0}));
    EXPECT_TRUE(log.contains("WARN broker 'plant' takes no more data: its connection is given up"));
    EXPECT_TRUE(log.contains("INFO ClientBroker 'plant' lost is connection"));
    awaitEndOfReconnecting(); // its thread logs
}

TEST_F(StuckPublication, isLeftAloneBeforeItsTime)
{
    broker.endStalledPublication();
    EXPECT_FALSE(isFree);
    EXPECT_TRUE(FakeMqttClient::state().disconnectTimeouts.empty());
}

TEST_F(StuckPublication, thatOnlyWaitsForTheLibrarysLockGetsOn)
{
    FakeMqttClient::state().duringIsConnected = [this] { isFree = true; };
    std::this_thread::sleep_for(20ms);
    broker.endStalledPublication(20ms);
    FakeMqttClient::state().duringIsConnected = nullptr;
    EXPECT_TRUE(FakeMqttClient::state().disconnectTimeouts.empty());
    EXPECT_EQ(broker.m_Connected, 1);
}

TEST_F(StuckPublication, whoseLossTheLibraryHasReportedIsNotLostTwice)
{
    FakeMqttClient::state().disconnectResults = {MQTTCLIENT_DISCONNECTED};
    const LogCapture log;
    std::this_thread::sleep_for(20ms);
    broker.endStalledPublication(20ms);
    EXPECT_FALSE(log.contains("INFO ClientBroker 'plant' lost is connection"));
}

TEST_F(PublishingGate, withoutAPublicationInsideTheLibraryNothingIsGivenUp)
{
    publish(0);
    broker.endStalledPublication(0ms);
    EXPECT_TRUE(FakeMqttClient::state().disconnectTimeouts.empty());
    EXPECT_EQ(broker.m_Connected, 1);
}

} // namespace
