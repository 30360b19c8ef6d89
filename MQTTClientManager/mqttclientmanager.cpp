#include "mqttclientmanager.h"

#include "Communication/cominterface.h"
#include "devicepaths.h"
#include "logging.h"
#include "processending.h"
#include "proofrunner.h"
#include "Services/mqttmanagerservices.h"
#include "Services/mqttscheduler.h"
#include "Services/mqttStatusLogManager.h"
#include "Services/mqttXmlParser.h"

#include <csignal>
#include <malloc.h>
#include <thread>

MQTTClientManager* MQTTClientManager::m_instance = nullptr;

namespace {

// How long the end of the process waits for threads that are inside the client library, over all brokers.
constexpr auto ClientsPatience = std::chrono::seconds(1);
// For a callback that the library is just entering and that isn't counted as a use yet.
constexpr auto GraceForEnteringCallbacks = std::chrono::milliseconds(10);

} // namespace

MQTTClientManager* MQTTClientManager::instance()
{
    if (!m_instance)
        m_instance = new MQTTClientManager;
    return m_instance;
}

MQTTClientManager::MQTTClientManager()
    : m_services(MQTTManagerServices::instance()), m_xmlParser(MQTTXmlParser::instance()),
      m_statusLogManager(MQTTStatusLogManager::instance()), m_scheduler(new MQTTScheduler), m_logIndent("    "),
      m_proofRunner(new ProofRunner)
{
}

MQTTClientManager::~MQTTClientManager()
{
    Finalize();
    if (!m_isInitDone) // else Finalize left it to its own thread
        delete m_scheduler;
    if (m_comInterface && !m_comInterface->isRunning())
        delete m_comInterface;
    delete m_proofRunner;
}

void MQTTClientManager::SetVerboseMode(bool verbose)
{
    m_verboseMode = verbose;
    m_services->SetVerboseMode(verbose);
    PLOG_DEBUG << "##########################";
    PLOG_DEBUG
        << "To view paho's own trace, see https://www.eclipse.org/paho/files/mqttdoc/MQTTClient/html/tracing.html "
           "and set before the start:";
    PLOG_DEBUG << "   export MQTT_C_CLIENT_TRACE=ON";
    PLOG_DEBUG << "   export MQTT_C_CLIENT_TRACE_LEVEL=PROTOCOL";
    PLOG_DEBUG << "##########################";
}

bool MQTTClientManager::Initilize()
{
    PLOG_DEBUG << "FIRED";
    m_comInterface = new ComInterface;
    // It lives in a thread of its own, so both slots are called by the main thread's event loop.
    connect(m_comInterface, &ComInterface::SignalStartMQTT, this, &MQTTClientManager::SlotStartMQTT);
    connect(m_comInterface, &ComInterface::SignalPauseMQTT, this, &MQTTClientManager::SlotPauseMQTT);
    if (parseConfigurationFiles() != SC_AC_OK) {
        PLOG_DEBUG << m_logIndent << "initilize failed in parseConfigurationFiles";
        return false;
    }
    PLOG_DEBUG << m_logIndent << "Configuration files parsed successfully";

    if (m_clientBrokers.isEmpty()) {
        disconnect(m_comInterface, nullptr, this, nullptr);
        delete m_comInterface;
        m_comInterface = nullptr;
        delete m_scheduler;
        m_scheduler = nullptr;
        PLOG_DEBUG << m_logIndent << "empty MQTT configurtion";
        return false;
    }

    auto& general = m_statusLogManager->m_MQTTGeneralStruct;
    general.m_ProcessStatus = PS_STARTING;
    general.m_BrokersNumber = static_cast<quint16>(m_clientBrokers.size());
    general.m_PublicationsNumber = static_cast<quint16>(m_publications.size());
    general.m_SubscriptionsNumber = static_cast<quint16>(m_subscriptions.size());

    if (createMQTTClients() != SC_AC_OK) {
        PLOG_ERROR << "initilize failed in MQTTClients creation";
        UpdateProcessStatus(PS_FAILED);
        return false;
    }
    PLOG_DEBUG << m_logIndent << "MQTTClient creation done successfully";
    if (m_verboseMode) {
        printBrokerListDebug();
        printPublicationsListDebug();
        printSubscriptionListDebug();
    }

    TagMemory::Open();
    m_comInterface->InitReceiver();
    clearCfgStructs();
    m_isInitDone = true;
    m_statusLogManager->UpdateMQTTGeneralStruct();
    return true;
}

StatusCodes MQTTClientManager::parseConfigurationFiles()
{
    const QString directory = DevicePaths::ConfigurationDirectory;
    QString version;
    unsigned int statisticsAddress = 0;
    unsigned int generalAddress = 0;
    if (!m_xmlParser->ParseXMLFileGeneralCfg(directory + DevicePaths::GeneralFile, version, statisticsAddress,
                                             generalAddress))
        return SC_AC_ERROR_PARSE_FAILED;
    m_statusLogManager->UpdateMQTTStructsAddress(generalAddress, statisticsAddress);

    // Whoever still works with an entity of the reading before keeps that one alive. A list that can't be read is
    // replaced by what could be; the ones after it stay.
    const auto generation = std::make_shared<EntityGeneration>();
    const bool hasBrokers =
        m_xmlParser->ParseXMLFileBrokers(directory + DevicePaths::BrokersFile, generation->brokers, version);
    m_clientBrokers.replace({generation, &generation->brokers});
    if (!hasBrokers) {
        PLOG_ERROR << "ParseXMLFileBrokers failed";
        return SC_AC_ERROR_PARSE_FAILED;
    }

    const bool hasSubscriptions = m_xmlParser->ParseXMLFileSubscriptions(directory + DevicePaths::SubscriptionsFile,
                                                                         generation->subscriptions, version);
    m_subscriptions.replace({generation, &generation->subscriptions});
    if (!hasSubscriptions) {
        PLOG_ERROR << "ParseXMLFileSubscriptions failed";
        return SC_AC_ERROR_PARSE_FAILED;
    }

    const bool hasPublications = m_xmlParser->ParseXMLFilePublications(directory + DevicePaths::PublicationsFile,
                                                                       generation->publications, version);
    m_publications.replace({generation, &generation->publications});
    if (!hasPublications) {
        PLOG_ERROR << "ParseXMLFilePublications failed";
        return SC_AC_ERROR_PARSE_FAILED;
    }
    return SC_AC_OK;
}

StatusCodes MQTTClientManager::createMQTTClients()
{
    // The documents of the configuration files are gone and leave holes all over the heap: without them, what the
    // clients allocate lies close together, which publishing many topics a second feels.
    malloc_trim(0);
    // Subscriptions first: they stand ahead of the publications among a broker's callers.
    for (Subscriber& subscription : m_subscriptions) {
        subscription.PrepareTopic();
        tieToBroker(subscription);
    }
    for (Publisher& publication : m_publications) {
        publication.PrepareTopic();
        tieToBroker(publication);
    }

    // The library ignores broken pipes from the first client on, and again from the first one after the last was
    // destroyed. The process's own handler is to stay.
    struct sigaction brokenPipe = {};
    sigaction(SIGPIPE, nullptr, &brokenPipe);
    const StatusCodes result = createClientsOfBrokers();
    if (brokenPipe.sa_handler != SIG_DFL)
        sigaction(SIGPIPE, &brokenPipe, nullptr);
    return result;
}

StatusCodes MQTTClientManager::createClientsOfBrokers()
{
    for (ClientBroker& broker : m_clientBrokers) {
        broker.m_Generation = m_clientBrokers.current();
        broker.PrepareCallers();
        const int result = broker.CreateMQTTClient();
        if (result != SC_AC_OK) {
            PLOG_ERROR << QString("the client of broker '%1' can't be created").arg(broker.Name);
            PLOG_DEBUG << QString("failed with status (%1)").arg(result);
            return SC_AC_ERROR_CLIENT_CREATE_FAILED;
        }
    }
    return SC_AC_OK;
}

void MQTTClientManager::printBrokerListDebug()
{
    for (ClientBroker& broker : m_clientBrokers)
        broker.PrintBrokerEntityDebug();
}

void MQTTClientManager::printPublicationsListDebug()
{
    for (Publisher& publication : m_publications)
        publication.PrintCallerEntityDebug();
}

void MQTTClientManager::printSubscriptionListDebug()
{
    for (Subscriber& subscription : m_subscriptions)
        subscription.PrintCallerEntityDebug();
}

void MQTTClientManager::tieToBroker(MQTTCallerBase& caller)
{
    const int index = getClientBrokerIdxbyUniqueID(caller.m_CBrokerID);
    if (index == -1) {
        PLOG_ERROR << QString("'%1' with ID (%2) names broker %3, which is not configured: it counts as not connected")
                          .arg(caller.m_Name, QString::number(caller.m_UniqueID), QString::number(caller.m_CBrokerID));
        return;
    }
    // The addresses stay while the lists are not rebuilt: a list holds each entity in a place of its own.
    caller.m_cBroker = &m_clientBrokers[index];
    caller.m_cBroker->m_Callers.append(&caller);
}

void MQTTClientManager::clearCfgStructs()
{
    // Intended: publications have nothing to clear.
    for (Subscriber& subscription : m_subscriptions)
        subscription.ClearCfgStruct();
    for (ClientBroker& broker : m_clientBrokers)
        broker.ClearCfgStruct();
}

void MQTTClientManager::changeEntitiesState(ProcessStatus state)
{
    const auto brokers = m_clientBrokers.current();
    for (ClientBroker& broker : *brokers)
        broker.m_State = state;
}

void MQTTClientManager::UpdateProcessStatus(ProcessStatus state)
{
    m_statusLogManager->m_MQTTGeneralStruct.m_ProcessStatus = state;
    m_statusLogManager->UpdateMQTTGeneralStruct();
}

int MQTTClientManager::getClientBrokerIdxbyUniqueID(int id) const
{
    return indexOfId(*m_clientBrokers.current(), id);
}

int MQTTClientManager::getPublisherbyIdxUniqueID(int id) const
{
    return indexOfId(*m_publications.current(), id);
}

int MQTTClientManager::getSubscriberbIdxyUniqueID(int id) const
{
    return indexOfId(*m_subscriptions.current(), id);
}

void MQTTClientManager::destoryMQTTClients()
{
    const auto deadline = std::chrono::steady_clock::now() + ClientsPatience;
    std::this_thread::sleep_for(GraceForEnteringCallbacks);
    const auto brokers = m_clientBrokers.current();
    for (ClientBroker& broker : *brokers) {
        // A pause waits for every thread that uses the client. The end of the process can't: and while any broker
        // connects, destroying would wait for it inside the library, so that client is left to what ends all of them.
        // The line stands for each.
        if (!ProcessEnding::hasBegun())
            broker.DestroyMQTTClient();
        else if (!ClientBroker::isAnyConnecting())
            broker.DestroyMQTTClient(deadline);
        PLOG_DEBUG << m_logIndent << QString("Destory MQTTClient of '%1'").arg(broker.Name);
    }
}

void MQTTClientManager::destorSubscriptionsyBufferedMessages()
{
    const auto subscriptions = m_subscriptions.current();
    for (Subscriber& subscription : *subscriptions) {
        if (!subscription.m_BufferedFlag)
            continue;
        subscription.DestoryBufferedMessages();
        PLOG_DEBUG << m_logIndent << QString("Subscriber '%1' released it messages").arg(subscription.m_Name);
    }
}

void MQTTClientManager::Finalize()
{
    PLOG_DEBUG << QString("START (isInitDone? (%1))").arg(m_isInitDone);
    if (m_isInitDone) {
        ProcessEnding::begin();
        disconnect(m_comInterface, nullptr, this, nullptr);
        changeEntitiesState(PS_PAUSED);
        m_scheduler->StopScheduler();
        m_scheduler->deleteLater(); // its own thread deletes it, or the process ends first
        m_comInterface->Finalize();
        m_comInterface->deleteLater(); // the process ends first: its thread doesn't return
        unregisterTags();
        destorSubscriptionsyBufferedMessages();
        destoryMQTTClients();
    }
    PLOG_DEBUG << "END";
}
