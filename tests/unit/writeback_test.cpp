#include "Entities/subscriber.h"
#include "Records/brokerrecords.h"
#include "Records/publicationrecords.h"
#include "Records/subscriptionrecords.h"
#include "Services/mqttXmlParser.h"
#include "xmlparsertest.h"

#include <algorithm>
#include <cstring>
#include <QDir>

namespace {

using testing::ElementsAre;
using testing::MatchesRegex;

const QByteArray Brokers =
    "<?xml version='1.0'?>\n<!-- the plant's -->\n<BrokersConf Version='2'>\n <Brokers Count='2'>\n"
    "  <BrokerConf ID='1' Name='one' IPOrURL='10.0.0.1' Port='1883' AutoConnect='0' ClientID='c1' UserName='u1' "
    "Password='p1' LastWillTopic='w/{PLC.SN}' ConnectionInterval='5' KeepAlive='30' CleanSession='0' "
    "EncryptionType='2' CAFileName='ca.pem' BrokerAddr='100' LastWillAddr='-1' DataType='11_20' Note='kept'/>\n"
    "  <BrokerConf ID='2' Name='two' IPOrURL='10.0.0.2' Port='1884' ClientID='c2' Password='p2'/>\n"
    " </Brokers>\n</BrokersConf>\n";

const QByteArray Publications =
    "<PublicationsConf Version='1'><Publications>"
    "<PublicationConf ID='7' Name='seven' Topic='a/{PLC.NAME}' QOS='1' PayloadFormat='1' RetainFlag='1' "
    "DataAddr='2048' DataType='10' CBrokerID='1' PeriodicInterval='100'><DataMembers>"
    "<DataMember DName='x' Off='0x0' DataType='8' Ent='0'/></DataMembers></PublicationConf>"
    "<PublicationConf ID='7' Name='again' Topic='b' QOS='0' PayloadFormat='0' RetainFlag='0'/>"
    "</Publications></PublicationsConf>";

const QByteArray Subscriptions =
    "<SubscriptionsConf Version='1'><Subscriptions>"
    "<SubscriptionConf ID='3' Name='three' Topic='a/#' QOS='1' PayloadFormat='1' SubscribeAtBoot='0' IsBuffered='0' "
    "SubAddr='4000' DataAddr='4096' DataType='8'/></Subscriptions></SubscriptionsConf>";

// A record and its field beside bytes that must not get into a text.
template<typename Record>
Record recordOfGarbage()
{
    Record record;
    std::memset(&record, 0x41, sizeof record);
    return record;
}

template<std::size_t Units>
void put(char16_t (&field)[Units], std::u16string text)
{
    text.resize(std::min(text.size() + 1, Units));
    std::memcpy(field, text.data(), text.size() * sizeof(char16_t));
}

CBrokerConfigurationStruct brokerRecord()
{
    auto record = recordOfGarbage<CBrokerConfigurationStruct>();
    put(record.IPorUrl, u"broker.example");
    record.Port = 65535;
    record.AutoConnect = 1;
    put(record.ClientID, u"line-9");
    put(record.Username, u"Bärbel 🙂");
    put(record.Password, u"<&>\"'\n");
    put(record.LastWillTopic, u"will/of/line");
    record.ReconnectTrials = 4294967295U;
    record.KeepAliveTime = 40000;
    record.Encryption = 5;
    record.CleanSessionFlag = 255;
    return record;
}

PublicationConfigurationStruct publicationRecord(const std::u16string& topic, int qos, int format, int retained)
{
    auto record = recordOfGarbage<PublicationConfigurationStruct>();
    put(record.Topic, topic);
    record.QoS = static_cast<std::uint8_t>(qos);
    record.PayloadFormat = static_cast<std::uint8_t>(format);
    record.Retained = static_cast<std::uint8_t>(retained);
    return record;
}

class WriteBack : public ServiceTest
{
protected:
    // What stands in the file for the attributes of the entry number `index`.
    static QStringList attributes(const TestFile& file, const QStringList& names, int index = 0)
    {
        XmlParser reader;
        EXPECT_TRUE(reader.setXmlFile(file.path()));
        const QDomElement list = reader.getRootElement().firstChildElement();
        QStringList values;
        EXPECT_TRUE(reader.getTagAttributesIndexValues({list.tagName(), list.firstChildElement().tagName()}, index, {},
                                                       {}, {}, names, values));
        return values;
    }

    // The documents are the same but for these attributes' values, in both of them.
    static void expectOnlyChanged(const TestFile& file, QByteArray before,
                                  const std::vector<std::pair<QByteArray, QByteArray>>& changes)
    {
        for (const auto& [from, to] : changes) {
            EXPECT_GE(before.count(from), 1) << from.toStdString();
            before.replace(before.indexOf(from), from.size(), to);
        }
        EXPECT_EQ(canonical(contentOf(file.path())), canonical(before));
    }

    MQTTXmlParser* const parser = MQTTXmlParser::instance();
};

TEST_F(WriteBack, aBrokersFirstHalfChangesFiveAttributes)
{
    const TestFile file(Brokers);
    const auto record = brokerRecord();
    EXPECT_TRUE(parser->writeBrokerCfg(file.path(), true, 1, &record));
    expectOnlyChanged(file, Brokers,
                      {{"IPOrURL='10.0.0.1'", "IPOrURL='broker.example'"},
                       {"Port='1883'", "Port='65535'"},
                       {"AutoConnect='0'", "AutoConnect='1'"},
                       {"ClientID='c1'", "ClientID='line-9'"},
                       {"UserName='u1'", "UserName='Bärbel 🙂'"}});
}

TEST_F(WriteBack, aBrokersSecondHalfChangesTheOtherFive)
{
    const TestFile file(Brokers);
    const auto record = brokerRecord();
    EXPECT_TRUE(parser->writeBrokerCfg(file.path(), false, 1, &record));
    expectOnlyChanged(file, Brokers,
                      {{"Password='p1'", "Password='&lt;&amp;&gt;&quot;&apos;&#10;'"},
                       {"LastWillTopic='w/{PLC.SN}'", "LastWillTopic='will/of/line'"},
                       {"ConnectionInterval='5'", "ConnectionInterval='4294967295'"},
                       {"KeepAlive='30'", "KeepAlive='40000'"},
                       {"CleanSession='0'", "CleanSession='255'"}});
}

TEST_F(WriteBack, aBrokerThatLacksAttributesGetsThem)
{
    const TestFile file(Brokers);
    const auto record = brokerRecord();
    EXPECT_TRUE(parser->writeBrokerCfg(file.path(), true, 2, &record));
    EXPECT_TRUE(parser->writeBrokerCfg(file.path(), false, 2, &record));
    EXPECT_EQ(attributes(file, {"Name", "IPOrURL", "AutoConnect", "UserName", "KeepAlive", "EncryptionType"}, 1),
              (QStringList{"two", "broker.example", "1", QString::fromUtf8("Bärbel 🙂"), "40000", ""}));
    EXPECT_EQ(attributes(file, {"IPOrURL", "Port", "Password"}, 0), (QStringList{"10.0.0.1", "1883", "p1"}));
}

TEST_F(WriteBack, anEmptyTextIsAnEmptyAttribute)
{
    const TestFile file(Brokers);
    auto record = brokerRecord();
    put(record.Username, u"");
    EXPECT_TRUE(parser->writeBrokerCfg(file.path(), true, 1, &record));
    EXPECT_TRUE(contentOf(file.path()).contains("UserName=\"\""));
}

TEST_F(WriteBack, aTextWithoutATerminatorEndsWithItsField)
{
    const TestFile file(Brokers);
    auto record = recordOfGarbage<CBrokerConfigurationStruct>();
    EXPECT_TRUE(parser->writeBrokerCfg(file.path(), true, 1, &record));
    EXPECT_TRUE(parser->writeBrokerCfg(file.path(), false, 1, &record));
    const QStringList values = attributes(file, {"IPOrURL", "ClientID", "UserName", "Password", "LastWillTopic"});
    const int lengths[] = {128, 232, 128, 256, 256};
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(values.at(i), QString(lengths[i], QChar(0x4141))) << i;
}

TEST_F(WriteBack, aRecordMayLieAtAnOddAddress)
{
    const TestFile file(Brokers);
    const auto record = brokerRecord();
    std::vector<char> message(sizeof record + 1);
    std::memcpy(message.data() + 1, &record, sizeof record);
    const auto* inside = reinterpret_cast<const CBrokerConfigurationStruct*>(message.data() + 1);
    EXPECT_TRUE(parser->writeBrokerCfg(file.path(), true, 1, inside));
    EXPECT_TRUE(parser->writeBrokerCfg(file.path(), false, 1, inside));
    EXPECT_EQ(attributes(file, {"Port", "ConnectionInterval", "ClientID"}),
              (QStringList{"65535", "4294967295", "line-9"}));
}

TEST_F(WriteBack, aPublicationChangesFourAttributesOfTheFirstOneWithItsId)
{
    const TestFile file(Publications);
    auto record = publicationRecord(u"Größe/{PLC.SN}/🙂", 2, 3, 0);
    EXPECT_TRUE(parser->writePublicationCfg(file.path(), 7, &record));
    expectOnlyChanged(file, Publications,
                      {{"Topic='a/{PLC.NAME}'", "Topic='Größe/{PLC.SN}/🙂'"},
                       {"QOS='1'", "QOS='2'"},
                       {"PayloadFormat='1'", "PayloadFormat='3'"},
                       {"RetainFlag='1'", "RetainFlag='0'"}});
}

TEST_F(WriteBack, aSubscriptionChangesFiveAttributes)
{
    const TestFile file(Subscriptions);
    auto record = recordOfGarbage<SubscriptionConfigurationStruct>();
    put(record.Topic, u"b/+");
    record.QoS = 2;
    record.PayloadFormat = 0;
    record.SubscribeAtBoot = 1;
    record.Buffered = 7;
    EXPECT_TRUE(parser->writeSubscriptionCfg(file.path(), 3, &record));
    expectOnlyChanged(file, Subscriptions,
                      {{"Topic='a/#'", "Topic='b/+'"},
                       {"QOS='1'", "QOS='2'"},
                       {"PayloadFormat='1'", "PayloadFormat='0'"},
                       {"SubscribeAtBoot='0'", "SubscribeAtBoot='1'"},
                       {"IsBuffered='0'", "IsBuffered='7'"}});
}

TEST_F(WriteBack, numbersOutOfRangeBecomeZeroInTheFileAndInTheRecord)
{
    const int cases[][4] = {// quality of service and format: given, stored
                            {3, 9, 0, 0},
                            {2, 3, 2, 3},
                            {255, 4, 0, 0},
                            {0, 255, 0, 0},
                            {1, 200, 1, 0}};
    for (const auto& [qos, format, storedQos, storedFormat] : cases) {
        const QStringList stored{QString::number(storedQos), QString::number(storedFormat)};
        const TestFile publications(Publications);
        auto publication = publicationRecord(u"t", qos, format, 9);
        EXPECT_TRUE(parser->writePublicationCfg(publications.path(), 7, &publication));
        EXPECT_EQ(attributes(publications, {"QOS", "PayloadFormat", "RetainFlag"}), stored + QStringList{"9"});
        EXPECT_EQ(publication.QoS, storedQos);
        EXPECT_EQ(publication.PayloadFormat, storedFormat);
        EXPECT_EQ(publication.Retained, 9);

        const TestFile subscriptions(Subscriptions);
        auto subscription = recordOfGarbage<SubscriptionConfigurationStruct>();
        subscription.QoS = static_cast<std::uint8_t>(qos);
        subscription.PayloadFormat = static_cast<std::uint8_t>(format);
        EXPECT_TRUE(parser->writeSubscriptionCfg(subscriptions.path(), 3, &subscription));
        EXPECT_EQ(attributes(subscriptions, {"QOS", "PayloadFormat"}), stored);
        EXPECT_EQ(subscription.QoS, storedQos);
        EXPECT_EQ(subscription.PayloadFormat, storedFormat);
    }
}

TEST_F(WriteBack, anIdThatIsNotInTheFileChangesNothingAndSucceeds)
{
    const TestFile file(Publications);
    auto record = publicationRecord(u"t", 3, 0, 0);
    for (const int id : {8, -7, 0, 65535})
        EXPECT_TRUE(parser->writePublicationCfg(file.path(), id, &record));
    EXPECT_EQ(canonical(contentOf(file.path())), canonical(Publications));
    EXPECT_EQ(record.QoS, 0);
}

TEST_F(WriteBack, theFileIsReadIntoTheSameEntitiesAgain)
{
    const TestFile file(Publications);
    auto record = publicationRecord(u"new/topic", 2, 0, 0);
    ASSERT_TRUE(parser->writePublicationCfg(file.path(), 7, &record));
    QList<Publisher> publications;
    QString version;
    ASSERT_TRUE(parser->ParseXMLFilePublications(file.path(), publications, version));
    ASSERT_EQ(publications.size(), 2);
    const Publisher& first = publications.constFirst();
    EXPECT_EQ(version, "1");
    EXPECT_EQ(first.m_Topic, "new/topic");
    EXPECT_EQ(first.m_QoS, 2);
    EXPECT_EQ(first.m_Name, "seven");
    EXPECT_EQ(first.m_PerInterval, 100);
    EXPECT_EQ(first.m_DataMembers.size(), 1);
    EXPECT_EQ(publications.constLast().m_Topic, "b");
}

TEST_F(WriteBack, allThreeFilesAreReadAgainWhateverTheTextsHold)
{
    for (const char16_t unit : {u'\x01', u'\xFFFE', u'\xD83D', u'\xDE42', u'"', u'<', u'\n'}) {
        const std::u16string text = std::u16string(u"a") + unit + u"b";
        auto broker = brokerRecord();
        put(broker.Username, text);
        put(broker.LastWillTopic, text);
        auto publication = publicationRecord(text, 0, 0, 0);
        auto subscription = recordOfGarbage<SubscriptionConfigurationStruct>();
        put(subscription.Topic, text);
        const TestFile files[] = {TestFile(Brokers), TestFile(Publications), TestFile(Subscriptions)};
        EXPECT_TRUE(parser->writeBrokerCfg(files[0].path(), true, 1, &broker));
        EXPECT_TRUE(parser->writeBrokerCfg(files[0].path(), false, 1, &broker));
        EXPECT_TRUE(parser->writePublicationCfg(files[1].path(), 7, &publication));
        EXPECT_TRUE(parser->writeSubscriptionCfg(files[2].path(), 3, &subscription));

        QList<ClientBroker> brokers;
        QList<Publisher> publications;
        QList<Subscriber> subscriptions;
        QString version;
        ASSERT_TRUE(parser->ParseXMLFileBrokers(files[0].path(), brokers, version));
        ASSERT_TRUE(parser->ParseXMLFilePublications(files[1].path(), publications, version));
        ASSERT_TRUE(parser->ParseXMLFileSubscriptions(files[2].path(), subscriptions, version));
        const bool isStorable = unit == u'"' || unit == u'<' || unit == u'\n';
        const QString expected = QString("a") + QChar(isStorable ? unit : u'\xFFFD') + "b";
        EXPECT_EQ(brokers.constFirst().UserName, expected);
        EXPECT_EQ(brokers.constFirst().LastWillTopic, expected);
        EXPECT_EQ(publications.constFirst().m_Topic, expected);
        EXPECT_EQ(subscriptions.constFirst().m_Topic, expected);
    }
}

TEST_F(WriteBack, writingTheSameTwiceLeavesTheFileAsItIs)
{
    const TestFile file(Brokers);
    const auto record = brokerRecord();
    EXPECT_TRUE(parser->writeBrokerCfg(file.path(), true, 1, &record));
    const QByteArray first = contentOf(file.path());
    EXPECT_TRUE(parser->writeBrokerCfg(file.path(), true, 1, &record));
    EXPECT_EQ(contentOf(file.path()), first);
}

TEST_F(WriteBack, aFileThatCannotBeLoadedIsNamedAndLeftAlone)
{
    auto record = publicationRecord(u"t", 0, 0, 0);
    const TestFile malformed("<PublicationsConf><Publications>");
    const LogCapture log;
    EXPECT_FALSE(parser->writePublicationCfg(malformed.path(), 7, &record));
    EXPECT_EQ(contentOf(malformed.path()), "<PublicationsConf><Publications>");
    EXPECT_FALSE(parser->writePublicationCfg(malformed.path() + "-none", 7, &record));
    EXPECT_FALSE(QFile::exists(malformed.path() + "-none"));
    EXPECT_THAT(log.lines(), ElementsAre(MatchesRegex("ERROR setContent failed errorString:.*"),
                                         "ERROR file not open: " + malformed.path().toStdString() + "-none"));
}

TEST_F(WriteBack, aFileOfAnotherKindIsLeftAlone)
{
    const TestFile file(Brokers);
    auto record = publicationRecord(u"t", 0, 0, 0);
    EXPECT_FALSE(parser->writePublicationCfg(file.path(), 1, &record));
    EXPECT_EQ(contentOf(file.path()), Brokers);
}

TEST_F(WriteBack, aFileThatCannotBeWrittenKeepsItsContentWithoutALine)
{
    const TestFile file(Publications);
    auto record = publicationRecord(u"t", 0, 0, 0);
    setReachable(file.path(), 0444);
    const LogCapture log;
    {
        const Unprivileged nobody;
        EXPECT_FALSE(parser->writePublicationCfg(file.path(), 7, &record));
    }
    EXPECT_EQ(contentOf(file.path()), Publications);
    const QByteArray full = Publications + "<!--" + QByteArray(8192 - 7 - Publications.size(), '.') + "-->";
    auto longRecord = publicationRecord(std::u16string(255, u'\n'), 0, 0, 0);
    EXPECT_EQ(
        writeOnFullDisk(full, [&](const QString& path) { return parser->writePublicationCfg(path, 7, &longRecord); }),
        WriteOutcome::Refused);
    EXPECT_THAT(log.lines(), ElementsAre());
}

TEST_F(WriteBack, eachKindHasItsFileInTheConfigurationDirectory)
{
    ASSERT_FALSE(QDir("/VEL").exists()) << "there is a device's file tree";
    auto broker = brokerRecord();
    auto publication = publicationRecord(u"t", 3, 0, 0);
    auto subscription = recordOfGarbage<SubscriptionConfigurationStruct>();
    const LogCapture log;
    EXPECT_FALSE(parser->SetClientBrokerCfgFileUniqueID(true, 1, &broker));
    EXPECT_FALSE(parser->SetPublisherCfgFileUniqueID(7, &publication));
    EXPECT_FALSE(parser->SetSubscriberCfgFileUniqueID(3, &subscription));
    EXPECT_THAT(log.lines(), ElementsAre("ERROR file not open: /VEL/UserApps/Config/MQTT/Brokers.xml",
                                         "ERROR file not open: /VEL/UserApps/Config/MQTT/Publications.xml",
                                         "ERROR file not open: /VEL/UserApps/Config/MQTT/Subscriptions.xml"));
    EXPECT_EQ(publication.QoS, 0);
}

} // namespace
