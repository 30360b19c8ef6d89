#pragma once

#include "commands.h"

#include <optional>
#include <string>

namespace plcctl {

struct ConvertArguments
{
    // TYPE and VALUE, or VALUE alone where the configuration gives the type.
    std::optional<std::string> first;
    std::optional<std::string> second;
    std::string subscription; // ID or name
    std::string publication;  // ID or name
    bool publish = false;     // bytes to text, as a publication does it
    std::string format = "json";
    std::string file; // that the payload or the bytes come from; "-" is standard input
    bool hex = false; // the payload is given as hexadecimal digits
    std::string configDirectory;
    bool json = false;
};

// Adds the command and its options; what it does is the caller's to set.
CLI::App* describeConvert(CLI::App& app, ConvertArguments& arguments);

// Converts by the service's own code, and writes to no tag.
ExitCode convert(const ConvertArguments& arguments);

} // namespace plcctl
