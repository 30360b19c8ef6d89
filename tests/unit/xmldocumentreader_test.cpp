#include "Services/xmldocumentreader.h"
#include "unittest.h"

#include <QElapsedTimer>
#include <QFileInfo>
#include <sys/stat.h>

namespace {

using XmlDocumentReader::Outcome;

class DocumentReader : public ServiceTest
{
protected:
    Outcome read(const QByteArray& content) { return XmlDocumentReader::read(TestFile(content).path(), document); }

    static QByteArray nested(int depth)
    {
        return QByteArray("<a>").repeated(depth) + QByteArray("</a>").repeated(depth);
    }

    QDomDocument document;
};

TEST_F(DocumentReader, readsWellFormedContent)
{
    EXPECT_EQ(read("\xEF\xBB\xBF<?xml version='1.0'?><a b='\xC3\xA4'/>\n"), Outcome::Read);
    EXPECT_EQ(document.documentElement().attribute("b"), QString::fromUtf8("ä"));
}

TEST_F(DocumentReader, aMissingFileIsNotMade)
{
    const QTemporaryDir directory;
    const QString path = directory.filePath("none.xml");
    EXPECT_EQ(XmlDocumentReader::read(path, document), Outcome::NotOpened);
    EXPECT_FALSE(QFileInfo::exists(path));
}

TEST_F(DocumentReader, onlyRegularFilesAreOpened)
{
    const QTemporaryDir directory;
    EXPECT_EQ(XmlDocumentReader::read(directory.path(), document), Outcome::NotOpened);
    EXPECT_EQ(XmlDocumentReader::read("/dev/zero", document), Outcome::NotOpened);
    const QString pipe = directory.filePath("pipe");
    ASSERT_EQ(mkfifo(pipe.toUtf8().constData(), 0600), 0);
    EXPECT_EQ(XmlDocumentReader::read(pipe, document), Outcome::NotOpened);
}

TEST_F(DocumentReader, malformedContentIsInvalid)
{
    for (const char* content : {"", "text", "<a>", "<a></b>", "<a/><b/>", "<a b=c/>", "\x01\x02\x03", "<a/>text"})
        EXPECT_EQ(read(content), Outcome::InvalidContent) << content;
}

TEST_F(DocumentReader, elementsMayBeNested256Deep)
{
    EXPECT_EQ(read(nested(256)), Outcome::Read);
}

TEST_F(DocumentReader, deeperElementsAreInvalidAndNamed)
{
    const LogCapture log;
    EXPECT_EQ(read(nested(257)), Outcome::InvalidContent);
    EXPECT_THAT(log.lines(), testing::ElementsAre(testing::StartsWith(
                                 "ERROR invalid content due to elements nested deeper than 256 (line=1 | column=")));
}

TEST_F(DocumentReader, aHundredThousandLevelsDoNotHurt)
{
    QElapsedTimer timer;
    timer.start();
    EXPECT_EQ(read(nested(100'000)), Outcome::InvalidContent);
    EXPECT_LT(timer.elapsed(), 5000);
}

TEST_F(DocumentReader, nestingBehindAMistakeThatIsAcceptedIsSeen)
{
    // A repeated attribute stops a strict parser, and with it a strict guard.
    EXPECT_EQ(read("<r x='1' x='2'>" + nested(100'000) + "</r>"), Outcome::InvalidContent);
    EXPECT_EQ(read("<r xmlns:p='' p:x='1' q:y='2'>" + nested(100'000) + "</r>"), Outcome::InvalidContent);
}

TEST_F(DocumentReader, anEntityBombEndsQuickly)
{
    QByteArray content = "<!DOCTYPE r [<!ENTITY e0 'xxxxxxxxxx'>";
    for (int i = 1; i < 30; ++i) {
        const QByteArray before = "&e" + QByteArray::number(i - 1) + ";";
        content += "<!ENTITY e" + QByteArray::number(i) + " '" + before.repeated(10) + "'>";
    }
    content += "]><r>&e29;</r>";
    QElapsedTimer timer;
    timer.start();
    EXPECT_EQ(read(content), Outcome::InvalidContent);
    EXPECT_LT(timer.elapsed(), 5000);
}

TEST_F(DocumentReader, anEntityThatHoldsItselfIsInvalid)
{
    EXPECT_EQ(read("<!DOCTYPE r [<!ENTITY a '&b;'><!ENTITY b '&a;'>]><r>&a;</r>"), Outcome::InvalidContent);
}

} // namespace
