#pragma once

#include "livedata.h"
#include "table.h"

#include "Records/statuscodes.h"

#include <string>

namespace plcctl::live {

// The tables of the views, in the order of the files. The key of a row is its place there; of a log row, its number.

Table brokersTable(const LiveData& data, Charset charset);
Table publicationsTable(const LiveData& data, Charset charset);
Table subscriptionsTable(const LiveData& data, Charset charset);
Table logTable(const LiveData& data, Severity mildest, Charset charset);

// "CB_CONNECTION_LOST", or for a code without a name its number.
std::string codeName(CodeDomain domain, int code);

// "connected", "lost", "not connected"
Cell brokerState(const BrokerData& broker, bool hasProcessEnded);

// "buffered: waiting"; of a subscription that isn't buffered "-".
Cell handOverState(const SubscriptionData& subscription);

Style styleOf(Severity severity);

} // namespace plcctl::live
