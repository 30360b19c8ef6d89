#include "commands.h"
#include "configchange.h"
#include "configexchange.h"
#include "reporttext.h"
#include "requestoptions.h"

#include "devicepaths.h"

#include <algorithm>
#include <array>
#include <memory>

namespace plcctl {

namespace {

// Where the search for the room of a record begins that the configuration has no use for.
constexpr std::uint64_t FirstRecordOperand = 2000;

constexpr std::size_t NameWidth = 20; // with the indentation

constexpr std::array Kinds{EntityKind::Broker, EntityKind::Publication, EntityKind::Subscription};

struct ConfigArguments
{
    std::string kind;
    std::string entity;
    std::string recordOperand; // as it was typed; empty if it was left out
    std::vector<std::string> assignments;
    bool showPasswords = false;
    RequestOptions options;
};

EntityKind kindOf(const ConfigArguments& arguments)
{
    return *std::find_if(Kinds.begin(), Kinds.end(),
                         [&arguments](EntityKind kind) { return arguments.kind == nameOf(kind); });
}

Secrets secretsOf(const ConfigArguments& arguments)
{
    return arguments.showPasswords ? Secrets::Shown : Secrets::Hidden;
}

ConfigPlaces choosePlaces(const ConfigArguments& arguments, const DeviceConfig& config, std::size_t recordSize)
{
    TagNames names(config);
    ConfigPlaces places{0, 0, arguments.recordOperand.empty()};
    const auto placeRecord = [&] {
        places.record = placeInOperands(arguments.recordOperand, FirstRecordOperand, recordSize, names, "the record");
        requireInside(places.record, recordSize);
        names.add(places.record, recordSize, "the record");
    };
    // What was typed has its place; what was left out keeps clear of it.
    if (!places.isRecordScratch)
        placeRecord();
    places.status = statusPlace(arguments.options, names);
    names.add(places.status, 1, "the status byte");
    if (places.isRecordScratch)
        placeRecord();
    if (places.status >= places.record && places.status - places.record < recordSize)
        throw Failure(ExitCode::Usage, "the status byte would lie within the record; nothing was sent");
    return places;
}

Json head(const EntityReference& entity)
{
    return {{"kind", nameOf(entity.kind)}, {"id", entity.id}, {"name", entity.name}};
}

void printEnd(Json object, int code)
{
    object["result"] = codeJson(CodeDomain::RequestStatus, code);
    printJson(object);
}

std::string fieldLine(const RecordField& field, const std::string& text)
{
    std::string name = std::string("  ") + field.name;
    name.resize(std::max(name.size() + 1, NameWidth), ' ');
    return name + text;
}

[[noreturn]] void failWith(const EntityReference& entity, int code, const std::string& advice)
{
    throw Failure(exitCodeOf(code), describe(entity) + ": " + describe(CodeDomain::RequestStatus, code) + advice);
}

// A command at work: what its arguments mean, and the requests.
struct Session
{
    // The record as the service reports it.
    [[nodiscard]] ConfigRecord readBack()
    {
        const ReadBack answer = exchange.readBack();
        if (answer.record)
            return *answer.record;
        if (arguments.options.json)
            printEnd(head(entity), answer.code);
        failWith(entity, answer.code, "");
    }

    const ConfigArguments& arguments;
    DeviceConfig config;
    EntityReference entity;
    ConfigPlaces places;
    ConfigExchange exchange;
};

Session openSession(const ConfigArguments& arguments)
{
    DeviceConfig config = readDeviceConfig(arguments.options.configDirectory, ConfigScope::AllFiles);
    const EntityReference entity = findEntity(config, kindOf(arguments), arguments.entity);
    const ConfigPlaces places = choosePlaces(arguments, config, configRecordSize(entity.kind));
    return {arguments, std::move(config), entity, places,
            ConfigExchange(entity, places, arguments.options.timeoutSeconds)};
}

Json recordJson(const Session& session, const ConfigRecord& record)
{
    Json object = head(session.entity);
    object["recordOperand"] = *operandOf(session.places.record);
    Json& fields = object["fields"] = Json::object();
    Json& unterminated = object["unterminated"] = Json::array();
    for (const RecordField& field : configFields(record.kind())) {
        fields[field.name] = fieldJson(record, field, secretsOf(session.arguments));
        if (field.kind == FieldKind::Text && !record.isTerminated(field))
            unterminated.push_back(field.name);
    }
    return object;
}

ExitCode getConfig(const ConfigArguments& arguments)
{
    Session session = openSession(arguments);
    const ConfigRecord record = session.readBack();
    if (arguments.options.json) {
        printEnd(recordJson(session, record), SC_AC_OK);
        return ExitCode::Done;
    }
    printLine(describe(session.entity) + ", read back at " + describePosition(session.places.record));
    for (const RecordField& field : configFields(record.kind()))
        printLine(fieldLine(field, fieldText(record, field, secretsOf(arguments))));
    return ExitCode::Done;
}

bool isSame(const ConfigChange& change, const RecordField& field)
{
    return fieldJson(change.before(), field, Secrets::Shown) == fieldJson(change.after(), field, Secrets::Shown);
}

std::string changeText(const ConfigChange& change, const RecordField& field, Secrets secrets)
{
    if (isSame(change, field))
        return "unchanged";
    if (field.isSecret && secrets == Secrets::Hidden)
        return "changed";
    return fieldText(change.before(), field, secrets) + " -> " + fieldText(change.after(), field, secrets);
}

Json changeJson(const ConfigChange& change, const RecordField& field, Secrets secrets)
{
    const bool isHidden = field.isSecret && secrets == Secrets::Hidden;
    return {{"field", field.name},
            {"changed", !isSame(change, field)},
            {"old", isHidden ? Json(nullptr) : fieldJson(change.before(), field, secrets)},
            {"new", isHidden ? Json(nullptr) : fieldJson(change.after(), field, secrets)}};
}

void printChanges(const Session& session, const ConfigChange& change, int code)
{
    const Secrets secrets = secretsOf(session.arguments);
    if (session.arguments.options.json) {
        Json object = head(session.entity);
        Json& changes = object["changes"] = Json::array();
        for (const FieldAssignment& assignment : change.assignments())
            changes.push_back(changeJson(change, *assignment.field, secrets));
        return printEnd(object, code);
    }
    if (code != SC_AC_OK)
        return;
    printLine(describe(session.entity) + " is set; `plcctl request start` makes the service use it");
    for (const FieldAssignment& assignment : change.assignments())
        printLine(fieldLine(*assignment.field, changeText(change, *assignment.field, secrets)));
}

[[noreturn]] void failToSet(const Session& session, const ConfigExchange::SetAnswer& answer)
{
    if (answer.isFirstPartTaken) {
        failWith(session.entity, answer.code,
                 "; this is about the record's second part, from Password on: the first part is in the file, and the "
                 "second isn't");
    }
    failWith(session.entity, answer.code,
             answer.code == SC_AC_ERROR_NOT_PAUSED ? ": `plcctl request pause` first; nothing was changed"
                                                   : "; nothing was changed");
}

// A service that finds no entity to change in its file answers "done" all the same.
void requireInFile(const Session& session, const ConfigChange& change)
{
    const std::string& directory = session.arguments.options.configDirectory;
    if (directory != DevicePaths::ConfigurationDirectory)
        return;
    const DeviceConfig written = readDeviceConfig(directory, ConfigScope::AllFiles);
    if (change.isIn(attributesOf(written, session.entity.kind, session.entity.id)))
        return;
    throw Failure(ExitCode::Failed, std::string("the service answered that it is done, but ") +
                                        configFileName(session.entity.kind) +
                                        " doesn't hold the record: the next start takes what the file has");
}

ExitCode setConfig(const ConfigArguments& arguments)
{
    const std::vector<FieldAssignment> assignments = parseAssignments(kindOf(arguments), arguments.assignments);
    Session session = openSession(arguments);
    const ConfigChange change(session.readBack(), attributesOf(session.config, session.entity.kind, session.entity.id),
                              assignments);
    const ConfigExchange::SetAnswer answer = session.exchange.set(change.after());
    printChanges(session, change, answer.code);
    if (answer.code != SC_AC_OK)
        failToSet(session, answer);
    requireInFile(session, change);
    return ExitCode::Done;
}

std::vector<std::string> kindNames()
{
    std::vector<std::string> names(Kinds.size());
    std::transform(Kinds.begin(), Kinds.end(), names.begin(), nameOf);
    return names;
}

std::string settableFields()
{
    std::string text;
    for (const EntityKind kind : Kinds) {
        std::string line = std::string("  ") + nameOf(kind) + ":";
        for (const RecordField& field : configFields(kind)) {
            if (field.attribute != nullptr)
                line += std::string(" ") + field.name;
        }
        text += line + "\n";
    }
    return text;
}

CLI::App* addCommand(CLI::App& group, const char* name, const char* help, ConfigArguments& arguments)
{
    CLI::App* command = group.add_subcommand(name, help);
    command->add_option("KIND", arguments.kind, "broker, publication or subscription")
        ->required()
        ->check(CLI::IsMember(kindNames()));
    command->add_option("ID", arguments.entity, "Its unique ID or name")->required();
    command
        ->add_option("--address", arguments.recordOperand,
                     "Where the service writes the record, of 2012 bytes or but for a broker 516; if left out, the "
                     "first room from 2000 up that the configuration doesn't use, put back as it was")
        ->type_name("OPERAND");
    command->add_flag("--show-passwords", arguments.showPasswords, "Print passwords");
    addRequestOptions(*command, arguments.options,
                      {"--status-address,--status",
                       "Byte for the answers; if left out, the first from 1000 up that the configuration doesn't use",
                       "How long to wait for the final answer of each request"});
    return command;
}

void addGet(CLI::App& group, Action& action)
{
    const auto arguments = std::make_shared<ConfigArguments>();
    CLI::App* command =
        addCommand(group, "get", "Print the configuration that the service has of an entity", *arguments);
    command->footer(
        "The record goes through tag memory: the control application must not use the room that it gets.\n"
        "A running service reports as well as a paused one; don't ask while it carries out a start.\n"
        "Topics come with their variables replaced, and a client identifier that the file leaves out as it\n"
        "was made up. ReconnectTrials are the seconds between connection attempts. Encryption is never\n"
        "reported.\n"
        "Examples:\n"
        "  plcctl config get broker plant\n"
        "  plcctl config get publication 2 --json");
    command->callback([&action, arguments] { action = [arguments] { return getConfig(*arguments); }; });
}

void addSet(CLI::App& group, Action& action)
{
    const auto arguments = std::make_shared<ConfigArguments>();
    CLI::App* command = addCommand(
        group, "set", "Change fields of an entity's configuration, in its file and in the paused service", *arguments);
    command->add_option("FIELD=VALUE", arguments->assignments, "Fields by their names, in any case, and their values")
        ->required();
    command->footer(
        "Fields:\n" + settableFields() +
        "Only while the service is paused: `plcctl request pause` before, and `plcctl request start`\n"
        "afterwards, which reads the files. The other fields keep what stands in the file, variables too.\n"
        "Until the start `config get` shows variables as they stand, and of a broker each character beyond\n"
        "ASCII as several ones; the file is right. Encryption is read from the file only. A broker goes in\n"
        "two requests; don't set two brokers at the same time: the second half of one could reach the\n"
        "other. A password on the command line shows in the list of processes.\n"
        "Examples:\n"
        "  plcctl config set broker plant Port=8883 Username=line-1\n"
        "  plcctl config set subscription 7 Topic=plant/+/alarm QoS=1\n"
        "  plcctl config set publication 2 Retained=true --json");
    command->callback([&action, arguments] { action = [arguments] { return setConfig(*arguments); }; });
}

} // namespace

void addConfigCommands(CLI::App& app, Action& action)
{
    CLI::App* group = app.add_subcommand("config", "Read and change the service's configuration by requests");
    group->require_subcommand(1);
    group->footer("Ends with the statuses of `plcctl request`: 104 says that the service isn't paused.\n"
                  "Examples:\n"
                  "  plcctl config get broker plant\n"
                  "  plcctl config set broker plant Port=8883");
    addGet(*group, action);
    addSet(*group, action);
}

} // namespace plcctl
