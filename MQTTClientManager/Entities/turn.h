#pragma once

#include "Utils/sharedscalar.h"

#include <chrono>
#include <optional>
#include <thread>

// One thread at a time in something that the client library does not keep apart by itself. Waiting is by looking again,
// so a turn is for work that is short, or rare.
class Turn
{
public:
    // Waits for the turn, for `patience` at most; without one, until it comes.
    Turn(Ordered<bool>& flag, std::chrono::microseconds pause,
         std::optional<std::chrono::milliseconds> patience = std::nullopt)
        : m_flag(flag), m_isMine(!flag.exchange(true))
    {
        if (!m_isMine)
            wait(pause, patience);
    }
    ~Turn()
    {
        if (m_isMine)
            m_flag = false;
    }
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;

    // False when the patience came to its end first.
    [[nodiscard]] bool isMine() const { return m_isMine; }

private:
    void wait(std::chrono::microseconds pause, std::optional<std::chrono::milliseconds> patience)
    {
        const auto begin = std::chrono::steady_clock::now();
        while (!m_isMine && (!patience || std::chrono::steady_clock::now() - begin < *patience)) {
            std::this_thread::sleep_for(pause);
            m_isMine = !m_flag.exchange(true);
        }
    }

    Ordered<bool>& m_flag;
    bool m_isMine;
};
