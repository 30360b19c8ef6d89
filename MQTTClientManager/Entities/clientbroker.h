#pragma once

#include "Entities/lostsubscriptions.h"
#include "Entities/topicsieve.h"
#include "Entities/turn.h"
#include "processending.h"
#include "Records/argtype.h"
#include "Records/brokerrecords.h"
#include "Records/statuscodes.h"
#include "Utils/sharedscalar.h"

#include <chrono>
#include <jwt.h>
#include <memory>
#include <MQTTClient.h>
#include <optional>
#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

class MQTTCallerBase;
class MQTTManagerServices;
class MQTTStatusLogManager;

// Level of encryption, as the configuration numbers it. Numbers above behave as ENC_SSL_NO_SERVER_AUTH.
enum EncryptionLevel : int
{
    ENC_NONE = 0,
    ENC_SSL_NO_SERVER_AUTH = 1,
    ENC_SSL_CA_CERTIFICATE_ONLY = 2,
    ENC_CA_SIGNED_SERVER_CERTIFICATE = 3,
    ENC_SELF_SIGNED_CERTIFICATE = 4,
    ENC_SSL_CA_AND_PRIVATE_KEY = 5
};

// One configured broker: its connection, its status block in tag memory, and the callers that ride on it.
//   clientbroker.cpp              construction, records, sizes
//   clientbroker_client.cpp       the client library's handle: creation, use, destruction
//   clientbroker_connection.cpp   connecting
//   clientbroker_reconnection.cpp the end of a connection, and what follows a loss
//   clientbroker_carotation.cpp   another CA file after a failed attempt
//   clientbroker_callbacks.cpp    the client library's events
//   clientbroker_publishing.cpp   handing over a publication
//   clientbroker_token.cpp        the signed token that some brokers want in place of a password
// A subscribe or unsubscribe is a SubscriptionRequest of its own.
// Brokers live by value in the manager's list and keep their address while a handle exists, since the client library
// gets it as context. Configuration members and m_Callers are constant once the clients are created, but for what
// TakeFirstPacket and TakeSecondPacket change while the service is paused. The scalars that several threads use are
// Relaxed or Ordered; docs/architecture.md tells which thread does what.
class ClientBroker
{
public:
    class ChangeCaFileTask;

    ClientBroker();
    // Waits for the reconnect loops and a change of the CA file, and destroys a client that is left.
    ~ClientBroker();
    ClientBroker(const ClientBroker&) = default;
    ClientBroker& operator=(const ClientBroker&) = default;

    // Takes the topics of all callers into the sieve and makes room for SubDuringCLIdxList, once they are all there.
    // Without it, or with callers that came later, every caller is asked for every message.
    void PrepareCallers();

    // Makes the client library's handle. The library's code is the result and stands in the status block.
    StatusCodes CreateMQTTClient();

    // Takes the handle away, waits until no thread uses it, and destroys it. When it is still in use at the deadline,
    // it is left to the end of the process. A connection that a request made after the goodbye is closed first.
    void
    DestroyMQTTClient(std::chrono::steady_clock::time_point deadline = std::chrono::steady_clock::time_point::max());

    // One connection attempt; blocks for up to 15 s, longer while attempts of other brokers run. Any thread.
    CBrokerStatusCodes Connect();

    // Unsubscribes all subscribers and says goodbye to the broker. Blocks for as long as the broker takes to answer,
    // some 20 s at most. It doesn't end a reconnect loop. Any thread.
    CBrokerStatusCodes DisConnect();

    // The reconnect loop of one loss, by its number: an attempt each ConnectionInterval, until one succeeds, a newer
    // loss has a loop of its own, or the service is paused or ends. Always CB_OK. On a thread of its own.
    CBrokerStatusCodes TryReconnect(unsigned loss);

    // The broker has kept the session: tells the subscribers that were subscribed at the loss, see the code for which.
    void notifyOnCleanSessionConnection();

    // Asks the client library; m_Connected is only what this process last heard. Any thread.
    [[nodiscard]] bool IsConnected();
    [[nodiscard]] bool IsBusy() const;
    // True while a reconnect loop lives, its last steps included.
    [[nodiscard]] bool isReconnecting() const { return m_ReconnectLoops > 0; }

    // Hands a message to the client library and returns its code. Waits until the message before it is acknowledged;
    // once the broker has acknowledged nothing for 20 s the answer is MQTTCLIENT_MAX_MESSAGES_INFLIGHT at once, until
    // it acknowledges or a new connection is made. `token` is set only at a quality of service above 0.
    int Publish(const QByteArray& topic, const void* payload, int payloadLength, int qualityOfService, bool retained,
                MQTTClient_deliveryToken& token);

    // True while a message waits for its acknowledgement.
    [[nodiscard]] bool isMessageInFlight() const { return m_InFlight > 0; }

    // A signed token for one connection attempt, with the content of `keyFile` as key; the caller frees it. "" when the
    // file can't be read, null when it can't be made. Any thread.
    char* CreateJwt(const char* keyFile, const char* audience, const char* algorithm);
    // The present time in seconds since 1970 and the time a token made now expires, as decimal texts of at most `size`
    // bytes, terminator included.
    void GetIatExp(char* iat, char* exp, int size);
    // JWT_ALG_NONE for any name but "RS256" and "ES256".
    jwt_alg_t GetAlgorithmFromString(const char* name);

    // Gives the connection up, as a lost one, when a publication has been inside the library for `patience`: a broker
    // that stopped reading would hold that thread, and with it the publications of all brokers, for ever. Any thread.
    void endStalledPublication(std::chrono::milliseconds patience = std::chrono::seconds(20));

    // Write the status block as it stands; true when tag memory took it. Any thread.
    bool UpdateClientBrokerStruct();
    bool ClearCfgStruct();
    // Writes the 2012-byte configuration record in two halves; true when at least one of them was taken.
    bool UpdateClientBrokerConfigurationStruct(unsigned int address);
    // Take over what the two messages of a new configuration hold, each its part of the record. While paused only.
    void TakeFirstPacket(const CBrokerConfigurationStruct& record);
    void TakeSecondPacket(const CBrokerConfigurationStruct& record);

    // Lines on Qt's debug output, in verbose mode only: what is configured, passwords included, and the status block.
    void PrintBrokerEntityDebug();
    void PrintBrokerCfgStructDebug();

    // Sets LastWillDataSize from type and length.
    void CalcDataSize();

    // The client library's events; they come on its threads.
    static void CallbackCallerConnectionLost(void* context, char* cause);
    static int CallbackCallerMessageArrived(void* context, char* topicName, int topicLen, MQTTClient_message* message);
    static void CallbackCallerDelivered(void* context, int token);
    void CallbackConnectionLost(char* cause);
    int CallbackMessageArrived(char* topicName, int topicLen, MQTTClient_message* message);
    void CallbackDelivered(int token);

    // True while any broker of the process is in a connection attempt: the client library then blocks destroying.
    static bool isAnyConnecting();

    QStringList m_caFilesList;                // candidate CA files, as the directory lists them; constant
    Relaxed<int> m_caFileNextIndex;           // of the next candidate
    Ordered<bool> m_caFileChangeRunning;      // while a ChangeCaFileTask is there for this broker
    MQTTStatusLogManager* m_StatusLogManager; // not owned
    Ordered<MQTTClient> m_MQTTClient;         // null while there is none
    QList<MQTTCallerBase*> m_Callers;         // not owned; all subscriptions ahead of all publications
    LostSubscriptions SubDuringCLIdxList;
    std::weak_ptr<const void> m_Generation; // what a loop that outlives a start has to keep alive
    MQTTManagerServices* m_Services;        // not owned
    Ordered<std::uint8_t> m_Connected;      // these three are the status block
    Relaxed<std::uint8_t> m_SessionPresent;
    Relaxed<std::int8_t> m_ReturnCode;
    bool m_secondPacketPending = false; // between the two messages of a new configuration
    unsigned int m_cfgStatusTag = 0;    // of the first one: position of the status tag
    int LastWillDataLen = NO_DATA_LEN;
    int LastWillDataSize = 0; // bytes; -1 without a data type
    Ordered<bool> m_Busy;     // while Connect runs
    Ordered<ProcessStatus> m_State{PS_RUNNING};
    int AddressingMode = 0; // 0 dotted IPv4 address, 1 name
    int Encryption = ENC_NONE;
    ArgType LastWillDataType = AT_NOTYPE;
    QString Name;
    QString IPorURL;
    QString ClientID;
    QString UserName;
    QString Password;
    QString LastWillTopic;
    QString SetCAFileName;
    QString ClientCertificateFileName;
    QString ClientKeyFileName;
    QString GoogleCloudProjectID;
    QString JWTAlgorithm;
    unsigned int Port = 0;
    unsigned int KeepAliveTime = 0;           // seconds
    Relaxed<unsigned int> ConnectionInterval; // seconds between attempts; 0 switches all retrying off
    unsigned int BrokerAddr = 0;
    int LastWillAddr = -1; // -1: no will
    int UniqueID = 0;
    bool CleanSessionFlag = false;
    bool AutoConnectFlag = false;

private:
    friend class ClientUse;
    friend class SubscriptionRequest;

    // IsBusy while one lives. No lock: of two threads the first to finish clears it.
    class BusyMark
    {
    public:
        explicit BusyMark(ClientBroker& broker) : m_broker(broker) { m_broker.m_Busy = true; }
        ~BusyMark() { m_broker.m_Busy = false; }
        BusyMark(const BusyMark&) = delete;
        BusyMark& operator=(const BusyMark&) = delete;

    private:
        ClientBroker& m_broker;
    };

    // How an attempt ended, and the losses that had been counted before it.
    struct Attempt
    {
        CBrokerStatusCodes result;
        unsigned losses;
    };

    [[nodiscard]] BrokerStatusBlock statusBlock() const;
    Attempt attemptConnection(MQTTClient_connectOptions& options);
    CBrokerStatusCodes connectInLibrary(MQTTClient client, MQTTClient_connectOptions& options, unsigned losses);
    void noteConnection(MQTTClient client, bool isSessionPresent, unsigned losses);
    void adoptMessagesInFlight(MQTTClient client);
    CBrokerStatusCodes disconnectCallersAndClient();
    void closeLateConnection(MQTTClient client);
    // False when it is still in use at the deadline.
    bool waitUntilUnused(std::chrono::steady_clock::time_point deadline) const;
    int disconnectInLibrary(MQTTClient client, int timeoutMilliseconds);
    void startReconnecting(unsigned loss);
    [[nodiscard]] bool mayReconnect(unsigned loss) const;
    void sleepInterval(unsigned loss) const;
    int publishInLibrary(const QByteArray& topic, const void* payload, int payloadLength, int qualityOfService,
                         bool retained, MQTTClient_deliveryToken& token);
    // In the background, after a failed attempt: looks whether another CA file is called for, and puts it in place. At
    // level 4 only, and one at a time.
    void startCaFileChange();
    [[nodiscard]] std::chrono::milliseconds messagePatience() const;
    [[nodiscard]] bool mayRequestCloseSession() const;
    bool takeMessage(std::optional<Turn>& turn);
    void waitForSessionNotice();
    void tellSubscribersOfLoss();
    // After a call that may have closed the session, while message callbacks keep away.
    void noteSessionEnd(MQTTClient client);
    void offerMessage(char* topicName, MQTTClient_message* message);
    bool waitForAcknowledgements();
    void restartAcknowledgementClock();
    void leaveFlight();

    TopicSieve m_Sieve; // a row for each of m_Callers; constant once the clients are created

    Ordered<int> m_ClientUsers; // threads that hold the handle for a call, callbacks included
    // Turns: one attempt at a time; one publication at a time, its wait included; one subscribe or unsubscribe request
    // at a time; and one of publication, attempt and message callback at a time, since the first two may free the
    // message that the third is looking at.
    Ordered<bool> m_Connecting;
    Ordered<bool> m_Publishing;
    Ordered<bool> m_Requesting;
    Ordered<bool> m_MessagesInUse;
    Ordered<bool> m_InMessage;           // while a callback looks at a message that a request or a disconnect may free
    Ordered<bool> m_IsDisconnecting;     // message callbacks keep away
    Ordered<bool> m_IsSessionNoticeLate; // a callback has waited for this attempt's end in vain
    Ordered<int> m_ReconnectLoops;       // threads in TryReconnect
    Ordered<bool> m_IsSessionClosed;     // the messages of a clean session are gone with it
    Ordered<qint64> m_RequestBegin;      // of the request that lives: steady clock, ms; 0 without one
    Ordered<const MQTTCallerBase*> m_Subscribing; // who is being subscribed
    Ordered<bool> m_InConnect;                    // while the library makes an attempt
    Ordered<unsigned> m_Losses;                   // lost connections, ever
    Ordered<unsigned> m_Deliveries;               // acknowledged messages, ever
    Ordered<int> m_InFlight;                      // messages that wait for their acknowledgement
    Ordered<qint64> m_PublishBegin; // of the publication that is inside the library: steady clock, ms; 0 without one
    Relaxed<qint64> m_WaitingSince; // steady clock, ms: when the wait for an acknowledgement began or last got on
};

// Holds the client library's handle of a broker for one call. While one lives, the handle isn't destroyed.
class ClientUse
{
public:
    explicit ClientUse(ClientBroker& broker) : m_broker(broker)
    {
        // Counted before the handle is read: whoever takes the handle away looks at the count after that.
        m_broker.m_ClientUsers.increment();
        m_handle = m_broker.m_MQTTClient;
    }
    ~ClientUse() { m_broker.m_ClientUsers.decrement(); }
    ClientUse(const ClientUse&) = delete;
    ClientUse& operator=(const ClientUse&) = delete;

    // Null when there is no client.
    [[nodiscard]] MQTTClient handle() const { return m_handle; }

private:
    ClientBroker& m_broker;
    MQTTClient m_handle;
};
