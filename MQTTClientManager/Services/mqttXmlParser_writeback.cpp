#include "Services/mqttXmlParser.h"

#include "devicepaths.h"
#include "Entities/recordtext.h"
#include "Records/brokerrecords.h"
#include "Records/publicationrecords.h"
#include "Records/subscriptionrecords.h"
#include "Utils/xmlparser.h"

#include <cstring>
#include <span>

namespace {

enum class FieldForm
{
    Text,  // UTF-16, up to a zero unit or the end of the field
    Number // unsigned, of as many bytes as the field has
};

// A field of a record, and the attribute that it goes to.
struct RecordField
{
    const char* attribute;
    FieldForm form;
    std::size_t offset; // bytes
    std::size_t size;   // bytes
};

using Broker = CBrokerConfigurationStruct;
using Publication = PublicationConfigurationStruct;
using Subscription = SubscriptionConfigurationStruct;

// A record is longer than a message: each of two carries one half. The level of encryption in the second half is not
// written back.
constexpr RecordField FirstBrokerFields[] = {
    {"IPOrURL", FieldForm::Text, offsetof(Broker, IPorUrl), sizeof(Broker::IPorUrl)},
    {"Port", FieldForm::Number, offsetof(Broker, Port), sizeof(Broker::Port)},
    {"AutoConnect", FieldForm::Number, offsetof(Broker, AutoConnect), sizeof(Broker::AutoConnect)},
    {"ClientID", FieldForm::Text, offsetof(Broker, ClientID), sizeof(Broker::ClientID)},
    {"UserName", FieldForm::Text, offsetof(Broker, Username), sizeof(Broker::Username)},
};
constexpr RecordField SecondBrokerFields[] = {
    {"Password", FieldForm::Text, offsetof(Broker, Password), sizeof(Broker::Password)},
    {"LastWillTopic", FieldForm::Text, offsetof(Broker, LastWillTopic), sizeof(Broker::LastWillTopic)},
    {"ConnectionInterval", FieldForm::Number, offsetof(Broker, ReconnectTrials), sizeof(Broker::ReconnectTrials)},
    {"KeepAlive", FieldForm::Number, offsetof(Broker, KeepAliveTime), sizeof(Broker::KeepAliveTime)},
    {"CleanSession", FieldForm::Number, offsetof(Broker, CleanSessionFlag), sizeof(Broker::CleanSessionFlag)},
};
constexpr RecordField PublicationFields[] = {
    {"Topic", FieldForm::Text, offsetof(Publication, Topic), sizeof(Publication::Topic)},
    {"QOS", FieldForm::Number, offsetof(Publication, QoS), sizeof(Publication::QoS)},
    {"PayloadFormat", FieldForm::Number, offsetof(Publication, PayloadFormat), sizeof(Publication::PayloadFormat)},
    {"RetainFlag", FieldForm::Number, offsetof(Publication, Retained), sizeof(Publication::Retained)},
};
constexpr RecordField SubscriptionFields[] = {
    {"Topic", FieldForm::Text, offsetof(Subscription, Topic), sizeof(Subscription::Topic)},
    {"QOS", FieldForm::Number, offsetof(Subscription, QoS), sizeof(Subscription::QoS)},
    {"PayloadFormat", FieldForm::Number, offsetof(Subscription, PayloadFormat), sizeof(Subscription::PayloadFormat)},
    {"SubscribeAtBoot", FieldForm::Number, offsetof(Subscription, SubscribeAtBoot),
     sizeof(Subscription::SubscribeAtBoot)},
    {"IsBuffered", FieldForm::Number, offsetof(Subscription, Buffered), sizeof(Subscription::Buffered)},
};

QString numberOf(const char* bytes, std::size_t size)
{
    std::uint32_t number = 0;
    std::memcpy(&number, bytes, size); // little-endian, on both sides
    return QString::number(number);
}

// `record` may lie at any address.
bool writeFields(const QString& fileName, const QStringList& entries, int uniqueId, const void* record,
                 std::span<const RecordField> fields)
{
    QStringList names;
    QStringList values;
    for (const RecordField& field : fields) {
        const char* const bytes = static_cast<const char*>(record) + field.offset;
        names.append(field.attribute);
        values.append(field.form == FieldForm::Text ? fieldText(bytes, field.size / sizeof(QChar))
                                                    : numberOf(bytes, field.size));
    }
    XmlParser parser;
    // A file that can't be loaded leaves no root element, and the next step fails.
    static_cast<void>(parser.setXmlFile(fileName));
    return parser.setTagAttributesValues(entries, "ID", QString::number(uniqueId), names, values, true);
}

QString inConfigurationDirectory(const char* fileName)
{
    return QString(DevicePaths::ConfigurationDirectory) + fileName;
}

} // namespace

bool MQTTXmlParser::SetClientBrokerCfgFileUniqueID(bool firstPacket, int uniqueId, CBrokerConfigurationStruct* record)
{
    return writeBrokerCfg(inConfigurationDirectory(DevicePaths::BrokersFile), firstPacket, uniqueId, record);
}

bool MQTTXmlParser::SetPublisherCfgFileUniqueID(int uniqueId, PublicationConfigurationStruct* record)
{
    return writePublicationCfg(inConfigurationDirectory(DevicePaths::PublicationsFile), uniqueId, record);
}

bool MQTTXmlParser::SetSubscriberCfgFileUniqueID(int uniqueId, SubscriptionConfigurationStruct* record)
{
    return writeSubscriptionCfg(inConfigurationDirectory(DevicePaths::SubscriptionsFile), uniqueId, record);
}

bool MQTTXmlParser::writeBrokerCfg(const QString& fileName, bool firstPacket, int uniqueId,
                                   const CBrokerConfigurationStruct* record) const
{
    const std::span<const RecordField> fields(firstPacket ? FirstBrokerFields : SecondBrokerFields);
    return writeFields(fileName, {"Brokers", "BrokerConf"}, uniqueId, record, fields);
}

bool MQTTXmlParser::writePublicationCfg(const QString& fileName, int uniqueId,
                                        PublicationConfigurationStruct* record) const
{
    validateFormat(*record);
    return writeFields(fileName, {"Publications", "PublicationConf"}, uniqueId, record, PublicationFields);
}

bool MQTTXmlParser::writeSubscriptionCfg(const QString& fileName, int uniqueId,
                                         SubscriptionConfigurationStruct* record) const
{
    validateFormat(*record);
    return writeFields(fileName, {"Subscriptions", "SubscriptionConf"}, uniqueId, record, SubscriptionFields);
}

template<typename Record>
void MQTTXmlParser::validateFormat(Record& record) const
{
    record.QoS = validateQOSValue(MQTTQualityOfService{record.QoS});
    record.PayloadFormat = validatePayloadFormatValue(MQTTPayloadFormat{record.PayloadFormat});
}
