#pragma once

#include <boost/lockfree/spsc_queue.hpp>
#include <QList>

// Passes delivery tokens from the one thread that publishes to the one thread that hears of deliveries, in order and
// without a lock. A copy is empty: entities are copied only before they publish.
class TokenHandover
{
public:
    TokenHandover() = default;
    TokenHandover(const TokenHandover& /*other*/) {}
    TokenHandover& operator=(const TokenHandover& /*other*/) { return *this; }

    // Publishing thread. Tokens that find the queue full wait here and go in ahead of the next one.
    void put(int token)
    {
        m_waiting.append(token);
        while (!m_waiting.isEmpty() && m_queue.push(m_waiting.constFirst()))
            m_waiting.removeFirst();
    }

    // Delivery thread: moves all that has arrived to the end of `tokens`.
    void takeInto(QList<int>& tokens)
    {
        m_queue.consume_all([&tokens](int token) { tokens.append(token); });
    }

private:
    static constexpr std::size_t Capacity = 1024;

    boost::lockfree::spsc_queue<int, boost::lockfree::capacity<Capacity>> m_queue;
    QList<int> m_waiting;
};
