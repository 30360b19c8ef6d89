#pragma once

#include "tagnames.h"

#include "devicepaths.h"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <cstdint>
#include <string>

namespace plcctl {

// What all commands that send requests can be told.
struct RequestOptions
{
    std::string statusOperand; // as it was typed; empty if it was left out
    double timeoutSeconds = 60;
    bool json = false;
    std::string configDirectory = DevicePaths::ConfigurationDirectory;
};

// How a command words them.
struct RequestOptionTexts
{
    const char* statusNames;
    const char* statusHelp;
    const char* timeoutHelp;
};

// Returns the option of the status byte.
CLI::Option* addRequestOptions(CLI::App& command, RequestOptions& options, const RequestOptionTexts& texts);

// The position for these bytes: at the operand that was typed, with a note if that overwrites a tag that the
// configuration knows, and else the first one from the given operand on that overwrites none.
std::uint64_t placeInOperands(const std::string& typed, std::uint64_t firstOperand, std::uint64_t size,
                              const TagNames& names, const char* what);

// The same for the byte that answers a request.
std::uint64_t statusPlace(const RequestOptions& options, const TagNames& names);

} // namespace plcctl
