#include "commands.h"
#include "deviceconfig.h"
#include "entities.h"
#include "messagetaker.h"
#include "watchloop.h"

#include "devicepaths.h"

#include <algorithm>
#include <iterator>
#include <memory>

namespace plcctl {

namespace {

constexpr auto LookInterval = std::chrono::milliseconds(5);

struct AppArguments
{
    std::string subscription;
    unsigned delayMilliseconds = 100;
    unsigned everyMilliseconds = 0;
    std::optional<double> seconds;
    std::optional<unsigned> messages;
    bool json = false;
    std::string configDirectory = DevicePaths::ConfigurationDirectory;
};

using Takers = std::vector<MessageTaker>;

// Lets all follow the journal to its present end. False while a write on the way isn't whole.
bool followJournal(JournalCursor& cursor, const TagReader& reader, Takers& takers, std::int64_t notBefore = 0)
{
    const std::uint64_t end = writesEver(reader.image());
    while (cursor.next() < end) {
        const auto step = cursor.step();
        if (!step)
            return false;
        if (step->write && step->write->timeNanoseconds < notBefore)
            continue;
        for (MessageTaker& taker : takers)
            taker.follow(*step);
    }
    return true;
}

void readTheRecords(Takers& takers)
{
    for (MessageTaker& taker : takers)
        taker.readTheRecord();
}

std::vector<SubscriptionEntry> wantedSubscriptions(const DeviceConfig& config, const std::string& wanted)
{
    std::vector<SubscriptionEntry> result;
    if (wanted.empty()) {
        std::copy_if(config.subscriptions.begin(), config.subscriptions.end(), std::back_inserter(result),
                     [](const SubscriptionEntry& entry) { return entry.buffered; });
        if (result.empty())
            throw Failure(ExitCode::NothingToRead, "the configuration has no buffered subscription");
        return result;
    }
    const EntityReference entity = findEntity(config, EntityKind::Subscription, wanted);
    std::copy_if(config.subscriptions.begin(), config.subscriptions.end(), std::back_inserter(result),
                 [&entity](const SubscriptionEntry& entry) { return entry.id == entity.id; });
    if (result.empty())
        throw Failure(ExitCode::Usage, "the configuration has no " + describe(entity));
    if (!result.front().buffered) {
        throw Failure(ExitCode::Usage, describe(entity) + " isn't buffered (IsBuffered): its messages go straight to "
                                                          "the tag, and nothing waits for its received bit");
    }
    result.resize(1);
    return result;
}

ExitCode playApplication(const AppArguments& arguments)
{
    const DeviceConfig config = readDeviceConfig(arguments.configDirectory, ConfigScope::StatusRecords);
    for (const FileProblem& problem : config.problems)
        printNote(printable(problem.file) + ": " + printable(problem.text));
    const std::vector<SubscriptionEntry> subscriptions = wantedSubscriptions(config, arguments.subscription);
    const TagReader reader;
    const TakerSchedule schedule{std::chrono::milliseconds(arguments.delayMilliseconds),
                                 std::chrono::milliseconds(arguments.everyMilliseconds)};
    Takers takers;
    for (const SubscriptionEntry& subscription : subscriptions)
        takers.emplace_back(reader, subscription, schedule, arguments.json);

    WatchLoop loop(arguments.seconds);
    JournalCursor cursor(reader.image(), oldestWrite(reader.image()));
    readTheRecords(takers);
    const auto patience = std::chrono::duration_cast<std::chrono::nanoseconds>(Handshake::Patience);
    while (!followJournal(cursor, reader, takers, nowNanoseconds() - patience.count())) {
        if (!loop.pause(LookInterval))
            return ExitCode::Done;
    }
    for (MessageTaker& taker : takers)
        taker.begin();

    unsigned taken = 0;
    while (loop.pause(LookInterval)) {
        readTheRecords(takers);
        if (!followJournal(cursor, reader, takers))
            continue;
        for (MessageTaker& taker : takers)
            taken += taker.look();
        if (arguments.messages && taken >= *arguments.messages)
            break;
        for (MessageTaker& taker : takers)
            taker.askIfDue();
    }
    return ExitCode::Done;
}

} // namespace

void addAppCommand(CLI::App& app, Action& action)
{
    const auto arguments = std::make_shared<AppArguments>();
    CLI::App* command = app.add_subcommand("app", "Play the control application: take buffered messages one by one");
    command->add_option("SUBSCRIPTION", arguments->subscription, "ID or name; all buffered ones if left out");
    command
        ->add_option("--delay", arguments->delayMilliseconds, "Milliseconds from a message's waiting to asking for it")
        ->type_name("MS")
        ->check(CLI::Range(0, 3'600'000))
        ->capture_default_str();
    command->add_option("--every", arguments->everyMilliseconds, "Ask for a message at most once in this time")
        ->type_name("MS")
        ->check(CLI::Range(0, 3'600'000));
    command->add_option("--messages", arguments->messages, "End after this many messages")
        ->type_name("N")
        ->check(CLI::PositiveNumber);
    command->add_option("--for", arguments->seconds, "End after this time")
        ->type_name("SECONDS")
        ->check(CLI::Range(0.0, 1e9));
    command->add_option("--config", arguments->configDirectory, "Configuration files that tell where the records lie")
        ->type_name("DIR")
        ->capture_default_str();
    command->add_flag("--json", arguments->json, "Print one JSON object a line");
    command->footer("Writes one byte only: the received bit, 0, when a message waits and none is being handed over;\n"
                    "again at once where a further message that arrives sets it before the hand-over begins.\n"
                    "Ends with status 0 at whichever limit comes first, or at Ctrl-C.\n"
                    "Examples:\n"
                    "  plcctl app\n"
                    "  plcctl app 'work orders' --every 5000 --messages 3 --json");
    command->callback([&action, arguments] { action = [arguments] { return playApplication(*arguments); }; });
}

} // namespace plcctl
