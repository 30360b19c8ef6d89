#pragma once

#include <string>

inline constexpr int LargestPayload = 5000; // bytes

// What the bare program has to do, as its arguments tell it: words of the form name=value.
struct Workload
{
    int brokers = 1;                // connections, all to the same listener
    int publications = 0;           // spread over the brokers in turn
    int subscriptions = 0;          // all on the first connection
    int interval = 1000;            // milliseconds between two publications of one topic
    int qos = 0;                    // 0 to 2
    int json = 0;                   // 1: payloads are the JSON text of ten members; see sample.h
    int size = 64;                  // bytes of a tag, at most LargestPayload
    int spacing = 64;               // bytes from one tag to the next
    int port = 1883;                // listener on the loopback address
    int loop = 0;                   // 1: no timers; publish as soon as the message before is acknowledged
    unsigned generalAddress = 0;    // tag memory position of the process-wide status record
    unsigned statisticsAddress = 0; // tag memory position of the statistics record
    unsigned recordsAddress = 0;    // tag memory position of the subscriptions' status records, without gaps
    unsigned dataAddress = 0;       // tag memory position of the first tag
    std::string filters;            // file with a topic filter per line
};

// Throws std::invalid_argument, with a text for people, on a word that is no known name with a value.
Workload parseWorkload(int argc, char** argv);
