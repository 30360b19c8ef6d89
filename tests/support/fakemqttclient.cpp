#include "fakemqttclient.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <list>
#include <mutex>

namespace {

struct Client
{
    bool connected = false;
    int lastToken = 0;
    void* context = nullptr;
    MQTTClient_connectionLost* lost = nullptr;
    MQTTClient_messageArrived* arrived = nullptr;
    MQTTClient_deliveryComplete* delivered = nullptr;
};

std::recursive_mutex bookkeeping;
std::list<Client> clients;

using FakeMqttClient::state;
using FakeMqttClient::Text;
using Lock = std::lock_guard<std::recursive_mutex>;

Client& clientOf(MQTTClient handle)
{
    return *static_cast<Client*>(handle);
}

Text textOf(const char* text)
{
    return text ? Text(text) : std::nullopt;
}

int nextResult(std::vector<int>& results)
{
    if (results.empty())
        return 0;
    const int result = results.front();
    results.erase(results.begin());
    return result;
}

int subscribeOrNot(const char* function, const FakeMqttClient::SubscribeCall& call)
{
    std::function<void(MQTTClient)> duringSubscribe;
    int result = 0;
    {
        const Lock lock(bookkeeping);
        state().calls.emplace_back(function);
        state().subscribes.push_back(call);
        result = state().subscribeResult;
        duringSubscribe = state().duringSubscribe;
    }
    if (duringSubscribe)
        duringSubscribe(call.handle);
    return result;
}

} // namespace

namespace FakeMqttClient {

State& state()
{
    static State instance;
    return instance;
}

void reset()
{
    const Lock lock(bookkeeping);
    state() = State{};
    clients.clear();
}

void setConnected(MQTTClient handle, bool connected)
{
    clientOf(handle).connected = connected;
}

void loseConnection(MQTTClient handle)
{
    Client& client = clientOf(handle);
    client.connected = false;
    client.lost(client.context, nullptr);
}

void deliver(MQTTClient handle, int token)
{
    Client& client = clientOf(handle);
    client.delivered(client.context, token);
}

int arrive(MQTTClient handle, const std::string& topic, const std::string& payload)
{
    Client& client = clientOf(handle);
    auto* message = static_cast<MQTTClient_message*>(std::malloc(sizeof(MQTTClient_message)));
    const MQTTClient_message empty = MQTTClient_message_initializer;
    *message = empty;
    message->payloadlen = static_cast<int>(payload.size());
    message->payload = std::malloc(payload.size() + 1);
    std::memcpy(message->payload, payload.data(), payload.size());
    auto* topicName = static_cast<char*>(std::malloc(topic.size() + 1));
    std::memcpy(topicName, topic.c_str(), topic.size() + 1);
    // As the library does: 0 unless the topic holds a zero byte.
    const int topicLength = topic.find('\0') == std::string::npos ? 0 : static_cast<int>(topic.size());
    const int consumed = client.arrived(client.context, topicName, topicLength, message);
    if (consumed == 0) { // the library keeps the message, and drops it with the session
        std::free(message->payload);
        std::free(message);
        std::free(topicName);
    }
    return consumed;
}

} // namespace FakeMqttClient

extern "C" {

int MQTTClient_create(MQTTClient* handle, const char* serverURI, const char* clientId, int persistence_type,
                      void* persistence_context)
{
    const Lock lock(bookkeeping);
    state().calls.emplace_back("create");
    state().creates.push_back(
        {serverURI, clientId, persistence_type, textOf(static_cast<const char*>(persistence_context))});
    clients.emplace_back();
    *handle = &clients.back();
    if (state().duringCreate)
        state().duringCreate();
    return nextResult(state().createResults);
}

void MQTTClient_destroy(MQTTClient* handle)
{
    const Lock lock(bookkeeping);
    if (!*handle)
        return;
    state().calls.emplace_back("destroy");
    *handle = nullptr;
}

int MQTTClient_setCallbacks(MQTTClient handle, void* context, MQTTClient_connectionLost* cl,
                            MQTTClient_messageArrived* ma, MQTTClient_deliveryComplete* dc)
{
    const Lock lock(bookkeeping);
    state().calls.emplace_back("setCallbacks");
    if (!handle)
        return MQTTCLIENT_FAILURE;
    Client& client = clientOf(handle);
    client.context = context;
    client.lost = cl;
    client.arrived = ma;
    client.delivered = dc;
    return state().setCallbacksResult;
}

int MQTTClient_connect(MQTTClient handle, MQTTClient_connectOptions* options)
{
    FakeMqttClient::ConnectCall call{*options,
                                     textOf(options->username),
                                     textOf(options->password),
                                     *options->ssl,
                                     textOf(options->ssl->trustStore),
                                     textOf(options->ssl->keyStore),
                                     textOf(options->ssl->privateKey),
                                     textOf(options->ssl->enabledCipherSuites),
                                     options->will != nullptr,
                                     {},
                                     {},
                                     {}};
    if (options->will) {
        call.will = *options->will;
        call.willTopic = textOf(options->will->topicName);
        call.willMessage = textOf(options->will->message);
    }
    std::function<void()> duringConnect;
    int result = 0;
    {
        const Lock lock(bookkeeping);
        state().calls.emplace_back("connect");
        state().connects.push_back(call);
        duringConnect = state().duringConnect;
        result = nextResult(state().connectResults);
        if (result == 0) {
            clientOf(handle).connected = state().connectsReally;
            options->returned.sessionPresent = state().sessionPresent;
        }
    }
    if (duringConnect)
        duringConnect();
    return result;
}

int MQTTClient_disconnect(MQTTClient handle, int timeout)
{
    std::function<void(MQTTClient)> duringDisconnect;
    int result = 0;
    {
        const Lock lock(bookkeeping);
        state().calls.emplace_back("disconnect");
        state().disconnectTimeouts.push_back(timeout);
        result = nextResult(state().disconnectResults);
        if (result == 0)
            clientOf(handle).connected = false;
        duringDisconnect = state().duringDisconnect;
    }
    if (duringDisconnect)
        duringDisconnect(handle);
    return result;
}

int MQTTClient_isConnected(MQTTClient handle)
{
    const Lock lock(bookkeeping);
    if (state().duringIsConnected)
        state().duringIsConnected();
    return handle && clientOf(handle).connected;
}

int MQTTClient_publish(MQTTClient handle, const char* topicName, int payloadlen, const void* payload, int qos,
                       int retained, MQTTClient_deliveryToken* token)
{
    std::function<void(MQTTClient, int)> duringPublish;
    int given = 0;
    int result = 0;
    {
        const Lock lock(bookkeeping);
        state().calls.emplace_back("publish");
        state().publishes.push_back(
            {handle, topicName, std::string(static_cast<const char*>(payload), static_cast<std::size_t>(payloadlen)),
             qos, retained});
        result = state().publishResult;
        if (qos > 0 && result == 0) { // at quality of service 0 the library leaves the token alone
            given = ++clientOf(handle).lastToken;
            *token = given;
        }
        duringPublish = state().duringPublish;
    }
    if (duringPublish)
        duringPublish(handle, given);
    return result;
}

int MQTTClient_subscribe(MQTTClient handle, const char* topic, int qos)
{
    return subscribeOrNot("subscribe", {handle, topic, qos});
}

int MQTTClient_unsubscribe(MQTTClient handle, const char* topic)
{
    return subscribeOrNot("unsubscribe", {handle, topic, -1});
}

int MQTTClient_getPendingDeliveryTokens(MQTTClient handle, MQTTClient_deliveryToken** tokens)
{
    const Lock lock(bookkeeping);
    *tokens = nullptr;
    if (!handle)
        return MQTTCLIENT_FAILURE;
    const std::vector<int>& pending = state().pendingTokens;
    if (pending.empty())
        return MQTTCLIENT_SUCCESS;
    *tokens = static_cast<int*>(std::malloc((pending.size() + 1) * sizeof(int)));
    std::copy(pending.begin(), pending.end(), *tokens);
    (*tokens)[pending.size()] = -1;
    return MQTTCLIENT_SUCCESS;
}

void MQTTClient_freeMessage(MQTTClient_message** message)
{
    std::free((*message)->payload);
    std::free(*message);
    *message = nullptr;
    ++state().freedMessages;
}

void MQTTClient_free(void* pointer)
{
    std::free(pointer);
    ++state().freedTopics;
}

} // extern "C"
