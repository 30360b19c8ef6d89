#pragma once

#include "Records/argtype.h"
#include "Services/tagspace.h"
#include "Utils/boundedtext.h"
#include "Utils/sharedscalar.h"

#include <array>
#include <QMap>
#include <QString>
#include <QStringList>
#include <QVector>

class QJsonObject;
struct CBrokerConfigurationStruct;
struct HdrOperandData_t;
struct MQTTGeneralStruct;
struct MQTTMessage;
struct MQTTStatisticsStruct;
struct PublicationConfigurationStruct;
struct SubscriptionConfigurationStruct;

// Columns of the conversion tables: one for each ArgType.
inline constexpr int ARG_TYPES = 13;

// What all entities need of the device: the type model of tags, the conversions between tags and text, addresses, the
// device's identity and its network links. A singleton, made on the main thread before any other thread exists and
// never deleted.
//   mqttmanagerservices.cpp                construction, type model, addresses
//   mqttmanagerservices_tagtotext.cpp      tag bytes to JSON values
//   mqttmanagerservices_simpletotag.cpp    a payload that is one value or one array, to tag bytes
//   mqttmanagerservices_objecttotag.cpp    a value of a JSON object, to tag bytes
//   mqttmanagerservices_tagmemory.cpp      writing to tag memory
//   mqttmanagerservices_identity.cpp       name, serial number, MAC text, topic variables, link state
//   mqttmanagerservices_dumps.cpp          debug dumps of records and messages
// The identity belongs to the thread that parses the configuration; all else may be used from any thread.
class MQTTManagerServices
{
public:
    // The singleton; made by the first call.
    static MQTTManagerServices* instance();

    MQTTManagerServices();

    void SetVerboseMode(bool verbose);

    // Bytes that a datum takes in tag memory. `length` counts only for texts, `entries` only for the other types, where
    // 0 means one value. -1 for AT_NOTYPE, AT_STRUCT, numbers outside ArgType and results past 2 GiB.
    [[nodiscard]] int GetTypeSizeInBytes(ArgType type, int length, int entries) const;

    // The type's name, "AT_BOOL" for example; empty where the type has none.
    [[nodiscard]] QString GetTypeName(ArgType type) const;

    [[nodiscard]] unsigned long OperandAddr2OffsetConversion(unsigned long address) const;

    // The JSON value that stands for a tag: `entries` 0 gives one value, more an array; texts ignore `entries`, and
    // only they use `length`. Not escaped. "0" for structs and numbers outside ArgType. Trusts `buffer` to be large
    // enough.
    [[nodiscard]] QString BufferToQStringConversion(char* buffer, ArgType type, int length, int entries) const;

    // The same as UTF-8, appended to `text` as far as it fits; bytes past `size` count as zero.
    void AppendTagText(BoundedText& text, const char* bytes, qint64 size, ArgType type, int length, int entries) const;

    // A payload that is one plain value or one JSON array, to the bytes of a tag. Array elements that the text doesn't
    // have leave their bytes as they were; texts that are no number give 0, and numbers are cut to their width. May
    // change `text`. Does nothing for structs and numbers outside ArgType.
    void JsonSimpleStringToBufferConversion(QString& text, ArgType type, int entries, int length, TagSpace buffer);

    // The same for the value of one key. Here elements that the array doesn't have give 0, nulls are skipped, and a
    // text is cut by the space only.
    void JsonObjStringToBufferConversion(QJsonObject& object, ArgType type, QString key, int entries, TagSpace buffer);

    // The texts between the commas of a JSON array; empty when `text` is no JSON or holds no array. Removes the
    // brackets from `text`.
    QStringList validateJsonArrayStringAndReturnValueList(QString& text);

    // Writes `length` bytes to tag memory in chunks of at most 1020 bytes. 0, or the result of the write that failed;
    // what was written ahead of it stays.
    int WriteBufferToMemory(int length, int address, const char* data);

    // The controller's name from its settings file, read at each call; empty when there is none.
    [[nodiscard]] QString GetPLCNAME() const;
    // What the device's scripts print, asked once. Empty when a script doesn't end within 30 s; it is then asked again.
    QString GetPLCSN();
    QString GetPLCMAC();

    [[nodiscard]] bool isMQTTVarIsUsed(const QString& text) const;
    // `text` with all device variables expanded; left as far as it got, with an error line, when values hold variables
    // without end. May run scripts, and so block for 30 s each.
    QString SetMQTTTopicVariable(const QString& text);

    // True if one of the Ethernet ports has a link. Any thread.
    [[nodiscard]] bool CheckEthPortLinkState() const;

    // One line on Qt's debug output each, in verbose mode only. Null prints nothing. Passwords are shown. Any thread.
    void PrintDebug(QString first, QString second);
    void PrintMQTTGeneralStructDebug(MQTTGeneralStruct* record, unsigned int address);
    void PrintMQTTStatisticsStructDebug(MQTTStatisticsStruct& record);
    void PrintClientBrokerStructDebug(CBrokerConfigurationStruct record);
    void PrintSubscriptionStructDebug(SubscriptionConfigurationStruct record);
    void PrintPublicationStructDebug(PublicationConfigurationStruct record);
    // Long texts and binary data are cut.
    void PrintMQTTMessageDebug(MQTTMessage* message);
    void PrintRegisteredTagsDebug(QVector<HdrOperandData_t>& operands, int count);

    static MQTTManagerServices* m_instance;

    Relaxed<bool> m_verboseMode;
    QMap<ArgType, int> m_typeSizes;
    QMap<ArgType, QString> m_typeNames;

    // The conversions behind the two entry points: one for each type and form. NENTRY is one value, ENTRY an array; a
    // text has one form only.
    using SimpleFunction = void(QString& text, int entries, int length, TagSpace buffer);
    SimpleFunction jSSToBufferConversion_NOP;
    SimpleFunction jSSToBufferConversion_BOOL_NENTRY, jSSToBufferConversion_BOOL_ENTRY;
    SimpleFunction jSSToBufferConversion_INT8_NENTRY, jSSToBufferConversion_INT8_ENTRY;
    SimpleFunction jSSToBufferConversion_UINT8_NENTRY, jSSToBufferConversion_UINT8_ENTRY;
    SimpleFunction jSSToBufferConversion_INT16_NENTRY, jSSToBufferConversion_INT16_ENTRY;
    SimpleFunction jSSToBufferConversion_UINT16_NENTRY, jSSToBufferConversion_UINT16_ENTRY;
    SimpleFunction jSSToBufferConversion_UINT32_NENTRY, jSSToBufferConversion_UINT32_ENTRY;
    SimpleFunction jSSToBufferConversion_INT32_NENTRY, jSSToBufferConversion_INT32_ENTRY;
    SimpleFunction jSSToBufferConversion_REAL_NENTRY, jSSToBufferConversion_REAL_ENTRY;
    SimpleFunction jSSToBufferConversion_STR8_ENTRY, jSSToBufferConversion_STR16_ENTRY,
        jSSToBufferConversion_STR32_ENTRY;
    using ObjectFunction = void(QJsonObject& object, QString key, int entries, TagSpace buffer);
    ObjectFunction jObjSToBufferConversion_NOP;
    ObjectFunction jObjSToBufferConversion_BOOL_NENTRY, jObjSToBufferConversion_BOOL_ENTRY;
    ObjectFunction jObjSToBufferConversion_INT8_NENTRY, jObjSToBufferConversion_INT8_ENTRY;
    ObjectFunction jObjSToBufferConversion_UINT8_NENTRY, jObjSToBufferConversion_UINT8_ENTRY;
    ObjectFunction jObjSToBufferConversion_INT16_NENTRY, jObjSToBufferConversion_INT16_ENTRY;
    ObjectFunction jObjSToBufferConversion_UINT16_NENTRY, jObjSToBufferConversion_UINT16_ENTRY;
    ObjectFunction jObjSToBufferConversion_UINT32_NENTRY, jObjSToBufferConversion_UINT32_ENTRY;
    ObjectFunction jObjSToBufferConversion_INT32_NENTRY, jObjSToBufferConversion_INT32_ENTRY;
    ObjectFunction jObjSToBufferConversion_REAL_NENTRY, jObjSToBufferConversion_REAL_ENTRY;
    ObjectFunction jObjSToBufferConversion_STR8_ENTRY, jObjSToBufferConversion_STR16_ENTRY,
        jObjSToBufferConversion_STR32_ENTRY;

    // Row 0 serves single values, row 1 arrays; the column is the ArgType. Null for structs.
    using SimpleConversion = SimpleFunction MQTTManagerServices::*;
    using ObjectConversion = ObjectFunction MQTTManagerServices::*;
    std::array<std::array<SimpleConversion, ARG_TYPES>, 2> m_jSSConversions{};
    std::array<std::array<ObjectConversion, ARG_TYPES>, 2> m_jObjSConversions{};

    QString m_plcSerial;
    QString m_plcMac;

private:
    void fillConversionTables();

    // Removes the brackets of a JSON array; false, and a debug line, when `text` is no JSON or holds no array.
    static bool reduceToList(QString& text);
    template<typename Conversion>
    static void storeArray(QString& text, int entries, TagSpace buffer);

    QString cachedScriptText(QString& cache, const char* commandLine) const;
    bool expandOneVariable(QString& text);
};
