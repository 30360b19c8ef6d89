#pragma once

#include "answerwatch.h"
#include "entities.h"
#include "output.h"
#include "requestmessage.h"

#include <cstdint>
#include <optional>
#include <string>

namespace plcctl {

// A request and what is told of it.
struct PlannedRequest
{
    std::string name;
    std::optional<EntityReference> entity;
    RequestMessage message;
    std::optional<std::uint64_t> statusPosition; // of the byte to wait for
    double timeoutSeconds;
    bool json;
};

// Shows what was seen of the answer to a request, each value at once, or as JSON all at the end.
class AnswerReport
{
public:
    // The request has to outlive it.
    AnswerReport(const PlannedRequest& request, std::int64_t sentNanoseconds);

    // False for the final answer.
    [[nodiscard]] bool take(const Answer& answer);

    [[nodiscard]] bool isFinal() const;

    // The last value so far; nothing while the service has written none.
    [[nodiscard]] std::optional<int> last() const { return m_last; }

    void end(std::uint64_t lostWrites) const;

private:
    [[nodiscard]] std::string headLine() const;
    void printObject(std::uint64_t lostWrites) const;

    const PlannedRequest& m_request;
    std::int64_t m_sentNanoseconds;
    std::optional<int> m_last;
    Json m_values = Json::array();
};

} // namespace plcctl
