#include "Utils/xmlparser.h"

#include "Utils/log.h"
#include "Utils/xmldocumentreader.h"

XmlParser::XmlParser() : m_document("myDocument") {}

XmlParser::~XmlParser() = default;

bool XmlParser::setXmlFile(QString const& fileName)
{
    m_xmlFile = fileName;
    // Into a document of its own, so that after a failure the root element and its document still belong together.
    QDomDocument document("myDocument");
    XmlDocumentReader::ContentError error;
    const auto outcome = XmlDocumentReader::read(fileName, QIODevice::ReadOnly, document, error);
    if (outcome == XmlDocumentReader::Outcome::NotOpened) {
        PLOG_ERROR << QString("file not open: %1").arg(fileName);
        return false;
    }
    if (outcome == XmlDocumentReader::Outcome::InvalidContent) {
        PLOG_ERROR << QString("setContent failed errorString:%1, errorLine:%2, errorColumn:%3")
                          .arg(error.message, QString::number(error.line), QString::number(error.column));
        return false;
    }
    m_document = document;
    m_rootElement = document.documentElement();
    return true;
}

bool XmlParser::refreshXml()
{
    return setXmlFile(m_xmlFile);
}

QString XmlParser::getXmlFile() const
{
    return m_xmlFile;
}

QDomElement XmlParser::getRootElement() const
{
    return m_rootElement;
}

void XmlParser::setRootElement(QDomElement const& element)
{
    m_rootElement = element;
}
