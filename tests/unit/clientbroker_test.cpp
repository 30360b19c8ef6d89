#include "unittest.h"

#include "Records/brokerrecords.h"

#include <memory>
#include <thread>

namespace {

using testing::ElementsAre;

class NewBroker : public ServiceTest
{
protected:
    ClientBroker broker;
};

TEST_F(NewBroker, beginsWithoutAWillAndWithoutAClient)
{
    EXPECT_EQ(broker.LastWillAddr, -1);
    EXPECT_EQ(broker.LastWillDataLen, NO_DATA_LEN);
    EXPECT_EQ(broker.m_State, PS_RUNNING);
    EXPECT_EQ(broker.m_MQTTClient, nullptr);
    EXPECT_FALSE(broker.IsConnected());
    EXPECT_FALSE(broker.IsBusy());
}

TEST_F(NewBroker, logsItsCandidateCaFilesAlsoWhereThereAreNone)
{
    const LogCapture log;
    const ClientBroker another;
    EXPECT_THAT(log.lines(), ElementsAre(testing::StartsWith("DEBUG ClientBroker::ClientBroker() m_caFilesList ")));
}

struct SchemeCase
{
    int encryption;
    const char* uri;
};

class Scheme : public ServiceTest, public testing::WithParamInterface<SchemeCase>
{
};

TEST_P(Scheme, followsFromTheLevelOfEncryption)
{
    ClientBroker broker;
    broker.Encryption = GetParam().encryption;
    broker.IPorURL = "host";
    broker.Port = 1234;
    broker.ClientID = QString::fromUtf8("pläne");
    EXPECT_EQ(broker.CreateMQTTClient(), SC_AC_OK);
    const auto& create = FakeMqttClient::state().creates.at(0);
    EXPECT_EQ(create.uri, GetParam().uri);
    EXPECT_EQ(create.clientId, "pläne");
    EXPECT_EQ(create.persistence, MQTTCLIENT_PERSISTENCE_DEFAULT);
    EXPECT_EQ(create.persistenceDirectory, "/tmp/MQTT_PERSISTENCE");
}

INSTANTIATE_TEST_SUITE_P(Levels, Scheme,
                         testing::Values(SchemeCase{0, "tcp://host:1234"}, SchemeCase{1, "ssl://host:1234"},
                                         SchemeCase{5, "ssl://host:1234"}, SchemeCase{6, "ssl://host:1234"},
                                         SchemeCase{-1, "ssl://host:1234"}));

TEST_F(NewBroker, creationStoresTheLibrarysCodeAndLeavesTheRestOfTheBlock)
{
    broker.BrokerAddr = 100;
    broker.m_Connected = 1;
    broker.m_SessionPresent = 1;
    FakeMqttClient::state().createResults = {-2};
    EXPECT_EQ(broker.CreateMQTTClient(), -2);
    EXPECT_EQ(FakeTagMemory::writesAt(100), (std::vector<Bytes>{{1, 1, 0xFE, 0}}));
}

TEST_F(NewBroker, creationIsLoggedWithLengths)
{
    broker.Name = "p%1";
    broker.IPorURL = "h";
    broker.Port = 1;
    broker.ClientID = "abc";
    const LogCapture log;
    broker.CreateMQTTClient();
    EXPECT_TRUE(log.contains("DEBUG Broker 'p%1' with connection (tcp://h:1), m_ClientID len (3) and connectionStr len "
                             "(9) creation done with (0)"));
}

TEST_F(BrokerTest, clearingWritesFourZeroBytesWhateverTheState)
{
    connectBroker();
    EXPECT_TRUE(broker.ClearCfgStruct());
    EXPECT_EQ(FakeTagMemory::writesAt(BlockAddress), (std::vector<Bytes>{{0, 0, 0, 0}}));
    EXPECT_TRUE(broker.IsConnected());
}

TEST_F(BrokerTest, aBlockThatTagMemoryDoesNotTakeIsReported)
{
    FakeTagMemory::state().writeResults = {-1};
    EXPECT_FALSE(broker.UpdateClientBrokerStruct());
    EXPECT_TRUE(broker.UpdateClientBrokerStruct());
}

TEST_F(BrokerTest, willSizeIsThatOfOneEntry)
{
    broker.LastWillDataType = AT_STR8;
    broker.LastWillDataLen = 20;
    broker.CalcDataSize();
    EXPECT_EQ(broker.LastWillDataSize, 21);
    broker.LastWillDataType = AT_UINT32;
    broker.CalcDataSize();
    EXPECT_EQ(broker.LastWillDataSize, 4);
}

TEST_F(BrokerTest, noWillTypeHasNoSize)
{
    broker.LastWillDataType = AT_NOTYPE;
    broker.LastWillDataLen = 20;
    broker.CalcDataSize();
    EXPECT_EQ(broker.LastWillDataSize, -1);
}

TEST_F(BrokerTest, destroyingTakesTheHandleOnce)
{
    broker.DestroyMQTTClient();
    EXPECT_THAT(FakeMqttClient::state().calls, ElementsAre("destroy"));
    EXPECT_EQ(broker.m_MQTTClient, nullptr);
    EXPECT_FALSE(broker.IsConnected());
    broker.DestroyMQTTClient();
    EXPECT_THAT(FakeMqttClient::state().calls, ElementsAre("destroy"));
}

TEST_F(BrokerTest, destroyingWaitsForTheLastUse)
{
    auto use = std::make_unique<ClientUse>(broker);
    std::thread user([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        EXPECT_TRUE(FakeMqttClient::state().calls.empty());
        use.reset();
    });
    broker.DestroyMQTTClient();
    user.join();
    EXPECT_THAT(FakeMqttClient::state().calls, ElementsAre("destroy"));
}

TEST_F(BrokerTest, aHandleInUseIsLeftAtTheDeadline)
{
    const ClientUse use(broker);
    broker.DestroyMQTTClient(std::chrono::steady_clock::now() + std::chrono::milliseconds(5));
    EXPECT_TRUE(FakeMqttClient::state().calls.empty());
    EXPECT_EQ(broker.m_MQTTClient, nullptr);
}

class BrokerConfigurationRecord : public BrokerTest
{
protected:
    static constexpr unsigned Address = 5000;
    static constexpr unsigned Half = 1006;

    [[nodiscard]] Bytes readBack()
    {
        EXPECT_TRUE(broker.UpdateClientBrokerConfigurationStruct(Address));
        return FakeTagMemory::bytesAt(Address, 2012);
    }

    static QString textAt(const Bytes& record, std::size_t offset)
    {
        return QString::fromUtf16(reinterpret_cast<const char16_t*>(record.data() + offset));
    }
};

TEST_F(BrokerConfigurationRecord, holdsEveryFieldAtItsOffset)
{
    broker.IPorURL = QString::fromUtf8("bröker");
    broker.Port = 0x12345;
    broker.AutoConnectFlag = true;
    broker.UserName = "user";
    broker.Password = "secret";
    broker.LastWillTopic = "gone";
    broker.ConnectionInterval = 0x01020304;
    broker.KeepAliveTime = 0x10203;
    broker.Encryption = ENC_SSL_CA_AND_PRIVATE_KEY;
    broker.CleanSessionFlag = true;
    const Bytes record = readBack();

    EXPECT_EQ(textAt(record, 0), QString::fromUtf8("bröker"));
    EXPECT_EQ(Bytes(record.begin() + 256, record.begin() + 260), (Bytes{0x45, 0x23, 1, 0}));
    EXPECT_EQ(textAt(record, 260), "line-1");
    EXPECT_EQ(textAt(record, 724), "user");
    EXPECT_EQ(textAt(record, 980), "secret");
    EXPECT_EQ(textAt(record, 1492), "gone");
    EXPECT_EQ(Bytes(record.begin() + 2004, record.end()), (Bytes{4, 3, 2, 1, 3, 2, 0, 1}));
}

TEST_F(BrokerConfigurationRecord, isWrittenInTwoHalvesThatAreBothLogged)
{
    const LogCapture log;
    EXPECT_EQ(readBack().size(), 2012U);
    ASSERT_EQ(FakeTagMemory::state().writes.size(), 2U);
    EXPECT_EQ(FakeTagMemory::state().writes[0].address, Address);
    EXPECT_EQ(FakeTagMemory::state().writes[0].bytes.size(), Half);
    EXPECT_EQ(FakeTagMemory::state().writes[1].address, Address + Half);
    EXPECT_EQ(FakeTagMemory::state().writes[1].bytes.size(), Half);
    EXPECT_THAT(log.lines(), ElementsAre("DEBUG Wrote stats cfg to address (5000) sizeof (1006)",
                                         "DEBUG Wrote stats cfg to address (6006) sizeof (1006)"));
}

TEST_F(BrokerConfigurationRecord, oneHalfThatArrivedIsSuccess)
{
    FakeTagMemory::state().writeResults = {0, -1};
    EXPECT_TRUE(broker.UpdateClientBrokerConfigurationStruct(Address));
    FakeTagMemory::state().writeResults = {-1, 0};
    EXPECT_TRUE(broker.UpdateClientBrokerConfigurationStruct(Address));
    FakeTagMemory::state().writeResults = {-1, -1};
    EXPECT_FALSE(broker.UpdateClientBrokerConfigurationStruct(Address));
}

TEST_F(BrokerConfigurationRecord, anIntervalOfZeroReadsAsNoTrials)
{
    broker.ConnectionInterval = 0;
    const Bytes record = readBack();
    EXPECT_EQ(Bytes(record.begin() + 2004, record.begin() + 2008), (Bytes{0, 0, 0, 0}));
}

TEST_F(BrokerConfigurationRecord, aLongTextSpillsIntoTheNextFields)
{
    broker.Password = QString(300, 'p');
    broker.LastWillTopic = "";
    const Bytes record = readBack();
    // 300 units and a terminator from 980 on reach to 1582; the empty will topic then puts its terminator at 1492.
    EXPECT_EQ(record[1491], 0);
    EXPECT_EQ(record[1490], 'p');
    EXPECT_EQ(record[1492], 0);
    EXPECT_EQ(record[1494], 'p');
    EXPECT_EQ(record[1578], 'p');
    EXPECT_EQ(record[1580], 0);
}

TEST_F(BrokerConfigurationRecord, aTextNeverSpillsPastTheRecord)
{
    broker.LastWillTopic = QString(5000, 't');
    const Bytes record = readBack();
    EXPECT_EQ(record[2002], 't');
    // The numbers are set behind the texts and stand in their fields.
    EXPECT_EQ(Bytes(record.begin() + 2004, record.end()), (Bytes{0, 0, 0, 0, 30, 0, 0, 1}));
    EXPECT_EQ(FakeTagMemory::bytesAt(Address + 2012, 2), (Bytes{0, 0}));
}

} // namespace
