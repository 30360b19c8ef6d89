#include "bench/bare/client.h"

#include "MQTTClientManager/devicepaths.h"

#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>

namespace {

void connectionLost(void*, char*)
{
    // A measurement across a loss means nothing: the observer sees the exit and fails the run.
    std::fputs("connection lost\n", stderr);
    std::_Exit(1);
}

void check(int result, const char* step)
{
    if (result != MQTTCLIENT_SUCCESS)
        throw std::runtime_error(std::string(step) + " failed with " + std::to_string(result));
}

} // namespace

int Client::messageArrived(void* client, char* topic, int, MQTTClient_message* message)
{
    static_cast<Client*>(client)->m_reception.take(topic, message->payload, message->payloadlen);
    MQTTClient_freeMessage(&message);
    MQTTClient_free(topic);
    return 1;
}

void Client::deliveryComplete(void* client, MQTTClient_deliveryToken)
{
    static_cast<Client*>(client)->m_counters.addAcknowledged();
}

Client::Client(int number, int port, Counters& counters, Reception& reception)
    : m_counters(counters), m_reception(reception)
{
    const std::string uri = "tcp://127.0.0.1:" + std::to_string(port);
    const std::string identifier = "bench-" + std::to_string(number);
    check(MQTTClient_create(&m_handle, uri.c_str(), identifier.c_str(), MQTTCLIENT_PERSISTENCE_DEFAULT,
                            const_cast<char*>(DevicePaths::PersistenceDirectory)),
          "create");
}

void Client::connect()
{
    MQTTClient_SSLOptions ssl = MQTTClient_SSLOptions_initializer;
    ssl.struct_version = 0;
    ssl.enabledCipherSuites = "DEFAULT:!ECDH";
    ssl.enableServerCertAuth = 0;

    MQTTClient_connectOptions options = MQTTClient_connectOptions_initializer;
    options.struct_version = 4;
    options.keepAliveInterval = 60;
    options.cleansession = 1;
    options.reliable = 1;
    options.connectTimeout = 15;
    options.retryInterval = 20;
    options.ssl = &ssl;
    options.MQTTVersion = 0;

    check(MQTTClient_setCallbacks(m_handle, this, connectionLost, messageArrived, deliveryComplete), "setCallbacks");
    check(MQTTClient_connect(m_handle, &options), "connect");
}

void Client::subscribe(const char* filter, int qos)
{
    check(MQTTClient_subscribe(m_handle, filter, qos), "subscribe");
}

void Client::publish(const char* topic, const void* payload, int size, int qos)
{
    MQTTClient_deliveryToken token = 0;
    if (MQTTClient_publish(m_handle, topic, size, payload, qos, 0, &token) == MQTTCLIENT_SUCCESS)
        m_counters.addSent();
}
