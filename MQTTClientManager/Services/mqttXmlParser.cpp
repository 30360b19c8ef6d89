#include "Services/mqttXmlParser.h"

#include "logging.h"
#include "Services/mqttmanagerservices.h"
#include "Utils/xmldocumentreader.h"

#include <QStringList>

MQTTXmlParser* MQTTXmlParser::m_instance = nullptr;

MQTTXmlParser* MQTTXmlParser::instance()
{
    if (!m_instance)
        m_instance = new MQTTXmlParser;
    return m_instance;
}

MQTTXmlParser::MQTTXmlParser() : m_services(MQTTManagerServices::instance()) {}

XmlDocumentReader::Outcome MQTTXmlParser::readDocument(const QString& fileName, QDomDocument& document)
{
    XmlDocumentReader::ContentError error;
    const auto outcome = XmlDocumentReader::read(fileName, QIODevice::ReadWrite, document, error);
    if (outcome == XmlDocumentReader::Outcome::InvalidContent) {
        PLOG_ERROR << QString("invalid content due to %1 (line=%2 | column=%3)")
                          .arg(error.message, QString::number(error.line), QString::number(error.column));
    }
    return outcome;
}

bool MQTTXmlParser::ParseXMLFileGeneralCfg(QString fileName, QString& version, unsigned int& statisticsAddress,
                                           unsigned int& generalAddress)
{
    QDomDocument document("GeneralCfg Config_file");
    if (readDocument(fileName, document) != XmlDocumentReader::Outcome::Read)
        return false;
    const QDomElement root = document.firstChildElement("ClientConf");
    version = root.attribute("Version");
    const QDomElement general = root.firstChildElement("General");
    const QDomElement statistics = root.firstChildElement("Statistics");
    if (general.isNull() || statistics.isNull())
        return false;
    generalAddress = general.attribute("Addr").toUInt();
    statisticsAddress = statistics.attribute("Addr").toUInt();
    return true;
}

bool MQTTXmlParser::openEntityFile(const QString& fileName, QDomDocument& document) const
{
    const auto outcome = readDocument(fileName, document);
    if (outcome == XmlDocumentReader::Outcome::NotOpened) {
        PLOG_ERROR << "can't open xml file for read";
    }
    return outcome == XmlDocumentReader::Outcome::Read;
}

void MQTTXmlParser::readDataType(const QDomElement& element, ArgType& type, int& length)
{
    const QStringList parts = element.attribute("DataType").split('_');
    type = static_cast<ArgType>(parts.constFirst().toInt());
    if (parts.size() > 1)
        length = parts.at(1).toInt();
}

void MQTTXmlParser::readCaller(const QDomElement& element, MQTTCallerBase& caller) const
{
    const auto number = [&element](const char* attribute) { return element.attribute(attribute).toInt(); };

    caller.m_UniqueID = number("ID");
    caller.m_Name = element.attribute("Name");
    readCallerTopic(element, caller);
    caller.m_QoS = number("QOS");
    caller.m_PayloadEnc = number("PayloadEncryption");
    caller.m_DataAddress = element.attribute("DataAddr").toUInt();
    caller.m_CBrokerID = number("CBrokerID");
    caller.m_Entries = number("Ent");
    caller.m_PayloadFormat = number("PayloadFormat");
    readDataType(element, caller.m_DataType, caller.m_DataLen);
    if (caller.m_DataType == AT_STRUCT)
        caller.m_DataMembers = readMembers(element);
}

void MQTTXmlParser::readCallerTopic(const QDomElement& element, MQTTCallerBase& caller) const
{
    caller.SetTopic(m_services->SetMQTTTopicVariable(element.attribute("Topic")));
}

QList<JsonDataMember> MQTTXmlParser::readMembers(const QDomElement& entity)
{
    QList<JsonDataMember> members;
    const QDomElement list = entity.firstChildElement("DataMembers");
    for (QDomElement element = list.firstChildElement("DataMember"); !element.isNull();
         element = element.nextSiblingElement()) {
        JsonDataMember member;
        // "0x10" is 16. Whatever the first two characters are, they are dropped.
        member.Offset = element.attribute("Off").mid(2).toUInt(nullptr, 16);
        readDataType(element, member.Type, member.Len);
        member.Name = element.attribute("DName");
        member.Entry = element.attribute("Ent").toInt();
        members.append(member);
    }
    return members;
}

MQTTQualityOfService MQTTXmlParser::validateQOSValue(MQTTQualityOfService value) const
{
    return value <= QOS_EXACTLY_ONCE ? value : QOS_AT_MOST_ONCE;
}

MQTTPayloadFormat MQTTXmlParser::validatePayloadFormatValue(MQTTPayloadFormat value) const
{
    return value <= PF_TRIGGERED_OP ? value : PF_BUFFER;
}
