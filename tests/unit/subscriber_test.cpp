#include "Entities/subscriptionrequest.h"
#include "subscribertest.h"

namespace {

using testing::ElementsAre;

using Subscribing = SubscriberTest;

TEST_F(Subscribing, asksTheBrokerAndShowsIt)
{
    subscriber.m_Topic = QString::fromUtf8("line/größe");
    subscriber.m_QoS = 2;
    const LogCapture log;
    EXPECT_EQ(subscriber.Subscribe(), SSC_OK);
    ASSERT_EQ(FakeMqttClient::state().subscribes.size(), 1U);
    const auto& call = FakeMqttClient::state().subscribes.at(0);
    EXPECT_EQ(call.handle, broker.m_MQTTClient.load());
    EXPECT_EQ(call.topic, "line/größe");
    EXPECT_EQ(call.qos, 2);
    EXPECT_TRUE(subscriber.IsSubscribed());
    ASSERT_EQ(FakeTagMemory::writesAt(RecordAddress).size(), 1U);
    EXPECT_EQ(record().m_Subscribed, 1);
    EXPECT_EQ(record().m_SubscriptionStatus, 0);
    EXPECT_THAT(log.lines(),
                ElementsAre("DEBUG SUBSCRIBE by subscriber setpoint ended with status (0) to topic 'line/größe'"));
}

TEST_F(Subscribing, withoutAConnectionFailsAtOnce)
{
    FakeMqttClient::setConnected(broker.m_MQTTClient, false);
    EXPECT_EQ(subscriber.Subscribe(), SSC_ERROR_NOT_CONNECTED);
    EXPECT_TRUE(FakeMqttClient::state().subscribes.empty());
    EXPECT_EQ(record().m_Subscribed, 0);
    EXPECT_EQ(record().m_SubscriptionStatus, -11);
}

TEST_F(Subscribing, withoutABrokerCountsAsNotConnected)
{
    subscriber.m_cBroker = nullptr;
    EXPECT_EQ(subscriber.Subscribe(), SSC_ERROR_NOT_CONNECTED);
    EXPECT_EQ(subscriber.UnSubscribe(), SSC_ERROR_NOT_CONNECTED);
    EXPECT_EQ(record().m_SubscriptionStatus, -11);
}

TEST_F(Subscribing, twiceIsRefusedAndStaysSubscribed)
{
    subscribe();
    EXPECT_EQ(subscriber.Subscribe(), SSC_ERROR_ALREADY_SUBSCRIBED);
    EXPECT_TRUE(FakeMqttClient::state().calls.empty());
    EXPECT_EQ(record().m_Subscribed, 1);
    EXPECT_EQ(FakeTagMemory::bytesAt(RecordAddress + 1, 1), Bytes{242});
}

TEST_F(Subscribing, passesTheLibrarysCodeOn)
{
    for (const auto& [code, byte] : {std::pair{-9, 247}, std::pair{-3, 253}, std::pair{128, 128}}) {
        FakeMqttClient::state().subscribeResult = code;
        EXPECT_EQ(static_cast<int>(subscriber.Subscribe()), code);
        EXPECT_FALSE(subscriber.IsSubscribed());
        EXPECT_EQ(FakeTagMemory::bytesAt(RecordAddress, 2), (Bytes{0, static_cast<std::uint8_t>(byte)}));
    }
}

TEST_F(Subscribing, withAHandleThatIsGoneNeverReachesTheLibrary)
{
    broker.DestroyMQTTClient();
    SubscriptionRequest request(broker);
    EXPECT_EQ(request.subscribe(subscriber, "t", 0), SSC_ERROR_NOT_CONNECTED);
    EXPECT_EQ(request.unsubscribe("t"), SSC_ERROR_NOT_CONNECTED);
    EXPECT_TRUE(FakeMqttClient::state().subscribes.empty());
}

TEST_F(Subscribing, aLossThatComesWithTheAnswerStandsInTheEnd)
{
    FakeMqttClient::state().duringSubscribe = [](MQTTClient handle) { FakeMqttClient::loseConnection(handle); };
    EXPECT_EQ(subscriber.Subscribe(), SSC_OK);
    EXPECT_FALSE(subscriber.IsSubscribed());
    EXPECT_EQ(FakeTagMemory::bytesAt(RecordAddress, 2), (Bytes{0, 241}));
}

using Unsubscribing = SubscriberTest;

TEST_F(Unsubscribing, asksTheBrokerAndShowsIt)
{
    subscribe();
    const LogCapture log;
    EXPECT_EQ(subscriber.UnSubscribe(), SSC_OK);
    ASSERT_EQ(FakeMqttClient::state().subscribes.size(), 2U);
    EXPECT_EQ(FakeMqttClient::state().subscribes.at(1).topic, "line/set");
    EXPECT_EQ(FakeMqttClient::state().subscribes.at(1).qos, -1);
    EXPECT_FALSE(subscriber.IsSubscribed());
    EXPECT_EQ(FakeTagMemory::bytesAt(RecordAddress, 2), (Bytes{0, 0}));
    EXPECT_THAT(log.lines(),
                ElementsAre("DEBUG UNSUBSCRIBE by subscriber 'setpoint' ended with status (0) from topic 'line/set'"));
}

TEST_F(Unsubscribing, whatWasNeverSubscribedIsRefused)
{
    EXPECT_EQ(subscriber.UnSubscribe(), SSC_ERROR_NOT_SUBSCRIBED);
    EXPECT_TRUE(FakeMqttClient::state().calls.empty());
    EXPECT_EQ(FakeTagMemory::bytesAt(RecordAddress, 2), (Bytes{0, 243}));
}

TEST_F(Unsubscribing, withoutAConnectionStaysSubscribed)
{
    subscribe();
    FakeMqttClient::setConnected(broker.m_MQTTClient, false);
    EXPECT_EQ(subscriber.UnSubscribe(), SSC_ERROR_NOT_CONNECTED);
    EXPECT_EQ(FakeTagMemory::bytesAt(RecordAddress, 2), (Bytes{1, 245}));
}

TEST_F(Unsubscribing, thatFailsStaysSubscribed)
{
    subscribe();
    FakeMqttClient::state().subscribeResult = -1;
    EXPECT_EQ(static_cast<int>(subscriber.UnSubscribe()), -1);
    EXPECT_EQ(FakeTagMemory::bytesAt(RecordAddress, 2), (Bytes{1, 255}));
}

using SubscriberLife = SubscriberTest;

TEST_F(SubscriberLife, aLossEndsTheSubscription)
{
    subscribe();
    subscriber.ConnectionLost();
    EXPECT_EQ(FakeTagMemory::writesAt(RecordAddress).size(), 1U);
    EXPECT_EQ(FakeTagMemory::bytesAt(RecordAddress, 2), (Bytes{0, 241}));
}

TEST_F(SubscriberLife, aLossLeavesAloneWhatIsNotSubscribed)
{
    subscriber.m_Status.m_SubscriptionStatus = -9;
    subscriber.ConnectionLost();
    EXPECT_TRUE(FakeTagMemory::state().writes.empty());
    EXPECT_EQ(subscriber.m_Status.m_SubscriptionStatus, -9);
}

TEST_F(SubscriberLife, aDisconnectKeepsTheLastResult)
{
    subscribe();
    EXPECT_EQ(subscriber.Subscribe(), SSC_ERROR_ALREADY_SUBSCRIBED);
    subscriber.Disconnect();
    EXPECT_EQ(FakeTagMemory::bytesAt(RecordAddress, 2), (Bytes{0, 242}));
    FakeTagMemory::state().writes.clear();
    subscriber.Disconnect();
    EXPECT_TRUE(FakeTagMemory::state().writes.empty());
}

TEST_F(SubscriberLife, aKeptSessionBringsTheSubscriptionBackWithoutARequest)
{
    subscriber.m_Status.m_SubscriptionStatus = -15;
    const LogCapture log;
    subscriber.PresentSessionEstablished();
    EXPECT_EQ(FakeTagMemory::bytesAt(RecordAddress, 2), (Bytes{1, 0}));
    EXPECT_TRUE(FakeMqttClient::state().calls.empty());
    EXPECT_THAT(log.lines(), ElementsAre("DEBUG Subscriber 'setpoint' session established"));
}

TEST_F(SubscriberLife, anyOtherValueThanOneIsNotSubscribed)
{
    for (const int value : {0, 2, 255}) {
        subscriber.m_Status.m_Subscribed = static_cast<std::uint8_t>(value);
        EXPECT_FALSE(subscriber.IsSubscribed());
    }
}

// Three subscribers, one of them subscribed.
TEST_F(SubscriberLife, theBrokerTellsAllSubscribersOfALossAheadOfItsOwnBlock)
{
    subscribe();
    Subscriber second = subscriber;
    second.m_SubAddr = 6000;
    second.m_Status = {};
    Subscriber third = second;
    third.m_SubAddr = 7000;
    broker.m_Callers.append(&second);
    broker.m_Callers.append(&third);
    FakeMqttClient::loseConnection(broker.m_MQTTClient);
    // The subscribed one writes for itself first; the broker lets each write once more. The counter rises for all.
    EXPECT_THAT(writeOrder(), ElementsAre(RecordAddress, RecordAddress, 6000, 7000, BlockAddress, StatisticsAddress,
                                          StatisticsAddress, StatisticsAddress));
    EXPECT_EQ(FakeTagMemory::bytesAt(StatisticsAddress + 12, 4), (Bytes{3, 0, 0, 0}));
    EXPECT_EQ(FakeTagMemory::bytesAt(RecordAddress, 2), (Bytes{0, 241}));
    EXPECT_EQ(FakeTagMemory::bytesAt(6000, 2), (Bytes{0, 0}));
}

using SubscriberRecords = SubscriberTest;

TEST_F(SubscriberRecords, clearingSparesTheQueue)
{
    auto& status = subscriber.m_Status;
    status.m_Subscribed = 1;
    status.m_SubscriptionStatus = -1;
    status.m_ReceivedBit = 1;
    status.m_QueueFull = 1;
    status.m_BufferedDataStatus = 2;
    status.m_LastMessageUTC = 77;
    status.m_LastMessageTopic.store("a/b");
    subscriber.ClearCfgStruct();
    Bytes expected(524, 0);
    expected[3] = 1;
    expected[520] = 2;
    EXPECT_EQ(FakeTagMemory::writesAt(RecordAddress), std::vector<Bytes>{expected});
}

TEST_F(SubscriberRecords, holdEachFieldInItsPlace)
{
    auto& status = subscriber.m_Status;
    status.m_Subscribed = 1;
    status.m_SubscriptionStatus = -12;
    status.m_ReceivedBit = 3;
    status.m_QueueFull = 4;
    status.m_BufferedDataStatus = 5;
    status.m_LastMessageUTC = 0x01020304;
    status.m_LastMessageTopic.store(QString::fromUtf8("aé"));
    EXPECT_TRUE(subscriber.UpdateCfgStruct());
    Bytes expected(524, 0);
    const Bytes head{1, 244, 3, 4, 'a', 0, 0xE9, 0};
    std::copy(head.begin(), head.end(), expected.begin());
    const Bytes tail{4, 3, 2, 1, 5};
    std::copy(tail.begin(), tail.end(), expected.begin() + 516);
    EXPECT_EQ(FakeTagMemory::writesAt(RecordAddress), std::vector<Bytes>{expected});
}

TEST_F(SubscriberRecords, areWrittenAgainWhenTheyChangeMeanwhile)
{
    FakeTagMemory::state().duringWrite = [this] {
        FakeTagMemory::state().duringWrite = nullptr;
        subscriber.m_Status.m_ReceivedBit = 1; // by an arrival on the library's thread
    };
    subscriber.Subscribe();
    const auto writes = FakeTagMemory::writesAt(RecordAddress);
    ASSERT_EQ(writes.size(), 2U);
    EXPECT_EQ(recordOf(writes[0]).m_ReceivedBit, 0);
    EXPECT_EQ(recordOf(writes[1]).m_ReceivedBit, 1);
}

TEST_F(SubscriberRecords, thatTagMemoryRefusesAreReported)
{
    FakeTagMemory::state().writeResults = {5};
    EXPECT_FALSE(subscriber.UpdateCfgStruct());
    FakeTagMemory::state().writeResults = {5};
    EXPECT_FALSE(subscriber.UpdateSubscriberConfigurationStruct(9000));
}

TEST_F(SubscriberRecords, tellTheConfiguration)
{
    subscriber.m_Topic = "a/#";
    subscriber.m_QoS = 258;
    subscriber.m_PayloadFormat = 1;
    subscriber.m_SubscribeAtBootTime = true;
    subscriber.m_BufferedFlag = true;
    const LogCapture log;
    EXPECT_TRUE(subscriber.UpdateSubscriberConfigurationStruct(9000));
    Bytes expected(516, 0);
    const Bytes topic{'a', 0, '/', 0, '#', 0};
    std::copy(topic.begin(), topic.end(), expected.begin());
    const Bytes tail{2, 1, 1, 1};
    std::copy(tail.begin(), tail.end(), expected.begin() + 512);
    EXPECT_EQ(FakeTagMemory::writesAt(9000), std::vector<Bytes>{expected});
    EXPECT_THAT(log.lines(), ElementsAre("DEBUG Wrote stats cfg to address (9000) sizeof (516)"));
}

TEST_F(SubscriberRecords, cutATopicThatIsTooLongAndSaySo)
{
    subscriber.m_Topic = QString(256, 'x');
    const LogCapture log;
    EXPECT_TRUE(subscriber.UpdateSubscriberConfigurationStruct(9000));
    EXPECT_EQ(FakeTagMemory::bytesAt(9000 + 508, 4), (Bytes{'x', 0, 0, 0}));
    EXPECT_TRUE(
        log.contains("WARN subscription 'setpoint': its topic is cut to 255 characters in its configuration record"));
}

} // namespace
