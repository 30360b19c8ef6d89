#include "diagnose/diagnose.h"

#include "servicecode/serviceprogram.h"

#include "devicepaths.h"

#include <memory>

namespace plcctl {

CLI::App* describeDiagnose(CLI::App& app, DiagnoseArguments& arguments)
{
    CLI::App* command = app.add_subcommand("diagnose", "Connect to a broker step by step, and say where it stops and "
                                                       "what to do");
    arguments.configDirectory = DevicePaths::ConfigurationDirectory;
    command->add_option("BROKER", arguments.broker, "ID or name")->required();
    command->add_option("--config", arguments.configDirectory, "Configuration files")
        ->type_name("DIR")
        ->capture_default_str();
    command->add_option("--timeout", arguments.timeoutSeconds, "Give up a step after this time")
        ->type_name("SECONDS")
        ->check(CLI::Range(1, 3600))
        ->capture_default_str();
    command->add_flag("--as-service", arguments.asService,
                      "Use the service's own client ID and session; this ends the connection of a running service");
    command->add_flag("--json", arguments.json, "Print JSON");
    command->footer(
        "Everything is as the service does it: addresses, files, TLS settings, credentials, will. But the client ID\n"
        "gets '-diagnose' behind it and the session is a clean one, so that a running service keeps its connection.\n"
        "Nothing is published, the will neither, and no tag is written.\n"
        "Status 0 says that the broker took the connection, 1 that a step failed.\n"
        "Examples:\n"
        "  plcctl diagnose plant\n"
        "  plcctl diagnose 1 --timeout 5 --json");
    return command;
}

void addDiagnoseCommand(CLI::App& app, Action& action)
{
    const auto arguments = std::make_shared<DiagnoseArguments>();
    describeDiagnose(app, *arguments)->callback([&action, arguments] {
        action = []() -> ExitCode { becomeServiceProgram(); };
    });
}

} // namespace plcctl
