#include "logformatters.h"
#include "Utils/xmldocumentreader.h"
#include "xmlparsertest.h"

#include <plog/Init.h>
#include <QDir>
#include <QFileInfo>
#include <QTextCodec>
#include <QXmlStreamReader>
#include <sys/stat.h>

const QByteArray XmlDocument::Plant =
    "<?xml version='1.0' encoding='UTF-8'?>\n"
    "<Plant Name='press'>\n"
    "  <Lines>\n"
    "    <Line ID='1' Speed='10'>first</Line>\n"
    "    <Line ID='2' Speed='20'>second<Drive Kind='belt' Load='5'/><Drive Kind='chain' Load='6'/></Line>\n"
    "    <Other ID='3' Speed='99'/>\n"
    "    <Line ID='2' Speed='30'/>\n"
    "    <Line ID='4'>last</Line>\n"
    "  </Lines>\n"
    "  <Drive><Kind>belt</Kind><Load>5</Load></Drive>\n"
    "  <Drive><Kind>chain</Kind><Load>5</Load></Drive>\n"
    "</Plant>\n";
const QStringList XmlDocument::Lines = {"Lines", "Line"};

XmlDocument::XmlDocument()
{
    load(Plant);
}

void XmlDocument::load(const QByteArray& content)
{
    file = std::make_unique<TestFile>(content);
    ASSERT_TRUE(parser.setXmlFile(file->path()));
}

QString XmlDocument::attributeInFile(const QString& id, const QString& name) const
{
    QDomDocument document;
    EXPECT_TRUE(document.setContent(contentOf(file->path())));
    const QDomElement lines = document.documentElement().firstChildElement("Lines");
    QDomElement line = lines.firstChildElement();
    while (!line.isNull() && line.attribute("ID") != id)
        line = line.nextSiblingElement();
    return line.attribute(name);
}

namespace {

QString attributesOf(const QXmlStreamReader& reader)
{
    QStringList texts;
    for (const QXmlStreamAttribute& attribute : reader.attributes())
        texts.append(attribute.qualifiedName() + "='" + attribute.value() + "'");
    texts.sort();
    return texts.join(' ');
}

} // namespace

std::vector<std::string> canonical(const QByteArray& content)
{
    QXmlStreamReader reader(content);
    reader.setNamespaceProcessing(false);
    std::vector<std::string> found;
    while (!reader.atEnd()) {
        const auto token = reader.readNext();
        if (token == QXmlStreamReader::StartDocument || (reader.isCharacters() && reader.isWhitespace()))
            continue;
        found.push_back(QStringList{reader.tokenString(), reader.qualifiedName().toString(), attributesOf(reader),
                                    reader.text().toString(), reader.processingInstructionTarget().toString(),
                                    reader.processingInstructionData().toString(), reader.dtdName().toString(),
                                    reader.isCDATA() ? "CDATA" : ""}
                            .join('|')
                            .toStdString());
    }
    EXPECT_FALSE(reader.hasError()) << reader.errorString().toStdString() << "\n" << content.toStdString();
    return found;
}

namespace {

using testing::ElementsAre;
using testing::MatchesRegex;

TEST_F(XmlDocument, isLoadedFromItsFile)
{
    EXPECT_EQ(parser.getXmlFile(), file->path());
    EXPECT_EQ(parser.getRootElement().tagName(), "Plant");
    EXPECT_EQ(parser.m_rootElement.ownerDocument(), parser.m_document);
}

TEST(XmlParserFile, isEmptyAtFirst)
{
    const XmlParser parser;
    EXPECT_EQ(parser.getXmlFile(), "");
    EXPECT_TRUE(parser.getRootElement().isNull());
    EXPECT_EQ(parser.m_document.doctype().name(), "myDocument");
}

TEST(XmlParserFile, aMissingOneIsNamedAndNotMade)
{
    const QTemporaryDir directory;
    const QString path = directory.filePath("50%1.xml");
    const LogCapture log;
    XmlParser parser;
    EXPECT_FALSE(parser.setXmlFile(path));
    EXPECT_THAT(log.lines(), ElementsAre("ERROR file not open: " + path.toStdString()));
    EXPECT_EQ(parser.getXmlFile(), path);
    EXPECT_TRUE(parser.getRootElement().isNull());
    EXPECT_FALSE(QFileInfo::exists(path));
}

TEST(XmlParserFile, aMalformedOneIsNamedAndCanBeTriedAgain)
{
    const TestFile file("<Plant>\n  <Lines>\n</Plant>\n");
    const LogCapture log;
    XmlParser parser;
    EXPECT_FALSE(parser.setXmlFile(file.path()));
    EXPECT_THAT(log.lines(),
                ElementsAre(MatchesRegex("ERROR setContent failed errorString:.+, errorLine:3, errorColumn:[0-9]+")));
    EXPECT_TRUE(parser.getRootElement().isNull());

    QFile(file.path()).open(QIODevice::WriteOnly); // emptied
    EXPECT_FALSE(parser.refreshXml());
    QFile mended(file.path());
    ASSERT_TRUE(mended.open(QIODevice::WriteOnly));
    ASSERT_GT(mended.write("<Plant/>"), 0);
    mended.close();
    EXPECT_TRUE(parser.refreshXml());
    EXPECT_EQ(parser.getRootElement().tagName(), "Plant");
}

TEST_F(XmlDocument, keepsItsElementsWhenAnotherFileIsMalformed)
{
    const TestFile malformed("<Broken>");
    EXPECT_FALSE(parser.setXmlFile(malformed.path()));
    EXPECT_EQ(parser.getXmlFile(), malformed.path());
    EXPECT_EQ(parser.getRootElement().tagName(), "Plant");
    EXPECT_EQ(parser.m_document.documentElement(), parser.getRootElement());
}

TEST(XmlParserFile, whatIsNoRegularFileIsNotOpened)
{
    const QTemporaryDir directory;
    const QString pipe = directory.filePath("pipe");
    ASSERT_EQ(mkfifo(pipe.toLocal8Bit().constData(), 0600), 0);
    XmlParser parser;
    for (const QString& path : {pipe, directory.path(), QString("/dev/zero")}) {
        const LogCapture log;
        EXPECT_FALSE(parser.setXmlFile(path));
        EXPECT_THAT(log.lines(), ElementsAre("ERROR file not open: " + path.toStdString()));
    }
}

TEST(XmlParserFile, hasTheLimitsOfAllConfigurationFiles)
{
    const TestFile deep(QByteArray("<a>").repeated(100'000) + QByteArray("</a>").repeated(100'000));
    const TestFile entities("<!DOCTYPE r [<!ENTITY a 'b'>]><r/>");
    const LogCapture log;
    XmlParser parser;
    EXPECT_FALSE(parser.setXmlFile(deep.path()));
    EXPECT_FALSE(parser.setXmlFile(entities.path()));
    EXPECT_THAT(log.lines(),
                ElementsAre(MatchesRegex("ERROR setContent failed errorString:elements nested deeper than 256, "
                                         "errorLine:1, errorColumn:[0-9]+"),
                            "ERROR setContent failed errorString:a document type with declarations of its own, "
                            "errorLine:1, errorColumn:1"));
}

// The rows of the log's file, for what a captured line doesn't tell.
class Rows : public plog::IAppender
{
public:
    void write(const plog::Record& record) override { m_rows.push_back(CsvLogFormatter::format(record)); }

    std::vector<std::string> m_rows;
};

TEST(XmlParserFile, theLogNamesTheOperationThatFailed)
{
    const LogCapture log;
    static Rows rows; // the logger keeps it for good
    plog::get()->addAppender(&rows);
    rows.m_rows.clear();
    const TestFile malformed("<Broken>");
    XmlParser parser;
    EXPECT_FALSE(parser.setXmlFile(malformed.path()));
    EXPECT_FALSE(parser.setXmlFile("/nonexistent/file.xml"));
    EXPECT_EQ(rows.m_rows.size(), 2U);
    EXPECT_THAT(rows.m_rows, testing::Each(testing::HasSubstr("XmlParser::setXmlFile")));
}

TEST_F(XmlDocument, isLoadedFromAFileWithoutWritePermissionAndNotWritten)
{
    setReachable(file->path(), 0444);
    const Unprivileged nobody;
    EXPECT_TRUE(parser.refreshXml());
    const LogCapture log;
    EXPECT_FALSE(parser.setTagAttributesValues(Lines, "ID", "1", {"Speed"}, {"11"}, true));
    EXPECT_THAT(log.lines(), ElementsAre());
    EXPECT_EQ(contentOf(file->path()), Plant);
}

TEST_F(XmlDocument, refreshingDropsWhatWasChanged)
{
    EXPECT_TRUE(parser.setMainTagAttributes({"Name"}, {"saw"}, true, false));
    EXPECT_TRUE(parser.refreshXml());
    EXPECT_EQ(parser.getRootElement().attribute("Name"), "press");
}

TEST_F(XmlDocument, writtenUnchangedHoldsTheSame)
{
    EXPECT_TRUE(parser.writeToFile(true));
    EXPECT_EQ(canonical(contentOf(file->path())), canonical(Plant));
    EXPECT_GT(canonical(Plant).size(), 20U);
}

TEST_F(XmlDocument, writtenTwiceIsTheSameByteForByte)
{
    for (const bool utf8 : {true, false}) {
        EXPECT_TRUE(parser.writeToFile(utf8));
        const QByteArray first = contentOf(file->path());
        EXPECT_TRUE(parser.refreshXml());
        EXPECT_TRUE(parser.writeToFile(utf8));
        EXPECT_EQ(contentOf(file->path()), first);
    }
}

// The document in memory keeps attributes in the order of a hash table, and turns some around at each reading.
TEST(XmlParserFile, attributesStayInTheOrderOfTheirNames)
{
    QByteArray inOrder;
    QByteArray upsideDown;
    for (int i = 100; i < 200; ++i) {
        const QByteArray attribute = " a" + QByteArray::number(i) + "=\"" + QByteArray::number(i) + "\"";
        inOrder.append(attribute);
        upsideDown.prepend(attribute);
    }
    const TestFile file("<r" + upsideDown + "/>");
    for (int i = 0; i < 2; ++i) {
        XmlParser parser;
        ASSERT_TRUE(parser.setXmlFile(file.path()));
        ASSERT_TRUE(parser.writeToFile(true));
        EXPECT_EQ(contentOf(file.path()), "<r" + inOrder + "/>\n");
    }
}

TEST(XmlParserFile, isLaidOutAsByTheDocumentsOwnWriter)
{
    for (const char* content :
         {"<r><!--c--><a><b>t</b><c/><?p i?></a>\n\n<a>x<b/>y</a><a><b/>t</a><a> t <b/></a></r><!--e-->",
          "<?xml version='1.0'?><!--c--><?p i?><!DOCTYPE r SYSTEM 'r.dtd'><r><a><![CDATA[<&>]]><b a='&#10;'/></a></r>",
          "<!DOCTYPE r PUBLIC 'p' 's'><r><a/>&lt;<![CDATA[]]>t<!--c-->t<!--d--><a><a><a/></a></a></r>", "<r>t</r>",
          "<r/>"}) {
        const TestFile file(content);
        XmlParser parser;
        ASSERT_TRUE(parser.setXmlFile(file.path()));
        ASSERT_TRUE(parser.writeToFile(true));
        EXPECT_EQ(contentOf(file.path()).toStdString(), parser.m_document.toString(1).toStdString());
    }
}

TEST(XmlParserFile, nothingIsWrittenWhereNothingWasLoaded)
{
    const TestFile malformed("<Broken>");
    XmlParser parser;
    EXPECT_FALSE(parser.setXmlFile(malformed.path()));
    EXPECT_FALSE(parser.writeToFile(true));
    EXPECT_FALSE(parser.setTagAttributesValues({}, {}, {}, {"a"}, {"b"}, true));
    EXPECT_FALSE(parser.setTagAttributesValues({"a"}, {}, {}, {"a"}, {"b"}, true));
    EXPECT_EQ(contentOf(malformed.path()), "<Broken>");
}

TEST_F(XmlDocument, thatCouldNotBeLoadedAgainIsNotWritten)
{
    EXPECT_FALSE(parser.setMainTagAttributes({"no name"}, {"x"}, true, true));
    EXPECT_TRUE(parser.refreshXml());
    EXPECT_FALSE(parser.addTag({}, "<", {}, {}, false, true));
    EXPECT_TRUE(parser.refreshXml());
    for (int i = 0; i < 300; ++i)
        EXPECT_TRUE(parser.addTag(QStringList(QVector<QString>(i, "deep").toList()), "deep", {}, {}, false, false));
    EXPECT_FALSE(parser.writeToFile(true));
    EXPECT_EQ(contentOf(file->path()), Plant);
}

TEST_F(XmlDocument, onAFullDiskTheFileKeepsItsContent)
{
    const auto change = [](const QString& value) {
        return [value](const QString& path) {
            XmlParser other;
            return other.setXmlFile(path) && other.setMainTagAttributes({"Name"}, {value}, true, true);
        };
    };
    const QByteArray page = Plant + QByteArray(4096 - Plant.size(), '\n');
    EXPECT_EQ(writeOnFullDisk(page, change("saw")), WriteOutcome::Written);
    EXPECT_EQ(writeOnFullDisk(page, change(QString(5000, 'x'))), WriteOutcome::Refused);
}

TEST_F(XmlDocument, aFileThatWasRemovedIsMadeAnew)
{
    ASSERT_TRUE(QFile::remove(file->path()));
    EXPECT_TRUE(parser.writeToFile(true));
    EXPECT_EQ(canonical(contentOf(file->path())), canonical(Plant));
}

TEST_F(XmlDocument, aFileThatWasReplacedIsOverwritten)
{
    ASSERT_TRUE(QFile::remove(file->path()));
    QFile other(file->path());
    ASSERT_TRUE(other.open(QIODevice::WriteOnly));
    ASSERT_GT(other.write(QByteArray(9999, 'x')), 0);
    other.close();
    EXPECT_TRUE(parser.writeToFile(true));
    EXPECT_EQ(canonical(contentOf(file->path())), canonical(Plant));
}

TEST_F(XmlDocument, whatTookTheFilesPlaceIsLeftAlone)
{
    ASSERT_TRUE(QFile::remove(file->path()));
    ASSERT_TRUE(QDir().mkdir(file->path()));
    EXPECT_FALSE(parser.writeToFile(true));
    ASSERT_TRUE(QDir().rmdir(file->path()));
    ASSERT_EQ(mkfifo(file->path().toLocal8Bit().constData(), 0600), 0);
    EXPECT_FALSE(parser.writeToFile(true));
}

struct ContentCase
{
    const char* name;
    QByteArray content;
};

QByteArray inCodec(const char* codec, const QString& text)
{
    return QTextCodec::codecForName(codec)->fromUnicode(text);
}

// Documents with an element Lines/Line; what else they hold must come through a change of it.
const ContentCase ContentCases[] = {
    {"comments", "<!-- ahead --><r><!-- a - b < & --><Lines><!--in--><Line a='1'/><!-- > --></Lines></r><!-- end -->"},
    {"prefixes", "<q:r xmlns:q='urn:q' xmlns='urn:d' q:x='1' x='2'><Lines q:y='3'><Line a='1' q:a='4'/></Lines></q:r>"},
    {"nonAscii", "<r n='Gr\xC3\xB6\xC3\x9F\x65 \xF0\x9F\x99\x82'><Lines><Line a='\xE2\x82\xAC'/>\xC3\xA4</Lines></r>"},
    {"lineEnds", "<?xml version='1.0'?>\r\n<r\r\n  b='1'>\r\n<Lines>\r\n\t<Line\r\n a='1'/>\r\n</Lines>\r\n</r>\r\n"},
    {"byteOrderMark", "\xEF\xBB\xBF<r n='\xC3\xA4'><Lines><Line a='1'/></Lines></r>"},
    {"latin1", "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><r n='\xE4\xF6\xFC'><Lines><Line a='1'/></Lines></r>"},
    {"standalone", "<?xml version='1.0' encoding = 'utf-8' standalone='yes'?><r><Lines><Line a='1'/></Lines></r>"},
    {"utf16", inCodec("UTF-16", QString::fromUtf8("<?xml version='1.0' encoding='UTF-16'?><r n='ä€🙂'><Lines>"
                                                  "<Line a='1'/></Lines></r>"))},
    {"cdata", "<r><Lines><Line a='1'/><t><![CDATA[<&>  \"]]></t></Lines></r>"},
    {"instructions", "<?xml version='1.0'?><?style here='1'?><r><?in?><Lines><Line a='1'/></Lines></r><?end x?>"},
    {"references",
     "<r a='&#10;&#9;&#13;&lt;&amp;&quot;&apos;&gt;&#x20AC;'><Lines><Line a='1'/>&lt;&#228;&amp;</Lines></r>"},
    {"emptyElements", "<r><e/><f></f><Lines><Line a=''/><Line/></Lines></r>"},
    {"documentType", "<!DOCTYPE r SYSTEM 'r.dtd'><r><Lines><Line a='1'/></Lines></r>"},
    {"mixedText", "<r>a<b/>c <i> d </i>e<?p i?>f<!-- c -->g<Lines>x<Line a='1'/>y</Lines>z</r>"},
    {"quotes", "<r a='\"' b=\"'\" c='&quot;&apos;'><Lines><Line a='1'/></Lines></r>"},
};

class DocumentContents : public testing::TestWithParam<ContentCase>
{
};

INSTANTIATE_TEST_SUITE_P(XmlParserFile, DocumentContents, testing::ValuesIn(ContentCases),
                         [](const auto& test) { return test.param.name; });

TEST_P(DocumentContents, comeThroughAChangeOfOneAttribute)
{
    for (const bool utf8 : {true, false}) {
        const TestFile file(GetParam().content);
        XmlParser parser;
        ASSERT_TRUE(parser.setXmlFile(file.path()));
        const QString old = parser.getRootElement().firstChildElement("Lines").firstChildElement("Line").attribute("a");
        ASSERT_TRUE(parser.setTagAttributesValues({"Lines", "Line"}, {}, {}, {"a"}, {"new"}, utf8));
        ASSERT_NE(canonical(contentOf(file.path())), canonical(GetParam().content));

        XmlParser again;
        ASSERT_TRUE(again.setXmlFile(file.path()));
        ASSERT_TRUE(again.setTagAttributesValues({"Lines", "Line"}, "a", "new", {"a"}, {old}, utf8));
        EXPECT_EQ(canonical(contentOf(file.path())), canonical(GetParam().content));
    }
}

TEST(XmlParserFile, becomesUtf8AndSaysSo)
{
    const TestFile file("<?xml version=\"1.0\" encoding=\"ISO-8859-1\" standalone=\"yes\"?><r a='\xE4'/>");
    XmlParser parser;
    ASSERT_TRUE(parser.setXmlFile(file.path()));
    EXPECT_TRUE(parser.setMainTagAttributes({"b"}, {QString::fromUtf8("€🙂")}, true, true));
    const QByteArray content = contentOf(file.path());
    EXPECT_TRUE(content.startsWith("<?xml version='1.0' encoding='UTF-8' standalone='yes'?>")) << content.toStdString();
    EXPECT_TRUE(content.contains("b=\"€🙂\"")) << content.toStdString();
    EXPECT_TRUE(content.contains("a=\"ä\"")) << content.toStdString();
}

TEST(XmlParserFile, staysInTheEncodingThatItDeclares)
{
    const QString text = QString::fromUtf8("<?xml version='1.0' encoding='%1'?>\n<r a=\"ä\"/>\n");
    for (const char* codec : {"ISO-8859-1", "UTF-16", "UTF-8"}) {
        const QByteArray content = inCodec(codec, text.arg(codec));
        const TestFile file(content);
        XmlParser parser;
        ASSERT_TRUE(parser.setXmlFile(file.path()));
        EXPECT_TRUE(parser.writeToFile(false));
        EXPECT_EQ(contentOf(file.path()), content) << codec;
    }
}

TEST(XmlParserFile, ofAnUnknownEncodingCanBeReadAgain)
{
    const TestFile file("<?xml version='1.0' encoding='x-unknown'?><r a='\xC3\xA4'/>");
    for (const bool utf8 : {false, true}) {
        XmlParser parser;
        ASSERT_TRUE(parser.setXmlFile(file.path()));
        EXPECT_EQ(parser.getRootElement().attribute("a"), QString::fromUtf8("ä"));
        EXPECT_TRUE(parser.writeToFile(utf8));
    }
}

TEST_F(XmlDocument, holdsReplacementsForWhatXmlCannotHold)
{
    const QString replacement(QChar::ReplacementCharacter);
    const QString emoji = QString::fromUtf8("🙂");
    const std::pair<QString, QString> cases[] = {
        {QChar(0xFFFE), replacement},
        {QChar(0xFFFF), replacement},
        {QString("a") + QChar(0xD83D), "a" + replacement},
        {QChar(0xDE42) + QString("b"), replacement + "b"},
        {QString(QChar(0xDE42)) + QChar(0xD83D), replacement + replacement},
        {QString(QChar(0xD83D)) + emoji, replacement + emoji},
        {QString(QChar(0)) + QChar(1) + QChar(0x1F), replacement.repeated(3)},
        {"\t\n\r", "\t\n\r"},
        {QString(QChar(0xFFFD)) + QChar(0xFEFF) + QChar(0x7F) + QChar(0x85),
         QString(QChar(0xFFFD)) + QChar(0xFEFF) + QChar(0x7F) + QChar(0x85)},
        {emoji, emoji},
        {"<&>\"']]>--", "<&>\"']]>--"},
        {"", ""},
        {QString(), ""},
    };
    for (const auto& [value, stored] : cases) {
        EXPECT_TRUE(parser.setTagAttributesValues(Lines, "ID", "1", {"Speed"}, {value}, true));
        EXPECT_EQ(parser.getRootElement().firstChildElement("Lines").firstChildElement().attribute("Speed"), stored);
        ASSERT_TRUE(parser.refreshXml());
        EXPECT_EQ(attributeInFile("1", "Speed"), stored);
    }
}

// A reference can bring into memory what can't be written.
TEST(XmlParserFile, referencesToWhatXmlCannotHoldDoNotSpoilIt)
{
    const TestFile file("<r a='&#xFFFE;' b='&#xD83D;' c='&#1;'>&#xFFFF;</r>");
    XmlParser parser;
    ASSERT_TRUE(parser.setXmlFile(file.path()));
    EXPECT_TRUE(parser.writeToFile(true));
    EXPECT_TRUE(parser.refreshXml());
    const QString replacement(QChar::ReplacementCharacter);
    for (const char* name : {"a", "b", "c"})
        EXPECT_EQ(parser.getRootElement().attribute(name), replacement) << name;
    EXPECT_EQ(parser.getRootElement().text(), replacement);
}

} // namespace
