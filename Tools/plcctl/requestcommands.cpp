#include "answerreport.h"
#include "commands.h"
#include "deviceconfig.h"
#include "output.h"
#include "requestexchange.h"
#include "requestoptions.h"
#include "tagtypes.h"

#include "Records/requestrecords.h"

#include <array>
#include <memory>

namespace plcctl {

namespace {

constexpr char TimeoutHelp[] = "How long to wait for the final answer; 0 doesn't wait";

struct RequestKind
{
    const char* name;
    RequestOpcode opcode;
    std::optional<EntityKind> entity;
    const char* help;
    const char* example; // what stands behind the name in the example
};

constexpr std::array RequestKinds{
    RequestKind{"subscribe", MRO_SUBSCRIBE_TO_TOPIC, EntityKind::Subscription, "Subscribe one subscription", " 7"},
    RequestKind{"subscribe-all", MRO_SUBSCRIBE_ALL, EntityKind::Broker, "Subscribe all subscriptions of a broker",
                " plant"},
    RequestKind{"unsubscribe", MRO_UNSUBSCRIBE_FROM_TOPIC, EntityKind::Subscription, "Unsubscribe one subscription",
                " 'maintenance notes'"},
    RequestKind{"unsubscribe-all", MRO_UNSUBSCRIBE_ALL, EntityKind::Broker, "Unsubscribe all subscriptions of a broker",
                " 1"},
    RequestKind{"connect", MRO_CONNECT_BROKER, EntityKind::Broker, "Connect a broker", " 1"},
    RequestKind{"disconnect", MRO_DISCONNECT_BROKER, EntityKind::Broker, "Disconnect a broker", " plant"},
    RequestKind{"send", MRO_SEND_APERIODIC, EntityKind::Publication, "Publish a publication without a period now",
                " 'operator message'"},
    RequestKind{"publish-state", MRO_SET_PUBLISH_STATE, EntityKind::Publication,
                "Switch the timed publishing of a periodic publication", " 2 off"},
    RequestKind{"pause", MRO_PAUSE, std::nullopt, "Pause the service", ""},
    RequestKind{"start", MRO_START, std::nullopt, "Start the paused service with its configuration read anew", ""},
};

struct RequestArguments
{
    std::string entity;
    std::string publishState;
    RequestOptions options;
};

struct RawArguments
{
    RequestOptions options;
    std::uint16_t opcode = 0;
    std::optional<std::uint16_t> id;
    std::optional<std::uint32_t> statusAddress;
    std::uint16_t mainOpcode = 0;
    std::string payload;
    std::optional<std::size_t> length;
};

ExitCode send(const PlannedRequest& request)
{
    const RequestQueue queue = RequestQueue::forSending();
    const std::vector<std::uint8_t> message = encode(request.message);
    if (!request.statusPosition || request.timeoutSeconds == 0) {
        queue.send(message);
        AnswerReport(request, 0).end(0);
        return ExitCode::Done;
    }

    RequestExchange exchange(queue, *request.statusPosition);
    AnswerReport report(request, exchange.send(message));
    const bool answered =
        exchange.follow(request.timeoutSeconds, [&report](const Answer& answer) { return report.take(answer); });
    report.end(exchange.lost());
    if (!answered)
        exchange.failWithoutAnswer();
    return exitCodeOf(*report.last());
}

ExitCode sendNamed(const RequestKind& kind, const RequestArguments& arguments)
{
    const DeviceConfig config = readDeviceConfig(arguments.options.configDirectory, ConfigScope::AllFiles);
    PlannedRequest request{
        kind.name, std::nullopt, {}, std::nullopt, arguments.options.timeoutSeconds, arguments.options.json};
    request.message.opcode = kind.opcode;
    if (kind.entity) {
        request.entity = findEntity(config, *kind.entity, arguments.entity);
        request.message.id = request.entity->id;
    }
    request.message.publishState = arguments.publishState == "on" ? 1 : 0;
    request.statusPosition = statusPlace(arguments.options, TagNames(config));
    request.message.statusOperand = static_cast<std::uint32_t>(*operandOf(*request.statusPosition));
    return send(request);
}

ExitCode sendRaw(const RawArguments& arguments)
{
    if (arguments.id && !hasId(arguments.opcode))
        throw Failure(ExitCode::Usage, "a record with this opcode has no place for --id");
    const bool statusGiven = arguments.statusAddress || !arguments.options.statusOperand.empty();
    if (statusGiven && !hasStatusOperand(arguments.opcode))
        throw Failure(ExitCode::Usage, "a record with this opcode has no place for a status address");

    PlannedRequest request{"opcode " + std::to_string(arguments.opcode),
                           std::nullopt,
                           {},
                           std::nullopt,
                           arguments.options.timeoutSeconds,
                           arguments.options.json};
    request.message = {
        arguments.mainOpcode, arguments.opcode, arguments.id.value_or(0), 0, arguments.statusAddress.value_or(0), {},
        arguments.length};
    if (!arguments.payload.empty())
        request.message.payload = bytesFromText(*findTagType("BYTES"), std::array{arguments.payload}, std::nullopt);
    if (!arguments.options.statusOperand.empty()) {
        const DeviceConfig config = readDeviceConfig(arguments.options.configDirectory, ConfigScope::AllFiles);
        request.statusPosition = statusPlace(arguments.options, TagNames(config));
        request.message.statusOperand = static_cast<std::uint32_t>(*operandOf(*request.statusPosition));
    }
    return send(request);
}

void addRequest(CLI::App& group, const RequestKind& kind, Action& action)
{
    const auto arguments = std::make_shared<RequestArguments>();
    CLI::App* command = group.add_subcommand(kind.name, kind.help);
    if (kind.entity)
        command->add_option("ID", arguments->entity, std::string("Unique ID or name of the ") + nameOf(*kind.entity))
            ->required();
    if (kind.opcode == MRO_SET_PUBLISH_STATE)
        command->add_option("STATE", arguments->publishState, "on or off")
            ->required()
            ->check(CLI::IsMember({"on", "off"}));
    addRequestOptions(*command, arguments->options,
                      {"--status",
                       "Byte for the answer; if left out, the first from 1000 up that the configuration doesn't use",
                       TimeoutHelp});
    command->footer(std::string("Example:\n  plcctl request ") + kind.name + kind.example);
    command->callback(
        [&action, &kind, arguments] { action = [&kind, arguments] { return sendNamed(kind, *arguments); }; });
}

void addRaw(CLI::App& group, Action& action)
{
    const auto arguments = std::make_shared<RawArguments>();
    CLI::App* command = group.add_subcommand("raw", "Send a record of any kind, to test what the service makes of it");
    command->add_option("OPCODE", arguments->opcode, "The sub opcode, 0 to 65535")->required();
    command->add_option("--id", arguments->id, "Unique ID")->type_name("N");
    auto* status =
        addRequestOptions(*command, arguments->options,
                          {"--status", "Byte for the answer; without it nothing is waited for", TimeoutHelp});
    command->add_option("--status-address", arguments->statusAddress, "Status address of the record, any 32 bits")
        ->type_name("N")
        ->excludes(status);
    command->add_option("--main", arguments->mainOpcode, "Main opcode")->type_name("N");
    command->add_option("--payload", arguments->payload, "Bytes behind the record's fields")->type_name("HEX");
    command->add_option("--length", arguments->length, "Cut the message, or fill it with zeros, to this many bytes")
        ->type_name("BYTES")
        ->check(CLI::Range(0, 65536));
    command->footer("Examples:\n"
                    "  plcctl request raw 17 --status 1000 --timeout 3\n"
                    "  plcctl request raw 4 --id 1 --length 5");
    command->callback([&action, arguments] { action = [arguments] { return sendRaw(*arguments); }; });
}

} // namespace

void addRequestCommands(CLI::App& app, Action& action)
{
    CLI::App* group = app.add_subcommand("request", "Send a request to the service and show its answer");
    group->require_subcommand(1);
    for (const RequestKind& kind : RequestKinds)
        addRequest(*group, kind, action);
    addRaw(*group, action);
    group->footer("The status byte gets 127 first, which no answer is; then every value that the service writes there\n"
                  "is shown, with the time since the request was sent. Use another --status while an earlier request\n"
                  "is unanswered: its answer may still come.\n"
                  "Ends with status 0 for SC_AC_OK, 4 without a final answer, 5 if the queue is missing or full, and\n"
                  "for an error with 100 less its code: SC_AC_ERROR_INVALID_ID, -2, is 102.\n"
                  "Examples:\n"
                  "  plcctl request connect plant\n"
                  "  plcctl request publish-state 2 off --json\n"
                  "  plcctl request connect --help");
}

} // namespace plcctl
