#pragma once

#include "deviceconfig.h"
#include "handshake.h"
#include "output.h"
#include "tagaccess.h"

#include <string>

namespace plcctl {

// Writes a line for each step of one subscription's handshake, with the time of the line. Reader and subscription have
// to outlive it.
class HandshakePrinter
{
public:
    HandshakePrinter(const TagReader& reader, const SubscriptionEntry& subscription, bool json)
        : m_reader(reader), m_subscription(subscription), m_json(json)
    {
    }

    void print(HandshakeEvent event, const SubscriberStatusStruct& record) const;

    // This application cleared the received bit.
    void printAsked() const;

private:
    void printWaiting(const SubscriberStatusStruct& record) const;
    void printHandedOver(const SubscriberStatusStruct& record) const;
    void printState(const char* state, const std::string& text, const Json& details = Json::object()) const;

    const TagReader& m_reader;
    const SubscriptionEntry& m_subscription;
    bool m_json;
};

} // namespace plcctl
