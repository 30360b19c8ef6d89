#pragma once

#include "bench/bare/counters.h"
#include "bench/bare/reception.h"

#include <MQTTClient.h>

// The client library with nothing around it: what the service's work costs at the least.

// One connection of the synchronous client. Its address is the library's callback context, so it is never moved.
class Client
{
public:
    // Creates the handle; throws std::runtime_error when the library refuses. Received messages go to `reception`, on
    // the library's thread.
    Client(int number, int port, Counters& counters, Reception& reception);
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    // These throw std::runtime_error when the broker does not answer, or refuses.
    void connect();
    void subscribe(const char* filter, int qos);

    bool isConnected() const { return MQTTClient_isConnected(m_handle) != 0; }
    void publish(const char* topic, const void* payload, int size, int qos);

private:
    static int messageArrived(void* client, char* topic, int, MQTTClient_message* message);
    static void deliveryComplete(void* client, MQTTClient_deliveryToken);

    MQTTClient m_handle = nullptr;
    Counters& m_counters;
    Reception& m_reception;
};
