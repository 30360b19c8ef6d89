#include "requestexchange.h"

#include "failure.h"
#include "watchloop.h"

#include "Records/statuscodes.h"

#include <array>

namespace plcctl {

namespace {

constexpr auto LookInterval = std::chrono::milliseconds(2);

// Tag memory exists from then on.
TagReader makeNeutral(std::uint64_t statusPosition)
{
    constexpr std::array Neutral{NeutralAnswer};
    writeTag(statusPosition, Neutral);
    return {};
}

} // namespace

RequestExchange::RequestExchange(const RequestQueue& queue, std::uint64_t statusPosition)
    : m_queue(queue), m_reader(makeNeutral(statusPosition)), m_watch(m_reader, statusPosition)
{
}

std::int64_t RequestExchange::send(std::span<const std::uint8_t> message) const
{
    const std::int64_t sentNanoseconds = journalNanoseconds();
    m_queue.send(message);
    return sentNanoseconds;
}

bool RequestExchange::follow(double timeoutSeconds, const std::function<bool(const Answer&)>& take)
{
    bool wanted = true;
    WatchLoop loop(timeoutSeconds);
    do {
        m_watch.look([&](const Answer& answer) {
            if (answer.code == NeutralAnswer)
                return true;
            m_taken = true;
            wanted = take(answer);
            return wanted;
        });
    } while (wanted && loop.pause(LookInterval));
    return !wanted;
}

int RequestExchange::finalAnswer(double timeoutSeconds)
{
    int code = SC_AC_IN_PROGRESS;
    const bool answered = follow(timeoutSeconds, [&code](const Answer& answer) {
        code = answer.code;
        return code == SC_AC_IN_PROGRESS;
    });
    if (!answered)
        failWithoutAnswer();
    return code;
}

void RequestExchange::failWithoutAnswer(const std::string& advice) const
{
    if (m_taken) {
        throw Failure(ExitCode::NoAnswer, "the service took the request up and has not finished it; it goes on "
                                          "without us, `--timeout` waits longer" +
                                              advice);
    }
    const long waiting = m_queue.attributes().mq_curmsgs;
    if (waiting > 0) {
        throw Failure(ExitCode::NoAnswer,
                      "no answer, and " + std::to_string(waiting) + (waiting == 1 ? " message" : " messages") +
                          " in the queue: is the service running, was it started after `plcctl queue create`, or is it "
                          "busy with an earlier request? The request stays in the queue");
    }
    throw Failure(ExitCode::NoAnswer, "no answer, though the request was taken from the queue: the service is ending, "
                                      "still starting (pause and start wait for that), or doesn't know the opcode");
}

} // namespace plcctl
