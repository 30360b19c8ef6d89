#include "requestoptions.h"

#include "output.h"
#include "tagaccess.h"

namespace plcctl {

namespace {

// Where the search for a byte begins that the configuration has no use for.
constexpr std::uint64_t FirstStatusOperand = 1000;

constexpr double LongestTimeout = 1e9;

} // namespace

CLI::Option* addRequestOptions(CLI::App& command, RequestOptions& options, const RequestOptionTexts& texts)
{
    auto* status = command.add_option(texts.statusNames, options.statusOperand, texts.statusHelp)->type_name("OPERAND");
    command.add_option("--timeout", options.timeoutSeconds, texts.timeoutHelp)
        ->type_name("SECONDS")
        ->check(CLI::Range(0.0, LongestTimeout))
        ->capture_default_str();
    command.add_option("--config", options.configDirectory, "Configuration files to take names and addresses from")
        ->type_name("DIR")
        ->capture_default_str();
    command.add_flag("--json", options.json, "Print one JSON object at the end");
    return status;
}

std::uint64_t placeInOperands(const std::string& typed, std::uint64_t firstOperand, std::uint64_t size,
                              const TagNames& names, const char* what)
{
    if (typed.empty())
        return names.firstUnnamed(parsePosition(std::to_string(firstOperand), true), size);
    const std::uint64_t position = parsePosition(typed, true);
    const std::string owner = names.describe(position, size);
    if (!owner.empty())
        printNote(std::string(what) + " at " + describePosition(position) + " overwrites " + owner);
    return position;
}

std::uint64_t statusPlace(const RequestOptions& options, const TagNames& names)
{
    return placeInOperands(options.statusOperand, FirstStatusOperand, 1, names, "the status byte");
}

} // namespace plcctl
