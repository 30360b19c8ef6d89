#include "mqttclientmanager.h"

#include "logging.h"
#include "processending.h"
#include "Services/mqttscheduler.h"
#include "Services/mqttStatusLogManager.h"

#include <thread>

namespace {

constexpr auto BusyBrokerPause = std::chrono::seconds(1);

} // namespace

void MQTTClientManager::SlotPauseMQTT(quint32 _statusAddress)
{
    HandlePauseMQTT(_statusAddress);
}

void MQTTClientManager::SlotStartMQTT(quint32 _statusAddress)
{
    HandleStartMQTT(_statusAddress);
}

StatusCodes MQTTClientManager::HandlePauseMQTT(quint32 statusAddress)
{
    PLOG_DEBUG << "Enter function";
    const StatusCodes result =
        answer(statusAddress, [this] { return isPaused() ? SC_AC_ERROR_ALREADY_PAUSED : pause(); });
    PLOG_DEBUG << QString("End function (rtnstatus is %1)").arg(int{result});
    return result;
}

StatusCodes MQTTClientManager::HandleStartMQTT(quint32 statusAddress)
{
    PLOG_DEBUG << "Enter function";
    const StatusCodes result = answer(statusAddress, [this] { return isPaused() ? start() : SC_AC_ERROR_NOT_PAUSED; });
    PLOG_DEBUG << QString("End function (rtnstatus is %1)").arg(int{result});
    return result;
}

StatusCodes MQTTClientManager::pause()
{
    changeEntitiesState(PS_PAUSED); // no broker begins to reconnect from here on
    waitForBusyBrokers();
    m_scheduler->StopScheduler();
    disconnectWithAllBrokers(); // one that fails doesn't stop the pause
    destoryMQTTClients();
    UpdateProcessStatus(PS_PAUSED);
    return SC_AC_OK;
}

StatusCodes MQTTClientManager::start()
{
    const Turn turn(m_ConfigurationInUse, std::chrono::milliseconds(1));
    clearCfgStructs();
    destorSubscriptionsyBufferedMessages();
    if (parseConfigurationFiles() != SC_AC_OK)
        return SC_AC_ERROR_PARSE_FAILED;
    if (createMQTTClients() != SC_AC_OK)
        return SC_AC_ERROR_CLIENT_CREATE_FAILED;
    // Intended: nothing is connected or subscribed, whatever the files say. That is left to the controller's requests.
    ManageSubscriptions(false);
    ManagePeriodicPublications();
    bindBrokerRowsAnew();
    m_scheduler->RunScheduler();
    UpdateProcessStatus(PS_RUNNING);
    return SC_AC_OK;
}

void MQTTClientManager::bindBrokerRowsAnew()
{
    QList<ClientBroker*> brokers;
    for (ClientBroker& broker : m_clientBrokers)
        brokers.append(&broker);
    m_scheduler->BindBrokersAnew(brokers);
}

void MQTTClientManager::waitForBusyBrokers()
{
    bool isAnyBusy = true;
    while (isAnyBusy && !ProcessEnding::hasBegun()) {
        isAnyBusy = false;
        for (const ClientBroker& broker : qAsConst(m_clientBrokers)) {
            if (!broker.IsBusy())
                continue;
            isAnyBusy = true;
            PLOG_DEBUG << QString("Broker '%1' is busy, give it a sec").arg(broker.Name);
            std::this_thread::sleep_for(BusyBrokerPause);
        }
    }
}

StatusCodes MQTTClientManager::disconnectWithAllBrokers()
{
    StatusCodes result = SC_AC_OK;
    for (ClientBroker& broker : m_clientBrokers) {
        if (broker.DisConnect() != CB_OK)
            result = SC_AC_ERROR_BROKER_FAILED;
    }
    return result;
}

bool MQTTClientManager::isPaused() const
{
    return m_statusLogManager->m_MQTTGeneralStruct.m_ProcessStatus == PS_PAUSED;
}
