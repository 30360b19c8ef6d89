#include "fileconditions.h"
#include "unittest.h"
#include "Utils/xmldocumentreader.h"

#include <QElapsedTimer>
#include <QFileInfo>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using XmlDocumentReader::Outcome;

class DocumentReader : public testing::Test
{
protected:
    Outcome read(const QByteArray& content) { return readFile(TestFile(content).path()); }

    Outcome readFile(const QString& path)
    {
        return XmlDocumentReader::read(path, QIODevice::ReadWrite, document, error);
    }

    static QByteArray nested(int depth)
    {
        return QByteArray("<a>").repeated(depth) + QByteArray("</a>").repeated(depth);
    }

    QDomDocument document;
    XmlDocumentReader::ContentError error;
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
    EXPECT_EQ(readFile(path), Outcome::NotOpened);
    EXPECT_FALSE(QFileInfo::exists(path));
}

TEST_F(DocumentReader, aFileWithoutWritePermissionIsOpenedForReadingOnly)
{
    const TestFile file("<a/>");
    setReachable(file.path(), 0444);
    const Unprivileged nobody;
    EXPECT_EQ(readFile(file.path()), Outcome::NotOpened);
    EXPECT_EQ(XmlDocumentReader::read(file.path(), QIODevice::ReadOnly, document, error), Outcome::Read);
}

TEST_F(DocumentReader, contentInMemoryHasTheSameLimits)
{
    EXPECT_FALSE(XmlDocumentReader::parse(nested(256), document));
    EXPECT_EQ(document.documentElement().tagName(), "a");
    EXPECT_TRUE(XmlDocumentReader::parse(nested(257), document));
    const auto tooLarge = XmlDocumentReader::parse(QByteArray(XmlDocumentReader::LargestFile + 1, ' '), document);
    ASSERT_TRUE(tooLarge);
    EXPECT_EQ(tooLarge->message, "a size above 16777216 bytes");
}

TEST_F(DocumentReader, onlyRegularFilesAreOpened)
{
    const QTemporaryDir directory;
    EXPECT_EQ(readFile(directory.path()), Outcome::NotOpened);
    EXPECT_EQ(readFile("/dev/zero"), Outcome::NotOpened);
    const QString pipe = directory.filePath("pipe");
    ASSERT_EQ(mkfifo(pipe.toUtf8().constData(), 0600), 0);
    EXPECT_EQ(readFile(pipe), Outcome::NotOpened);
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
    EXPECT_EQ(read(nested(257)), Outcome::InvalidContent);
    EXPECT_EQ(error.message, "elements nested deeper than 256");
    EXPECT_EQ(error.line, 1);
    EXPECT_EQ(error.column, 257 * 3);
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

// Entities and content models can take any amount of time, memory and stack.
TEST_F(DocumentReader, aDocumentTypeWithDeclarationsIsInvalid)
{
    EXPECT_EQ(read("<!DOCTYPE r [<!ENTITY a 'b'>]><r/>"), Outcome::InvalidContent);
    EXPECT_EQ(error.message, "a document type with declarations of its own");
    EXPECT_EQ(error.line, 1);
    EXPECT_EQ(error.column, 1);
}

TEST_F(DocumentReader, declarationsAreFoundWhateverStandsAheadOfThem)
{
    const QByteArray subset = " [<!ENTITY a 'b'>]><r/>";
    EXPECT_EQ(read("\xEF\xBB\xBF<?xml version='1.0'?>\n<!-- > [ ' --><?p ?> <!DOCTYPE r" + subset),
              Outcome::InvalidContent);
    EXPECT_EQ(read("<!DOCTYPE r SYSTEM '>'" + subset), Outcome::InvalidContent);
    EXPECT_EQ(read("<!DOCTYPE r PUBLIC \"'>\" \">\"" + subset), Outcome::InvalidContent);
    const QString wide = QChar(QChar::ByteOrderMark) + QString("<!DOCTYPE r [<!ENTITY a 'b'>]><r/>");
    EXPECT_EQ(read(QByteArray(reinterpret_cast<const char*>(wide.utf16()), wide.size() * 2)), Outcome::InvalidContent);
}

TEST_F(DocumentReader, aBareDocumentTypeIsFine)
{
    EXPECT_EQ(read("<?xml version='1.0'?><!DOCTYPE r><r/>"), Outcome::Read);
    EXPECT_EQ(read("<!DOCTYPE r SYSTEM '[a].dtd'><r a='[!DOCTYPE r ['/>"), Outcome::Read);
    EXPECT_EQ(read("<!-- <!DOCTYPE r [ --><r/>"), Outcome::Read);
}

TEST_F(DocumentReader, anEntityBombEndsQuickly)
{
    QByteArray content = "<!DOCTYPE r [<!ENTITY e0 'xxxxxxxxxx'>";
    for (int i = 1; i < 50'000; ++i)
        content += "<!ENTITY e" + QByteArray::number(i) + " '&e" + QByteArray::number(i - 1) + ";&e0;'>";
    content += "]><r>&e29;</r>";
    QElapsedTimer timer;
    timer.start();
    EXPECT_EQ(read(content), Outcome::InvalidContent);
    EXPECT_LT(timer.elapsed(), 5000);
}

TEST_F(DocumentReader, aDeepContentModelDoesNotHurt)
{
    const QByteArray model = QByteArray("(").repeated(200'000) + "b" + QByteArray(")").repeated(200'000);
    EXPECT_EQ(read("<!DOCTYPE r [<!ELEMENT a " + model + ">]><r/>"), Outcome::InvalidContent);
}

TEST_F(DocumentReader, fiftyThousandElementsAreTheMost)
{
    const QByteArray list = QByteArray("<a/>").repeated(49'999);
    EXPECT_EQ(read("<r>" + list + "</r>"), Outcome::Read);
    EXPECT_EQ(read("<r>" + list + "<a/></r>"), Outcome::InvalidContent);
    EXPECT_EQ(error.message, "more than 50000 elements");
}

TEST_F(DocumentReader, aHugeFileIsNotRead)
{
    const TestFile file("");
    ASSERT_EQ(truncate(file.path().toUtf8().constData(), qint64{1} << 40), 0);
    EXPECT_EQ(readFile(file.path()), Outcome::InvalidContent);
    EXPECT_EQ(error.message, "a size above 16777216 bytes");
    EXPECT_EQ(error.line, 0);
}

} // namespace
