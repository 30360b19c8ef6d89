#include "commands.h"
#include "output.h"
#include "tagaccess.h"
#include "tagtypes.h"
#include "watchloop.h"

#include <algorithm>
#include <memory>

namespace plcctl {

namespace {

// A text without --length is read up to its terminator, and no further than this many characters.
constexpr std::size_t LongestUnknownText = 1024;

struct TagArguments
{
    std::string address;
    std::string typeName;
    std::vector<std::string> values;
    std::optional<unsigned> count;
    std::optional<unsigned> length;
    bool operand = false;
    bool json = false;
    unsigned intervalMilliseconds = 100;
    std::optional<double> seconds;
    std::optional<unsigned> changes;
};

// What a command reads or writes, worked out from its arguments.
struct TagPlace
{
    const TagType* type;
    std::uint64_t position;
    std::size_t size; // bytes to read
};

const TagType& requireType(const std::string& name)
{
    if (const TagType* type = findTagType(name))
        return *type;
    throw Failure(ExitCode::Usage, inQuotes(name) + " is no type of tag; there are " + tagTypeNames());
}

std::size_t bytesToRead(const TagType& type, std::uint64_t position, const TagArguments& arguments)
{
    if (type.kind != TagKind::Text) {
        if (arguments.length)
            throw Failure(ExitCode::Usage, std::string("--length is for texts; say --count for a ") + type.name);
        return std::size_t{arguments.count.value_or(1)} * type.unitSize;
    }
    if (arguments.count)
        throw Failure(ExitCode::Usage, std::string("there are no arrays of ") + type.name + "; say --length");
    if (arguments.length)
        return (std::size_t{*arguments.length} + 1) * type.unitSize;
    const std::size_t room = std::min<std::uint64_t>(bytesFrom(position), LongestUnknownText * type.unitSize);
    return std::max<std::size_t>(room - room % type.unitSize, type.unitSize);
}

TagPlace placeToRead(const TagArguments& arguments)
{
    const TagType& type = requireType(arguments.typeName);
    const std::uint64_t position = parsePosition(arguments.address, arguments.operand);
    const std::size_t size = bytesToRead(type, position, arguments);
    if (size > MaxTagBytes)
        throw Failure(ExitCode::Usage, "a tag has at most " + std::to_string(MaxTagBytes) + " bytes");
    requireInside(position, size);
    return {&type, position, size};
}

Json describeTag(const TagPlace& place, std::span<const std::uint8_t> bytes, bool array)
{
    Json result{{"position", place.position}};
    if (const auto operand = operandOf(place.position))
        result["operand"] = *operand;
    result["type"] = place.type->name;
    result["value"] = jsonFromBytes(*place.type, bytes, array);
    return result;
}

ExitCode getTag(const TagArguments& arguments)
{
    const TagPlace place = placeToRead(arguments);
    const auto bytes = TagReader().read(place.position, place.size);
    if (arguments.json)
        printJson(describeTag(place, bytes, arguments.count.has_value()));
    else
        printLine(textFromBytes(*place.type, bytes));
    return ExitCode::Done;
}

ExitCode setTag(const TagArguments& arguments)
{
    const TagType& type = requireType(arguments.typeName);
    const std::uint64_t position = parsePosition(arguments.address, arguments.operand);
    writeTag(position, bytesFromText(type, arguments.values, arguments.length));
    return ExitCode::Done;
}

void printWatched(const TagPlace& place, std::span<const std::uint8_t> bytes, const TagArguments& arguments)
{
    const std::int64_t now = nowNanoseconds();
    if (!arguments.json)
        return printLine(localTime(now) + "  " + textFromBytes(*place.type, bytes));
    Json line{{"time", utcTime(now)}};
    line.update(describeTag(place, bytes, arguments.count.has_value()));
    printJson(line);
}

ExitCode watchTag(const TagArguments& arguments)
{
    const TagPlace place = placeToRead(arguments);
    const TagReader reader;
    WatchLoop loop(arguments.seconds);

    auto shown = reader.read(place.position, place.size);
    printWatched(place, shown, arguments);
    unsigned changes = 0;
    while ((!arguments.changes || changes < *arguments.changes) &&
           loop.pause(std::chrono::milliseconds(arguments.intervalMilliseconds))) {
        auto current = reader.read(place.position, place.size);
        // The shown form decides: what lies behind a text's terminator isn't part of its value.
        if (textFromBytes(*place.type, current) == textFromBytes(*place.type, shown))
            continue;
        shown = std::move(current);
        printWatched(place, shown, arguments);
        ++changes;
    }
    return ExitCode::Done;
}

using Arguments = std::shared_ptr<TagArguments>;

void addPlace(CLI::App& command, const Arguments& arguments)
{
    command.add_option("ADDR", arguments->address, "Position as configuration files use it, decimal or with 0x")
        ->required();
    command.add_option("TYPE", arguments->typeName, tagTypeNames())->required();
    command.add_flag("--operand", arguments->operand, "ADDR is an operand address");
}

void addExtent(CLI::App& command, const Arguments& arguments)
{
    auto* count = command.add_option("--count", arguments->count, "Elements of an array, or number of BYTES");
    auto* length = command.add_option("--length", arguments->length, "Characters of a text, without its terminator");
    count->type_name("N")->check(CLI::PositiveNumber)->excludes(length);
    length->type_name("N")->check(CLI::NonNegativeNumber);
    command.add_flag("--json", arguments->json, "Print JSON");
}

void addGet(CLI::App& group, Action& action)
{
    const auto arguments = std::make_shared<TagArguments>();
    CLI::App* command = group.add_subcommand("get", "Print the value of a tag");
    addPlace(*command, arguments);
    addExtent(*command, arguments);
    command->footer("A BOOL is true if its byte is 1. Control characters of a text are shown as \\n, \\t or \\xNN;\n"
                    "--json gives the text as it is.\n"
                    "Examples:\n"
                    "  plcctl tag get 2048 REAL\n"
                    "  plcctl tag get 0x900 INT32 --count 4\n"
                    "  plcctl tag get --operand 100 STR16 --length 20");
    command->callback([&action, arguments] { action = [arguments] { return getTag(*arguments); }; });
}

void addSet(CLI::App& group, Action& action)
{
    const auto arguments = std::make_shared<TagArguments>();
    CLI::App* command = group.add_subcommand("set", "Write the value of a tag");
    addPlace(*command, arguments);
    command->add_option("VALUE", arguments->values, "The value; several make an array, written at once")->required();
    command
        ->add_option("--length", arguments->length,
                     "Characters of the text's tag, without its terminator; the rest is zeroed")
        ->type_name("N")
        ->check(CLI::NonNegativeNumber);
    command->footer(
        "Without --length a text is written with its terminator and nothing behind it.\n"
        "A value that begins with '-' and a letter or point comes after '--'. Tag memory is created if it is missing.\n"
        "Examples:\n"
        "  plcctl tag set 2048 REAL 21.5\n"
        "  plcctl tag set 0x900 INT32 1 -2 3 0x10\n"
        "  plcctl tag set 4096 STR8 'pump running' --length 20\n"
        "  plcctl tag set 4200 BYTES 01ff 'a0 a1'\n"
        "  plcctl tag set 2048 REAL -- -inf");
    command->callback([&action, arguments] { action = [arguments] { return setTag(*arguments); }; });
}

void addWatch(CLI::App& group, Action& action)
{
    const auto arguments = std::make_shared<TagArguments>();
    CLI::App* command = group.add_subcommand("watch", "Print a tag's value now and whenever it changes, until Ctrl-C");
    addPlace(*command, arguments);
    addExtent(*command, arguments);
    command->add_option("--interval", arguments->intervalMilliseconds, "Milliseconds between two looks")
        ->type_name("MS")
        ->check(CLI::Range(1, 3'600'000))
        ->capture_default_str();
    command->add_option("--for", arguments->seconds, "End after this time")
        ->type_name("SECONDS")
        ->check(CLI::Range(0.0, 1e9));
    command->add_option("--count-changes", arguments->changes, "End after this many changes; the first value is none")
        ->type_name("N")
        ->check(CLI::PositiveNumber);
    command->footer("A change that is undone between two looks isn't seen; `plcctl journal` misses none.\n"
                    "Ends with status 0 at whichever limit comes first.\n"
                    "Example:\n"
                    "  plcctl tag watch 2048 REAL --interval 20 --for 10");
    command->callback([&action, arguments] { action = [arguments] { return watchTag(*arguments); }; });
}

} // namespace

void addTagCommands(CLI::App& app, Action& action)
{
    CLI::App* group = app.add_subcommand("tag", "Read, write and watch tags by type");
    group->require_subcommand(1);
    group->footer("Example:\n  plcctl tag get 2048 REAL");
    addGet(*group, action);
    addSet(*group, action);
    addWatch(*group, action);
}

} // namespace plcctl
