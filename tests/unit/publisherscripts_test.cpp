#include "publishertest.h"

#include <QFile>

namespace {

using testing::ElementsAre;

// There are no scripts here: what happens without them. The system tests have the rest.
class ScriptPublication : public PublisherTest
{
protected:
    ScriptPublication()
    {
        publisher.m_DataSize = 8;
        FakeTagMemory::put(700, {'a', ' ', 'b', 0, 'c'});
        FakeTagMemory::state().reads.clear();
    }
};

TEST_F(ScriptPublication, anOperationWithoutItsScriptFails)
{
    publisher.m_PayloadFormat = PF_TRIGGERED_OP;
    const LogCapture log;
    EXPECT_EQ(publisher.Publish(), PSC_ERROR_SCRIPT_FAILED);
    EXPECT_THAT(log.lines(),
                ElementsAre("DEBUG m_cBroker->IsConnected() is '1', bypass is '1'", "DEBUG Size=8  Address=700",
                            "DEBUG Set permissions of HandleMQTTTriggeredOp.sh",
                            "DEBUG Runinig '/VEL/UserApps/Config/MQTT/Protobuf/HandleMQTTTriggeredOp.sh a b'",
                            "DEBUG END, rtnValue=-13"));
    EXPECT_TRUE(FakeMqttClient::state().publishes.empty());
    EXPECT_TRUE(FakeTagMemory::state().writes.empty());
}

TEST_F(ScriptPublication, anOperationNeedsNoBroker)
{
    publisher.m_PayloadFormat = PF_TRIGGERED_OP;
    publisher.m_cBroker = nullptr;
    const LogCapture log;
    EXPECT_EQ(publisher.Publish(), PSC_ERROR_SCRIPT_FAILED);
    EXPECT_TRUE(log.contains("DEBUG m_cBroker->IsConnected() is '0', bypass is '1'"));
    EXPECT_TRUE(log.contains("DEBUG END, rtnValue=-13"));
}

TEST_F(ScriptPublication, aProtobufMessageWithoutItsScriptIsNotPublished)
{
    publisher.m_PayloadFormat = PF_PROTOBUF;
    const LogCapture log;
    EXPECT_EQ(publisher.Publish(), PSC_ERROR_NOT_PUBLISHED);
    EXPECT_THAT(log.lines(),
                ElementsAre("DEBUG m_cBroker->IsConnected() is '1', bypass is '0'", "DEBUG Size=8  Address=700",
                            "DEBUG Protobuf file is '/VEL/UserApps/Config/MQTT/Protobuf/a b'",
                            "DEBUG END rtnValue=-11"));
    EXPECT_TRUE(FakeMqttClient::state().publishes.empty());
    EXPECT_TRUE(isBufferZero());
}

TEST_F(ScriptPublication, aProtobufMessageWithoutAConnectionReadsNothing)
{
    publisher.m_PayloadFormat = PF_PROTOBUF;
    FakeMqttClient::setConnected(broker.m_MQTTClient, false);
    EXPECT_EQ(publisher.Publish(), PSC_ERROR_NOT_PUBLISHED);
    EXPECT_THAT(FakeTagMemory::state().reads, testing::Not(testing::Contains(700)));
}

TEST_F(ScriptPublication, aTextEndsWithItsTag)
{
    publisher.m_PayloadFormat = PF_TRIGGERED_OP;
    FakeTagMemory::put(700, Bytes(20, 'x'));
    const LogCapture log;
    for (const int size : {8, 0, -1, 65535, 65536 + 3}) { // sizes have 16 bits
        publisher.m_DataSize = size;
        publisher.Publish();
    }
    const std::string line = "DEBUG Runinig '/VEL/UserApps/Config/MQTT/Protobuf/HandleMQTTTriggeredOp.sh ";
    EXPECT_EQ(log.count(line + "xxxxxxxx'"), 1);
    EXPECT_EQ(log.count(line + "'"), 2);
    EXPECT_EQ(log.count(line + std::string(20, 'x') + "'"), 1);
    EXPECT_EQ(log.count(line + "xxx'"), 1);
}

TEST_F(ScriptPublication, aPercentSignOfTheTagIsNoPlaceForSomethingElse)
{
    publisher.m_PayloadFormat = PF_TRIGGERED_OP;
    FakeTagMemory::put(700, {'%', '1', '%', '2', 0});
    const LogCapture log;
    publisher.Publish();
    EXPECT_TRUE(log.contains("DEBUG Runinig '/VEL/UserApps/Config/MQTT/Protobuf/HandleMQTTTriggeredOp.sh %1%2'"));
}

} // namespace
