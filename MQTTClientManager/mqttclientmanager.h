#pragma once

#include "Entities/clientbroker.h"
#include "Entities/publisher.h"
#include "Entities/subscriber.h"
#include "Records/statuscodes.h"
#include "tagmemory.h"

#include <QList>
#include <QObject>
#include <QString>
#include <QVector>

class MQTTManagerServices;
class MQTTScheduler;
class MQTTStatusLogManager;
class MQTTXmlParser;
class ProofRunner;

// The centre of the process: owns all entities, reads the configuration, ties entities to their brokers and brings them
// to life. A singleton, made on the main thread and never deleted.
//   mqttclientmanager.cpp         lifecycle: construction, Initilize, parsing, clients, Finalize
//   mqttclientmanager_runup.cpp   tag registration and run-up of the entities
// Everything runs on the main thread, but Finalize: the clean-up thread calls it at the end of the process, beside a
// main thread that may be anywhere, the run-up included.
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
    void changeEntitiesState(ProcessStatus state);

    static MQTTClientManager* m_instance;

    int m_numOfRegistrations = 0;
    MQTTManagerServices* m_services;          // not owned
    MQTTXmlParser* m_xmlParser;               // not owned
    MQTTStatusLogManager* m_statusLogManager; // not owned
    MQTTScheduler* m_scheduler;               // owned
    QList<ClientBroker> m_clientBrokers;      // in file order
    QList<Publisher> m_publications;          // in file order
    QList<Subscriber> m_subscriptions;        // in file order
    QVector<HdrOperandData_t> m_operands;     // the tags to register
    bool m_verboseMode = false;
    bool m_isInitDone = false;
    QVector<unsigned int> m_regIDs;
    Ordered<bool> m_isRegistering; // while the main thread works on m_operands and m_regIDs
    QString m_logIndent;
    ProofRunner* m_proofRunner; // owned

private:
    void tieToBroker(MQTTCallerBase& caller);
    void collectOperands();
    void unregisterTags();
};
