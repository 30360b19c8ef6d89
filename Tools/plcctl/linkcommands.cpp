#include "commands.h"
#include "output.h"
#include "Records/linkstates.h"
#include "tagaccess.h"

#include <memory>

namespace plcctl {

namespace {

struct EthernetPort
{
    int number;
    std::uint64_t position; // of the link-state byte
};

constexpr std::array Ports{EthernetPort{1, LinkStatePositions[0]}, EthernetPort{2, LinkStatePositions[1]}};
constexpr std::uint8_t LinkUp = 1;
constexpr std::uint8_t LinkDown = 0;

struct LinkArguments
{
    std::optional<int> port;
    bool json = false;
};

using Arguments = std::shared_ptr<LinkArguments>;

bool isMeant(const LinkArguments& arguments, const EthernetPort& port)
{
    return !arguments.port || *arguments.port == port.number;
}

ExitCode setLinks(const LinkArguments& arguments, std::uint8_t state)
{
    for (const EthernetPort& port : Ports) {
        if (isMeant(arguments, port))
            writeTag(port.position, {&state, 1});
    }
    return ExitCode::Done;
}

ExitCode showLinks(const LinkArguments& arguments)
{
    const TagReader reader;
    Json list = Json::array();
    for (const EthernetPort& port : Ports) {
        if (!isMeant(arguments, port))
            continue;
        const std::uint8_t byte = reader.read(port.position, 1).front();
        list.push_back({{"port", port.number}, {"position", port.position}, {"up", byte == LinkUp}, {"byte", byte}});
        if (arguments.json)
            continue;
        const std::string odd = byte > LinkUp ? " (the byte is " + std::to_string(byte) + ", and only 1 is up)" : "";
        printLine("port " + std::to_string(port.number) + ": " + (byte == LinkUp ? "up" : "down") + odd);
    }
    if (arguments.json)
        printJson({{"ports", list}});
    return ExitCode::Done;
}

Arguments addPort(CLI::App& command)
{
    auto arguments = std::make_shared<LinkArguments>();
    command.add_option("--port", arguments->port, "Only this port; both without it")
        ->type_name("1|2")
        ->check(CLI::Range(1, 2));
    return arguments;
}

} // namespace

void addLinkCommands(CLI::App& app, Action& action)
{
    CLI::App* group = app.add_subcommand("link", "Raise, drop and show the links of the Ethernet ports");
    group->require_subcommand(1);
    group->footer("The service connects only while at least one link is up. Tag memory is created if it is missing.\n"
                  "Example:\n  plcctl link up");

    const auto addSetter = [&](const char* name, const char* description, std::uint8_t state) {
        CLI::App* command = group->add_subcommand(name, description);
        const Arguments arguments = addPort(*command);
        command->footer(std::string("Example:\n  plcctl link ") + name + " --port 1");
        command->callback(
            [&action, arguments, state] { action = [arguments, state] { return setLinks(*arguments, state); }; });
    };
    addSetter("up", "Report the links as up", LinkUp);
    addSetter("down", "Report the links as down", LinkDown);

    CLI::App* show = group->add_subcommand("show", "Print the state of the links");
    const Arguments arguments = addPort(*show);
    show->add_flag("--json", arguments->json, "Print JSON");
    show->footer("Example:\n  plcctl link show --json");
    show->callback([&action, arguments] { action = [arguments] { return showLinks(*arguments); }; });
}

} // namespace plcctl
