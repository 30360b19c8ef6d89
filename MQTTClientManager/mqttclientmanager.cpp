#include "mqttclientmanager.h"

#include "devicepaths.h"
#include "logging.h"
#include "processending.h"
#include "proofrunner.h"
#include "Services/mqttmanagerservices.h"
#include "Services/mqttscheduler.h"
#include "Services/mqttStatusLogManager.h"
#include "Services/mqttXmlParser.h"

#include <algorithm>
#include <malloc.h>
#include <thread>

MQTTClientManager* MQTTClientManager::m_instance = nullptr;

namespace {

// How long the end of the process waits for threads that are inside the client library, over all brokers.
constexpr auto ClientsPatience = std::chrono::seconds(1);
// For a callback that the library is just entering and that isn't counted as a use yet.
constexpr auto GraceForEnteringCallbacks = std::chrono::milliseconds(10);

template<typename Entities, typename IdOf>
int indexOfId(const Entities& entities, int id, IdOf idOf)
{
    const auto found = std::find_if(entities.constBegin(), entities.constEnd(),
                                    [&](const auto& entity) { return idOf(entity) == id; });
    return found == entities.constEnd() ? -1 : static_cast<int>(found - entities.constBegin());
}

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
    if (parseConfigurationFiles() != SC_AC_OK) {
        PLOG_DEBUG << m_logIndent << "initilize failed in parseConfigurationFiles";
        return false;
    }
    PLOG_DEBUG << m_logIndent << "Configuration files parsed successfully";

    if (m_clientBrokers.isEmpty()) {
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

    TagMemory::Open();
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

    m_clientBrokers.clear();
    if (!m_xmlParser->ParseXMLFileBrokers(directory + DevicePaths::BrokersFile, m_clientBrokers, version)) {
        PLOG_ERROR << "ParseXMLFileBrokers failed";
        return SC_AC_ERROR_PARSE_FAILED;
    }

    m_subscriptions.clear();
    if (!m_xmlParser->ParseXMLFileSubscriptions(directory + DevicePaths::SubscriptionsFile, m_subscriptions, version)) {
        PLOG_ERROR << "ParseXMLFileSubscriptions failed";
        return SC_AC_ERROR_PARSE_FAILED;
    }

    m_publications.clear();
    if (!m_xmlParser->ParseXMLFilePublications(directory + DevicePaths::PublicationsFile, m_publications, version)) {
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

    for (ClientBroker& broker : m_clientBrokers) {
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
    for (ClientBroker& broker : m_clientBrokers)
        broker.m_State = state;
}

void MQTTClientManager::UpdateProcessStatus(ProcessStatus state)
{
    m_statusLogManager->m_MQTTGeneralStruct.m_ProcessStatus = state;
    m_statusLogManager->UpdateMQTTGeneralStruct();
}

int MQTTClientManager::getClientBrokerIdxbyUniqueID(int id) const
{
    return indexOfId(m_clientBrokers, id, [](const ClientBroker& broker) { return broker.UniqueID; });
}

int MQTTClientManager::getPublisherbyIdxUniqueID(int id) const
{
    return indexOfId(m_publications, id, [](const Publisher& publisher) { return publisher.m_UniqueID; });
}

int MQTTClientManager::getSubscriberbIdxyUniqueID(int id) const
{
    return indexOfId(m_subscriptions, id, [](const Subscriber& subscriber) { return subscriber.m_UniqueID; });
}

void MQTTClientManager::destoryMQTTClients()
{
    const auto deadline = std::chrono::steady_clock::now() + ClientsPatience;
    std::this_thread::sleep_for(GraceForEnteringCallbacks);
    for (ClientBroker& broker : m_clientBrokers) {
        // While any broker connects, destroying would wait for it inside the library; that client is left to the end of
        // the process. The line stands for both.
        if (!ClientBroker::isAnyConnecting())
            broker.DestroyMQTTClient(deadline);
        PLOG_DEBUG << m_logIndent << QString("Destory MQTTClient of '%1'").arg(broker.Name);
    }
}

void MQTTClientManager::Finalize()
{
    PLOG_DEBUG << QString("START (isInitDone? (%1))").arg(m_isInitDone);
    if (m_isInitDone) {
        ProcessEnding::begin();
        changeEntitiesState(PS_PAUSED);
        m_scheduler->StopScheduler();
        m_scheduler->deleteLater(); // its own thread deletes it, or the process ends first
        unregisterTags();
        destoryMQTTClients();
    }
    PLOG_DEBUG << "END";
}
