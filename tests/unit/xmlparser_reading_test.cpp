#include "xmlparsertest.h"

#include <sys/stat.h>

namespace {

TEST_F(XmlDocument, countsTheChildElementsOfItsRoot)
{
    EXPECT_EQ(parser.getNumOfChildTags(), 3);
    load("<r>text<!-- c --><a/><b><c/></b></r>");
    EXPECT_EQ(parser.getNumOfChildTags(), 2);
    EXPECT_EQ(XmlParser().getNumOfChildTags(), 0);
}

TEST_F(XmlDocument, tellsTheTextOfTheFirstElementAtAPath)
{
    EXPECT_EQ(parser.getXmlData(Lines), "first");
    EXPECT_EQ(parser.getXmlData({"Drive", "Kind"}), "belt");
    EXPECT_EQ(parser.getXmlData({"Drive"}), "belt5");
    EXPECT_EQ(parser.getXmlData({"Lines", "None"}), "");
    EXPECT_EQ(parser.getXmlData({"None", "Line"}), "");
    EXPECT_EQ(parser.getXmlData({"Plant", "Lines", "Line"}), ""); // the root's name is not part of a path
    load("<r>all <i>of</i> it</r>");
    EXPECT_EQ(parser.getXmlData({}), "all of it");
    EXPECT_EQ(XmlParser().getXmlData({}), "");
}

TEST_F(XmlDocument, tellsTheTextsOfAllElementsOfASearch)
{
    EXPECT_EQ(parser.getXmlDataList(Lines), (QStringList{"first", "second", "", "last"}));
    EXPECT_EQ(parser.getXmlDataList({"Drive", "Kind"}), (QStringList{"belt"})); // of the first drive alone
    EXPECT_EQ(parser.getXmlDataList({"None", "Line"}), QStringList());
    load("<r>one</r>");
    EXPECT_EQ(parser.getXmlDataList({}), (QStringList{"one"}));
}

TEST_F(XmlDocument, knowsWhetherAnElementHasAnAttributesValue)
{
    EXPECT_TRUE(parser.isTagExists(Lines, "ID", "4"));
    EXPECT_TRUE(parser.isTagExists(Lines, "Speed", "30"));
    EXPECT_FALSE(parser.isTagExists(Lines, "ID", "3")); // an element of another name
    EXPECT_FALSE(parser.isTagExists(Lines, "ID", "04"));
    EXPECT_FALSE(parser.isTagExists(Lines, "Name", "press"));
    EXPECT_FALSE(parser.isTagExists({"None", "Line"}, "ID", "1"));
    EXPECT_TRUE(parser.isTagExists({}, "Name", "press"));
    EXPECT_TRUE(parser.isTagExists(Lines, QString(), "anything"));
    EXPECT_FALSE(parser.isTagExists({"None"}, QString(), "anything"));
}

TEST_F(XmlDocument, appendsAnAttributeOfAllElements)
{
    QStringList values{"before"};
    EXPECT_TRUE(parser.getTagsAttributeValues(Lines, "Speed", values));
    EXPECT_EQ(values, (QStringList{"before", "10", "20", "30", ""}));
    EXPECT_FALSE(parser.getTagsAttributeValues({"Lines", "None"}, "Speed", values));
    EXPECT_FALSE(parser.getTagsAttributeValues({"None", "Line"}, "Speed", values));
    EXPECT_EQ(values.size(), 5);
}

TEST_F(XmlDocument, appendsTheAttributesOfTheElementThatIsFound)
{
    QStringList values{"before"};
    EXPECT_TRUE(parser.getTagAttributesValues(Lines, "ID", "2", {"Speed", "None", "ID"}, values));
    EXPECT_EQ(values, (QStringList{"before", "20", "", "2"}));
    EXPECT_TRUE(parser.getTagAttributesValues(Lines, QString(), QString(), {"ID"}, values));
    EXPECT_EQ(values.takeLast(), "1");
    EXPECT_FALSE(parser.getTagAttributesValues(Lines, "ID", "9", {"Speed"}, values));
    EXPECT_FALSE(parser.getTagAttributesValues({"None", "Line"}, "ID", "1", {"Speed"}, values));
    EXPECT_EQ(values.size(), 4);
}

TEST_F(XmlDocument, appendsTheAttributesOfTheFirstElement)
{
    QStringList values{"before"};
    EXPECT_TRUE(parser.getTagAttributesValues(Lines, {"ID", "Speed"}, values));
    EXPECT_TRUE(parser.getTagAttributesValues({}, {"Name"}, values));
    EXPECT_EQ(values, (QStringList{"before", "1", "10", "press"}));
    EXPECT_FALSE(parser.getTagAttributesValues({"None"}, {"Name"}, values));
    EXPECT_EQ(values.size(), 4);
}

TEST_F(XmlDocument, appendsTheAttributesOfAnElementByItsPosition)
{
    const auto speed = [&](int index) {
        QStringList values;
        return parser.getTagAttributesIndexValues(Lines, index, {}, {}, {}, {"Speed"}, values) ? values.join(',')
                                                                                               : QString("none");
    };
    EXPECT_EQ(speed(0), "10");
    EXPECT_EQ(speed(2), "30"); // the one of another name doesn't count
    EXPECT_EQ(speed(3), "");
    EXPECT_EQ(speed(4), "none");
    EXPECT_EQ(speed(-1), "none");
    QStringList values;
    EXPECT_TRUE(parser.getTagAttributesIndexValues({}, 0, {}, {}, {}, {"Name"}, values));
    EXPECT_EQ(values, (QStringList{"press"}));
    EXPECT_FALSE(parser.getTagAttributesIndexValues({}, 1, {}, {}, {}, {"Name"}, values));
}

TEST_F(XmlDocument, appendsTheAttributesOfAChildOfAnElementByItsPosition)
{
    const auto load = [&](const QStringList& names, const QStringList& values) {
        QStringList found;
        return parser.getTagAttributesIndexValues(Lines, 1, "Drive", names, values, {"Load"}, found) ? found.join(',')
                                                                                                     : QString("none");
    };
    EXPECT_EQ(load({}, {}), "5");
    EXPECT_EQ(load({"Kind"}, {"chain"}), "6");
    EXPECT_EQ(load({"Kind", "Load"}, {"chain", "6"}), "6");
    EXPECT_EQ(load({"Kind", "Load"}, {"chain", "5"}), "none");
    EXPECT_EQ(load({"Kind"}, {}), "none");
    QStringList values;
    EXPECT_FALSE(parser.getTagAttributesIndexValues(Lines, 0, "Drive", {}, {}, {"Load"}, values));
    EXPECT_TRUE(values.isEmpty());
}

TEST_F(XmlDocument, countsTheLinesOfItsFileThatBeginWithATag)
{
    EXPECT_EQ(parser.getTotalNumOfTag("Line"), 5); // "<Lines>" as well
    EXPECT_EQ(parser.getTotalNumOfTag("Line "), 4);
    EXPECT_EQ(parser.getTotalNumOfTag("Kind"), 0); // within a line
    EXPECT_EQ(parser.getTotalNumOfTag("/Plant"), 1);
    EXPECT_EQ(parser.getTotalNumOfTag("None"), 0);
    EXPECT_EQ(XmlParser().getTotalNumOfTag("Line"), 0);
}

TEST(XmlParserFile, countsLinesOnlyInWhatCanBeReadToTheEnd)
{
    const QTemporaryDir directory;
    const QString pipe = directory.filePath("pipe");
    ASSERT_EQ(mkfifo(pipe.toLocal8Bit().constData(), 0600), 0);
    const TestFile huge("<Line/>\n");
    ASSERT_TRUE(QFile::resize(huge.path(), qint64{1} << 40));
    XmlParser parser;
    for (const QString& path : {pipe, directory.path(), QString("/dev/zero"), huge.path()}) {
        parser.m_xmlFile = path;
        EXPECT_EQ(parser.getTotalNumOfTag("Line"), 0) << path.toStdString();
    }
}

TEST_F(XmlDocument, readsAnAttributeStraightFromAFile)
{
    const auto read = [&](const QString& node, const QString& attribute, int index) {
        QString value = "untouched";
        const bool isRead = XmlParser::ReadNodeAttributeByIdx(file->path(), node, attribute, index, value);
        EXPECT_EQ(isRead, value != "untouched");
        return value;
    };
    EXPECT_EQ(read("Line", "ID", 0), "1");
    EXPECT_EQ(read("Line", "Speed", 2), "30");
    EXPECT_EQ(read("Drive", "Load", 1), "6"); // in the order of the file, whatever the depth
    EXPECT_EQ(read("Plant", "Name", 0), "press");
    EXPECT_EQ(read("Line", "Speed", 3), "untouched");
    EXPECT_EQ(read("Line", "ID", 4), "untouched");
    EXPECT_EQ(read("Line", "ID", -1), "untouched");
    EXPECT_EQ(read("None", "ID", 0), "untouched");
}

TEST(XmlParserFile, aStraightReadSeesOnlyWhatStandsAheadOfAMistake)
{
    const TestFile file("<r><a b='1'/><a b='2'></r>");
    QString value;
    EXPECT_TRUE(XmlParser::ReadNodeAttributeByIdx(file.path(), "a", "b", 1, value));
    EXPECT_EQ(value, "2");
    EXPECT_FALSE(XmlParser::ReadNodeAttributeByIdx(file.path(), "a", "b", 2, value));
    EXPECT_FALSE(XmlParser::ReadNodeAttributeByIdx("/nonexistent/file.xml", "a", "b", 0, value));
    EXPECT_FALSE(XmlParser::ReadNodeAttributeByIdx("/dev/zero", "a", "b", 0, value));
    EXPECT_EQ(value, "2");
}

TEST(XmlParserFile, aStraightReadTakesNamesWithPrefixesAsTheyAre)
{
    const TestFile file("<r><x:a b='1'/></r>");
    QString value;
    EXPECT_TRUE(XmlParser::ReadNodeAttributeByIdx(file.path(), "x:a", "b", 0, value));
    EXPECT_EQ(value, "1");
}

} // namespace
