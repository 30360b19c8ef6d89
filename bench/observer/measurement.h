#pragma once

#include "bench/observer/childprocess.h"
#include "bench/observer/controller.h"

#include <chrono>
#include <string>

// What the process under test does by its records in tag memory, and what the kernel tells about it.

struct Plan
{
    Addresses addresses;
    unsigned tagSize = 64; // bytes of the first subscription's tag
    int publications = 0;  // ticks are expected from this many timers
    int interval = 0;      // milliseconds; 0: a stream without pauses
    double warmUp = 2;     // seconds after the first message
    double window = 10;    // seconds of measuring; 0: none, only the start-up and the memory are measured
    double patience = 60;  // seconds until the process must report that it runs, and until messages must come
    std::string sender;    // command that sends messages to the process; empty: there is none
    unsigned burst = 0;    // 0: the sender runs through the window; else it sends this many messages and ends, once to
                           // warm up and once in the window
    std::string mark;      // command to run at either end of the window; {pid} stands for the process
};

struct Memory
{
    long residentKiB = 0;
    long proportionalKiB = 0; // shared pages divided by the number of their users
};

struct Window
{
    double seconds = 0;
    long long processorNanoseconds = 0;
    std::uint32_t messages = 0; // sent and received
    std::uint32_t acknowledged = 0;
    long long expected = 0; // ticks that the timers should have had; 0 for a stream
    bool atRest = true;     // both ends lie in the pause between two rounds of ticks
    int beginMarks = 0;     // times that the mark command ran until it met a pause
    int endMarks = 0;
};

struct Outcome
{
    double startUpSeconds = 0; // from the start of the program to the moment at which its record says "running"
    Memory memory;
    Window window;
    std::string record; // the first subscription's status record at the end, in hexadecimal digits
    std::string tag;    // and its tag
};

// Runs through the plan with a process that was started at `started`. Throws std::runtime_error when it does not get
// to the end.
Outcome measure(const Plan& plan, ChildProcess& process, std::chrono::steady_clock::time_point started);
