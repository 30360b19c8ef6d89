#include "Services/mqttXmlParser.h"
#include "unittest.h"

#include <sys/stat.h>

namespace {

class GeneralFile : public ServiceTest
{
protected:
    bool parse(const QByteArray& content) { return parseFile(TestFile(content).path()); }
    bool parseFile(const QString& path)
    {
        return MQTTXmlParser::instance()->ParseXMLFileGeneralCfg(path, version, statistics, general);
    }

    QString version = "before";
    unsigned statistics = 1;
    unsigned general = 2;
};

TEST_F(GeneralFile, tellsWhereTheRecordsLie)
{
    EXPECT_TRUE(parse("<ClientConf Version='1.0'><General Addr='1024'/><Statistics Addr='1536'/></ClientConf>"));
    EXPECT_EQ(version, "1.0");
    EXPECT_EQ(general, 1024U);
    EXPECT_EQ(statistics, 1536U);
}

TEST_F(GeneralFile, aMissingAddressIsZero)
{
    EXPECT_TRUE(parse("<ClientConf><General/><Statistics Addr='x'/></ClientConf>"));
    EXPECT_EQ(general, 0U);
    EXPECT_EQ(statistics, 0U);
}

TEST_F(GeneralFile, numbersAreDecimalAndUnsigned)
{
    EXPECT_TRUE(parse("<ClientConf><General Addr='4294967295'/><Statistics Addr='0x10'/></ClientConf>"));
    EXPECT_EQ(general, 4294967295U);
    EXPECT_EQ(statistics, 0U);
}

TEST_F(GeneralFile, aMissingElementFailsWithoutALineAndLeavesTheAddresses)
{
    const LogCapture log;
    EXPECT_FALSE(parse("<ClientConf Version='2'><General Addr='1'/></ClientConf>"));
    EXPECT_FALSE(parse("<ClientConf Version='2'><Statistics Addr='1'/></ClientConf>"));
    EXPECT_EQ(version, "2");
    EXPECT_EQ(general, 2U);
    EXPECT_EQ(statistics, 1U);
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(GeneralFile, aWrongTopElementFails)
{
    EXPECT_FALSE(parse("<Conf><General Addr='1'/><Statistics Addr='2'/></Conf>"));
}

TEST_F(GeneralFile, aFileThatCannotBeOpenedFailsWithoutALine)
{
    const LogCapture log;
    EXPECT_FALSE(parseFile("/nonexistent/MQTTClientConf.xml"));
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(GeneralFile, malformedContentFailsWithLineAndColumn)
{
    const LogCapture log;
    EXPECT_FALSE(parse("<ClientConf>\n<General></ClientConf>"));
    EXPECT_THAT(log.lines(), testing::ElementsAre(testing::MatchesRegex(
                                 "ERROR invalid content due to .* \\(line=2 \\| column=[0-9]+\\)")));
}

} // namespace
