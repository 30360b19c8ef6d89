#pragma once

#include "journalcursor.h"
#include "tagaccess.h"

#include <cstdint>
#include <functional>
#include <optional>

namespace plcctl {

// A value that no answer to a request has; it stands in the status byte until the service writes there.
inline constexpr std::uint8_t NeutralAnswer = 0x7F;

// A value that the status byte of a request took.
struct Answer
{
    int code;                     // StatusCodes
    std::int64_t timeNanoseconds; // when it was written, or where that is unknown, seen; clock as in the journal
};

// Sees every value that is written into one byte of tag memory from construction on.
class AnswerWatch
{
public:
    AnswerWatch(const TagReader& reader, std::uint64_t position);

    // Calls `take` for each value since the last call, in order, until it returns false. Of values that the journal
    // lost, only the present one is seen.
    void look(const std::function<bool(const Answer&)>& take);

    // Writes to tag memory that were lost so far; the byte's own may have been among them.
    [[nodiscard]] std::uint64_t lost() const { return m_lost; }

private:
    [[nodiscard]] std::optional<Answer> answerIn(const JournalCursor::Step& step);
    [[nodiscard]] std::uint8_t present() const;

    const TagReader& m_reader;
    std::uint64_t m_position;
    JournalCursor m_cursor;
    std::uint8_t m_last;
    std::uint64_t m_lost = 0;
};

// The clock of the journal's times.
std::int64_t journalNanoseconds();

} // namespace plcctl
