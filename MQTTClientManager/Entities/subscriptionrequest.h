#pragma once

#include "Entities/clientbroker.h"
#include "Entities/topicfilter.h"
#include "Entities/turn.h"

// One subscribe or unsubscribe request to a broker, from before the call until its result has been noted: as long as
// this lives, a message that the filter matches waits, for a moment, in its callback. Blocks while another request to
// the same broker lives.
class SubscriptionRequest
{
public:
    SubscriptionRequest(ClientBroker& broker, const TopicFilter& filter);
    ~SubscriptionRequest();
    SubscriptionRequest(const SubscriptionRequest&) = delete;
    SubscriptionRequest& operator=(const SubscriptionRequest&) = delete;

    // Block until the broker has answered, for 10 s at most, and return the client library's code.
    [[nodiscard]] int subscribe(int qualityOfService);
    [[nodiscard]] int unsubscribe();

    // Since the request began.
    [[nodiscard]] bool isConnectionLost() const;

private:
    ClientBroker& m_broker;
    const TopicFilter& m_filter;
    const Turn m_turn;
    const ClientUse m_client;
    const unsigned m_losses;
};
