#pragma once

#include "deviceconfig.h"
#include "output.h"

#include "Records/subscriptionrecords.h"

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

// Every field of the record, the topic whole.
Json subscriptionJson(const SubscriptionStatus& status);

} // namespace plcctl
