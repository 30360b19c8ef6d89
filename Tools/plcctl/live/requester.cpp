#include "requester.h"

#include "failure.h"
#include "reporttext.h"
#include "requestkeys.h"
#include "requestmessage.h"
#include "requestqueue.h"
#include "tagnames.h"

#include "Records/statuscodes.h"

#include <array>

namespace plcctl::live {

namespace {

// Away from the byte that `plcctl request` takes for itself, which may be at work beside.
constexpr std::uint64_t FirstStatusOperand = 1016;

// An answer that takes longer may still come, but the line is needed for other things.
constexpr double Patience = 60;

// Of requests that nobody has answered: more only fill the queue.
constexpr std::size_t MostPending = 8;

double secondsSince(std::int64_t sentNanoseconds, std::int64_t nowNanoseconds)
{
    return static_cast<double>(nowNanoseconds - sentNanoseconds) / 1e9;
}

} // namespace

std::string Requester::send(const WantedRequest& request, const DeviceConfig& config)
try {
    if (m_pending.size() >= MostPending)
        return "nothing was sent: " + std::to_string(MostPending) + " requests are unanswered";
    const RequestQueue queue = RequestQueue::forSending();

    TagNames names(config);
    for (const Pending& pending : m_pending)
        names.add(pending.position, 1, "status byte");
    const std::uint64_t position = names.firstUnnamed(parsePosition(std::to_string(FirstStatusOperand), true), 1);
    writeTag(position, std::array{NeutralAnswer});
    if (!m_reader)
        m_reader.emplace();

    RequestMessage message;
    message.opcode = request.opcode;
    message.id = request.entity ? request.entity->id : std::uint16_t{0};
    message.publishState = request.publishState;
    message.statusOperand = static_cast<std::uint32_t>(*operandOf(position));
    m_pending.push_back({describe(request), position, AnswerWatch(*m_reader, position), journalNanoseconds()});
    try {
        queue.send(encode(message));
    } catch (const Failure&) {
        m_pending.pop_back();
        throw;
    }
    return describe(request) + ": sent";
} catch (const Failure& failure) {
    return failure.what();
}

std::optional<std::string> Requester::look()
{
    std::optional<std::string> text;
    for (auto pending = m_pending.begin(); pending != m_pending.end();) {
        const auto answer = lookAt(*pending);
        if (answer) {
            const double seconds = secondsSince(pending->sentNanoseconds, answer->timeNanoseconds);
            text = pending->text + ": " + plcctl::describe(CodeDomain::RequestStatus, answer->code) + " (after " +
                   ageText(seconds) + ")";
            pending = m_pending.erase(pending);
            continue;
        }
        const double seconds = secondsSince(pending->sentNanoseconds, journalNanoseconds());
        if (seconds < Patience) {
            text =
                pending->text + (pending->isTakenUp ? ": in progress, " : ": sent, no answer yet, ") + ageText(seconds);
        }
        ++pending;
    }
    return text;
}

std::optional<Answer> Requester::lookAt(Pending& pending) const
{
    std::optional<Answer> final;
    pending.watch.look([&](const Answer& answer) {
        if (answer.code == NeutralAnswer)
            return true;
        pending.isTakenUp = true;
        if (answer.code != SC_AC_IN_PROGRESS)
            final = answer;
        return !final;
    });
    return final;
}

} // namespace plcctl::live
