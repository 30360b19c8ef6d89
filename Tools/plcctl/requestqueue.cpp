#include "requestqueue.h"

#include "failure.h"

#include "Records/requestrecords.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>

namespace plcctl {

RequestQueue::~RequestQueue()
{
    if (isOpen())
        mq_close(m_descriptor);
}

RequestQueue RequestQueue::forSending()
{
    const mqd_t descriptor = mq_open(RequestQueueName, O_WRONLY | O_NONBLOCK);
    if (descriptor != -1)
        return RequestQueue(descriptor);
    if (errno != ENOENT)
        failQueue("opened", errno);
    throw Failure(ExitCode::NotSent, std::string("there is no ") + RequestQueueName +
                                         ": the service opens it once, when it starts, so `plcctl queue create` first "
                                         "and then start the service again; nothing was sent");
}

mq_attr RequestQueue::attributes() const
{
    mq_attr result{};
    if (mq_getattr(m_descriptor, &result) != 0)
        throw Failure(ExitCode::Failed, std::string("the queue can't be examined: ") + std::strerror(errno));
    return result;
}

void RequestQueue::send(std::span<const std::uint8_t> message) const
{
    if (mq_send(m_descriptor, reinterpret_cast<const char*>(message.data()), message.size(), 0) == 0)
        return;
    switch (errno) {
    case EAGAIN:
        throw Failure(ExitCode::NotSent,
                      std::string(RequestQueueName) + " is full, " + std::to_string(attributes().mq_curmsgs) +
                          " waiting: no service reads it, or the one that does is busy with an earlier request; "
                          "nothing was sent");
    case EMSGSIZE:
        throw Failure(ExitCode::Failed, "the request has " + std::to_string(message.size()) + " bytes, and " +
                                            RequestQueueName + " takes " + std::to_string(attributes().mq_msgsize) +
                                            " at most; nothing was sent");
    default:
        throw Failure(ExitCode::Failed, std::string("the request can't be sent: ") + std::strerror(errno));
    }
}

std::string describeRoom(long messages, long size)
{
    return std::to_string(messages) + " messages of " + std::to_string(size) + " bytes";
}

void failQueue(const char* what, int error)
{
    throw Failure(ExitCode::Failed, std::string(RequestQueueName) + " can't be " + what + ": " + std::strerror(error));
}

} // namespace plcctl
