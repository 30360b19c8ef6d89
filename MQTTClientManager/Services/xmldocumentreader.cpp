#include "Services/xmldocumentreader.h"

#include "logging.h"

#include <optional>
#include <QFile>
#include <QFileInfo>
#include <QXmlDefaultHandler>

namespace {

// Documents beyond these would exhaust the stack or the memory of the process while they are parsed.
constexpr int DeepestNesting = 256;
constexpr qint64 LargestFile = 64 << 20; // bytes

struct ContentError
{
    QString message;
    int line = 0;
    int column = 0;
};

// The nesting is looked at with the parser that QDomDocument itself is built on, old as it is: a stricter one stops at
// mistakes that the document's parser accepts, and would miss what comes behind them.
QT_WARNING_PUSH
QT_WARNING_DISABLE_DEPRECATED

// Gives up at the element that is nested too deep.
class NestingGuard : public QXmlDefaultHandler
{
public:
    bool startElement(const QString& /*uri*/, const QString& /*localName*/, const QString& /*name*/,
                      const QXmlAttributes& /*attributes*/) override
    {
        if (++m_depth <= DeepestNesting)
            return true;
        m_error = ContentError{QString("elements nested deeper than %1").arg(DeepestNesting), m_locator->lineNumber(),
                               m_locator->columnNumber()};
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
    QXmlLocator* m_locator = nullptr;
    std::optional<ContentError> m_error;
};

std::optional<ContentError> findNestingError(const QByteArray& content)
{
    QXmlInputSource source;
    source.setData(content);
    NestingGuard guard;
    QXmlSimpleReader reader;
    reader.setFeature("http://xml.org/sax/features/namespaces", false);
    reader.setFeature("http://xml.org/sax/features/namespace-prefixes", true);
    reader.setContentHandler(&guard);
    reader.parse(source);
    return guard.error();
}

QT_WARNING_POP

std::optional<ContentError> parse(QFile& file, QDomDocument& document)
{
    if (file.size() > LargestFile)
        return ContentError{QString("a size above %1 bytes").arg(LargestFile)};
    const QByteArray content = file.readAll();
    if (auto error = findNestingError(content))
        return error;
    ContentError error;
    if (!document.setContent(content, false, &error.message, &error.line, &error.column))
        return error;
    return std::nullopt;
}

} // namespace

XmlDocumentReader::Outcome XmlDocumentReader::read(const QString& fileName, QDomDocument& document)
{
    QFile file(fileName);
    // Anything but a regular file might never end.
    if (!QFileInfo(fileName).isFile() || !file.open(QIODevice::ReadWrite | QIODevice::ExistingOnly))
        return Outcome::NotOpened;
    if (const auto error = parse(file, document)) {
        PLOG_ERROR << QString("invalid content due to %1 (line=%2 | column=%3)")
                          .arg(error->message, QString::number(error->line), QString::number(error->column));
        return Outcome::InvalidContent;
    }
    return Outcome::Read;
}
