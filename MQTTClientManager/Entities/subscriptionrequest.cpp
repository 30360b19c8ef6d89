#include "Entities/subscriptionrequest.h"

#include "Entities/steadyclock.h"

#include <thread>

namespace {

constexpr std::chrono::microseconds CallbackPause(50);
constexpr std::chrono::milliseconds RequestPause(1);

} // namespace

SubscriptionRequest::SubscriptionRequest(ClientBroker& broker)
    : m_broker(broker), m_turn(broker.m_Requesting, RequestPause), m_client(broker), m_losses(broker.m_Losses)
{
}

SubscriptionRequest::~SubscriptionRequest()
{
    m_broker.m_Subscribing = nullptr;
    m_broker.m_RequestBegin = 0;
}

int SubscriptionRequest::subscribe(const MQTTCallerBase& subscriber, const char* topic, int qualityOfService)
{
    // The library doesn't test a handle that is gone.
    if (!m_client.handle())
        return SSC_ERROR_NOT_CONNECTED;
    letLastCallbackEnd();
    m_broker.m_Subscribing = &subscriber;
    const int result = MQTTClient_subscribe(m_client.handle(), topic, qualityOfService);
    m_broker.noteSessionEnd(m_client.handle());
    return result;
}

int SubscriptionRequest::unsubscribe(const char* topic)
{
    if (!m_client.handle())
        return SSC_ERROR_NOT_CONNECTED;
    letLastCallbackEnd();
    const int result = MQTTClient_unsubscribe(m_client.handle(), topic);
    m_broker.noteSessionEnd(m_client.handle());
    return result;
}

void SubscriptionRequest::letLastCallbackEnd()
{
    // Begins anew ahead of each look: whoever enters after the last look finds the request young and keeps away.
    // Nothing here waits for a publication, which may be stuck in the library.
    m_broker.m_RequestBegin = steadyMilliseconds();
    while (m_broker.m_InMessage) {
        std::this_thread::sleep_for(CallbackPause);
        m_broker.m_RequestBegin = steadyMilliseconds();
    }
}

bool SubscriptionRequest::isConnectionLost() const
{
    return m_broker.m_Losses != m_losses;
}
