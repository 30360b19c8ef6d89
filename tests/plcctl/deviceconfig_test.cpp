#include "deviceconfig.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace plcctl;

namespace {

class DeviceConfigTest : public testing::Test
{
protected:
    void SetUp() override
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "plcctl-XXXXXX").string();
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        directory = pattern;
        put("MQTTClientConf.xml",
            R"(<ClientConf Version="1"><General Addr="1024"/><Statistics Addr="1536"/></ClientConf>)");
        put("Brokers.xml", "<BrokersConf><Brokers/></BrokersConf>");
        put("Subscriptions.xml", "<SubscriptionsConf><Subscriptions/></SubscriptionsConf>");
        put("Publications.xml", "<PublicationsConf><Publications/></PublicationsConf>");
    }

    void TearDown() override { std::filesystem::remove_all(directory); }

    void put(const char* name, const std::string& content) const { std::ofstream(directory / name) << content; }

    void putPublications(const std::string& entries) const
    {
        put("Publications.xml", "<PublicationsConf><Publications>" + entries + "</Publications></PublicationsConf>");
    }

    [[nodiscard]] DeviceConfig read() const { return readDeviceConfig(directory.string(), ConfigScope::AllFiles); }

    std::filesystem::path directory;
};

} // namespace

TEST_F(DeviceConfigTest, WholeFilesGiveTheirEntriesAndNoProblem)
{
    put("Brokers.xml", R"(<?xml version="1.0" encoding="UTF-8"?>
<!-- a comment --><BrokersConf Version="1"><Brokers>
<BrokerConf ID="1" Name="Werk S&#252;d" IPOrURL="192.168.10.5" Port="8883" BrokerAddr="4096"
            LastWillAddr="2048" DataType="11_20"/>
<BrokerConf ID="2" Name="b" IPOrURL="h" Port="1883" BrokerAddr="4100" LastWillAddr="-1"/>
</Brokers></BrokersConf>)");
    put("Subscriptions.xml", R"(<SubscriptionsConf><Subscriptions>
<SubscriptionConf ID="3" Name="setpoint" DataAddr="8192" SubAddr="9000" Ent="4" DataType="8"/>
</Subscriptions></SubscriptionsConf>)");
    putPublications(
        R"(<PublicationConf ID="7" Name="level" DataAddr="3000" BrokerReceivedAddr="3100" Ent="0" DataType="4"/>)");

    const DeviceConfig config = read();
    EXPECT_TRUE(config.problems.empty());
    EXPECT_EQ(config.generalAddress, 1024U);
    EXPECT_EQ(config.statisticsAddress, 1536U);
    ASSERT_EQ(config.brokers.size(), 2U);
    EXPECT_EQ(config.brokers[0].id, 1);
    EXPECT_EQ(config.brokers[0].name, "Werk S\u00FCd");
    EXPECT_EQ(config.brokers[0].host, "192.168.10.5");
    EXPECT_EQ(config.brokers[0].port, 8883U);
    EXPECT_EQ(config.brokers[0].statusAddress, 4096U);
    EXPECT_EQ(config.brokers[0].willAddress, 2048U);
    EXPECT_EQ(config.brokers[0].willSize, 21U);
    EXPECT_EQ(config.brokers[1].willAddress, std::nullopt);
    ASSERT_EQ(config.publications.size(), 1U);
    EXPECT_EQ(config.publications[0].id, 7);
    EXPECT_EQ(config.publications[0].dataAddress, 3000U);
    EXPECT_EQ(config.publications[0].dataSize, 2U);
    EXPECT_EQ(config.publications[0].acknowledgeAddress, 3100U);
    ASSERT_EQ(config.subscriptions.size(), 1U);
    EXPECT_EQ(config.subscriptions[0].dataSize, 16U);
    EXPECT_EQ(config.subscriptions[0].recordAddress, 9000U);
}

TEST_F(DeviceConfigTest, AStructEndsWhereItsLastMemberEnds)
{
    putPublications(R"(<PublicationConf ID="1" DataType="10"><Other/><DataMembers>
<DataMember Off="0x0" DataType="7" DName="counter" Ent="0"/>
<DataMember Off="0x4" DataType="11_16" DName="label" Ent="0"/>
</DataMembers></PublicationConf><PublicationConf ID="2" DataType="10"/><PublicationConf ID="3" DataType="12_5"/>)");
    const DeviceConfig config = read();
    ASSERT_EQ(config.publications.size(), 3U);
    EXPECT_EQ(config.publications[0].dataSize, 21U);
    EXPECT_EQ(config.publications[1].dataSize, 0U);
    EXPECT_EQ(config.publications[2].id, 3);
    EXPECT_EQ(config.publications[2].dataSize, 12U);
    EXPECT_TRUE(config.problems.empty());
}

TEST_F(DeviceConfigTest, AfterTheFirstEntryElementsOfAnyNameCount)
{
    putPublications(R"(<Ignored ID="1"/><PublicationConf ID="2"/><Taken ID="3"/>)");
    const DeviceConfig config = read();
    ASSERT_EQ(config.publications.size(), 2U);
    EXPECT_EQ(config.publications[0].id, 2);
    EXPECT_EQ(config.publications[1].id, 3);
}

TEST_F(DeviceConfigTest, BadNumbersAreZeroAndAreNoProblem)
{
    putPublications(R"(<PublicationConf ID="x" DataAddr="-5" DataType="11_70000000000"/>)");
    const DeviceConfig config = read();
    ASSERT_EQ(config.publications.size(), 1U);
    EXPECT_EQ(config.publications[0].id, 0);
    EXPECT_EQ(config.publications[0].dataAddress, 0U);
    EXPECT_EQ(config.publications[0].dataSize, 1U);
    EXPECT_EQ(config.publications[0].acknowledgeAddress, 0U);
    EXPECT_TRUE(config.problems.empty());
}

TEST_F(DeviceConfigTest, ABrokenFileGivesItsEntriesUpToTheBreakAndAProblem)
{
    put("Brokers.xml", "<BrokersConf><Brokers><BrokerConf ID=\"1\"/>\n<BrokerConf ID=2/></Brokers></BrokersConf>");
    const DeviceConfig config = read();
    ASSERT_EQ(config.brokers.size(), 1U);
    ASSERT_EQ(config.problems.size(), 1U);
    EXPECT_EQ(config.problems[0].file, (directory / "Brokers.xml").string());
    EXPECT_TRUE(config.problems[0].text.starts_with("line 2, column ")) << config.problems[0].text;
}

TEST_F(DeviceConfigTest, ABreakBehindTheLastEntryIsAProblem)
{
    put("Brokers.xml", "<BrokersConf><Brokers><BrokerConf ID=\"1\"/></Brokers><Open></BrokersConf>");
    const DeviceConfig config = read();
    EXPECT_EQ(config.brokers.size(), 1U);
    EXPECT_EQ(config.problems.size(), 1U);
}

TEST_F(DeviceConfigTest, EachFileThatCannotBeReadIsAProblemOfItsOwn)
{
    std::filesystem::remove(directory / "MQTTClientConf.xml");
    put("Brokers.xml", "");
    put("Subscriptions.xml", "<Wrong/>");
    std::filesystem::remove(directory / "Publications.xml");
    ASSERT_EQ(mkfifo((directory / "Publications.xml").c_str(), 0600), 0);
    const DeviceConfig config = read();
    ASSERT_EQ(config.problems.size(), 4U);
    EXPECT_EQ(config.problems[0].text, "can't be read: No such file or directory");
    EXPECT_NE(config.problems[1].text, "");
    EXPECT_EQ(config.problems[2].text, "its top element is not SubscriptionsConf");
    EXPECT_EQ(config.problems[3].text, "this is no file");
    EXPECT_EQ(config.generalAddress, std::nullopt);
}

TEST_F(DeviceConfigTest, AGeneralFileNeedsBothElements)
{
    put("MQTTClientConf.xml", R"(<ClientConf><General Addr="1024"/></ClientConf>)");
    const DeviceConfig config = read();
    EXPECT_EQ(config.generalAddress, 1024U);
    EXPECT_EQ(config.statisticsAddress, std::nullopt);
    EXPECT_EQ(config.problems.size(), 1U);
}

TEST_F(DeviceConfigTest, TheStatusRecordsNeedOnlyTheirThreeFiles)
{
    std::filesystem::remove(directory / "Publications.xml");
    EXPECT_TRUE(readDeviceConfig(directory.string(), ConfigScope::StatusRecords).problems.empty());
    std::filesystem::remove(directory / "Subscriptions.xml");
    EXPECT_EQ(readDeviceConfig(directory.string(), ConfigScope::StatusRecords).problems.size(), 1U);
}

TEST_F(DeviceConfigTest, EntitiesThatGrowWithoutBoundAreAProblemAndNotAHang)
{
    std::string document = "<!DOCTYPE x [<!ENTITY a0 \"aaaaaaaaaa\">";
    for (int level = 1; level < 12; ++level) {
        document += "<!ENTITY a" + std::to_string(level) + " \"";
        for (int copy = 0; copy < 10; ++copy)
            document += "&a" + std::to_string(level - 1) + ";";
        document += "\">";
    }
    put("Brokers.xml", document + "]><BrokersConf><Brokers><BrokerConf Name=\"&a11;\"/></Brokers></BrokersConf>");
    EXPECT_EQ(read().problems.size(), 1U);
}

TEST_F(DeviceConfigTest, ReadingLeavesTheFilesAndTheDirectoryAlone)
{
    const auto before = std::filesystem::last_write_time(directory / "Brokers.xml");
    std::filesystem::remove(directory / "Publications.xml");
    static_cast<void>(read()); // what stays behind is the point
    EXPECT_EQ(std::filesystem::last_write_time(directory / "Brokers.xml"), before);
    EXPECT_FALSE(std::filesystem::exists(directory / "Publications.xml"));
}

TEST_F(DeviceConfigTest, EveryEntityKeepsItsAttributesAsTheyStandInTheFile)
{
    put("Brokers.xml",
        R"(<BrokersConf><Brokers><BrokerConf ID="1" Port=" 12 " Other="a&#10;&amp;"/></Brokers></BrokersConf>)");
    put("Subscriptions.xml",
        R"(<SubscriptionsConf><Subscriptions><SubscriptionConf Topic="S&#252;d/+"/></Subscriptions></SubscriptionsConf>)");
    putPublications(R"(<PublicationConf Topic="{PLC.NAME}" QOS=""/>)");

    const DeviceConfig config = read();
    EXPECT_EQ(config.brokers.at(0).attributes, (Attributes{{"ID", "1"}, {"Port", " 12 "}, {"Other", "a\n&"}}));
    EXPECT_EQ(config.subscriptions.at(0).attributes, (Attributes{{"Topic", "S\u00FCd/+"}}));
    EXPECT_EQ(config.publications.at(0).attributes, (Attributes{{"Topic", "{PLC.NAME}"}, {"QOS", ""}}));
}
