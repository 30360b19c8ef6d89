#pragma once

#include <atomic>

// Raised once, by the clean-up thread, when the process begins to end. Timer slots and callbacks test it first and
// leave, since what they work on is being torn down.
class ProcessEnding
{
public:
    static bool isRaised() { return s_raised.load(); }
    static void raise() { s_raised.store(true); }

private:
    inline static std::atomic<bool> s_raised{false};
};
