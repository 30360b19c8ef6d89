#include "Entities/subscriptionrequest.h"

#include "Entities/steadyclock.h"

namespace {

constexpr std::chrono::microseconds CallbackPause(50);
constexpr std::chrono::milliseconds RequestPause(1);

} // namespace

SubscriptionRequest::SubscriptionRequest(ClientBroker& broker, const TopicFilter& filter)
    : m_broker(broker), m_filter(filter), m_turn(broker.m_Requesting, RequestPause), m_client(broker),
      m_losses(broker.m_Losses)
{
    m_broker.m_RequestBegin = steadyMilliseconds();
    {
        // From here on no callback begins to look at a message; this one waits until the last one has ended.
        const Turn lastCallback(m_broker.m_MessagesInUse, CallbackPause);
        m_broker.m_RequestBegin = steadyMilliseconds();
    }
    m_broker.m_RequestedFilter = &m_filter;
}

SubscriptionRequest::~SubscriptionRequest()
{
    m_broker.m_RequestedFilter = nullptr;
    m_broker.m_RequestBegin = 0;
}

int SubscriptionRequest::subscribe(int qualityOfService)
{
    // The library doesn't test a handle that is gone.
    if (!m_client.handle())
        return SSC_ERROR_NOT_CONNECTED;
    return MQTTClient_subscribe(m_client.handle(), m_filter.utf8(), qualityOfService);
}

int SubscriptionRequest::unsubscribe()
{
    if (!m_client.handle())
        return SSC_ERROR_NOT_CONNECTED;
    return MQTTClient_unsubscribe(m_client.handle(), m_filter.utf8());
}

bool SubscriptionRequest::isConnectionLost() const
{
    return m_broker.m_Losses != m_losses;
}
