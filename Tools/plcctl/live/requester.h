#pragma once

#include "answerwatch.h"
#include "deviceconfig.h"
#include "tagaccess.h"
#include "uistate.h"

#include <list>
#include <optional>
#include <string>

namespace plcctl::live {

// Sends requests and tells of their answers without ever waiting for one. Each request has a status byte of its own
// for as long as its answer may come.
class Requester
{
public:
    // What was sent, or why nothing was.
    [[nodiscard]] std::string send(const WantedRequest& request, const DeviceConfig& config);

    // How the last request stands, while it is unanswered and once when an answer has come.
    [[nodiscard]] std::optional<std::string> look();

    // Whether an answer is waited for.
    [[nodiscard]] bool isWaiting() const { return !m_pending.empty(); }

private:
    struct Pending
    {
        std::string text;
        std::uint64_t position;
        AnswerWatch watch;
        std::int64_t sentNanoseconds;
        bool isTakenUp = false;
    };

    [[nodiscard]] std::optional<Answer> lookAt(Pending& pending) const;

    std::optional<TagReader> m_reader;
    std::list<Pending> m_pending;
};

} // namespace plcctl::live
