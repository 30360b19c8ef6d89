#pragma once

#include "handshake.h"
#include "handshakeprinter.h"
#include "journalcursor.h"

#include <chrono>
#include <vector>

namespace plcctl {

struct TakerSchedule
{
    std::chrono::milliseconds delay{0}; // from a message's waiting to asking for it
    std::chrono::milliseconds every{0}; // at least, from one asking to the next
};

// Takes the messages of one buffered subscription, as a control application does. A round is readTheRecord, follow for
// the journal from the last round up to now, and look; in this order no hand-over that the record is part of is
// overlooked. What the constructor takes by reference has to outlive it.
class MessageTaker
{
public:
    // Throws Failure (usage) if the subscription's record is not in tag memory.
    MessageTaker(const TagReader& reader, const SubscriptionEntry& subscription, const TakerSchedule& schedule,
                 bool json);

    void readTheRecord();
    void follow(const JournalCursor::Step& step);

    // Ends the first round, which prints nothing: the past.
    void begin();

    // Prints what happened. How many messages were handed over.
    [[nodiscard]] unsigned look();

    // Clears the received bit if it is time, and without a word again where a message that arrived took that back.
    void askIfDue();

private:
    using Clock = Handshake::Clock;

    void clearReceivedBit();
    void forgetMarks();

    const TagReader& m_reader;
    const SubscriptionEntry& m_subscription;
    TakerSchedule m_schedule;
    HandshakePrinter m_printer;
    Handshake m_handshake;
    SubscriberStatusStruct m_record{};
    std::vector<std::uint8_t> m_marks;
    bool m_marksLost = false;
    Clock::time_point m_notBefore;
};

} // namespace plcctl
