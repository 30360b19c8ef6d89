#include "check/checking.h"
#include "commands.h"
#include "devicepaths.h"
#include "output.h"

#include <memory>
#include <QDateTime>

namespace plcctl {

namespace {

using check::Finding;
using check::Severity;

struct CheckArguments
{
    std::string directory = DevicePaths::ConfigurationDirectory;
    std::string time;
    std::vector<std::string> ignoredRules;
    bool strict = false;
    bool json = false;
};

const char* nameOf(Severity severity)
{
    return severity == Severity::Error ? "error" : "warning";
}

std::int64_t timeOf(const std::string& text)
{
    if (text.empty())
        return QDateTime::currentSecsSinceEpoch();
    QDateTime time = QDateTime::fromString(QString::fromStdString(text), Qt::ISODate);
    if (!time.isValid())
        throw Failure(ExitCode::Usage, "--at " + inQuotes(text) + " is no time; write 2026-01-31 or 2026-01-31T12:00");
    if (time.timeSpec() == Qt::LocalTime)
        time.setTimeSpec(Qt::UTC);
    return time.toSecsSinceEpoch();
}

std::string counts(const check::Result& result)
{
    const auto counted = [&](Severity severity) {
        const std::size_t count = result.count(severity);
        return std::to_string(count) + " " + nameOf(severity) + (count == 1 ? "" : "s");
    };
    return counted(Severity::Error) + ", " + counted(Severity::Warning);
}

// "FILE:LINE:COLUMN: error: text [rule]", as compilers write it and editors read it.
void print(const check::Result& result)
{
    for (const Finding& finding : result.findings) {
        const check::Place place = finding.site.place;
        printLine(printable(result.files.at(finding.site.file)) + ":" + std::to_string(place.line) + ":" +
                  std::to_string(place.column) + ": " + nameOf(finding.severity) + ": " + finding.text + " [" +
                  finding.rule + "]");
    }
    printNote(counts(result) + " in " + printable(result.directory));
}

void printAsJson(const check::Result& result)
{
    Json findings = Json::array();
    for (const Finding& finding : result.findings) {
        findings.push_back({{"file", result.files.at(finding.site.file)},
                            {"line", finding.site.place.line},
                            {"column", finding.site.place.column},
                            {"severity", nameOf(finding.severity)},
                            {"rule", finding.rule},
                            {"text", finding.text}});
    }
    printJson({{"directory", result.directory},
               {"errors", result.count(Severity::Error)},
               {"warnings", result.count(Severity::Warning)},
               {"findings", findings}});
}

ExitCode runCheck(const CheckArguments& arguments)
{
    const check::Result result = check::checkDirectory(arguments.directory, timeOf(arguments.time),
                                                       {arguments.ignoredRules.begin(), arguments.ignoredRules.end()});
    if (arguments.json)
        printAsJson(result);
    else
        print(result);
    const bool fails = result.count(Severity::Error) > 0 || (arguments.strict && !result.findings.empty());
    return fails ? ExitCode::Failed : ExitCode::Done;
}

} // namespace

void addCheckCommand(CLI::App& app, Action& action)
{
    const auto arguments = std::make_shared<CheckArguments>();
    CLI::App* command = app.add_subcommand("check", "Say what is wrong with a configuration before a device does");
    command->add_option("DIR", arguments->directory, "Configuration directory, or a device's file tree")
        ->capture_default_str();
    command->add_flag("--strict", arguments->strict, "Warnings count as well");
    command->add_option("--ignore", arguments->ignoredRules, "Leave out findings of this rule; may be repeated")
        ->type_name("RULE")
        ->allow_extra_args(false);
    command->add_option("--at", arguments->time, "Check certificates as of this time (UTC) instead of now")
        ->type_name("TIME");
    command->add_flag("--json", arguments->json, "Print JSON");
    command->footer(
        "Each line is FILE:LINE:COLUMN: error|warning: TEXT [RULE]. An error doesn't work as it is written;\n"
        "a warning works, but probably not as it was meant. Nothing is written.\n"
        "Exit status: 0 no error, 1 errors, or with --strict warnings, 3 nothing to read.\n"
        "Examples:\n"
        "  plcctl check /VEL/UserApps/Config/MQTT\n"
        "  plcctl check project/device --strict --ignore filter-differs\n"
        "  plcctl check --at 2027-01-01 --json");
    command->callback([&action, arguments] { action = [arguments] { return runCheck(*arguments); }; });
}

} // namespace plcctl
