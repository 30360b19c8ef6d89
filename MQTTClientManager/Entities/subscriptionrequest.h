#pragma once

#include "Entities/clientbroker.h"
#include "Entities/turn.h"

// One subscribe or unsubscribe request to a broker, from before the call until the caller has noted its result. Blocks
// while another request to the same broker lives.
class SubscriptionRequest
{
public:
    explicit SubscriptionRequest(ClientBroker& broker);
    ~SubscriptionRequest();
    SubscriptionRequest(const SubscriptionRequest&) = delete;
    SubscriptionRequest& operator=(const SubscriptionRequest&) = delete;

    // Both block until the broker has answered, for some 10 s at most, and return the client library's code. From the
    // call on, and as long as this lives, `subscriber` is offered messages although it isn't subscribed yet.
    [[nodiscard]] int subscribe(const MQTTCallerBase& subscriber, const char* topic, int qualityOfService);
    [[nodiscard]] int unsubscribe(const char* topic);

    // Since the request began.
    [[nodiscard]] bool isConnectionLost() const;

private:
    void letLastCallbackEnd();

    ClientBroker& m_broker;
    const Turn m_turn;
    const ClientUse m_client;
    const unsigned m_losses;
};
