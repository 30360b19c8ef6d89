#include "Utils/filecontent.h"
#include "Utils/xmldocumentreader.h"
#include "Utils/xmlparser.h"

#include <map>
#include <QDomProcessingInstruction>
#include <QRegularExpression>
#include <QTextCodec>
#include <QTextStream>

namespace {

const QRegularExpression& encodingDeclaration()
{
    static const QRegularExpression expression("encoding\\s*=\\s*[\"']([^\"']*)[\"']");
    return expression;
}

// Null where there is none; the document is UTF-8 then.
QDomProcessingInstruction declarationOf(const QDomDocument& document)
{
    const QDomProcessingInstruction first = document.firstChild().toProcessingInstruction();
    return first.target() == "xml" ? first : QDomProcessingInstruction();
}

QTextCodec* codecOf(const QDomDocument& document)
{
    const auto encoding = encodingDeclaration().match(declarationOf(document).data());
    QTextCodec* const codec = QTextCodec::codecForName(encoding.captured(1).toLatin1());
    return codec ? codec : QTextCodec::codecForName("UTF-8"); // as the document's reader takes an unknown one
}

void declareUtf8(const QDomDocument& document)
{
    QDomProcessingInstruction declaration = declarationOf(document);
    if (!declaration.isNull())
        declaration.setData(declaration.data().replace(encodingDeclaration(), "encoding='UTF-8'"));
}

// By name. The document has them in the order of a hash table, which changes with each reading: a file that is written
// twice would differ all over.
void saveAttributes(QTextStream& stream, const QDomElement& element)
{
    std::map<QString, QDomNode> inOrder;
    const QDomNamedNodeMap attributes = element.attributes();
    for (int i = 0; i < attributes.size(); ++i)
        inOrder.emplace(attributes.item(i).nodeName(), attributes.item(i));
    for (const auto& [name, attribute] : inOrder) {
        stream << ' ';
        attribute.save(stream, 0);
    }
}

void endLine(QTextStream& stream, const QDomNode& node)
{
    if (!node.nextSibling().isText())
        stream << '\n';
}

// The document's own writer ends the line also ahead of a text, which would grow each time.
void saveInstruction(QTextStream& stream, const QDomProcessingInstruction& instruction)
{
    stream << "<?" << instruction.target() << ' ' << instruction.data() << "?>";
    endLine(stream, instruction);
}

// In the layout of QDomDocument's own writer: a blank for each level, and none beside texts, where it would count.
void saveNode(QTextStream& stream, const QDomNode& node, int level)
{
    if (node.isProcessingInstruction()) {
        saveInstruction(stream, node.toProcessingInstruction());
        return;
    }
    if (!node.isElement()) {
        node.save(stream, level);
        return;
    }
    if (!node.previousSibling().isText())
        stream << QString(level, ' ');
    stream << '<' << node.nodeName();
    saveAttributes(stream, node.toElement());
    if (node.hasChildNodes()) {
        stream << (node.firstChild().isText() ? ">" : ">\n");
        for (QDomNode child = node.firstChild(); !child.isNull(); child = child.nextSibling())
            saveNode(stream, child, level + 1);
        if (!node.lastChild().isText())
            stream << QString(level, ' ');
        stream << "</" << node.nodeName() << '>';
    } else {
        stream << "/>";
    }
    endLine(stream, node);
}

QString textOf(const QDomDocument& document, QTextCodec* codec)
{
    QString text;
    QTextStream stream(&text);
    stream.setCodec(codec); // what it doesn't have is written as a reference
    QDomNode node = document.firstChild();
    if (!declarationOf(document).isNull()) {
        node.save(stream, 0);
        node = node.nextSibling();
    }
    document.doctype().save(stream, 0);
    for (; !node.isNull(); node = node.nextSibling())
        saveNode(stream, node, 0);
    return text;
}

bool isStorable(QChar c)
{
    if (c < ' ')
        return c == '\t' || c == '\n' || c == '\r';
    return !c.isSurrogate() && c.unicode() < 0xFFFE;
}

} // namespace

bool XmlParser::writeToFile(bool utf8) const
{
    return writeDocument(m_document, m_xmlFile, utf8);
}

bool XmlParser::writeDocument(const QDomDocument& document, const QString& fileName, bool utf8)
{
    if (utf8)
        declareUtf8(document);
    QTextCodec* const codec = codecOf(document);
    const QByteArray content = codec->fromUnicode(storable(textOf(document, codec)));
    QDomDocument readAgain;
    return !XmlDocumentReader::parse(content, readAgain) && FileContent::replaceContent(fileName, content);
}

QString XmlParser::storable(QString text)
{
    for (int i = 0; i < text.size(); ++i) {
        const QChar c = text.at(i);
        if (c.isHighSurrogate() && i + 1 < text.size() && text.at(i + 1).isLowSurrogate())
            ++i;
        else if (!isStorable(c))
            text[i] = QChar::ReplacementCharacter;
    }
    return text;
}
