#include "answerreport.h"

#include "reporttext.h"
#include "tagaccess.h"

#include <array>
#include <cmath>
#include <cstdio>

namespace plcctl {

AnswerReport::AnswerReport(const PlannedRequest& request, std::int64_t sentNanoseconds)
    : m_request(request), m_sentNanoseconds(sentNanoseconds)
{
    if (!request.json)
        printLine(headLine());
}

bool AnswerReport::take(const Answer& answer)
{
    if (answer.code == NeutralAnswer)
        return true;
    const double seconds = static_cast<double>(answer.timeNanoseconds - m_sentNanoseconds) / 1e9;
    m_last = answer.code;
    if (m_request.json) {
        Json value = codeJson(CodeDomain::RequestStatus, answer.code);
        value["seconds"] = std::round(seconds * 1000) / 1000;
        m_values.push_back(std::move(value));
    } else {
        std::array<char, 32> time{};
        std::snprintf(time.data(), time.size(), "%9.3f s  ", seconds);
        printLine(time.data() + describe(CodeDomain::RequestStatus, answer.code));
    }
    return !isFinal();
}

bool AnswerReport::isFinal() const
{
    return m_last && *m_last != SC_AC_IN_PROGRESS;
}

void AnswerReport::end(std::uint64_t lostWrites) const
{
    if (m_request.json)
        printObject(lostWrites);
    else if (lostWrites > 0)
        printLine("... " + std::to_string(lostWrites) + " writes lost: values may be missing");
}

std::string AnswerReport::headLine() const
{
    std::string line = m_request.name;
    if (m_request.entity)
        line += " " + describe(*m_request.entity);
    return m_request.statusPosition ? line + ", status byte at " + describePosition(*m_request.statusPosition)
                                    : line + ", sent";
}

void AnswerReport::printObject(std::uint64_t lostWrites) const
{
    Json object{{"request", m_request.name}, {"opcode", m_request.message.opcode}};
    if (m_request.entity) {
        object["id"] = m_request.entity->id;
        object["name"] = m_request.entity->name;
    }
    object["statusOperand"] = m_request.message.statusOperand;
    object["values"] = m_values;
    object["lostWrites"] = lostWrites;
    object["result"] = isFinal() ? codeJson(CodeDomain::RequestStatus, *m_last) : Json(nullptr);
    printJson(object);
}

} // namespace plcctl
