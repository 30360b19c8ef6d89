#pragma once

#include "Entities/mqttcallerbase.h"
#include "Utils/xmldocumentreader.h"

#include <QDomElement>
#include <QList>
#include <QString>

class ClientBroker;
class MQTTManagerServices;
class Publisher;
class Subscriber;
struct CBrokerConfigurationStruct;
struct PublicationConfigurationStruct;
struct SubscriptionConfigurationStruct;

// Reads the configuration files into entities, and writes changed configurations back. Nothing in the files is
// validated: a missing attribute or a text that is no number gives 0, and a number out of range stands as it is. A
// singleton without state between calls: the main thread reads, the request thread writes.
//   mqttXmlParser.cpp                what the files have in common, and the general file
//   mqttXmlParser_brokers.cpp        Brokers.xml
//   mqttXmlParser_publications.cpp   Publications.xml
//   mqttXmlParser_subscriptions.cpp  Subscriptions.xml
//   mqttXmlParser_writeback.cpp      configuration records into these files
class MQTTXmlParser
{
public:
    // The singleton; made by the first call.
    static MQTTXmlParser* instance();

    MQTTXmlParser();

    // All return false when the file can't be opened for reading and writing or is no XML, with an error line (but for
    // the general file, which says nothing when it can't be opened). Entities are appended; `version` gets the file's
    // version.
    bool ParseXMLFileGeneralCfg(QString fileName, QString& version, unsigned int& statisticsAddress,
                                unsigned int& generalAddress);
    bool ParseXMLFileBrokers(QString fileName, QList<ClientBroker>& brokers, QString& version);
    bool ParseXMLFileSubscriptions(QString fileName, QList<Subscriber>& subscribers, QString& version);
    bool ParseXMLFilePublications(QString fileName, QList<Publisher>& publishers, QString& version);

    // Write a configuration record back into the element with this ID, and leave all else in the file as it is. False
    // when the file can't be read, written, or has no such list; true also when no element has the ID. Of a broker's
    // record either the part of the first or of the second message counts. The validated values of the others come back
    // in the record. The request thread's.
    bool SetClientBrokerCfgFileUniqueID(bool firstPacket, int uniqueId, CBrokerConfigurationStruct* record);
    bool SetPublisherCfgFileUniqueID(int uniqueId, PublicationConfigurationStruct* record);
    bool SetSubscriberCfgFileUniqueID(int uniqueId, SubscriptionConfigurationStruct* record);
    // The same for a file of any name. The record may lie at any address.
    bool writeBrokerCfg(const QString& fileName, bool firstPacket, int uniqueId,
                        const CBrokerConfigurationStruct* record) const;
    bool writePublicationCfg(const QString& fileName, int uniqueId, PublicationConfigurationStruct* record) const;
    bool writeSubscriptionCfg(const QString& fileName, int uniqueId, SubscriptionConfigurationStruct* record) const;

    // The value itself where it is in its range, else 0.
    [[nodiscard]] MQTTQualityOfService validateQOSValue(MQTTQualityOfService value) const;
    [[nodiscard]] MQTTPayloadFormat validatePayloadFormatValue(MQTTPayloadFormat value) const;

    static MQTTXmlParser* m_instance;
    MQTTManagerServices* m_services; // not owned

private:
    // One kind of entity file: <Root Version=...><List><Entry/>...</List></Root>.
    struct EntityFile
    {
        const char* root;
        const char* list;
        const char* entry;
        const char* documentType;
    };

    // Calls `readEntry` for each entry: the first element of the entry's name, and all that follow it, whatever their
    // names.
    template<typename ReadEntry>
    bool parseEntityFile(const QString& fileName, const EntityFile& layout, QString& version, ReadEntry readEntry);

    // Numbers out of range become 0.
    template<typename Record>
    void validateFormat(Record& record) const;
    // Invalid content is logged.
    static XmlDocumentReader::Outcome readDocument(const QString& fileName, QDomDocument& document);
    bool openEntityFile(const QString& fileName, QDomDocument& document) const;
    [[nodiscard]] ClientBroker readBroker(const QDomElement& element) const;
    [[nodiscard]] Publisher readPublication(const QDomElement& element) const;
    [[nodiscard]] Subscriber readSubscription(const QDomElement& element) const;
    // What publications and subscriptions have in common, ahead of CalcDataSize.
    void readCaller(const QDomElement& element, MQTTCallerBase& caller) const;
    void readCallerTopic(const QDomElement& element, MQTTCallerBase& caller) const;
    static QList<JsonDataMember> readMembers(const QDomElement& entity);
    // "TYPE" or "TYPE_LENGTH"; `length` is assigned only by the second form.
    static void readDataType(const QDomElement& element, ArgType& type, int& length);
};

template<typename ReadEntry>
bool MQTTXmlParser::parseEntityFile(const QString& fileName, const EntityFile& layout, QString& version,
                                    ReadEntry readEntry)
{
    QDomDocument document(layout.documentType);
    if (!openEntityFile(fileName, document))
        return false;
    const QDomElement root = document.firstChildElement(layout.root);
    version = root.attribute("Version");
    const QDomElement list = root.firstChildElement(layout.list);
    for (QDomElement entry = list.firstChildElement(layout.entry); !entry.isNull(); entry = entry.nextSiblingElement())
        readEntry(entry);
    return true;
}
