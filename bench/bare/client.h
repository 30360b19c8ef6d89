#pragma once

#include "bench/bare/workload.h"
#include "MQTTClientManager/Records/generalrecords.h"

#include <MQTTClient.h>

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

// The client library with nothing around it: what the service's work costs at the least.

// The counters behind the statistics record. Raised by the publishing thread and the library's thread.
class Counters
{
public:
    explicit Counters(unsigned address) : m_address(address) {}

    void addSent();
    void addAcknowledged();
    std::uint32_t sent() const { return m_sent.load(std::memory_order_relaxed); }
    std::uint32_t acknowledged() const { return m_acknowledged.load(std::memory_order_acquire); }

private:
    void write() const;

    unsigned m_address;
    std::atomic<std::uint32_t> m_sent = 0;
    std::atomic<std::uint32_t> m_acknowledged = 0;
};

// One connection of the synchronous client. Its address is the library's callback context, so it is never moved.
class Client
{
public:
    // Creates the handle; throws std::runtime_error when the library refuses.
    Client(int number, int port, Counters& counters);
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    // Throws std::runtime_error when the broker does not answer.
    void connect();

    // Publishes the `size` bytes at the tag memory position `address`, as they are there now.
    void publish(const char* topic, unsigned short size, unsigned address, int qos);

private:
    MQTTClient m_handle = nullptr;
    Counters& m_counters;
};
