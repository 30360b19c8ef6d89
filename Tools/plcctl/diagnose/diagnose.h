#pragma once

#include "commands.h"

#include <string>

namespace plcctl {

struct DiagnoseArguments
{
    std::string broker; // ID or name
    std::string configDirectory;
    unsigned timeoutSeconds = 15; // of each step; what the service gives a whole attempt
    bool asService = false;       // with the service's own client identifier
    bool json = false;
};

// Adds the command and its options; what it does is the caller's to set.
CLI::App* describeDiagnose(CLI::App& app, DiagnoseArguments& arguments);

// Takes a configured broker through all that a connection needs, with the service's own settings. Publishes nothing,
// writes to no tag, and says goodbye to the broker. Failed where any step failed.
ExitCode diagnose(const DiagnoseArguments& arguments);

} // namespace plcctl
