#include "publishertest.h"

#include "Records/publicationrecords.h"

namespace {

using testing::ElementsAre;

class Publishing : public PublisherTest
{
protected:
    Publishing()
    {
        publisher.m_PayloadFormat = PF_BUFFER;
        publisher.m_DataSize = 4;
    }
};

TEST_F(Publishing, sendsTheTagBytesAsTheyAre)
{
    FakeTagMemory::put(700, {1, 0, 0xFF, 4, 5});
    publisher.m_RetainFlag = true;
    EXPECT_EQ(publisher.Publish(), PSC_OK);
    const auto& call = FakeMqttClient::state().publishes.at(0);
    EXPECT_EQ(call.topic, "line/größe");
    EXPECT_EQ(call.payload, std::string("\x01\x00\xFF\x04", 4));
    EXPECT_EQ(call.qos, 0);
    EXPECT_EQ(call.retained, 1);
    EXPECT_TRUE(isBufferZero());
}

TEST_F(Publishing, readsTheTagFreshEachTime)
{
    FakeTagMemory::put(700, {1, 1, 1, 1});
    EXPECT_EQ(publisher.Publish(), PSC_OK);
    FakeTagMemory::put(700, {2, 2, 2, 2});
    EXPECT_EQ(publisher.Publish(), PSC_OK);
    EXPECT_EQ(FakeMqttClient::state().publishes.at(1).payload, "\x02\x02\x02\x02");
}

TEST_F(Publishing, logsWhatItDoes)
{
    FakeTagMemory::put(700, {'a', 'b', 0, 'c'});
    publisher.m_QoS = 1;
    const LogCapture log;
    EXPECT_EQ(publisher.Publish(), PSC_OK);
    EXPECT_THAT(log.lines(),
                ElementsAre("DEBUG m_cBroker->IsConnected() is '1', bypass is '0'", "DEBUG Size=4  Address=700",
                            "DEBUG Publication 'speed' Publish Size=4  Address=700  Data=ab  Token=1  "
                            "Topic=line/größe  SIZEOF_PUBLISH_BUFFER=5000",
                            "DEBUG END rtnValue=0"));
}

TEST_F(Publishing, aFullBufferIsLoggedWithoutReadingPastIt)
{
    publisher.m_DataSize = 5000;
    FakeTagMemory::put(700, Bytes(5001, 'x'));
    const LogCapture log;
    EXPECT_EQ(publisher.Publish(), PSC_OK);
    EXPECT_THAT(log.lines(), testing::Contains(testing::HasSubstr("Data=" + std::string(5000, 'x') + "  Token")));
}

TEST_F(Publishing, takesUpTo5000Bytes)
{
    publisher.m_DataSize = 5000;
    EXPECT_EQ(publisher.Publish(), PSC_OK);
    EXPECT_EQ(FakeMqttClient::state().publishes.at(0).payload.size(), 5000U);
}

TEST_F(Publishing, refuses5001BytesAndReadsNothing)
{
    publisher.m_DataSize = 5001;
    FakeTagMemory::state().reads.clear();
    EXPECT_EQ(publisher.Publish(), PSC_ERROR_DATA_BIG_THAN_BUFF);
    EXPECT_TRUE(FakeTagMemory::state().reads.empty());
    EXPECT_TRUE(FakeMqttClient::state().publishes.empty());
}

TEST_F(Publishing, aNegativeSizeIsAnEmptyPayload)
{
    publisher.m_DataSize = -1;
    EXPECT_EQ(publisher.Publish(), PSC_OK);
    EXPECT_EQ(FakeMqttClient::state().publishes.at(0).payload, "");
}

TEST_F(Publishing, aTagThatCannotBeReadGoesOutAsZeros)
{
    FakeTagMemory::put(700, {1, 1, 1, 1});
    FakeTagMemory::state().unreadable = {700};
    EXPECT_EQ(publisher.Publish(), PSC_OK);
    EXPECT_EQ(FakeMqttClient::state().publishes.at(0).payload, std::string(4, '\0'));
}

TEST_F(Publishing, whileDisconnectedIsLostAndReadsNothing)
{
    FakeMqttClient::setConnected(broker.m_MQTTClient, false);
    FakeTagMemory::state().reads.clear();
    const LogCapture log;
    EXPECT_EQ(publisher.Publish(), PSC_ERROR_NOT_PUBLISHED);
    EXPECT_TRUE(FakeTagMemory::state().reads.empty());
    EXPECT_THAT(log.lines(),
                ElementsAre("DEBUG m_cBroker->IsConnected() is '0', bypass is '0'", "DEBUG END rtnValue=-11"));
}

TEST_F(Publishing, withoutABrokerCountsAsDisconnected)
{
    publisher.m_cBroker = nullptr;
    EXPECT_EQ(publisher.Publish(), PSC_ERROR_NOT_PUBLISHED);
}

TEST_F(Publishing, anUnknownFormatPublishesNothing)
{
    for (const int format : {255, 4, -1, 99}) {
        publisher.m_PayloadFormat = format;
        EXPECT_EQ(publisher.Publish(), PSC_ERROR_NOT_PUBLISHED) << format;
    }
    EXPECT_TRUE(FakeMqttClient::state().publishes.empty());
}

TEST_F(Publishing, passesTheLibrarysFailureThroughAndClearsTheBuffer)
{
    FakeTagMemory::put(700, {1, 1, 1, 1});
    FakeMqttClient::state().publishResult = -1;
    publisher.m_QoS = 1;
    publisher.m_ReceiveAddress = 900;
    EXPECT_EQ(publisher.Publish(), -1);
    EXPECT_TRUE(isBufferZero());
}

TEST_F(Publishing, aQualityOfServiceOutOfRangeIsAnsweredWithTheLibrarysCode)
{
    publisher.m_QoS = 7;
    EXPECT_EQ(publisher.Publish(), -9);
    EXPECT_TRUE(isBufferZero());
}

class PublicationConfigurationRecord : public Publishing
{
protected:
    static constexpr unsigned Address = 5000;
};

TEST_F(PublicationConfigurationRecord, holdsEveryFieldAtItsOffset)
{
    publisher.m_Topic = "ab";
    publisher.m_QoS = 0x102;
    publisher.m_PayloadFormat = 255;
    publisher.m_RetainFlag = true;
    const LogCapture log;
    EXPECT_TRUE(publisher.UpdatePublisherConfigurationStruct(Address));
    ASSERT_EQ(FakeTagMemory::state().writes.size(), 1U);
    const Bytes& record = FakeTagMemory::state().writes[0].bytes;
    ASSERT_EQ(record.size(), 516U);
    EXPECT_EQ(Bytes(record.begin(), record.begin() + 6), (Bytes{'a', 0, 'b', 0, 0, 0}));
    EXPECT_EQ(Bytes(record.begin() + 512, record.begin() + 515), (Bytes{2, 255, 1}));
    EXPECT_THAT(log.lines(), ElementsAre("DEBUG Wrote stats cfg to address (5000) sizeof (516)"));
}

TEST_F(PublicationConfigurationRecord, aTopicOf255CharactersFits)
{
    publisher.m_Topic = QString(255, 't');
    const LogCapture log;
    EXPECT_TRUE(publisher.UpdatePublisherConfigurationStruct(Address));
    const Bytes& record = FakeTagMemory::state().writes[0].bytes;
    EXPECT_EQ(record[508], 't');
    EXPECT_EQ(record[510], 0);
    EXPECT_EQ(log.lines().size(), 1U);
}

TEST_F(PublicationConfigurationRecord, aLongerTopicIsCutAndNamed)
{
    publisher.m_Topic = QString(60'000, 't');
    const LogCapture log;
    EXPECT_TRUE(publisher.UpdatePublisherConfigurationStruct(Address));
    const Bytes& record = FakeTagMemory::state().writes[0].bytes;
    EXPECT_EQ(record.size(), 516U);
    EXPECT_EQ(record[508], 't');
    EXPECT_EQ(Bytes(record.begin() + 510, record.end()), (Bytes{0, 0, 0, 0, 0, 0}));
    EXPECT_TRUE(
        log.contains("WARN publication 'speed': its topic is cut to 255 characters in its configuration record"));
}

TEST_F(PublicationConfigurationRecord, reportsAWriteThatFailed)
{
    FakeTagMemory::state().writeResults = {-1};
    EXPECT_FALSE(publisher.UpdatePublisherConfigurationStruct(Address));
}

} // namespace
