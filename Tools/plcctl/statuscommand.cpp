#include "commands.h"
#include "deviceconfig.h"
#include "output.h"
#include "statusreport.h"
#include "tagaccess.h"
#include "watchloop.h"

#include "devicepaths.h"

#include <memory>

namespace plcctl {

namespace {

struct StatusArguments
{
    std::string configDirectory = DevicePaths::ConfigurationDirectory;
    bool watch = false;
    unsigned intervalMilliseconds = 500;
    std::optional<double> seconds;
    bool json = false;
};

void print(const StatusReport& report, const StatusArguments& arguments)
{
    if (arguments.json)
        return printJson(jsonOf(report));
    for (const std::string& line : linesOf(report))
        printLine(line);
}

ExitCode watchStatus(const TagReader& reader, const DeviceConfig& config, const StatusArguments& arguments)
{
    WatchLoop loop(arguments.seconds);
    Json shown;
    do {
        const StatusReport report = readStatus(reader, config);
        Json current = jsonOf(report);
        if (current == shown)
            continue;
        if (!arguments.json)
            printLine("---- " + localTime(nowNanoseconds()));
        print(report, arguments);
        shown = std::move(current);
    } while (loop.pause(std::chrono::milliseconds(arguments.intervalMilliseconds)));
    return ExitCode::Done;
}

ExitCode showStatus(const StatusArguments& arguments)
{
    const DeviceConfig config = readDeviceConfig(arguments.configDirectory, ConfigScope::StatusRecords);
    for (const FileProblem& problem : config.problems)
        printNote(printable(problem.file) + ": " + printable(problem.text));
    const TagReader reader;
    if (arguments.watch)
        return watchStatus(reader, config, arguments);
    const StatusReport report = readStatus(reader, config);
    print(report, arguments);
    return report.complete ? ExitCode::Done : ExitCode::NothingToRead;
}

} // namespace

void addStatusCommand(CLI::App& app, Action& action)
{
    const auto arguments = std::make_shared<StatusArguments>();
    CLI::App* command = app.add_subcommand("status", "Show the service's state, counters, brokers and subscriptions");
    command->add_option("--config", arguments->configDirectory, "Configuration files that tell where the records lie")
        ->type_name("DIR")
        ->capture_default_str();
    auto* watch =
        command->add_flag("--watch", arguments->watch, "Show it again whenever something changed, until Ctrl-C");
    command->add_option("--interval", arguments->intervalMilliseconds, "Milliseconds between two looks")
        ->type_name("MS")
        ->check(CLI::Range(1, 3'600'000))
        ->capture_default_str()
        ->needs(watch);
    command->add_option("--for", arguments->seconds, "End after this time")
        ->type_name("SECONDS")
        ->check(CLI::Range(0.0, 1e9))
        ->needs(watch);
    command->add_flag("--json", arguments->json, "Print JSON");
    command->footer("The counters are in tag memory only after the first of them changed; until then zeros are shown.\n"
                    "Status 3 says that a file or a record could not be read and the rest is shown.\n"
                    "Examples:\n"
                    "  plcctl status\n"
                    "  plcctl status --watch --json");
    command->callback([&action, arguments] { action = [arguments] { return showStatus(*arguments); }; });
}

} // namespace plcctl
