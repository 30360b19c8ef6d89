#pragma once

#include "Utils/sharedscalar.h"

#include <cstdint>
#include <vector>

// The subscribers that were subscribed when a connection was lost, loss after loss, each as its index among the
// broker's callers; the topic that belongs to it is that caller's. Nothing is ever removed and a broker may lose its
// connection for years, so what lies behind the number of callers is counted and not kept: nobody compares it with
// anything. Loss threads append, the connecting thread reads.
class LostSubscriptions
{
public:
    static constexpr int NotKept = -1;

    // Once, when the callers are known and before the first loss.
    void prepare(int callers) { m_callers.assign(static_cast<std::size_t>(callers), NotKept); }

    void append(int caller)
    {
        const std::uint64_t position = m_size.increment() - 1;
        if (position < m_callers.size())
            m_callers[position] = caller;
    }

    // All that were ever appended.
    [[nodiscard]] std::uint64_t size() const { return m_size; }

    // The caller's index at this position; NotKept for one that isn't there any more, or not yet.
    [[nodiscard]] int at(std::uint64_t position) const
    {
        return position < m_callers.size() ? m_callers[position].load() : NotKept;
    }

private:
    std::vector<Ordered<int>> m_callers;
    Ordered<std::uint64_t> m_size;
};
