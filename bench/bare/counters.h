#pragma once

#include <atomic>
#include <cstdint>

// The counters behind the statistics record. Raised by the publishing thread and the library's thread.
class Counters
{
public:
    explicit Counters(unsigned address) : m_address(address) {}

    void addSent();
    void addAcknowledged();
    void addReceived();
    std::uint32_t sent() const { return m_sent.load(std::memory_order_relaxed); }
    std::uint32_t acknowledged() const { return m_acknowledged.load(std::memory_order_acquire); }

private:
    void write() const;

    unsigned m_address;
    std::atomic<std::uint32_t> m_sent = 0;
    std::atomic<std::uint32_t> m_acknowledged = 0;
    std::atomic<std::uint32_t> m_received = 0;
};
