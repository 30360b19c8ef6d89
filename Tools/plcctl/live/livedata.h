#pragma once

#include "deviceconfig.h"
#include "logrows.h"

#include "Records/brokerrecords.h"
#include "Records/generalrecords.h"
#include "Records/subscriptionrecords.h"

#include <array>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <vector>

namespace plcctl::live {

// All that the view shows, as it stood at one moment. Texts are raw: only `safe` makes them fit for a terminal. What
// is not known is absent.

struct BrokerData
{
    BrokerEntry entry;
    std::optional<BrokerStatusBlock> block;
    std::optional<double> sinceSeconds; // the last write of the block
    std::uint64_t losses = 0;           // as far as the journal goes back
    std::size_t subscribed = 0;
    std::size_t subscriptions = 0;
    std::size_t publications = 0;
};

struct PublicationData
{
    PublicationEntry entry;
    std::string broker;                           // name
    std::string topic;                            // as configured
    std::optional<int> periodMilliseconds;        // nothing for one that is sent on request
    std::string value;                            // of the tag, now
    std::optional<std::uint8_t> acknowledgement;  // the byte, now
    std::optional<double> acknowledgementSeconds; // age of the last one
    std::optional<double> acknowledgementRate;
    std::optional<double> sentRate; // from debug lines of the log
    std::optional<double> sentSeconds;
    bool connected = false; // its broker
};

struct SubscriptionData
{
    SubscriptionEntry entry;
    std::string broker; // name
    std::string filter; // as configured
    std::optional<SubscriberStatusStruct> record;
    std::string topic; // of the last message
    std::optional<double> ageSeconds;
    std::optional<double> rate;
    std::string value;
};

struct CounterData
{
    const char* name;
    std::optional<std::uint32_t> value;
    std::optional<double> rate;
    std::vector<double> rates;
};

struct QueueData
{
    std::string problem; // why there are no numbers
    long waiting = 0;
    long capacity = 0;
};

struct NumberedLogRow
{
    std::uint64_t number;
    LogRow row;
};

struct LiveData
{
    std::int64_t timeNanoseconds = 0; // since 1970
    std::vector<std::string> problems;
    std::optional<MQTTGeneralStruct> general;
    std::optional<std::int32_t> processId;
    bool hasProcessEnded = false;
    std::array<std::optional<std::uint8_t>, 2> links;
    std::array<CounterData, 4> counters{
        {{"sent", {}, {}, {}}, {"acknowledged", {}, {}, {}}, {"received", {}, {}, {}}, {"dropped", {}, {}, {}}}};
    std::optional<double> expectedRate; // publications a second, by their periods, of brokers that are connected
    QueueData queue;
    std::vector<BrokerData> brokers;
    std::vector<PublicationData> publications;
    std::vector<SubscriptionData> subscriptions;
    std::vector<NumberedLogRow> log; // the newest first
    std::string logProblem;
    std::uint64_t logBytesSkipped = 0;
    std::uint64_t lostWrites = 0;
};

} // namespace plcctl::live
