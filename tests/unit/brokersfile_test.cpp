#include "Services/mqttmanagerservices.h"
#include "Services/mqttXmlParser.h"
#include "unittest.h"

namespace {

class BrokersFile : public ServiceTest
{
protected:
    bool parse(const QByteArray& content)
    {
        return MQTTXmlParser::instance()->ParseXMLFileBrokers(TestFile(content).path(), brokers, version);
    }

    ClientBroker parseOne(const QByteArray& attributes)
    {
        EXPECT_TRUE(
            parse("<BrokersConf Version='1.0'><Brokers><BrokerConf " + attributes + "/></Brokers></BrokersConf>"));
        EXPECT_EQ(brokers.size(), 1);
        return brokers.takeFirst();
    }

    QList<ClientBroker> brokers;
    QString version;
};

constexpr char Directory[] = "/VEL/UserApps/Config/MQTT/";

TEST_F(BrokersFile, fillsEveryMember)
{
    MQTTManagerServices::instance()->m_plcSerial = "77";
    const ClientBroker broker = parseOne(
        "Name='plant broker' IPOrURL='192.168.10.5' ClientID='' EncryptionType='2' CAFileName='ca.crt' "
        "UserName='u' Password='p' LastWillTopic='plc/{PLC.SN}/status' Port='8883' KeepAlive='60' "
        "ConnectionInterval='10' LastWillAddr='2048' ID='1' CleanSession='1' AutoConnect='1' BrokerAddr='4096' "
        "DataType='11_20'");
    EXPECT_EQ(version, "1.0");
    EXPECT_EQ(broker.Name, "plant broker");
    EXPECT_EQ(broker.IPorURL, "192.168.10.5");
    EXPECT_EQ(broker.AddressingMode, 0);
    EXPECT_FALSE(broker.ClientID.isEmpty());
    EXPECT_EQ(broker.Encryption, ENC_SSL_CA_CERTIFICATE_ONLY);
    EXPECT_EQ(broker.SetCAFileName, QString(Directory) + "ca.crt");
    EXPECT_EQ(broker.UserName, "u");
    EXPECT_EQ(broker.Password, "p");
    EXPECT_EQ(broker.LastWillTopic, "plc/77/status");
    EXPECT_EQ(broker.Port, 8883U);
    EXPECT_EQ(broker.KeepAliveTime, 60U);
    EXPECT_EQ(broker.ConnectionInterval, 10U);
    EXPECT_EQ(broker.LastWillAddr, 2048);
    EXPECT_EQ(broker.UniqueID, 1);
    EXPECT_TRUE(broker.CleanSessionFlag);
    EXPECT_TRUE(broker.AutoConnectFlag);
    EXPECT_EQ(broker.BrokerAddr, 4096U);
    EXPECT_EQ(broker.LastWillDataType, AT_STR8);
    EXPECT_EQ(broker.LastWillDataLen, 20);
    EXPECT_EQ(broker.LastWillDataSize, 21);
}

TEST_F(BrokersFile, missingAttributesGiveZero)
{
    const ClientBroker broker = parseOne("");
    EXPECT_EQ(broker.Name, "");
    EXPECT_EQ(broker.AddressingMode, 1);
    EXPECT_EQ(broker.Encryption, ENC_NONE);
    EXPECT_EQ(broker.Port, 0U);
    EXPECT_EQ(broker.LastWillAddr, 0); // and not -1, which would be no will
    EXPECT_EQ(broker.LastWillDataType, AT_NOTYPE);
    EXPECT_EQ(broker.LastWillDataLen, NO_DATA_LEN);
    EXPECT_EQ(broker.LastWillDataSize, -1);
    EXPECT_FALSE(broker.CleanSessionFlag);
    EXPECT_FALSE(broker.AutoConnectFlag);
    EXPECT_EQ(broker.UniqueID, 0);
}

TEST_F(BrokersFile, textsThatAreNoNumberGiveZero)
{
    const ClientBroker broker = parseOne("Port='http' KeepAlive='-1' ConnectionInterval='4294967296' ID='0x10' "
                                         "CleanSession='yes' AutoConnect='true' BrokerAddr='1.5' LastWillAddr='a'");
    EXPECT_EQ(broker.Port, 0U);
    EXPECT_EQ(broker.KeepAliveTime, 0U);
    EXPECT_EQ(broker.ConnectionInterval, 0U);
    EXPECT_EQ(broker.UniqueID, 0);
    EXPECT_FALSE(broker.CleanSessionFlag);
    EXPECT_FALSE(broker.AutoConnectFlag);
    EXPECT_EQ(broker.BrokerAddr, 0U);
    EXPECT_EQ(broker.LastWillAddr, 0);
}

TEST_F(BrokersFile, flagsAreTrueForEveryNumberButZero)
{
    const ClientBroker broker = parseOne("CleanSession='2' AutoConnect='-1'");
    EXPECT_TRUE(broker.CleanSessionFlag);
    EXPECT_TRUE(broker.AutoConnectFlag);
}

struct AddressCase
{
    const char* host;
    int mode;
};

class AddressingMode : public BrokersFile, public testing::WithParamInterface<AddressCase>
{
};

TEST_P(AddressingMode, countsDigitsAndNoMore)
{
    EXPECT_EQ(parseOne(QByteArray("IPOrURL='") + GetParam().host + "'").AddressingMode, GetParam().mode);
}

INSTANTIATE_TEST_SUITE_P(Hosts, AddressingMode,
                         testing::Values(AddressCase{"192.168.10.5", 0}, AddressCase{"999.999.999.999", 0},
                                         AddressCase{"192.168.1", 1}, AddressCase{"1.2.3.4 ", 1},
                                         AddressCase{"1.2.3.4567", 1}, AddressCase{"1a2a3a4", 1},
                                         AddressCase{"broker.example", 1}, AddressCase{"", 1}));

TEST_F(BrokersFile, aGeneratedClientIdIsAUuidWithoutBracesAndAlwaysAnother)
{
    const QString first = parseOne("").ClientID;
    const QString second = parseOne("").ClientID;
    EXPECT_TRUE(QRegExp("[0-9a-f]{8}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{12}").exactMatch(first));
    EXPECT_NE(first, second);
}

TEST_F(BrokersFile, aClientIdIsTakenAsItStands)
{
    EXPECT_EQ(parseOne("ClientID='  '").ClientID, "  ");
    EXPECT_EQ(parseOne("ClientID='{PLC.SN}'").ClientID, "{PLC.SN}");
    EXPECT_EQ(parseOne("ClientID='" + QByteArray(300, 'c') + "'").ClientID.size(), 300);
}

struct LevelFiles
{
    const char* level;
    bool ca;
    bool certificate;
    bool key;
    bool cloud;
};

class FilesByLevel : public BrokersFile, public testing::WithParamInterface<LevelFiles>
{
};

TEST_P(FilesByLevel, onlyThoseOfTheLevelAreRead)
{
    const LevelFiles& c = GetParam();
    const auto inDirectory = [](const char* name) { return QString(Directory) + name; };
    const ClientBroker broker =
        parseOne(QByteArray("CAFileName='a' ClientCertificateFileName='b' ClientKeyFileName='c' "
                            "GoogleCloudProjectID='d' JWTAlgorithm='e' EncryptionType='") +
                 c.level + "'");
    EXPECT_EQ(broker.SetCAFileName, c.ca ? inDirectory("a") : QString());
    EXPECT_EQ(broker.ClientCertificateFileName, c.certificate ? inDirectory("b") : QString());
    EXPECT_EQ(broker.ClientKeyFileName, c.key ? inDirectory("c") : QString());
    EXPECT_EQ(broker.GoogleCloudProjectID, c.cloud ? "d" : "");
    EXPECT_EQ(broker.JWTAlgorithm, c.cloud ? "e" : "");
}

INSTANTIATE_TEST_SUITE_P(
    Levels, FilesByLevel,
    testing::Values(LevelFiles{"0", false, false, false, false}, LevelFiles{"1", false, false, false, false},
                    LevelFiles{"2", true, false, false, false}, LevelFiles{"3", false, false, false, false},
                    LevelFiles{"4", true, true, true, false}, LevelFiles{"5", true, false, true, true},
                    LevelFiles{"6", false, false, false, false}, LevelFiles{"4294967295", false, false, false, false}));

TEST_F(BrokersFile, aMissingFileNameLeavesTheBareDirectory)
{
    EXPECT_EQ(parseOne("EncryptionType='2'").SetCAFileName, Directory);
}

TEST_F(BrokersFile, aWillTypeWithoutALengthLeavesTheLength)
{
    const ClientBroker broker = parseOne("DataType='11'");
    EXPECT_EQ(broker.LastWillDataType, AT_STR8);
    EXPECT_EQ(broker.LastWillDataLen, NO_DATA_LEN);
}

TEST_F(BrokersFile, dataTypesKeepEmptyPartsAndIgnoreFurtherOnes)
{
    EXPECT_EQ(parseOne("DataType='11_'").LastWillDataLen, 0);
    EXPECT_EQ(parseOne("DataType='_5'").LastWillDataType, AT_NOTYPE);
    EXPECT_EQ(parseOne("DataType='_5'").LastWillDataLen, 5);
    EXPECT_EQ(parseOne("DataType='12_5_9'").LastWillDataSize, 12);
}

TEST_F(BrokersFile, bothOfTwoBrokersWithOneIdAreKept)
{
    EXPECT_TRUE(parse("<BrokersConf><Brokers><BrokerConf ID='1' Name='a'/><BrokerConf ID='1' Name='b'/></Brokers>"
                      "</BrokersConf>"));
    ASSERT_EQ(brokers.size(), 2);
    EXPECT_EQ(brokers.at(1).Name, "b");
}

TEST_F(BrokersFile, everyElementBehindTheFirstBrokerIsRead)
{
    EXPECT_TRUE(
        parse("<BrokersConf><Brokers><Other Name='x'/><BrokerConf Name='a'/><!-- c --><Other Name='b'/></Brokers>"
              "</BrokersConf>"));
    ASSERT_EQ(brokers.size(), 2);
    EXPECT_EQ(brokers.at(0).Name, "a");
    EXPECT_EQ(brokers.at(1).Name, "b");
}

TEST_F(BrokersFile, entriesAreAppended)
{
    brokers.append(ClientBroker());
    EXPECT_TRUE(parse("<BrokersConf><Brokers><BrokerConf/></Brokers></BrokersConf>"));
    EXPECT_EQ(brokers.size(), 2);
}

TEST_F(BrokersFile, wrongOrMissingElementsGiveNoBrokerAndNoFailure)
{
    version = "before";
    const LogCapture log;
    EXPECT_TRUE(parse("<Conf Version='9'><Brokers><BrokerConf/></Brokers></Conf>"));
    EXPECT_EQ(version, "");
    EXPECT_TRUE(parse("<BrokersConf/>"));
    EXPECT_TRUE(parse("<BrokersConf><Brokers/></BrokersConf>"));
    EXPECT_TRUE(parse("<BrokersConf><brokers><BrokerConf/></brokers></BrokersConf>"));
    EXPECT_TRUE(brokers.isEmpty());
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(BrokersFile, failuresAreNamed)
{
    const LogCapture log;
    EXPECT_FALSE(MQTTXmlParser::instance()->ParseXMLFileBrokers("/nonexistent/Brokers.xml", brokers, version));
    EXPECT_FALSE(parse("<BrokersConf>"));
    EXPECT_THAT(log.lines(), testing::ElementsAre("ERROR can't open xml file for read",
                                                  testing::StartsWith("ERROR invalid content due to ")));
}

} // namespace
