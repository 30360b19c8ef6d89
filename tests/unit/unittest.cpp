#include "unittest.h"

#include "mqttclientmanager.h"
#include "Services/mqttmanagerservices.h"
#include "Services/mqttStatusLogManager.h"
#include "Services/mqttXmlParser.h"

#include <QCoreApplication>
#include <QFile>
#include <thread>

ServiceTest::ServiceTest()
{
    FakeTagMemory::reset();
    FakeMqttClient::reset();
    FakeSleep::waits().clear();
    setLink(1, 0);
}

void ServiceTest::setLink(std::uint8_t first, std::uint8_t second)
{
    FakeTagMemory::put(44, {first});
    FakeTagMemory::put(47, {second});
}

BrokerTest::BrokerTest()
{
    broker.Name = "plant";
    broker.IPorURL = "127.0.0.1";
    broker.Port = 1883;
    broker.ClientID = "line-1";
    broker.KeepAliveTime = 30;
    broker.CleanSessionFlag = true;
    broker.BrokerAddr = BlockAddress;
    broker.CreateMQTTClient();
    FakeMqttClient::state().calls.clear();
    FakeTagMemory::state().writes.clear();
}

BrokerTest::~BrokerTest()
{
    FakeMqttClient::state().duringDisconnect = nullptr;
    FakeTagMemory::state().duringWrite = nullptr;
}

void BrokerTest::connectBroker()
{
    ASSERT_EQ(broker.Connect(), CB_OK);
    FakeMqttClient::state().calls.clear();
    FakeTagMemory::state().writes.clear();
}

void BrokerTest::loseConnection()
{
    FakeMqttClient::loseConnection(broker.m_MQTTClient);
    awaitEndOfReconnecting();
}

void BrokerTest::awaitEndOfReconnecting() const
{
    while (broker.isReconnecting())
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

Bytes BrokerTest::statusBlock() const
{
    return FakeTagMemory::bytesAt(BlockAddress, 4);
}

void resetSingletons()
{
    const auto remove = [](auto*& instance) {
        delete instance;
        instance = nullptr;
    };
    remove(MQTTClientManager::m_instance);
    remove(MQTTXmlParser::m_instance);
    remove(MQTTStatusLogManager::m_instance);
    remove(MQTTManagerServices::m_instance);
}

TestFile::TestFile(const QByteArray& content, const QString& name) : m_path(m_directory.filePath(name))
{
    QFile file(m_path);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
        ADD_FAILURE() << "can't write " << m_path.toStdString();
}

int main(int argc, char* argv[])
{
    const QCoreApplication application(argc, argv);
    testing::InitGoogleMock(&argc, argv);
    return RUN_ALL_TESTS();
}
