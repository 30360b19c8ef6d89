#pragma once

#include "Records/argtype.h"
#include "Utils/sharedscalar.h"

#include <QMap>
#include <QString>

// What all entities need of the device: the type model of tags, addresses, the device's identity and its network links.
// A singleton, made on the main thread before any other thread exists and never deleted.
//   mqttmanagerservices.cpp            construction, type model, addresses
//   mqttmanagerservices_identity.cpp   name, serial number, MAC text, topic variables, link state
// The type model may be used from any thread; the identity belongs to the thread that parses the configuration.
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

    static MQTTManagerServices* m_instance;

    Relaxed<bool> m_verboseMode;
    QMap<ArgType, int> m_typeSizes;
    QMap<ArgType, QString> m_typeNames;
    QString m_plcSerial;
    QString m_plcMac;

private:
    QString cachedScriptText(QString& cache, const char* commandLine) const;
    bool expandOneVariable(QString& text);
};
