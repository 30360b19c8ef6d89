#include "logging.h"
#include "requestserving.h"
#include "Services/mqttmanagerservices.h"
#include "Services/mqttscheduler.h"
#include "Services/mqttStatusLogManager.h"

#include <thread>

namespace {

// A publication on request reads its tag this long after the request.
constexpr std::chrono::milliseconds SendDelay(600);

} // namespace

unsigned int MQTTClientManager::positionOf(std::uint32_t operandAddress) const
{
    // Positions have 32 bits: what an address beyond the operands converts to is cut.
    return static_cast<unsigned int>(m_services->OperandAddr2OffsetConversion(operandAddress));
}

StatusCodes MQTTClientManager::answer(unsigned int statusAddress, const std::function<StatusCodes()>& work)
{
    const unsigned int statusTag = positionOf(statusAddress);
    m_statusLogManager->UpdateStatusTag(statusTag, SC_AC_IN_PROGRESS);
    const StatusCodes result = work();
    m_statusLogManager->UpdateStatusTag(statusTag, result);
    return result;
}

StatusCodes MQTTClientManager::HandleConnectClientBroker(const MQTTRequestMsg* request)
{
    PLOG_DEBUG << beginText(*request);
    const StatusCodes result = serve(*request, m_clientBrokers, [](ClientBroker& broker) {
        return broker.Connect() == CB_OK ? SC_AC_OK : SC_AC_ERROR_BROKER_FAILED;
    });
    PLOG_DEBUG << endText(result);
    return result;
}

StatusCodes MQTTClientManager::HandleDisConnectClientBroker(const MQTTRequestMsg* request)
{
    PLOG_DEBUG << beginText(*request);
    const StatusCodes result = serve(*request, m_clientBrokers, [](ClientBroker& broker) {
        return broker.DisConnect() == CB_OK ? SC_AC_OK : SC_AC_ERROR_BROKER_FAILED;
    });
    PLOG_DEBUG << endText(result);
    return result;
}

StatusCodes MQTTClientManager::HandleSubscribeToTopic(const MQTTRequestMsg* request)
{
    PLOG_DEBUG << beginText(*request);
    const StatusCodes result = serve(*request, m_subscriptions, [](Subscriber& subscription) {
        return subscription.Subscribe() == SSC_OK ? SC_AC_OK : SC_AC_ERROR_SUBSCRIPTION_FAILED;
    });
    PLOG_DEBUG << endText(result);
    return result;
}

StatusCodes MQTTClientManager::HandleUnSubscribeToTopic(const MQTTRequestMsg* request)
{
    PLOG_DEBUG << beginText(*request);
    const StatusCodes result = serve(*request, m_subscriptions, [](Subscriber& subscription) {
        return subscription.UnSubscribe() == SSC_OK ? SC_AC_OK : SC_AC_ERROR_SUBSCRIPTION_FAILED;
    });
    PLOG_DEBUG << endText(result);
    return result;
}

StatusCodes MQTTClientManager::HandleSubscribeAll(const MQTTRequestMsg* request)
{
    PLOG_DEBUG << beginText(*request);
    const StatusCodes result = serve(*request, m_clientBrokers, [this](const ClientBroker& broker) {
        return subscribeWithAllSubscriptions(broker.UniqueID);
    });
    PLOG_DEBUG << endText(result);
    return result;
}

StatusCodes MQTTClientManager::HandleUnSubscribeAll(const MQTTRequestMsg* request)
{
    PLOG_DEBUG << beginText(*request);
    const StatusCodes result = serve(*request, m_clientBrokers, [this](const ClientBroker& broker) {
        return unsubscribeWithAllSubscriptions(broker.UniqueID);
    });
    PLOG_DEBUG << endText(result);
    return result;
}

template<typename Operation>
StatusCodes MQTTClientManager::forSubscriptionsOf(int brokerID, Operation operation)
{
    const auto subscriptions = m_subscriptions.current();
    if (isPaused()) // meanwhile: the list may be one that a start is still working on, see serve
        return SC_AC_ERROR_PAUSED;
    StatusCodes result = SC_AC_OK;
    for (Subscriber& subscription : *subscriptions) {
        if (subscription.m_CBrokerID == brokerID && operation(subscription) != SSC_OK)
            result = SC_AC_ERROR_SUBSCRIPTION_FAILED;
    }
    return result;
}

StatusCodes MQTTClientManager::subscribeWithAllSubscriptions(int brokerID)
{
    return forSubscriptionsOf(brokerID, [](Subscriber& subscription) { return subscription.Subscribe(); });
}

StatusCodes MQTTClientManager::unsubscribeWithAllSubscriptions(int brokerID)
{
    return forSubscriptionsOf(brokerID, [](Subscriber& subscription) { return subscription.UnSubscribe(); });
}

StatusCodes MQTTClientManager::HandleSendAPeriodic(const MQTTRequestMsg* request)
{
    PLOG_DEBUG << beginText(*request);
    const StatusCodes result =
        serve(*request, m_publications, [this](Publisher& publication) { return sendNow(publication); });
    PLOG_DEBUG << endText(result);
    return result;
}

StatusCodes MQTTClientManager::sendNow(Publisher& publication)
{
    if (publication.m_PerInterval != NO_PERIOD)
        return SC_AC_ERROR_NOT_APERIODIC;
    std::this_thread::sleep_for(SendDelay);
    if (publication.Publish() == PSC_OK) {
        m_statusLogManager->UpdatePublicationSent();
        return SC_AC_OK;
    }
    // Intended: one code for whatever went wrong. Publish has logged which.
    PLOG_DEBUG << QString("Error: SC_AC_ERROR_DATA_BIG_THAN_BUFF: %1").arg(int{SC_AC_ERROR_DATA_BIG_THAN_BUFF});
    return SC_AC_ERROR_DATA_BIG_THAN_BUFF;
}

StatusCodes MQTTClientManager::HandleSetPublicationPublishState(const MQTTRequestMsg* request)
{
    PLOG_DEBUG << beginText(*request);
    const bool isEnabled = request->publishState != 0;
    const StatusCodes result = serve(*request, m_publications, [&](const Publisher& publication) {
        return setPublishState(publication, isEnabled);
    });
    PLOG_DEBUG << endText(result);
    return result;
}

StatusCodes MQTTClientManager::setPublishState(const Publisher& publication, bool isEnabled)
{
    if (publication.m_PerInterval == NO_PERIOD)
        return SC_AC_ERROR_NOT_PERIODIC;
    if (m_scheduler->ChangePublicationPublishState(publication.m_UniqueID, isEnabled))
        return SC_AC_OK;
    PLOG_DEBUG << QString("Error: SC_AC_ERROR_CHANGE_STATE_FAILED: %1").arg(int{SC_AC_ERROR_CHANGE_STATE_FAILED});
    return SC_AC_ERROR_CHANGE_STATE_FAILED;
}
