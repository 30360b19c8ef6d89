#include "Utils/filecontent.h"
#include "Utils/xmldocumentreader.h"
#include "Utils/xmlparser.h"

#include <QTextStream>
#include <QXmlStreamReader>

int XmlParser::getTotalNumOfTag(QString const& tag) const
{
    QFile file(m_xmlFile);
    if (!FileContent::open(file, QIODevice::ReadOnly | QIODevice::Text) || file.size() > XmlDocumentReader::LargestFile)
        return 0;
    QTextStream stream(&file);
    stream.setCodec("UTF-8");
    int count = 0;
    for (QString line; stream.readLineInto(&line);)
        count += line.trimmed().startsWith('<' + tag) ? 1 : 0;
    return count;
}

bool XmlParser::ReadNodeAttributeByIdx(QString fileName, QString nodeName, QString attributeName, int index,
                                       QString& value)
{
    QFile file(fileName);
    if (index < 0 || !FileContent::open(file, QIODevice::ReadOnly))
        return false;
    QXmlStreamReader reader(&file);
    reader.setNamespaceProcessing(false); // as in the document
    while (!reader.atEnd()) {
        const bool isNode = reader.readNext() == QXmlStreamReader::StartElement && reader.qualifiedName() == nodeName;
        if (!isNode || index-- > 0)
            continue;
        const auto attributes = reader.attributes();
        if (attributes.hasAttribute(attributeName))
            value = attributes.value(attributeName).toString();
        return attributes.hasAttribute(attributeName);
    }
    return false;
}

bool XmlParser::createXmlfile(QString const& fileName, QString const& docType, QString const& rootTag,
                              QString const& mainTag, QStringList const& tags, QStringList const& texts)
{
    QDomDocument document(docType);
    QDomElement root = document.createElement(rootTag);
    root.appendChild(makeElement(document, mainTag, tags, texts));
    document.appendChild(root);
    return writeDocument(document, fileName, true);
}
