#pragma once

#include "bench/bare/counters.h"
#include "bench/bare/filter.h"
#include "bench/bare/workload.h"
#include "MQTTClientManager/Records/subscriptionrecords.h"

#include <string_view>
#include <vector>

// Takes messages to their tags: the record of the subscription, the statistics, the data.
class Reception
{
public:
    // Reads the filters, a line each, from the workload's file; throws std::runtime_error when there are too few.
    Reception(const Workload& workload, Counters& counters);

    // The client library's receive thread.
    void take(const char* topic, const void* payload, int size);

    std::vector<std::string> filters() const;

private:
    struct Subscription
    {
        Filter filter;
        unsigned recordAddress;
        unsigned dataAddress;
        SubscriberStatusStruct record;
    };

    void store(Subscription& subscription, std::string_view topic, const void* payload, int size);
    void storeSample(unsigned address, const void* payload, int size) const;
    void storeBytes(unsigned address, const void* payload, int size) const;

    Counters& m_counters;
    bool m_isJson;
    int m_size; // of a tag, in bytes
    std::vector<Subscription> m_subscriptions;
};
