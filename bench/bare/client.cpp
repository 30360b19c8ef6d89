#include "bench/bare/client.h"

#include "MQTTClientManager/devicepaths.h"
#include "Platform/TagMemory/tagmemory.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>

namespace {

void connectionLost(void*, char*)
{
    // A measurement across a loss means nothing: the observer sees the exit and fails the run.
    std::fputs("connection lost\n", stderr);
    std::_Exit(1);
}

int messageArrived(void*, char* topic, int, MQTTClient_message* message)
{
    MQTTClient_freeMessage(&message);
    MQTTClient_free(topic);
    return 1;
}

void deliveryComplete(void* counters, MQTTClient_deliveryToken)
{
    static_cast<Counters*>(counters)->addAcknowledged();
}

void check(int result, const char* step)
{
    if (result != MQTTCLIENT_SUCCESS)
        throw std::runtime_error(std::string(step) + " failed with " + std::to_string(result));
}

} // namespace

void Counters::addSent()
{
    m_sent.fetch_add(1, std::memory_order_relaxed);
    write();
}

void Counters::addAcknowledged()
{
    m_acknowledged.fetch_add(1, std::memory_order_release);
    write();
}

void Counters::write() const
{
    const MQTTStatisticsStruct record{sent(), acknowledged(), 0, 0};
    (void)TagMemory::Write(sizeof record, m_address, reinterpret_cast<const unsigned char*>(&record));
}

Client::Client(int number, int port, Counters& counters) : m_counters(counters)
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

    check(MQTTClient_setCallbacks(m_handle, &m_counters, connectionLost, messageArrived, deliveryComplete),
          "setCallbacks");
    check(MQTTClient_connect(m_handle, &options), "connect");
}

void Client::publish(const char* topic, unsigned short size, unsigned address, int qos)
{
    if (!MQTTClient_isConnected(m_handle))
        return;
    std::array<unsigned char, LargestPayload> payload;
    TagMemory::Read(size, address, payload.data());
    MQTTClient_deliveryToken token = 0;
    if (MQTTClient_publish(m_handle, topic, size, payload.data(), qos, 0, &token) == MQTTCLIENT_SUCCESS)
        m_counters.addSent();
}
