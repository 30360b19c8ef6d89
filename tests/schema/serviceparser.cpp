#include "serviceparser.h"

#include "Entities/clientbroker.h"
#include "Entities/publisher.h"
#include "Entities/subscriber.h"
#include "Services/mqttXmlParser.h"

#include <QRegularExpression>
#include <QTemporaryFile>
#include <QXmlStreamWriter>

namespace {

std::vector<ServiceParser::Place>* askedAttributes = nullptr;

} // namespace

// Takes the library's place, so that a test sees what a parser asks for.
QString QDomElement::attribute(const QString& name, const QString& defaultValue) const
{
    if (askedAttributes)
        askedAttributes->emplace_back(tagName().toStdString(), name.toStdString());
    const QDomNode found = attributes().namedItem(name);
    return found.isNull() ? defaultValue : found.nodeValue();
}

namespace ServiceParser {

namespace {

using plcctl::schema::ConfigurationFile;
using plcctl::schema::Element;
using Members = std::map<std::string, std::string>;

QString qText(std::string_view text)
{
    return QString::fromUtf8(text.data(), static_cast<int>(text.size()));
}

void writeElement(QXmlStreamWriter& xml, const Element& element, const Texts& texts)
{
    xml.writeStartElement(qText(element.name));
    for (const auto& [place, text] : texts) {
        if (place.first == element.name)
            xml.writeAttribute(qText(place.second), qText(text));
    }
    for (const Element& child : element.children)
        writeElement(xml, child, texts);
    xml.writeEndElement();
}

// An identifier that the parser has made is another one each time.
QString withoutGeneratedId(const QString& id)
{
    static const QRegularExpression generated("^[0-9a-f]{8}(-[0-9a-f]{4}){3}-[0-9a-f]{12}$");
    return generated.match(id).hasMatch() ? "generated" : id;
}

class Collector
{
public:
    explicit Collector(Members& members) : m_members(members) {}

    void add(const char* name, const QString& value) { m_members[name] = value.toStdString(); }
    template<typename Number>
    void add(const char* name, Number value)
    {
        m_members[name] = std::to_string(value);
    }

private:
    Members& m_members;
};

void collect(const ClientBroker& broker, Collector out)
{
    out.add("Name", broker.Name);
    out.add("IPorURL", broker.IPorURL);
    out.add("AddressingMode", broker.AddressingMode);
    out.add("ClientID", withoutGeneratedId(broker.ClientID));
    out.add("Encryption", broker.Encryption);
    out.add("SetCAFileName", broker.SetCAFileName);
    out.add("ClientCertificateFileName", broker.ClientCertificateFileName);
    out.add("ClientKeyFileName", broker.ClientKeyFileName);
    out.add("GoogleCloudProjectID", broker.GoogleCloudProjectID);
    out.add("JWTAlgorithm", broker.JWTAlgorithm);
    out.add("UserName", broker.UserName);
    out.add("Password", broker.Password);
    out.add("LastWillTopic", broker.LastWillTopic);
    out.add("Port", broker.Port);
    out.add("KeepAliveTime", broker.KeepAliveTime);
    out.add("ConnectionInterval", unsigned{broker.ConnectionInterval});
    out.add("LastWillAddr", broker.LastWillAddr);
    out.add("UniqueID", broker.UniqueID);
    out.add("CleanSessionFlag", broker.CleanSessionFlag);
    out.add("AutoConnectFlag", broker.AutoConnectFlag);
    out.add("BrokerAddr", broker.BrokerAddr);
    out.add("LastWillDataType", int{broker.LastWillDataType});
    out.add("LastWillDataLen", broker.LastWillDataLen);
    out.add("LastWillDataSize", broker.LastWillDataSize);
}

void collectCaller(const MQTTCallerBase& caller, Collector& out)
{
    out.add("m_UniqueID", caller.m_UniqueID);
    out.add("m_Name", caller.m_Name);
    out.add("m_Topic", caller.m_Topic);
    out.add("m_QoS", caller.m_QoS);
    out.add("m_PayloadEnc", caller.m_PayloadEnc);
    out.add("m_DataAddress", caller.m_DataAddress);
    out.add("m_CBrokerID", caller.m_CBrokerID);
    out.add("m_Entries", caller.m_Entries);
    out.add("m_PayloadFormat", caller.m_PayloadFormat);
    out.add("m_DataType", int{caller.m_DataType});
    out.add("m_DataLen", caller.m_DataLen);
    out.add("m_DataSize", caller.m_DataSize);
    out.add("m_DataMembers", caller.m_DataMembers.size());
    for (const JsonDataMember& member : caller.m_DataMembers) {
        out.add("Name", member.Name);
        out.add("Type", int{member.Type});
        out.add("Entry", member.Entry);
        out.add("Len", member.Len);
        out.add("Offset", member.Offset);
    }
}

void collect(const Publisher& publication, Collector out)
{
    collectCaller(publication, out);
    out.add("m_RetainFlag", publication.m_RetainFlag);
    out.add("m_PerInterval", publication.m_PerInterval);
    out.add("m_ReceiveAddress", publication.m_ReceiveAddress);
}

void collect(const Subscriber& subscription, Collector out)
{
    collectCaller(subscription, out);
    out.add("m_BufferedFlag", subscription.m_BufferedFlag);
    out.add("m_SubscribeAtBootTime", subscription.m_SubscribeAtBootTime);
    out.add("m_SubAddr", subscription.m_SubAddr);
}

bool parseGeneral(const QString& path, QString& version, Members& members)
{
    unsigned statistics = 0;
    unsigned general = 0;
    const bool success = MQTTXmlParser::instance()->ParseXMLFileGeneralCfg(path, version, statistics, general);
    members["general"] = std::to_string(general);
    members["statistics"] = std::to_string(statistics);
    return success;
}

template<typename Entity, bool (MQTTXmlParser::*Parse)(QString, QList<Entity>&, QString&)>
bool parseEntities(const QString& path, QString& version, Members& members)
{
    QList<Entity> entities;
    const bool success = (MQTTXmlParser::instance()->*Parse)(path, entities, version);
    members["entities"] = std::to_string(entities.size());
    for (const Entity& entity : entities)
        collect(entity, Collector(members));
    return success;
}

using Parser = bool (*)(const QString& path, QString& version, Members& members);
const std::map<std::string_view, Parser> Parsers{
    {"MQTTClientConf.xml", parseGeneral},
    {"Brokers.xml", parseEntities<ClientBroker, &MQTTXmlParser::ParseXMLFileBrokers>},
    {"Publications.xml", parseEntities<Publisher, &MQTTXmlParser::ParseXMLFilePublications>},
    {"Subscriptions.xml", parseEntities<Subscriber, &MQTTXmlParser::ParseXMLFileSubscriptions>},
};

} // namespace

std::vector<std::string> Reading::askedOf(std::string_view element) const
{
    std::vector<std::string> names;
    for (const auto& [elementName, attributeName] : asked) {
        if (elementName == element)
            names.push_back(attributeName);
    }
    return names;
}

Reading read(const ConfigurationFile& file, const Texts& texts)
{
    QTemporaryFile target;
    if (!target.open())
        return {};
    QXmlStreamWriter xml(&target);
    writeElement(xml, file.top, texts);
    target.close();

    Reading reading;
    QString version;
    askedAttributes = &reading.asked;
    reading.success = Parsers.at(file.name)(target.fileName(), version, reading.members);
    askedAttributes = nullptr;
    reading.members["version"] = version.toStdString();
    return reading;
}

void forEachElement(const Element& top, const std::function<void(const Element&)>& visit)
{
    visit(top);
    for (const Element& child : top.children)
        forEachElement(child, visit);
}

} // namespace ServiceParser
