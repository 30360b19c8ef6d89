#pragma once

#include "deviceconfig.h"
#include "output.h"

#include "Records/subscriptionrecords.h"

#include <cstdint>
#include <optional>
#include <string>

namespace plcctl {

// A subscription's record as it stood in tag memory at one moment.
struct SubscriptionStatus
{
    SubscriptionEntry subscription;
    std::optional<SubscriberStatusStruct> record; // nothing where its address is outside tag memory
};

// One line for people; a long topic is shortened in it.
std::string subscriptionLine(const SubscriptionStatus& status);

// The topic of the last message as it stands in the record, in UTF-8.
std::string lastTopic(const SubscriberStatusStruct& record);

// Every field of the record, the topic whole.
Json subscriptionJson(const SubscriptionStatus& status);

} // namespace plcctl
