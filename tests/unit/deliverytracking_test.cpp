#include "Services/mqttStatusLogManager.h"
#include "unittest.h"

namespace {

class DeliveryTracking : public BrokerTest
{
protected:
    DeliveryTracking()
    {
        connectBroker();
        for (Publisher* publisher : {&first, &second}) {
            publisher->m_cBroker = &broker;
            publisher->m_CallerType = CT_PUBLISHER;
            publisher->m_PayloadFormat = PF_BUFFER;
            publisher->m_DataSize = 1;
            publisher->m_QoS = 1;
            broker.m_Callers.append(publisher);
        }
        first.m_Name = "first";
        first.m_ReceiveAddress = 901;
        second.m_ReceiveAddress = 902;
    }

    void deliver(int token) { FakeMqttClient::deliver(broker.m_MQTTClient, token); }

    Publisher first;
    Publisher second;
};

TEST_F(DeliveryTracking, setsTheByteOfThePublicationThatTheTokenBelongsTo)
{
    ASSERT_EQ(first.Publish(), PSC_OK);
    deliver(1);
    EXPECT_EQ(FakeTagMemory::bytesAt(901, 2), (Bytes{1, 0}));
    ASSERT_EQ(second.Publish(), PSC_OK);
    deliver(2);
    EXPECT_EQ(FakeTagMemory::bytesAt(901, 2), (Bytes{1, 1}));
    EXPECT_EQ(FakeTagMemory::writesAt(901).size(), 1U);
}

TEST_F(DeliveryTracking, writesTheByteEachTimeAlsoWhenItIsSet)
{
    for (int token = 1; token <= 3; ++token) {
        ASSERT_EQ(first.Publish(), PSC_OK);
        deliver(token);
    }
    EXPECT_EQ(FakeTagMemory::writesAt(901), (std::vector<Bytes>{{1}, {1}, {1}}));
}

TEST_F(DeliveryTracking, aSecondConfirmationOfATokenDoesNothing)
{
    ASSERT_EQ(first.Publish(), PSC_OK);
    deliver(1);
    const LogCapture log;
    deliver(1);
    EXPECT_EQ(FakeTagMemory::writesAt(901).size(), 1U);
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(DeliveryTracking, logsTheDelivery)
{
    ASSERT_EQ(first.Publish(), PSC_OK);
    const LogCapture log;
    deliver(1);
    EXPECT_THAT(log.lines(), testing::ElementsAre("DEBUG Delivery complete for 'first', token is (1)"));
}

TEST_F(DeliveryTracking, removesOneOfTwoEqualTokens)
{
    first.m_Tokens = {7, 7, 8};
    deliver(7);
    EXPECT_EQ(first.m_Tokens, (QList<int>{7, 8}));
}

TEST_F(DeliveryTracking, withoutAcknowledgementNothingIsTracked)
{
    first.m_QoS = 0;
    ASSERT_EQ(first.Publish(), PSC_OK);
    first.m_NewTokens.takeInto(first.m_Tokens);
    EXPECT_TRUE(first.m_Tokens.isEmpty());
}

TEST_F(DeliveryTracking, withoutAnAddressNothingIsTracked)
{
    first.m_ReceiveAddress = 0xFFFFFFFF;
    ASSERT_EQ(first.Publish(), PSC_OK);
    first.m_NewTokens.takeInto(first.m_Tokens);
    EXPECT_TRUE(first.m_Tokens.isEmpty());
    first.m_Tokens = {1};
    deliver(1);
    EXPECT_EQ(first.m_Tokens, QList<int>{1});
}

TEST_F(DeliveryTracking, aFailedPublishTracksNothing)
{
    FakeMqttClient::state().publishResult = -1;
    EXPECT_EQ(first.Publish(), -1);
    first.m_NewTokens.takeInto(first.m_Tokens);
    EXPECT_TRUE(first.m_Tokens.isEmpty());
}

TEST_F(DeliveryTracking, aConfirmationAheadOfTheTokenIsIgnored)
{
    FakeMqttClient::state().duringPublish = [](MQTTClient handle, int token) {
        FakeMqttClient::deliver(handle, token);
    };
    ASSERT_EQ(first.Publish(), PSC_OK);
    EXPECT_TRUE(FakeTagMemory::writesAt(901).empty());
    first.m_NewTokens.takeInto(first.m_Tokens);
    EXPECT_TRUE(first.m_Tokens.isEmpty());
}

// After a new connection the library counts from 1 again: a token that was left over would acknowledge what belongs to
// another publication.
TEST_F(DeliveryTracking, earlyConfirmationsLeaveNothingThatALaterMessageCouldMeet)
{
    FakeMqttClient::state().duringPublish = [](MQTTClient handle, int token) {
        FakeMqttClient::deliver(handle, token);
    };
    ASSERT_EQ(first.Publish(), PSC_OK);
    FakeMqttClient::state().duringPublish = nullptr;
    deliver(1);
    EXPECT_TRUE(FakeTagMemory::writesAt(901).empty());
}

TEST_F(DeliveryTracking, theByteIsWrittenAheadOfTheCount)
{
    MQTTStatusLogManager::instance()->UpdateMQTTStructsAddress(1000, 2000);
    ASSERT_EQ(first.Publish(), PSC_OK);
    FakeTagMemory::state().writes.clear();
    deliver(1);
    const auto& writes = FakeTagMemory::state().writes;
    ASSERT_EQ(writes.size(), 2U);
    EXPECT_EQ(writes[0].address, 901U);
    EXPECT_EQ(writes[1].address, 2000U);
}

TEST_F(DeliveryTracking, aTokenOutlivesALoss)
{
    ASSERT_EQ(first.Publish(), PSC_OK);
    FakeMqttClient::loseConnection(broker.m_MQTTClient);
    deliver(1);
    EXPECT_EQ(FakeTagMemory::bytesAt(901, 1), Bytes{1});
}

} // namespace
