#include "Utils/xmldocumentreader.h"

#include "Utils/filecontent.h"

#include <QStringView>
#include <QXmlDefaultHandler>

using XmlDocumentReader::ContentError;

namespace {

// Documents beyond these would exhaust the stack or the memory of the process while they are parsed.
constexpr int DeepestNesting = 256;
constexpr int MostElements = 50'000;

// Position behind the next `end` from `from` on; the text's size when there is none.
int behind(const QString& text, const char* end, int from)
{
    const QLatin1String wanted(end);
    const int found = text.indexOf(wanted, from);
    return found == -1 ? text.size() : found + wanted.size();
}

// Position of the document type, behind white space, comments and processing instructions; -1 when there is none.
int documentTypeOf(const QString& text)
{
    int at = 0;
    while (at < text.size()) {
        const QStringView rest = QStringView(text).mid(at);
        if (rest.front().isSpace() || rest.front() == QChar::ByteOrderMark)
            ++at;
        else if (rest.startsWith(QLatin1String("<!--")))
            at = behind(text, "-->", at + 4);
        else if (rest.startsWith(QLatin1String("<?")))
            at = behind(text, "?>", at + 2);
        else
            return rest.startsWith(QLatin1String("<!DOCTYPE")) ? at : -1;
    }
    return -1;
}

// True when the document type holds declarations. Entities and content models can be made to take any amount of time,
// memory and stack, and no configuration needs them.
bool hasDeclarations(const QString& text)
{
    const int start = documentTypeOf(text);
    if (start == -1)
        return false;
    QChar quote;
    for (int at = start; at < text.size(); ++at) {
        const QChar c = text.at(at);
        if (!quote.isNull())
            quote = c == quote ? QChar() : quote;
        else if (c == '"' || c == '\'')
            quote = c;
        else if (c == '[' || c == '>')
            return c == '[';
    }
    return false;
}

// The size is looked at with the parser that QDomDocument itself is built on, old as it is: a stricter one stops at
// mistakes that the document's parser accepts, and would miss what comes behind them.
QT_WARNING_PUSH
QT_WARNING_DISABLE_DEPRECATED

// Gives up at the element that is nested too deep or one too many.
class SizeGuard : public QXmlDefaultHandler
{
public:
    bool startElement(const QString& /*uri*/, const QString& /*localName*/, const QString& /*name*/,
                      const QXmlAttributes& /*attributes*/) override
    {
        if (++m_depth <= DeepestNesting && ++m_elements <= MostElements)
            return true;
        const QString message = m_depth > DeepestNesting ? QString("elements nested deeper than %1").arg(DeepestNesting)
                                                         : QString("more than %1 elements").arg(MostElements);
        m_error = ContentError{message, m_locator->lineNumber(), m_locator->columnNumber()};
        return false;
    }

    bool endElement(const QString& /*uri*/, const QString& /*localName*/, const QString& /*name*/) override
    {
        --m_depth;
        return true;
    }

    void setDocumentLocator(QXmlLocator* locator) override { m_locator = locator; }

    [[nodiscard]] const std::optional<ContentError>& error() const { return m_error; }

private:
    int m_depth = 0;
    int m_elements = 0;
    QXmlLocator* m_locator = nullptr;
    std::optional<ContentError> m_error;
};

std::optional<ContentError> findSizeError(const QByteArray& content)
{
    QXmlInputSource source;
    source.setData(content);
    if (hasDeclarations(source.data()))
        return ContentError{"a document type with declarations of its own", 1, 1};
    SizeGuard guard;
    QXmlSimpleReader reader;
    reader.setFeature("http://xml.org/sax/features/namespaces", false);
    reader.setFeature("http://xml.org/sax/features/namespace-prefixes", true);
    reader.setContentHandler(&guard);
    reader.parse(source);
    return guard.error();
}

QT_WARNING_POP

} // namespace

std::optional<ContentError> XmlDocumentReader::parse(const QByteArray& content, QDomDocument& document)
{
    if (content.size() > LargestFile)
        return ContentError{QString("a size above %1 bytes").arg(LargestFile)};
    if (auto error = findSizeError(content))
        return error;
    ContentError error;
    if (!document.setContent(content, false, &error.message, &error.line, &error.column))
        return error;
    return std::nullopt;
}

XmlDocumentReader::Outcome XmlDocumentReader::read(const QString& fileName, QIODevice::OpenMode mode,
                                                   QDomDocument& document, ContentError& error)
{
    QFile file(fileName);
    if (!FileContent::open(file, mode | QIODevice::ExistingOnly))
        return Outcome::NotOpened;
    // One byte too many is enough to see that there are too many.
    const auto found = parse(file.read(LargestFile + 1), document);
    if (!found)
        return Outcome::Read;
    error = *found;
    return Outcome::InvalidContent;
}
