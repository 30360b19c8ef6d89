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
    readCaller(element, publisher);
    publisher.m_RetainFlag = number("RetainFlag") != 0;
    publisher.m_PerInterval = number("PeriodicInterval");
    publisher.m_ReceiveAddress = static_cast<unsigned int>(number("BrokerReceivedAddr"));
    publisher.CalcDataSize();
    return publisher;
}
