#include "commands.h"
#include "deviceconfig.h"
#include "output.h"
#include "tagaccess.h"
#include "tagnames.h"

#include "devicepaths.h"

#include <algorithm>
#include <memory>

namespace plcctl {

namespace {

struct RegistrationsArguments
{
    std::string configDirectory = DevicePaths::ConfigurationDirectory;
    bool json = false;
};

struct RegistrationCopy
{
    std::uint32_t id;
    std::vector<HdrOperandData_t> entries;
};

std::vector<RegistrationCopy> copyRegistrations(const TagMemoryImage::Image& image)
{
    std::vector<RegistrationCopy> result;
    for (const TagMemoryImage::Registration& registration : image.registrations) {
        const std::uint32_t id = registration.id.load(std::memory_order_acquire);
        if (id == 0 || id == TagMemoryImage::RegistrationBeingFilled)
            continue;
        const std::size_t count = std::min<std::size_t>(registration.count, TagMemoryImage::MaxEntriesPerRegistration);
        result.push_back({id, {registration.entries, registration.entries + count}});
    }
    std::sort(result.begin(), result.end(), [](const auto& left, const auto& right) { return left.id < right.id; });
    return result;
}

Json describe(const RegistrationCopy& registration, const TagNames& names)
{
    Json entries = Json::array();
    for (const HdrOperandData_t& entry : registration.entries) {
        Json described{{"address", entry.Address}, {"length", entry.length}};
        const std::string name = names.describe(entry.Address, entry.length);
        if (!name.empty())
            described["name"] = name;
        entries.push_back(described);
    }
    return {{"id", registration.id}, {"entries", entries}};
}

void print(const RegistrationCopy& registration, const TagNames& names)
{
    printLine("registration " + std::to_string(registration.id) + ": " + std::to_string(registration.entries.size()) +
              (registration.entries.size() == 1 ? " tag" : " tags"));
    for (const HdrOperandData_t& entry : registration.entries) {
        const std::string name = names.describe(entry.Address, entry.length);
        printLine("  at " + std::to_string(entry.Address) + "  size " + std::to_string(entry.length) +
                  (name.empty() ? "" : "  " + name));
    }
}

ExitCode showRegistrations(const RegistrationsArguments& arguments)
{
    const TagReader reader;
    const TagNames names(readDeviceConfig(arguments.configDirectory, ConfigScope::AllFiles));
    const auto registrations = copyRegistrations(reader.image());
    if (arguments.json) {
        Json list = Json::array();
        for (const RegistrationCopy& registration : registrations)
            list.push_back(describe(registration, names));
        printJson({{"registrations", list}});
        return ExitCode::Done;
    }
    if (registrations.empty())
        printLine("no registrations");
    for (const RegistrationCopy& registration : registrations)
        print(registration, names);
    return ExitCode::Done;
}

} // namespace

void addRegistrationsCommand(CLI::App& app, Action& action)
{
    const auto arguments = std::make_shared<RegistrationsArguments>();
    CLI::App* command = app.add_subcommand("registrations", "List the tags that processes asked to be kept in step");
    command->add_option("--config", arguments->configDirectory, "Configuration files to take names from")
        ->type_name("DIR")
        ->capture_default_str();
    command->add_flag("--json", arguments->json, "Print JSON");
    command->footer("Example:\n  plcctl registrations");
    command->callback([&action, arguments] { action = [arguments] { return showRegistrations(*arguments); }; });
}

} // namespace plcctl
