#pragma once

#include <atomic>
#include <boost/lockfree/spsc_queue.hpp>
#include <QList>

// Passes delivery tokens from the one thread that publishes to the one thread that hears of deliveries, in order and
// without a lock. A copy is empty: entities are copied only before they publish.
class TokenHandover
{
public:
    TokenHandover() = default;
    TokenHandover(const TokenHandover& /*other*/) {}
    // Named by Qt's lists in builds that aren't optimized, and never called.
    TokenHandover& operator=(const TokenHandover& /*other*/) { return *this; }
    ~TokenHandover() { delete m_queue.load(); }

    // Publishing thread. Tokens that find the queue full wait here and go in ahead of the next one.
    void put(int token)
    {
        Queue* queue = m_queue.load(std::memory_order_relaxed);
        if (!queue) { // made by the first token: most publications never have one
            queue = new Queue;
            m_queue.store(queue, std::memory_order_release);
        }
        m_waiting.append(token);
        while (!m_waiting.isEmpty() && queue->push(m_waiting.constFirst()))
            m_waiting.removeFirst();
    }

    // Delivery thread: moves all that has arrived to the end of `tokens`.
    void takeInto(QList<int>& tokens)
    {
        if (Queue* queue = m_queue.load(std::memory_order_acquire))
            queue->consume_all([&tokens](int token) { tokens.append(token); });
    }

private:
    static constexpr std::size_t Capacity = 1024;
    using Queue = boost::lockfree::spsc_queue<int, boost::lockfree::capacity<Capacity>>;

    std::atomic<Queue*> m_queue{nullptr};
    QList<int> m_waiting;
};
