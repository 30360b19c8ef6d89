#include "xmlparsertest.h"

namespace {

// The document with one text in it replaced.
std::vector<std::string> changed(QByteArray content, const QByteArray& before, const QByteArray& after)
{
    EXPECT_EQ(content.count(before), 1) << before.toStdString();
    return canonical(content.replace(before, after));
}

TEST_F(XmlDocument, setsAttributesOfTheElementThatIsFound)
{
    EXPECT_TRUE(parser.setTagAttributesValues(Lines, "ID", "1", {"Speed", "Name"}, {"11", "saw"}, true));
    EXPECT_EQ(canonical(contentOf(file->path())), changed(Plant, "ID='1' Speed='10'", "ID='1' Speed='11' Name='saw'"));
}

TEST_F(XmlDocument, anAttributeValueThatNoElementHasChangesNothingAndSucceeds)
{
    EXPECT_TRUE(parser.setTagAttributesValues(Lines, "ID", "9", {"Speed"}, {"11"}, true));
    EXPECT_EQ(canonical(contentOf(file->path())), canonical(Plant));
}

TEST_F(XmlDocument, anElementOfAnotherNameIsNotFound)
{
    EXPECT_TRUE(parser.setTagAttributesValues(Lines, "ID", "3", {"Speed"}, {"11"}, true));
    EXPECT_EQ(attributeInFile("3", "Speed"), "99");
}

TEST_F(XmlDocument, aMissingElementOfThePathFailsAndLeavesTheFileAlone)
{
    EXPECT_FALSE(parser.setTagAttributesValues({"None", "Line"}, "ID", "1", {"Speed"}, {"11"}, true));
    EXPECT_FALSE(parser.setTagAttributesValues({"Plant", "Lines", "Line"}, "ID", "1", {"Speed"}, {"11"}, true));
    EXPECT_EQ(contentOf(file->path()), Plant);
    EXPECT_TRUE(parser.setTagAttributesValues({"Lines", "None"}, "ID", "1", {"Speed"}, {"11"}, true));
    EXPECT_EQ(canonical(contentOf(file->path())), canonical(Plant));
}

TEST_F(XmlDocument, aNullAttributeNameTakesTheFirstElement)
{
    EXPECT_TRUE(parser.setTagAttributesValues(Lines, QString(), "4", {"Speed"}, {"11"}, true));
    EXPECT_EQ(attributeInFile("1", "Speed"), "11");
    EXPECT_EQ(attributeInFile("4", "Speed"), "");
}

TEST_F(XmlDocument, anEmptyAttributeNameIsComparedLikeAnyOther)
{
    EXPECT_TRUE(parser.setTagAttributesValues(Lines, "", "4", {"Speed"}, {"11"}, true));
    EXPECT_EQ(canonical(contentOf(file->path())), canonical(Plant));
}

TEST_F(XmlDocument, ofTwoElementsWithTheValueTheFirstIsChanged)
{
    EXPECT_TRUE(parser.setTagAttributesValues(Lines, "ID", "2", {"Speed"}, {"21"}, true));
    EXPECT_EQ(canonical(contentOf(file->path())), changed(Plant, "Speed='20'", "Speed='21'"));
}

TEST_F(XmlDocument, anEmptyPathIsTheRoot)
{
    EXPECT_TRUE(parser.setTagAttributesValues({}, "Name", "press", {"Name"}, {"saw"}, true));
    EXPECT_TRUE(parser.setTagAttributesValues({}, "Name", "press", {"Name"}, {"drill"}, true));
    EXPECT_EQ(canonical(contentOf(file->path())), changed(Plant, "Name='press'", "Name='saw'"));
}

TEST_F(XmlDocument, aValueThatIsMissingIsEmptyAndOneTooManyIsLeftOut)
{
    EXPECT_TRUE(parser.setTagAttributesValues(Lines, "ID", "1", {"Speed", "Name"}, {"11"}, true));
    EXPECT_TRUE(parser.setTagAttributesValues(Lines, "ID", "4", {"Speed"}, {"44", "more"}, true));
    EXPECT_EQ(attributeInFile("1", "Speed"), "11");
    EXPECT_TRUE(contentOf(file->path()).contains("Name=\"\""));
    EXPECT_EQ(attributeInFile("4", "Speed"), "44");
}

TEST_F(XmlDocument, setsAttributesOfAnElementByItsPosition)
{
    EXPECT_TRUE(parser.setTagAttributesIndexValues(Lines, 3, {}, {"Speed"}, {"40"}, true, true));
    EXPECT_EQ(attributeInFile("4", "Speed"), "40");
    EXPECT_TRUE(parser.setTagAttributesIndexValues(Lines, 1, "Drive", {"Load"}, {"7"}, true, true));
    EXPECT_TRUE(contentOf(file->path()).contains("Load=\"7\""));
    const QByteArray before = contentOf(file->path());
    EXPECT_FALSE(parser.setTagAttributesIndexValues(Lines, 4, {}, {"Speed"}, {"50"}, true, true));
    EXPECT_FALSE(parser.setTagAttributesIndexValues(Lines, -1, {}, {"Speed"}, {"50"}, true, true));
    EXPECT_FALSE(parser.setTagAttributesIndexValues(Lines, 0, "Drive", {"Load"}, {"8"}, true, true));
    EXPECT_EQ(contentOf(file->path()), before);
}

TEST_F(XmlDocument, setsAttributesOfTheRoot)
{
    EXPECT_TRUE(parser.setMainTagAttributes({"Name", "Floor"}, {"saw", "2"}, true, true));
    EXPECT_EQ(canonical(contentOf(file->path())), changed(Plant, "Name='press'", "Name='saw' Floor='2'"));
    XmlParser empty;
    EXPECT_FALSE(empty.setMainTagAttributes({"Name"}, {"saw"}, true, false));
}

TEST_F(XmlDocument, changesStayInMemoryWhereNoWritingIsAskedFor)
{
    EXPECT_TRUE(parser.setMainTagAttributes({"Name"}, {"saw"}, true, false));
    EXPECT_TRUE(parser.setTagAttributesIndexValues(Lines, 0, {}, {"Speed"}, {"50"}, true, false));
    EXPECT_TRUE(parser.addTag({}, "New", {}, {}, false, false));
    EXPECT_TRUE(parser.removeTag({}, "Lines", false));
    EXPECT_TRUE(parser.findTag({}, "Drive", {}, {}, true));
    EXPECT_EQ(contentOf(file->path()), Plant);
    EXPECT_EQ(parser.getRootElement().attribute("Name"), "saw");
    EXPECT_EQ(parser.getNumOfChildTags(), 2);
}

TEST_F(XmlDocument, findsAnElementByTheTextsOfItsChildren)
{
    EXPECT_TRUE(parser.findTag({}, "Drive", {"Kind", "Load"}, {"chain", "5"}, false));
    EXPECT_FALSE(parser.findTag({}, "Drive", {"Kind", "Load"}, {"chain", "6"}, false));
    EXPECT_FALSE(parser.findTag({}, "Drive", {"None"}, {""}, false)); // an empty text is not a missing element
    EXPECT_FALSE(parser.findTag({}, "Drive", {"Kind"}, {}, false));
    EXPECT_TRUE(parser.findTag({}, "Drive", {}, {}, false));
    EXPECT_TRUE(parser.findTag({"Lines"}, "Line", {}, {}, false));
    EXPECT_FALSE(parser.findTag({"None"}, "Line", {}, {}, false));
}

TEST_F(XmlDocument, removesAnElementThatWasFoundOnlyFromTheRoot)
{
    EXPECT_TRUE(parser.findTag({}, "Drive", {"Kind"}, {"chain"}, true));
    EXPECT_FALSE(parser.findTag({}, "Drive", {"Kind"}, {"chain"}, false));
    EXPECT_TRUE(parser.findTag({}, "Drive", {"Kind"}, {"belt"}, false));
    EXPECT_TRUE(parser.findTag({"Lines"}, "Line", {}, {}, true));
    EXPECT_EQ(parser.getXmlDataList(Lines).size(), 4);
}

TEST_F(XmlDocument, addsAnElementWithTextsAtTheEndOfAPath)
{
    EXPECT_TRUE(parser.addTag({"Lines"}, "Shift", {"From", "To"}, {"6:00 & later", "14:00"}, false, true));
    EXPECT_EQ(canonical(contentOf(file->path())),
              changed(Plant, "</Lines>", "<Shift><From>6:00 &amp; later</From><To>14:00</To></Shift></Lines>"));
    EXPECT_FALSE(parser.addTag({"None"}, "Shift", {}, {}, false, false));
    EXPECT_FALSE(XmlParser().addTag({}, "Shift", {}, {}, false, false));
}

TEST_F(XmlDocument, addsAnElementAsTheRootsFirstChild)
{
    EXPECT_TRUE(parser.addTag({"None"}, "Shift", {"From"}, {}, true, true)); // the path isn't looked at
    EXPECT_EQ(canonical(contentOf(file->path())),
              changed(Plant, "<Plant Name='press'>", "<Plant Name='press'><Shift><From></From></Shift>"));
    EXPECT_FALSE(XmlParser().addTag({}, "Shift", {}, {}, true, false));
}

TEST_F(XmlDocument, aTextThatXmlCannotHoldIsReplacedInANewElement)
{
    EXPECT_TRUE(parser.addTag({}, "Note", {"Text"}, {QString("a") + QChar(0xFFFE)}, false, true));
    EXPECT_TRUE(parser.refreshXml());
    EXPECT_EQ(parser.getXmlData({"Note", "Text"}), QString("a") + QChar(0xFFFD));
}

TEST_F(XmlDocument, removesTheLastElementOfAName)
{
    EXPECT_TRUE(parser.removeTag(Lines, "Line", true));
    EXPECT_EQ(canonical(contentOf(file->path())), changed(Plant, "<Line ID='4'>last</Line>", ""));
    EXPECT_TRUE(parser.removeTag({}, "Drive", true));
    EXPECT_EQ(parser.getXmlDataList({"Drive", "Kind"}), (QStringList{"belt"}));
    EXPECT_FALSE(parser.findTag({}, "Drive", {"Kind"}, {"chain"}, false));
    const QByteArray before = contentOf(file->path());
    EXPECT_FALSE(parser.removeTag(Lines, "None", true));
    EXPECT_FALSE(parser.removeTag({"None", "Line"}, "Line", true));
    EXPECT_EQ(contentOf(file->path()), before);
}

TEST_F(XmlDocument, anotherRootElementIsWhereAllPathsBegin)
{
    parser.setRootElement(parser.getRootElement().firstChildElement("Lines"));
    EXPECT_EQ(parser.getXmlData({"Line"}), "first");
    EXPECT_TRUE(parser.setTagAttributesValues({"Line"}, "ID", "1", {"Speed"}, {"11"}, true));
    EXPECT_EQ(canonical(contentOf(file->path())), changed(Plant, "Speed='10'", "Speed='11'"));
}

TEST_F(XmlDocument, aWriterThatCannotWriteSaysSo)
{
    parser.m_xmlFile = "/nonexistent/file.xml";
    EXPECT_FALSE(parser.setMainTagAttributes({"Name"}, {"saw"}, true, true));
    EXPECT_FALSE(parser.setTagAttributesIndexValues(Lines, 0, {}, {"Speed"}, {"50"}, true, true));
    EXPECT_FALSE(parser.addTag({}, "New", {}, {}, false, true));
    EXPECT_FALSE(parser.removeTag({}, "New", true));
}

TEST(XmlParserFile, canBeMadeAnew)
{
    const TestFile file("something else that is longer than what comes");
    EXPECT_TRUE(XmlParser::createXmlfile(file.path(), "Plants", "Plant", "Line", {"Name", "Speed", "Note"},
                                         {QString::fromUtf8("Größe <1>"), "5"}));
    EXPECT_EQ(canonical(contentOf(file.path())),
              canonical("<!DOCTYPE Plants><Plant><Line><Name>Gr\xC3\xB6\xC3\x9F\x65 &lt;1></Name><Speed>5</Speed>"
                        "<Note/></Line></Plant>"));
    XmlParser parser;
    ASSERT_TRUE(parser.setXmlFile(file.path()));
    EXPECT_EQ(parser.getXmlData({"Line", "Name"}), QString::fromUtf8("Größe <1>"));
}

TEST(XmlParserFile, isMadeWhereNoneWasAndWithoutADocumentType)
{
    const QTemporaryDir directory;
    const QString path = directory.filePath("new.xml");
    EXPECT_TRUE(XmlParser::createXmlfile(path, {}, "Plant", "Line", {}, {}));
    EXPECT_EQ(canonical(contentOf(path)), canonical("<Plant><Line/></Plant>"));
}

TEST(XmlParserFile, isNotMadeWhereItCannotBe)
{
    const TestFile file("kept");
    EXPECT_FALSE(XmlParser::createXmlfile("/nonexistent/file.xml", {}, "Plant", "Line", {}, {}));
    EXPECT_FALSE(XmlParser::createXmlfile(file.path(), {}, "no name", "Line", {}, {}));
    EXPECT_EQ(contentOf(file.path()), "kept");
}

} // namespace
