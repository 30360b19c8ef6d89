#pragma once

#include <string>
#include <vector>

namespace plcctl {

// Keeps the service's own log lines of severity warning and above, in place of a log file. Call once.
void collectLog();

// The lines since the last call.
std::vector<std::string> takeLogLines();

} // namespace plcctl
