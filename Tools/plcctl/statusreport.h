#pragma once

#include "deviceconfig.h"
#include "output.h"
#include "subscriptionreport.h"
#include "tagaccess.h"

#include "Records/brokerrecords.h"
#include "Records/generalrecords.h"

#include <optional>
#include <string>
#include <vector>

namespace plcctl {

// The service's records as they stood in tag memory at one moment.

struct BrokerStatus
{
    BrokerEntry broker;
    std::optional<BrokerStatusBlock> block; // nothing where its address is outside tag memory
};

struct StatusReport
{
    std::optional<std::uint32_t> generalAddress;
    std::optional<MQTTGeneralStruct> general;
    std::optional<std::uint32_t> statisticsAddress;
    std::optional<MQTTStatisticsStruct> statistics;
    std::vector<BrokerStatus> brokers;
    std::vector<SubscriptionStatus> subscriptions;
    std::vector<FileProblem> problems;
    bool complete = false; // all files were whole, and all of their addresses can be read
};

StatusReport readStatus(const TagReader& reader, const DeviceConfig& config);

std::vector<std::string> linesOf(const StatusReport& report);

Json jsonOf(const StatusReport& report);

} // namespace plcctl
