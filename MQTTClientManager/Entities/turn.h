#pragma once

#include "Utils/sharedscalar.h"

#include <chrono>
#include <thread>

// One thread at a time in something that the client library does not keep apart by itself. Waiting is by looking again,
// so a turn is for work that is short, or rare.
class Turn
{
public:
    using Clock = std::chrono::steady_clock;

    // Waits for the turn, until the deadline at the latest.
    Turn(Ordered<bool>& flag, std::chrono::microseconds pause, Clock::time_point deadline = Clock::time_point::max())
        : m_flag(flag)
    {
        while (!(m_isMine = !m_flag.exchange(true)) && Clock::now() < deadline)
            std::this_thread::sleep_for(pause);
    }
    ~Turn()
    {
        if (m_isMine)
            m_flag = false;
    }
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;

    // False when the deadline came first.
    [[nodiscard]] bool isMine() const { return m_isMine; }

private:
    Ordered<bool>& m_flag;
    bool m_isMine = false;
};
