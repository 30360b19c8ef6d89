#include "commands.h"
#include "output.h"

#include "Records/requestrecords.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <mqueue.h>

namespace plcctl {

namespace {

constexpr mode_t QueuePermissions = 0660;

struct QueueArguments
{
    long messages = 10;
    long size = static_cast<long>(RequestRecordSize);
    bool json = false;
};

// The request queue, closed with its scope.
class Queue
{
public:
    explicit Queue(mqd_t descriptor) : m_descriptor(descriptor) {}

    Queue(const Queue&) = delete;
    Queue& operator=(const Queue&) = delete;

    ~Queue()
    {
        if (isOpen())
            mq_close(m_descriptor);
    }

    [[nodiscard]] bool isOpen() const { return m_descriptor != -1; }

    [[nodiscard]] mq_attr attributes() const
    {
        mq_attr result{};
        if (mq_getattr(m_descriptor, &result) != 0)
            throw Failure(ExitCode::Failed, std::string("the queue can't be examined: ") + std::strerror(errno));
        return result;
    }

private:
    mqd_t m_descriptor;
};

std::string describe(long messages, long size)
{
    return std::to_string(messages) + " messages of " + std::to_string(size) + " bytes";
}

[[noreturn]] void failToOpen(const char* what, int error)
{
    throw Failure(ExitCode::Failed, std::string(RequestQueueName) + " can't be " + what + ": " + std::strerror(error));
}

void requireSameAttributes(const QueueArguments& arguments)
{
    const Queue queue(mq_open(RequestQueueName, O_RDONLY));
    if (!queue.isOpen())
        failToOpen("opened", errno);
    const mq_attr existing = queue.attributes();
    if (existing.mq_maxmsg == arguments.messages && existing.mq_msgsize == arguments.size)
        return;
    throw Failure(ExitCode::Failed, std::string(RequestQueueName) + " exists with room for " +
                                        describe(existing.mq_maxmsg, existing.mq_msgsize) + ", not " +
                                        describe(arguments.messages, arguments.size) +
                                        "; `plcctl queue remove` first, then start the service again");
}

ExitCode createQueue(const QueueArguments& arguments)
{
    mq_attr attributes{};
    attributes.mq_maxmsg = arguments.messages;
    attributes.mq_msgsize = arguments.size;
    const Queue queue(mq_open(RequestQueueName, O_RDWR | O_CREAT | O_EXCL, QueuePermissions, &attributes));
    const int error = errno;
    if (!queue.isOpen() && error == EEXIST)
        requireSameAttributes(arguments);
    else if (!queue.isOpen() && (error == EINVAL || error == EMFILE || error == ENOMEM))
        throw Failure(ExitCode::Failed,
                      "the system refuses a queue for " + describe(arguments.messages, arguments.size) + ": " +
                          std::strerror(error) +
                          "; ask for fewer messages, or raise fs.mqueue.msg_max, fs.mqueue.msgsize_max "
                          "or the limit `ulimit -q`");
    else if (!queue.isOpen())
        failToOpen("created", error);

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
        failToOpen("removed", errno);
    printNote(std::string("there was no ") + RequestQueueName + " to remove");
    return ExitCode::Done;
}

ExitCode showQueue(const QueueArguments& arguments)
{
    const Queue queue(mq_open(RequestQueueName, O_RDONLY));
    if (!queue.isOpen()) {
        if (errno == ENOENT) {
            throw Failure(ExitCode::NothingToRead,
                          std::string("there is no ") + RequestQueueName + "; create it with `plcctl queue create`");
        }
        failToOpen("opened", errno);
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
