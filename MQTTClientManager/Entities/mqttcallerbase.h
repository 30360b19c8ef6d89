#pragma once

#include "Records/argtype.h"

#include <MQTTClient.h>
#include <QList>
#include <QString>

class ClientBroker;
class MQTTManagerServices;
class MQTTStatusLogManager;

enum MQTTQualityOfService : int
{
    QOS_AT_MOST_ONCE = 0,
    QOS_AT_LEAST_ONCE = 1,
    QOS_EXACTLY_ONCE = 2
};

enum MQTTPayloadFormat : int
{
    PF_BUFFER = 0, // tag bytes as they are
    PF_JSON = 1,
    PF_PROTOBUF = 2,
    PF_TRIGGERED_OP = 3, // a script is run, nothing is published
    PF_NOT_CONFIGURED = 255
};

// Largest tag that is put together in memory to be written.
inline constexpr int MAX_TAG_BYTES = 16 * 1024 * 1024;

// Tags of at most this size lie on the stack while they are converted.
inline constexpr int StackTagBytes = 2048;

// What m_CallerType holds: the broker selects its callers by this, not by their class.
enum CallerType : int
{
    CT_SUBSCRIBER = 1,
    CT_PUBLISHER = 2
};

// One member of a tag of type AT_STRUCT.
struct JsonDataMember
{
    QString Name; // the JSON key
    ArgType Type = AT_NOTYPE;
    int Entry = 0; // array length; 0 for one value
    int Len = NO_DATA_LEN;
    unsigned int Offset = 0; // bytes from the tag's address
};

// What a publication and a subscription have in common: one piece of tag data bound to one topic on one broker.
// Entities live by value in the manager's lists and keep their address there; a broker knows them through this base
// only.
class MQTTCallerBase
{
public:
    MQTTCallerBase();
    virtual ~MQTTCallerBase() = default;
    MQTTCallerBase(const MQTTCallerBase&) = default;
    MQTTCallerBase& operator=(const MQTTCallerBase&) = default;

    // A line on Qt's debug output with all that is configured, in verbose mode only.
    virtual void PrintCallerEntityDebug();

    // What the broker tells its callers. Lost connections, deliveries and messages come on the client library's
    // threads.
    virtual void ConnectionLost() {}
    virtual void DeliveryComplete(int /*token*/) {}
    virtual bool MessageArrived(char* /*topicName*/, int /*topicLen*/, MQTTClient_message* /*message*/) { return true; }
    virtual bool UpdateCfgStruct() { return true; }
    virtual bool IsSubscribed() { return false; }
    virtual void ClearCfgStruct() {}
    virtual void Disconnect() {}
    virtual void PresentSessionEstablished() {}

    // Sets the topic as it is, without expanding variables, and whether it holds a wildcard.
    void SetTopic(const QString& topic);

    // Sets m_DataSize from the type; of a struct, the last member in file order decides. Once, when all attributes are
    // read.
    void CalcDataSize();

    MQTTStatusLogManager* m_StatusLogManager; // not owned
    MQTTManagerServices* m_Services;          // not owned
    ClientBroker* m_cBroker = nullptr;        // not owned; null when no broker of the configuration has m_CBrokerID
    int m_DataLen = NO_DATA_LEN;
    int m_DataSize = -1; // bytes; a negative size counts as no data
    QList<JsonDataMember> m_DataMembers;
    int m_CallerType = 0;
    bool m_Special = false; // the topic holds a wildcard
    QString m_Name;
    QString m_Topic;
    ArgType m_DataType = AT_NOTYPE;
    int m_PayloadEnc = 0;
    int m_QoS = QOS_AT_MOST_ONCE; // as the file has it, so not always 0 to 2
    int m_PayloadFormat = PF_NOT_CONFIGURED;
    int m_UniqueID = 0;
    int m_CBrokerID = 0;
    int m_Entries = 0;              // array length; 0 for one value
    unsigned int m_DataAddress = 0; // position in tag memory, used as it is

private:
    [[nodiscard]] int structSize() const;
};
