#pragma once

#include "diagnose/channel.h"

#include <functional>
#include <MQTTClient.h>
#include <optional>
#include <string>

namespace plcctl {

// What a first packet to a broker carries.
struct Connect
{
    std::string clientId = "plcctl-diagnose";
    std::string user = {};
    std::string password = {};
    int keepAlive = 60; // seconds
    bool hasUser = false;
    bool hasPassword = false;
};

// What a broker did with it.
struct PlainAnswer
{
    bool isMqtt = false; // an answer as the protocol has it
    int code = 0;        // of that answer
    std::string seen;    // one line
    std::string advice;
};

// Asks by hand, without a will, for a clean session, and says goodbye at once: to see what the client library doesn't
// tell.
PlainAnswer askForConnection(Channel& channel, const Connect& connect, Deadline deadline);

// The last step: connects with the client library, as the service does it, and says goodbye. `options` are the
// service's. `reconnect` gives a connection through which the broker can be asked by hand, TLS included; null where
// there is none.
void tryMqtt(Step& step, const std::string& uri, const std::string& clientId, MQTTClient_connectOptions& options,
             Patience patience, const std::function<std::optional<Channel>()>& reconnect);

} // namespace plcctl
