#include "Services/mqttXmlParser.h"

#include "devicepaths.h"
#include "Entities/clientbroker.h"
#include "Services/mqttmanagerservices.h"

#include <array>
#include <QRegExp>
#include <QUuid>

namespace {

constexpr int LongestGeneratedClientId = 230;

using StoreText = void (*)(ClientBroker& broker, const QString& text);

// Levels of encryption at which an attribute is read, as a bit mask; at the others it is ignored.
using Levels = unsigned;
constexpr Levels AllLevels = ~0U;

constexpr Levels at(EncryptionLevel level)
{
    return 1U << level;
}

struct BrokerAttribute
{
    const char* name;
    StoreText store;
    Levels levels = AllLevels;
};

bool isRead(const BrokerAttribute& attribute, int encryption)
{
    if (attribute.levels == AllLevels)
        return true;
    return encryption >= ENC_NONE && encryption <= ENC_SSL_CA_AND_PRIVATE_KEY &&
           (attribute.levels & at(static_cast<EncryptionLevel>(encryption))) != 0;
}

// The text is all that is looked at: 999.999.999.999 counts as an address.
int addressingModeOf(const QString& host)
{
    const QRegExp dottedAddress("[0-9]{1,3}\\.[0-9]{1,3}\\.[0-9]{1,3}\\.[0-9]{1,3}");
    return dottedAddress.exactMatch(host) ? 0 : 1;
}

// Not written back: a broker without an identifier of its own gets another one at each start.
QString generateClientId()
{
    return QUuid::createUuid().toString().remove('{').remove('}').left(LongestGeneratedClientId);
}

QString inConfigurationDirectory(const QString& fileName)
{
    return DevicePaths::ConfigurationDirectory + fileName;
}

// In the order in which they are read; the level of encryption decides about those behind it.
constexpr std::array BrokerAttributes{
    BrokerAttribute{"Name", [](ClientBroker& b, const QString& t) { b.Name = t; }},
    BrokerAttribute{"IPOrURL",
                    [](ClientBroker& b, const QString& t) {
                        b.IPorURL = t;
                        b.AddressingMode = addressingModeOf(t);
                    }},
    BrokerAttribute{"ClientID",
                    [](ClientBroker& b, const QString& t) { b.ClientID = t.isEmpty() ? generateClientId() : t; }},
    BrokerAttribute{"EncryptionType",
                    [](ClientBroker& b, const QString& t) { b.Encryption = static_cast<int>(t.toUInt()); }},
    BrokerAttribute{"CAFileName",
                    [](ClientBroker& b, const QString& t) { b.SetCAFileName = inConfigurationDirectory(t); },
                    at(ENC_SSL_CA_CERTIFICATE_ONLY) | at(ENC_SELF_SIGNED_CERTIFICATE) | at(ENC_SSL_CA_AND_PRIVATE_KEY)},
    BrokerAttribute{
        "ClientCertificateFileName",
        [](ClientBroker& b, const QString& t) { b.ClientCertificateFileName = inConfigurationDirectory(t); },
        at(ENC_SELF_SIGNED_CERTIFICATE)},
    BrokerAttribute{"ClientKeyFileName",
                    [](ClientBroker& b, const QString& t) { b.ClientKeyFileName = inConfigurationDirectory(t); },
                    at(ENC_SELF_SIGNED_CERTIFICATE) | at(ENC_SSL_CA_AND_PRIVATE_KEY)},
    BrokerAttribute{"GoogleCloudProjectID", [](ClientBroker& b, const QString& t) { b.GoogleCloudProjectID = t; },
                    at(ENC_SSL_CA_AND_PRIVATE_KEY)},
    BrokerAttribute{"JWTAlgorithm", [](ClientBroker& b, const QString& t) { b.JWTAlgorithm = t; },
                    at(ENC_SSL_CA_AND_PRIVATE_KEY)},
    BrokerAttribute{"UserName", [](ClientBroker& b, const QString& t) { b.UserName = t; }},
    BrokerAttribute{"Password", [](ClientBroker& b, const QString& t) { b.Password = t; }},
    BrokerAttribute{"LastWillTopic",
                    [](ClientBroker& b, const QString& t) { b.LastWillTopic = b.m_Services->SetMQTTTopicVariable(t); }},
    BrokerAttribute{"Port", [](ClientBroker& b, const QString& t) { b.Port = t.toUInt(); }},
    BrokerAttribute{"KeepAlive", [](ClientBroker& b, const QString& t) { b.KeepAliveTime = t.toUInt(); }},
    BrokerAttribute{"ConnectionInterval", [](ClientBroker& b, const QString& t) { b.ConnectionInterval = t.toUInt(); }},
    BrokerAttribute{"LastWillAddr", [](ClientBroker& b, const QString& t) { b.LastWillAddr = t.toInt(); }},
    BrokerAttribute{"ID", [](ClientBroker& b, const QString& t) { b.UniqueID = t.toInt(); }},
    BrokerAttribute{"CleanSession", [](ClientBroker& b, const QString& t) { b.CleanSessionFlag = t.toInt() != 0; }},
    BrokerAttribute{"AutoConnect", [](ClientBroker& b, const QString& t) { b.AutoConnectFlag = t.toInt() != 0; }},
    BrokerAttribute{"BrokerAddr", [](ClientBroker& b, const QString& t) { b.BrokerAddr = t.toUInt(); }},
};

} // namespace

bool MQTTXmlParser::ParseXMLFileBrokers(QString fileName, QList<ClientBroker>& brokers, QString& version)
{
    constexpr EntityFile Layout{"BrokersConf", "Brokers", "BrokerConf", "Brokers Config_file"};
    return parseEntityFile(fileName, Layout, version,
                           [&](const QDomElement& element) { brokers.append(readBroker(element)); });
}

ClientBroker MQTTXmlParser::readBroker(const QDomElement& element) const
{
    ClientBroker broker;
    for (const BrokerAttribute& attribute : BrokerAttributes) {
        if (isRead(attribute, broker.Encryption))
            attribute.store(broker, element.attribute(attribute.name));
    }
    readDataType(element, broker.LastWillDataType, broker.LastWillDataLen);
    broker.CalcDataSize();
    return broker;
}
