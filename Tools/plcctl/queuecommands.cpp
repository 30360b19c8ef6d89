#include "commands.h"
#include "output.h"
#include "requestqueue.h"

#include "Records/requestrecords.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <memory>

namespace plcctl {

namespace {

constexpr mode_t QueuePermissions = 0660;

struct QueueArguments
{
    long messages = 10;
    long size = static_cast<long>(RequestRecordSize);
    bool json = false;
};

void requireSameAttributes(const QueueArguments& arguments)
{
    const RequestQueue queue(mq_open(RequestQueueName, O_RDONLY));
    if (!queue.isOpen())
        failQueue("opened", errno);
    const mq_attr existing = queue.attributes();
    if (existing.mq_maxmsg == arguments.messages && existing.mq_msgsize == arguments.size)
        return;
    throw Failure(ExitCode::Failed, std::string(RequestQueueName) + " exists with room for " +
                                        describeRoom(existing.mq_maxmsg, existing.mq_msgsize) + ", not " +
                                        describeRoom(arguments.messages, arguments.size) +
                                        "; `plcctl queue remove` first, then start the service again");
}

ExitCode createQueue(const QueueArguments& arguments)
{
    mq_attr attributes{};
    attributes.mq_maxmsg = arguments.messages;
    attributes.mq_msgsize = arguments.size;
    const RequestQueue queue(mq_open(RequestQueueName, O_RDWR | O_CREAT | O_EXCL, QueuePermissions, &attributes));
    const int error = errno;
    if (!queue.isOpen() && error == EEXIST)
        requireSameAttributes(arguments);
    else if (!queue.isOpen() && (error == EINVAL || error == EMFILE || error == ENOMEM))
        throw Failure(ExitCode::Failed,
                      "the system refuses a queue for " + describeRoom(arguments.messages, arguments.size) + ": " +
                          std::strerror(error) +
                          "; ask for fewer messages, or raise fs.mqueue.msg_max, fs.mqueue.msgsize_max "
                          "or the limit `ulimit -q`");
    else if (!queue.isOpen())
        failQueue("created", error);

    if (arguments.size > static_cast<long>(RequestRecordSize)) {
        printNote("the service reads at most " + std::to_string(RequestRecordSize) +
                  " bytes a message: on this queue each of its receives fails");
    }
    return ExitCode::Done;
}

ExitCode removeQueue()
{
    if (mq_unlink(RequestQueueName) == 0)
        return ExitCode::Done;
    if (errno != ENOENT)
        failQueue("removed", errno);
    printNote(std::string("there was no ") + RequestQueueName + " to remove");
    return ExitCode::Done;
}

ExitCode showQueue(const QueueArguments& arguments)
{
    const RequestQueue queue(mq_open(RequestQueueName, O_RDONLY));
    if (!queue.isOpen()) {
        if (errno == ENOENT) {
            throw Failure(ExitCode::NothingToRead,
                          std::string("there is no ") + RequestQueueName + "; create it with `plcctl queue create`");
        }
        failQueue("opened", errno);
    }
    const mq_attr attributes = queue.attributes();
    const long fillPercent = attributes.mq_curmsgs * 100 / attributes.mq_maxmsg;
    if (arguments.json) {
        printJson({{"name", RequestQueueName},
                   {"messages", attributes.mq_curmsgs},
                   {"maximumMessages", attributes.mq_maxmsg},
                   {"messageSize", attributes.mq_msgsize},
                   {"fillPercent", fillPercent}});
        return ExitCode::Done;
    }
    printLine(std::string(RequestQueueName) + ": " + std::to_string(attributes.mq_curmsgs) + " of " +
              std::to_string(attributes.mq_maxmsg) + " messages (" + std::to_string(fillPercent) + " % full), up to " +
              std::to_string(attributes.mq_msgsize) + " bytes each");
    return ExitCode::Done;
}

} // namespace

void addQueueCommands(CLI::App& app, Action& action)
{
    const auto arguments = std::make_shared<QueueArguments>();
    CLI::App* group = app.add_subcommand("queue", "Create, remove and show the request queue");
    group->require_subcommand(1);
    group->footer("The service opens the queue once, when it starts: create it before.\n"
                  "Example:\n  plcctl queue create");

    CLI::App* create = group->add_subcommand("create", "Create the queue; fine if it exists with these attributes");
    create->add_option("--messages", arguments->messages, "Messages that the queue holds")
        ->type_name("N")
        ->check(CLI::Range(1, 65536))
        ->capture_default_str();
    create->add_option("--size", arguments->size, "Bytes of the largest message")
        ->type_name("BYTES")
        ->check(CLI::Range(1, 16'777'216))
        ->capture_default_str();
    create->footer("Example:\n  plcctl queue create --messages 5");
    create->callback([&action, arguments] { action = [arguments] { return createQueue(*arguments); }; });

    CLI::App* remove = group->add_subcommand("remove", "Remove the queue; fine if there is none");
    remove->footer("A service that has the queue open keeps it, and is reached by nobody any more.\n"
                   "Example:\n  plcctl queue remove");
    remove->callback([&action] { action = removeQueue; });

    CLI::App* show = group->add_subcommand("show", "Print the queue's attributes and how full it is");
    show->add_flag("--json", arguments->json, "Print JSON");
    show->footer("Example:\n  plcctl queue show --json");
    show->callback([&action, arguments] { action = [arguments] { return showQueue(*arguments); }; });
}

} // namespace plcctl
