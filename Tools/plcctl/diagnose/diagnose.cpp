#include "diagnose/diagnose.h"

#include "diagnose/diagnosis.h"
#include "entities.h"
#include "output.h"
#include "servicecode/configuredentities.h"

#include <algorithm>
#include <csignal>

namespace plcctl {

namespace {

constexpr std::size_t NameWidth = 10;

const char* textOf(Outcome outcome)
{
    switch (outcome) {
    case Outcome::Ok:
        return "ok";
    case Outcome::Failed:
        return "failed";
    case Outcome::Skipped:
        break;
    }
    return "skipped";
}

Json jsonOf(const Step& step)
{
    return {{"step", step.name},
            {"outcome", textOf(step.outcome)},
            {"seen", step.seen},
            {"details", step.details},
            {"advice", step.advice}};
}

void print(const Step& step, int number)
{
    std::string name = step.name;
    name.resize(std::max(name.size() + 1, NameWidth), ' ');
    printLine(std::to_string(number) + " " + name + textOf(step.outcome) + ": " + printable(step.seen));
    for (const std::string& detail : step.details)
        printLine("      " + printable(detail));
    for (const std::string& advice : step.advice)
        printLine("      what to do: " + printable(advice));
}

ClientBroker& findBroker(QList<ClientBroker>& brokers, const DiagnoseArguments& arguments)
{
    DeviceConfig config;
    for (const ClientBroker& broker : std::as_const(brokers)) {
        config.brokers.emplace_back();
        config.brokers.back().id = broker.UniqueID;
        config.brokers.back().name = broker.Name.toStdString();
    }
    const EntityReference wanted = findEntity(config, EntityKind::Broker, arguments.broker);
    const auto found = std::find_if(brokers.begin(), brokers.end(),
                                    [&](const ClientBroker& broker) { return broker.UniqueID == wanted.id; });
    if (found == brokers.end())
        throw Failure(ExitCode::Usage, "there is no " + describe(wanted) + " in the configuration");
    return *found;
}

} // namespace

ExitCode diagnose(const DiagnoseArguments& arguments)
{
    std::signal(SIGPIPE, SIG_IGN);
    QList<ClientBroker> brokers = readBrokers(arguments.configDirectory);
    ClientBroker& broker = findBroker(brokers, arguments);
    int number = 0;
    bool hasFailed = false;
    Json steps = Json::array();
    runDiagnosis(broker, arguments, [&](const Step& step) {
        hasFailed |= step.outcome == Outcome::Failed;
        if (arguments.json)
            steps.push_back(jsonOf(step));
        else
            print(step, ++number);
    });
    if (arguments.json)
        printJson({{"broker", broker.UniqueID},
                   {"name", broker.Name.toStdString()},
                   {"connects", !hasFailed},
                   {"steps", steps}});
    return hasFailed ? ExitCode::Failed : ExitCode::Done;
}

} // namespace plcctl
