#pragma once

inline constexpr int LargestPayload = 5000; // bytes

// What the bare program has to do, as its arguments tell it: words of the form name=value.
struct Workload
{
    int brokers = 1;                // connections, all to the same listener
    int publications = 1;           // spread over the brokers in turn
    int interval = 1000;            // milliseconds between two publications of one topic
    int qos = 0;                    // 0 to 2
    int size = 64;                  // payload bytes, at most LargestPayload
    int port = 1883;                // listener on the loopback address
    int loop = 0;                   // 1: no timers; publish as soon as the message before is acknowledged
    unsigned generalAddress = 0;    // tag memory position of the process-wide status record
    unsigned statisticsAddress = 0; // tag memory position of the statistics record
    unsigned dataAddress = 0;       // tag memory position of the first payload; the others follow without a gap
};

// Throws std::invalid_argument, with a text for people, on a word that is no known name with a number.
Workload parseWorkload(int argc, char** argv);
