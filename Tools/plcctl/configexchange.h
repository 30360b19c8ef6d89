#pragma once

#include "configrecord.h"
#include "entities.h"
#include "requestexchange.h"
#include "requestmessage.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace plcctl {

// Where in tag memory the service puts its answer and a record that is read back.
struct ConfigPlaces
{
    std::uint64_t status;
    std::uint64_t record;
    bool isRecordScratch; // the bytes there are put back once the record was read
};

struct ReadBack
{
    int code; // StatusCodes
    std::optional<ConfigRecord> record;
};

// Reads one entity's configuration record from the service and sets it, by requests. Each call waits for the final
// answer, and throws Failure (no answer) where there is none in time.
class ConfigExchange
{
public:
    ConfigExchange(const EntityReference& entity, const ConfigPlaces& places, double timeoutSeconds);

    [[nodiscard]] ReadBack readBack();

    struct SetAnswer
    {
        int code;                      // StatusCodes
        bool isFirstPartTaken = false; // of a broker's record: the code is then about the second part
    };

    // The record of a broker goes in two parts, and the second one only if the first was taken.
    [[nodiscard]] SetAnswer set(const ConfigRecord& record);

private:
    // The final answer, or "in progress" when it was written so many times.
    [[nodiscard]] int answerToPart(RequestExchange& exchange, std::optional<int> marks) const;

    EntityReference m_entity;
    ConfigPlaces m_places;
    double m_timeoutSeconds;
    RequestQueue m_queue;
};

// The messages that set a record: one, or for a broker two. The second one names no entity.
std::vector<RequestMessage> messagesToSet(const EntityReference& entity, const ConfigRecord& record,
                                          std::uint32_t statusOperand);

} // namespace plcctl
