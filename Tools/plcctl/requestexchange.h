#pragma once

#include "answerwatch.h"
#include "requestqueue.h"
#include "tagaccess.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>

namespace plcctl {

// Messages to the service and the values that it writes into their status byte.
class RequestExchange
{
public:
    // Makes the status byte neutral and watches it from then on. The queue has to outlive this.
    RequestExchange(const RequestQueue& queue, std::uint64_t statusPosition);

    RequestExchange(const RequestExchange&) = delete;
    RequestExchange& operator=(const RequestExchange&) = delete;

    // The time of the sending, clock as in the journal.
    std::int64_t send(std::span<const std::uint8_t> message) const;

    // Hands every value of the byte to `take`, in order, until that returns false. False if the time was up first, or
    // Ctrl-C came.
    [[nodiscard]] bool follow(double timeoutSeconds, const std::function<bool(const Answer&)>& take);

    // The final answer to what was sent. Throws Failure (no answer) where there is none in time.
    [[nodiscard]] int finalAnswer(double timeoutSeconds);

    // Writes to tag memory that were lost so far; answers may have been among them.
    [[nodiscard]] std::uint64_t lost() const { return m_watch.lost(); }

    // Says what may be the reason; `advice` follows it if the service has written something.
    [[noreturn]] void failWithoutAnswer(const std::string& advice = "") const;

    [[nodiscard]] const TagReader& tags() const { return m_reader; }

private:
    const RequestQueue& m_queue;
    TagReader m_reader;
    AnswerWatch m_watch;
    bool m_taken = false; // the service has written something
};

} // namespace plcctl
