#pragma once

#include <string>

// The system's message queues inside the test's process (--wrap=mq_open): opening gives what the test says.
namespace FakeMessageQueue {

struct State
{
    int descriptor = -1;
    int error = 2; // errno of a failed open; 2: no such queue
    std::string name;
    int flags = -1;
};

State& state();

} // namespace FakeMessageQueue
