#pragma once

#include <functional>
#include <MQTTClient.h>
#include <optional>
#include <string>
#include <vector>

// The client library inside the test's process, in place of the real one: results are what the test says, and
// everything that was asked for is kept, in order.
namespace FakeMqttClient {

// A text of an option record; empty optional for a null pointer.
using Text = std::optional<std::string>;

// The option records of one connection attempt, copied while they were valid.
struct ConnectCall
{
    MQTTClient_connectOptions options;
    Text username;
    Text password;
    MQTTClient_SSLOptions ssl;
    Text trustStore;
    Text keyStore;
    Text privateKey;
    Text cipherSuites;
    bool hasWill = false;
    MQTTClient_willOptions will;
    Text willTopic;
    Text willMessage;
};

struct PublishCall
{
    MQTTClient handle;
    std::string topic;
    std::string payload;
    int qos;
    int retained;
};

struct SubscribeCall
{
    MQTTClient handle;
    std::string topic;
    int qos; // -1 of an unsubscribe
};

struct CreateCall
{
    std::string uri;
    std::string clientId;
    int persistence;
    Text persistenceDirectory;
};

struct State
{
    std::vector<std::string> calls; // names of the functions, in order, without isConnected
    std::vector<CreateCall> creates;
    std::vector<ConnectCall> connects;
    std::vector<PublishCall> publishes;
    std::vector<SubscribeCall> subscribes; // unsubscribes as well

    std::vector<int> createResults; // of the coming calls, first to last; then 0
    std::vector<int> connectResults;
    int setCallbacksResult = 0;
    int publishResult = 0;
    int subscribeResult = 0;             // of unsubscribes as well
    std::vector<int> disconnectResults;  // of the coming calls, first to last; then 0
    std::vector<int> disconnectTimeouts; // ms, of the calls
    int sessionPresent = 0;
    std::vector<int> pendingTokens; // of messages that a kept session still holds
    bool connectsReally = true;     // isConnected is 1 after a successful connect
    std::function<void()> duringCreate;
    std::function<void()> duringConnect;
    std::function<void(MQTTClient handle, int token)> duringPublish; // after the token is given out
    std::function<void(MQTTClient handle)> duringSubscribe;          // and during an unsubscribe
    std::function<void(MQTTClient handle)> duringDisconnect;
    std::function<void()> duringIsConnected;
    int freedMessages = 0;
    int freedTopics = 0; // and other memory of the library's
};

State& state();
// Forgets everything; handles made before must not be used any more.
void reset();

void setConnected(MQTTClient handle, bool connected);

// The library's events, as its threads would raise them.
void loseConnection(MQTTClient handle);
void deliver(MQTTClient handle, int token);
int arrive(MQTTClient handle, const std::string& topic, const std::string& payload);

} // namespace FakeMqttClient
