#pragma once

#include <atomic>

// Told once, by the clean-up thread, when the process begins to end. Timer slots, callbacks and the steps of the run-up
// test it first and leave, since what they work on is being torn down.
class ProcessEnding
{
public:
    static bool hasBegun() { return s_hasBegun.load(); }
    static void begin() { s_hasBegun.store(true); }

private:
    friend class ProcessEndingUndone; // of the tests, which end many times in one process

    inline static std::atomic<bool> s_hasBegun{false};
};
