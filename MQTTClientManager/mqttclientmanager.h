#pragma once

#include "Entities/entitylist.h"
#include "Entities/turn.h"
#include "Records/requestrecords.h"
#include "Records/statuscodes.h"
#include "tagmemory.h"

#include <functional>
#include <QObject>
#include <QString>
#include <QVector>

class ComInterface;
class MQTTManagerServices;
class MQTTScheduler;
class MQTTStatusLogManager;
class MQTTXmlParser;
class ProofRunner;

// The centre of the process: owns all entities, reads the configuration, ties entities to their brokers, brings them to
// life and carries out the controller's requests. A singleton, made on the main thread and never deleted.
//   mqttclientmanager.cpp              lifecycle: construction, Initilize, parsing, clients, Finalize
//   mqttclientmanager_runup.cpp        tag registration and run-up of the entities
//   mqttclientmanager_pausestart.cpp   pause and start
//   mqttclientmanager_requests.cpp     requests on connections, subscriptions and publications
//   mqttclientmanager_configuration.cpp  requests that read a configuration back or change it
//   mqttclientmanager_selftest.cpp     the built-in self-test
// Everything runs on the main thread, but the request handlers, which the request thread calls, and Finalize: the
// clean-up thread calls it at the end of the process, beside a main thread that may be anywhere, the run-up included.
class MQTTClientManager : public QObject
{
    Q_OBJECT

public:
    // The singleton; made by the first call.
    static MQTTClientManager* instance();

    MQTTClientManager();
    ~MQTTClientManager() override;

    // Switches the debug dumps, and tells the operator how the client library's own trace is viewed.
    void SetVerboseMode(bool verbose);

    // Reads the configuration, makes the clients and clears the status records. False: the process has nothing to do.
    bool Initilize();

    // Takes everything down, quickly and without disconnecting. Once, when the process is about to end.
    void Finalize();

    // Collects every tag that the process reads on its own initiative and registers them with tag memory. Always true:
    // tags that could not be registered are not kept in step, and that is all.
    bool ManageTagsRegistration();
    // Connects the brokers that want it; leaves those that failed to the scheduler. Blocks for as long as that takes.
    StatusCodes ManageClientBrokers();
    // Subscribes what wants it at start; SC_AC_ERROR_SUBSCRIPTION_FAILED when one of them failed. Blocks for as long as
    // the brokers take to answer.
    StatusCodes ManageSubscriptions(bool subscribeAtBoot);
    bool ManagePeriodicPublications();
    void StartListeningToRequestsAndScheduledActions();
    // SC_AC_ERROR_SYSTEM_TIME when the device's script says that the clock isn't set. Blocks for 30 s at most.
    StatusCodes CheckSystemTime();
    // Stores the process status and writes the general record.
    void UpdateProcessStatus(ProcessStatus state);

    // The handlers of requests. Each writes SC_AC_IN_PROGRESS to the request's status tag first and its result, which
    // is also what it returns, last. These two are the main thread's and hold it for as long as the brokers take.
    StatusCodes HandlePauseMQTT(quint32 statusAddress);
    StatusCodes HandleStartMQTT(quint32 statusAddress);
    // The request thread's. Each blocks for as long as the broker takes: an attempt 15 s, a subscribe or unsubscribe
    // 10 s, at most.
    StatusCodes HandleConnectClientBroker(const MQTTRequestMsg* request);
    StatusCodes HandleDisConnectClientBroker(const MQTTRequestMsg* request);
    StatusCodes HandleSubscribeToTopic(const MQTTRequestMsg* request);
    StatusCodes HandleUnSubscribeToTopic(const MQTTRequestMsg* request);
    StatusCodes HandleSubscribeAll(const MQTTRequestMsg* request);
    StatusCodes HandleUnSubscribeAll(const MQTTRequestMsg* request);
    // Publishes an aperiodic publication after 600 ms.
    StatusCodes HandleSendAPeriodic(const MQTTRequestMsg* request);
    // Suspends or resumes a periodic publication.
    StatusCodes HandleSetPublicationPublishState(const MQTTRequestMsg* request);
    // An entity's configuration record into tag memory, at the address in the payload. Running or paused.
    StatusCodes HandleGetClientBrokerCfg(const MQTTRequestMsg* request);
    StatusCodes HandleGetSubscriptionCfg(const MQTTRequestMsg* request);
    StatusCodes HandleGetPublicationCfg(const MQTTRequestMsg* request);
    // The record in the payload into the configuration file, and into the entity. While paused only.
    StatusCodes HandleSetSubscriptionCfg(const MQTTRequestMsg* request);
    StatusCodes HandleSetPublicationCfg(const MQTTRequestMsg* request);
    // A broker's record comes in two messages. The first leaves its status tag at SC_AC_IN_PROGRESS, the second, an
    // MQTTSecondPacketMsg, goes to each broker that waits for one and answers there.
    StatusCodes HandleSetClientBrokerCfg(const MQTTRequestMsg* request);
    StatusCodes HandleSetClientBrokerCfgSecondPacket(const MQTTRequestMsg* request);

    // Tests look-ups, handlers and conversions, and reports each result. The broker, the publication and the
    // subscription with the ID 6 are expected at the list indices 3, 4 and 5. Does nothing unless enabled.
    void RunAutoTest(bool enabled);

    // Every subscription of the broker; SC_AC_ERROR_SUBSCRIPTION_FAILED when one of them failed. Any thread.
    StatusCodes subscribeWithAllSubscriptions(int brokerID);
    StatusCodes unsubscribeWithAllSubscriptions(int brokerID);

    // List index of the first entity with this unique ID; -1 when there is none.
    [[nodiscard]] int getClientBrokerIdxbyUniqueID(int id) const;
    [[nodiscard]] int getPublisherbyIdxUniqueID(int id) const;
    [[nodiscard]] int getSubscriberbIdxyUniqueID(int id) const;

    // Registers one packet of m_operands that begins at this index; returns the index of the first entry not
    // registered.
    int HandleRcRegister(int iOperand);

    StatusCodes parseConfigurationFiles();
    StatusCodes createMQTTClients();
    void clearCfgStructs();
    void destoryMQTTClients();
    void destorSubscriptionsyBufferedMessages();
    void changeEntitiesState(ProcessStatus state);
    // Dump each entity of a list, in verbose mode only.
    void printBrokerListDebug();
    void printPublicationsListDebug();
    void printSubscriptionListDebug();
    // Returns when no broker is in a connection attempt. There is no upper bound.
    void waitForBusyBrokers();
    // SC_AC_ERROR_BROKER_FAILED when one of them failed; the others are disconnected all the same.
    StatusCodes disconnectWithAllBrokers();

    static MQTTClientManager* m_instance;

    int m_numOfRegistrations = 0;
    MQTTManagerServices* m_services;          // not owned
    MQTTXmlParser* m_xmlParser;               // not owned
    MQTTStatusLogManager* m_statusLogManager; // not owned
    MQTTScheduler* m_scheduler;               // owned
    ComInterface* m_comInterface = nullptr;   // owned
    EntityList<ClientBroker> m_clientBrokers;
    EntityList<Publisher> m_publications;
    EntityList<Subscriber> m_subscriptions;
    QVector<HdrOperandData_t> m_operands; // the tags to register
    bool m_verboseMode = false;
    bool m_isInitDone = false;
    QVector<unsigned int> m_regIDs;
    Ordered<bool> m_isRegistering; // while the main thread works on m_operands and m_regIDs
    QString m_logIndent;
    ProofRunner* m_proofRunner;         // owned
    Ordered<bool> m_ConfigurationInUse; // the turn of who changes the files and entities: a start, or a request

public slots:
    void SlotStartMQTT(quint32 _statusAddress);
    void SlotPauseMQTT(quint32 _statusAddress);

private:
    template<typename Entity, typename Work>
    StatusCodes serve(const MQTTRequestMsg& request, const EntityList<Entity>& list, Work work);
    template<typename Entity, typename Write>
    StatusCodes readBack(const MQTTRequestMsg& request, const EntityList<Entity>& list, Write write);
    template<typename Entity, typename Change>
    StatusCodes change(const MQTTRequestMsg& request, const EntityList<Entity>& list, Change change);
    template<typename Entity, typename Record>
    StatusCodes changeByRecord(const MQTTRequestMsg& request, const EntityList<Entity>& list,
                               bool (MQTTXmlParser::*write)(int, Record*), void (MQTTManagerServices::*print)(Record));
    // SC_AC_ERROR_INVALID_ID when there is no such entity.
    template<typename Entity, typename Work>
    static StatusCodes workOnEntity(QList<Entity>& entities, int id, Work work);
    StatusCodes takeSecondPacket(ClientBroker& broker, CBrokerConfigurationStruct record);
    [[nodiscard]] unsigned int positionOf(std::uint32_t operandAddress) const;
    [[nodiscard]] bool isPaused() const;
    StatusCodes answer(unsigned int statusAddress, const std::function<StatusCodes()>& work);
    StatusCodes pause();
    StatusCodes start();
    void bindBrokerRowsAnew();
    StatusCodes sendNow(Publisher& publication);
    StatusCodes setPublishState(const Publisher& publication, bool isEnabled);
    template<typename Operation>
    StatusCodes forSubscriptionsOf(int brokerID, Operation operation);
    StatusCodes createClientsOfBrokers();
    void tieToBroker(MQTTCallerBase& caller);
    void watchPublications();
    void collectOperands();
    void unregisterTags();
};
