#pragma once

#include "bench/observer/childprocess.h"
#include "MQTTClientManager/Records/generalrecords.h"

#include <chrono>
#include <string>

// The controller's side of a benchmark: the tags that the process under test needs, and what its records and the
// kernel tell about it.

struct Plan
{
    unsigned generalAddress = 1024;
    unsigned statisticsAddress = 1536;
    unsigned dataAddress = 8192;
    unsigned dataSize = 64; // bytes from dataAddress on that get a pattern
    int publications = 0;   // ticks are expected from this many timers
    int interval = 0;       // milliseconds; 0: a stream without pauses
    double warmUp = 2;      // seconds after the first message
    double window = 10;     // seconds of measuring; 0: none, only the start-up and the memory are measured
    double patience = 60;   // seconds until the process must report that it runs
    std::string mark;       // command to run at either end of the window; {pid} stands for the process
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
    std::uint32_t sent = 0;
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
};

// Puts tag memory and the request queue in the state in which a controller starts the process.
void prepareController(const Plan& plan);

// Runs through the plan with a process that was started at `started`. Throws std::runtime_error when it does not get
// to the end.
Outcome measure(const Plan& plan, ChildProcess& process, std::chrono::steady_clock::time_point started);
