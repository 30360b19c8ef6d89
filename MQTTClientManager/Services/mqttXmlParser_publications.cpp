#include "Services/mqttXmlParser.h"

#include "Entities/publisher.h"

bool MQTTXmlParser::ParseXMLFilePublications(QString fileName, QList<Publisher>& publishers, QString& version)
{
    constexpr EntityFile Layout{"PublicationsConf", "Publications", "PublicationConf", "Publications Config_file"};
    return parseEntityFile(fileName, Layout, version,
                           [&](const QDomElement& element) { publishers.append(readPublication(element)); });
}

Publisher MQTTXmlParser::readPublication(const QDomElement& element) const
{
    const auto number = [&element](const char* attribute) { return element.attribute(attribute).toInt(); };

    Publisher publisher;
    publisher.m_CallerType = CT_PUBLISHER;
    publisher.m_UniqueID = number("ID");
    publisher.m_Name = element.attribute("Name");
    readCallerTopic(element, publisher);
    publisher.m_QoS = number("QOS");
    publisher.m_PayloadEnc = number("PayloadEncryption");
    publisher.m_RetainFlag = number("RetainFlag") != 0;
    publisher.m_PerInterval = number("PeriodicInterval");
    publisher.m_DataAddress = element.attribute("DataAddr").toUInt();
    publisher.m_ReceiveAddress = static_cast<unsigned int>(number("BrokerReceivedAddr"));
    publisher.m_CBrokerID = number("CBrokerID");
    publisher.m_Entries = number("Ent");
    publisher.m_PayloadFormat = number("PayloadFormat");
    readDataType(element, publisher.m_DataType, publisher.m_DataLen);
    if (publisher.m_DataType == AT_STRUCT)
        publisher.m_DataMembers = readMembers(element);
    publisher.CalcDataSize();
    return publisher;
}
