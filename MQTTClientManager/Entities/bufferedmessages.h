#pragma once

#include "Entities/mqttmessage.h"

#include <atomic>
#include <boost/lockfree/spsc_queue.hpp>
#include <cstdint>
#include <memory>
#include <new>

inline constexpr int BUFFERED_QUEUE_CAPACITY = 15;

// What the payloads of one queue may take together, in bytes: 15 messages of the greatest size that MQTT has would be
// 4 GB.
inline constexpr std::int64_t BUFFERED_QUEUE_BYTES = 64 * 1024 * 1024;

// The queue of a buffered subscription, in order and without a lock: one thread appends, one thread takes, and each
// asks its own question about the count. A copy is empty: entities are copied only before they receive.
class BufferedMessages
{
public:
    BufferedMessages() = default;
    BufferedMessages(const BufferedMessages& /*other*/) {}
    // Named by Qt's lists in builds that aren't optimized, and never called.
    BufferedMessages& operator=(const BufferedMessages& /*other*/) { return *this; }
    ~BufferedMessages()
    {
        while (takeFirst()) {
        }
        delete m_queue.load();
    }

    // Appending thread.
    [[nodiscard]] int countWhenAppending() const
    {
        const Queue* queue = m_queue.load(std::memory_order_relaxed);
        return queue ? BUFFERED_QUEUE_CAPACITY - static_cast<int>(queue->write_available()) : 0;
    }
    [[nodiscard]] bool hasBytesFor(int payloadLength) const { return m_bytes + payloadLength <= BUFFERED_QUEUE_BYTES; }
    // False when the queue is full, or when there is no memory to begin it with; the message is then gone.
    bool append(std::unique_ptr<MQTTMessage> message)
    {
        Queue* queue = m_queue.load(std::memory_order_relaxed);
        if (!queue) { // made by the first message: most subscriptions never have one
            queue = new (std::nothrow) Queue;
            if (!queue)
                return false;
            m_queue.store(queue, std::memory_order_release);
        }
        // Counted first: the other thread may take the message at once.
        const int length = message->PayloadLen;
        m_bytes += length;
        if (!queue->push(message.get())) {
            m_bytes -= length;
            return false;
        }
        static_cast<void>(message.release()); // the queue's now
        return true;
    }

    // Taking thread.
    [[nodiscard]] int count() const
    {
        const Queue* queue = m_queue.load(std::memory_order_acquire);
        return queue ? static_cast<int>(queue->read_available()) : 0;
    }
    // Null when the queue is empty.
    std::unique_ptr<MQTTMessage> takeFirst()
    {
        Queue* queue = m_queue.load(std::memory_order_acquire);
        MQTTMessage* first = nullptr;
        if (!queue || !queue->pop(first))
            return nullptr;
        m_bytes -= first->PayloadLen;
        return std::unique_ptr<MQTTMessage>(first);
    }

private:
    using Queue = boost::lockfree::spsc_queue<MQTTMessage*, boost::lockfree::capacity<BUFFERED_QUEUE_CAPACITY>>;

    std::atomic<Queue*> m_queue{nullptr};
    std::atomic<std::int64_t> m_bytes{0};
};
