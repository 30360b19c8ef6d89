#include "commands.h"
#include "deviceconfig.h"
#include "journalcursor.h"
#include "output.h"
#include "tagaccess.h"
#include "tagnames.h"
#include "watchloop.h"

#include "devicepaths.h"

#include <algorithm>
#include <deque>
#include <memory>

namespace plcctl {

namespace {

constexpr auto FollowInterval = std::chrono::milliseconds(20);
constexpr auto UnfinishedInterval = std::chrono::milliseconds(1);

struct JournalArguments
{
    bool follow = false;
    bool operand = false;
    bool json = false;
    std::optional<std::uint64_t> last;
    std::optional<std::uint64_t> from;
    std::optional<std::uint64_t> count;
    std::optional<double> seconds;
    std::string at;
    std::string configDirectory = DevicePaths::ConfigurationDirectory;
};

// The bytes that --at asks for.
struct Range
{
    std::uint64_t position;
    std::uint64_t size;
};

std::optional<Range> wantedRange(const JournalArguments& arguments)
{
    if (arguments.at.empty())
        return std::nullopt;
    const std::size_t colon = arguments.at.find(':');
    const std::uint64_t position = parsePosition(arguments.at.substr(0, colon), arguments.operand);
    const std::uint64_t size = colon == std::string::npos ? 1 : parsePosition(arguments.at.substr(colon + 1), false);
    if (size == 0)
        throw Failure(ExitCode::Usage, "--at needs a size of at least 1");
    requireInside(position, size);
    return Range{position, size};
}

// Says what each write is, and prints it.
class JournalPrinter
{
public:
    JournalPrinter(const JournalArguments& arguments, const DeviceConfig& config)
        : m_names(config), m_range(wantedRange(arguments)), m_limit(arguments.count), m_json(arguments.json)
    {
    }

    [[nodiscard]] bool wants(const JournalCursor::Step& step) const
    {
        if (!step.write || !m_range)
            return true;
        return step.write->position < m_range->position + m_range->size &&
               m_range->position < step.write->position + step.write->size;
    }

    // False once as many writes were printed as were asked for.
    [[nodiscard]] bool print(const JournalCursor::Step& step)
    {
        if (!step.write) {
            printLost(step.lost);
            return true;
        }
        if (m_json)
            printWriteJson(*step.write);
        else
            printWrite(*step.write);
        ++m_printed;
        return !m_limit || m_printed < *m_limit;
    }

private:
    void printLost(std::uint64_t count) const
    {
        if (m_json)
            printJson({{"lost", count}});
        else
            printLine("... " + std::to_string(count) + (count == 1 ? " write lost" : " writes lost"));
    }

    [[nodiscard]] static std::span<const std::uint8_t> keptBytes(const TagMemoryImage::Write& write)
    {
        return std::span(write.bytes).first(std::min<std::size_t>(write.size, write.bytes.size()));
    }

    void printWrite(const TagMemoryImage::Write& write) const
    {
        const auto bytes = keptBytes(write);
        const bool cut = bytes.size() < write.size;
        std::string line = "#" + std::to_string(write.number) + "  " + localTime(write.timeNanoseconds) + "  pid " +
                           std::to_string(write.processId) + "  at " + describePosition(write.position) + "  size " +
                           std::to_string(write.size) + "  " + hexBytes(bytes) + (cut ? " ..." : "") + "  |" +
                           asciiBytes(bytes) + "|";
        const std::string name = m_names.describe(write.position, write.size);
        if (!name.empty())
            line += "  " + name;
        printLine(line);
    }

    void printWriteJson(const TagMemoryImage::Write& write) const
    {
        Json line{{"number", write.number},
                  {"time", utcTime(write.timeNanoseconds)},
                  {"processId", write.processId},
                  {"position", write.position}};
        if (const auto operand = operandOf(write.position))
            line["operand"] = *operand;
        line["size"] = write.size;
        line["bytes"] = hexBytes(keptBytes(write), "");
        const std::string name = m_names.describe(write.position, write.size);
        if (!name.empty())
            line["name"] = name;
        printJson(line);
    }

    TagNames m_names;
    std::optional<Range> m_range;
    std::optional<std::uint64_t> m_limit;
    std::uint64_t m_printed = 0;
    bool m_json;
};

// Calls `use` for each step that is wanted, up to the writes that there are now. False if `use` or the loop ended it.
template<typename Use>
bool walk(JournalCursor& cursor, std::uint64_t end, const JournalPrinter& printer, WatchLoop& loop, Use use)
{
    while (cursor.next() < end) {
        const auto step = cursor.step();
        if (!step) {
            if (!loop.pause(UnfinishedInterval))
                return false;
        } else if (printer.wants(*step) && !use(*step)) {
            return false;
        }
    }
    return true;
}

// Prints the last `count` wanted writes of those before `end`. False if that was the end of the command.
bool printLast(JournalCursor& cursor, std::uint64_t end, std::uint64_t count, JournalPrinter& printer, WatchLoop& loop)
{
    std::deque<JournalCursor::Step> kept;
    const bool complete = walk(cursor, end, printer, loop, [&](const JournalCursor::Step& step) {
        if (step.write)
            kept.push_back(step);
        if (kept.size() > count)
            kept.pop_front();
        return true;
    });
    return complete &&
           std::all_of(kept.begin(), kept.end(), [&](const JournalCursor::Step& step) { return printer.print(step); });
}

std::uint64_t firstNumber(const JournalArguments& arguments, const TagMemoryImage::Image& image, std::uint64_t end)
{
    if (arguments.from)
        return *arguments.from;
    return arguments.follow && !arguments.last ? end : oldestWrite(image);
}

ExitCode showJournal(const JournalArguments& arguments)
{
    // Names are a help, not the point: what a broken file leaves out is missing without a word.
    JournalPrinter printer(arguments, readDeviceConfig(arguments.configDirectory, ConfigScope::AllFiles));
    const TagReader reader;
    WatchLoop loop(arguments.seconds);
    const auto print = [&](const JournalCursor::Step& step) { return printer.print(step); };

    std::uint64_t end = writesEver(reader.image());
    JournalCursor cursor(reader.image(), firstNumber(arguments, reader.image(), end));
    bool goOn = arguments.last ? printLast(cursor, end, *arguments.last, printer, loop)
                               : walk(cursor, end, printer, loop, print);
    while (arguments.follow && goOn && loop.pause(FollowInterval)) {
        end = writesEver(reader.image());
        goOn = walk(cursor, end, printer, loop, print);
    }
    return ExitCode::Done;
}

} // namespace

void addJournalCommand(CLI::App& app, Action& action)
{
    const auto arguments = std::make_shared<JournalArguments>();
    CLI::App* command = app.add_subcommand("journal", "List the writes to tag memory in their order");
    auto* follow = command->add_flag("--follow", arguments->follow,
                                     "Go on with new writes until Ctrl-C; without --last or --from only new ones");
    auto* last = command->add_option("--last", arguments->last, "Begin with the last N writes")->type_name("N");
    command->add_option("--from", arguments->from, "Begin with the write of this number")
        ->type_name("NUMBER")
        ->excludes(last);
    command->add_option("--at", arguments->at, "Only writes that touch these bytes; SIZE is 1 if left out")
        ->type_name("ADDR[:SIZE]");
    command->add_flag("--operand", arguments->operand, "The address of --at is an operand address");
    command->add_option("--for", arguments->seconds, "End after this time")
        ->type_name("SECONDS")
        ->check(CLI::Range(0.0, 1e9))
        ->needs(follow);
    command->add_option("--count", arguments->count, "End after N writes")->type_name("N")->check(CLI::PositiveNumber);
    command->add_option("--config", arguments->configDirectory, "Configuration files to take names from")
        ->type_name("DIR")
        ->capture_default_str();
    command->add_flag("--json", arguments->json, "Print one JSON object a line");
    command->footer("The journal keeps the last 65536 writes, and of each the first 32 bytes.\n"
                    "Writes that were overwritten before they could be read are counted as lost.\n"
                    "Ends with status 0 at whichever limit comes first.\n"
                    "Examples:\n"
                    "  plcctl journal --last 20\n"
                    "  plcctl journal --follow --at 4096:4 --for 10");
    command->callback([&action, arguments] { action = [arguments] { return showJournal(*arguments); }; });
}

} // namespace plcctl
