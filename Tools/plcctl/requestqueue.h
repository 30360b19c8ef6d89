#pragma once

#include <cstdint>
#include <mqueue.h>
#include <span>
#include <string>

namespace plcctl {

// The request queue, closed with its scope.
class RequestQueue
{
public:
    explicit RequestQueue(mqd_t descriptor) : m_descriptor(descriptor) {}

    RequestQueue(const RequestQueue&) = delete;
    RequestQueue& operator=(const RequestQueue&) = delete;

    ~RequestQueue();

    // The queue for sending, which never waits. Throws Failure (not sent) where there is no queue.
    [[nodiscard]] static RequestQueue forSending();

    [[nodiscard]] bool isOpen() const { return m_descriptor != -1; }

    [[nodiscard]] mq_attr attributes() const;

    // Throws Failure (not sent) if the queue is full, Failure (failed) if it takes no message of this size.
    void send(std::span<const std::uint8_t> message) const;

private:
    mqd_t m_descriptor;
};

// "10 messages of 1500 bytes"
std::string describeRoom(long messages, long size);

[[noreturn]] void failQueue(const char* what, int error);

} // namespace plcctl
