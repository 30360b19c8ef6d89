#pragma once

#include "Records/subscriptionrecords.h"

#include <chrono>
#include <optional>
#include <vector>

namespace plcctl {

// What a control application learns of a buffered subscription.
enum class HandshakeEvent
{
    Waiting,     // a message waits for the received bit to be cleared
    Asked,       // the bit is clear, and not by this application's hand
    HandingOver, // the tag is being written
    HandedOver,  // the tag holds the message
    QueueFull,   // what arrives now is lost
    QueueHasRoom
};

// The control application's side of a buffered subscription: what its record means, and when the received bit may be
// cleared. The service marks a hand-over with single writes of the hand-over state, 1 at its begin and 0 at its end. A
// message that arrives in between sets the record's bit and state as if one waited, so the record alone does not tell.
class Handshake
{
public:
    using Clock = std::chrono::steady_clock;

    // A hand-over takes some seconds. One that is not over by then, or a bit that stands in no state of the handshake,
    // was left behind by a service that ended.
    static constexpr auto Patience = std::chrono::seconds(10);

    // What one look found: the record, and then the hand-over states that were written singly since the last look.
    struct Look
    {
        Clock::time_point time;
        const SubscriberStatusStruct& record;
        std::vector<std::uint8_t> marks;
        bool marksLost = false; // some may be missing
    };

    // Begins with the marks of the last `Patience`, and the record as it stands.
    void begin(const Look& look);

    [[nodiscard]] std::vector<HandshakeEvent> look(const Look& look);

    // Since when a message waits and nothing speaks against clearing the bit; nothing while it must not be cleared.
    [[nodiscard]] std::optional<Clock::time_point> waitingSince() const { return m_waitingSince; }

    // The received bit was just cleared.
    void cleared();

    // The bit was cleared for the message that is next, and a further message that arrived has set it again: it has to
    // be cleared anew, or the service never sees that it was asked.
    [[nodiscard]] bool isAskingTakenBack() const { return m_asked && m_waitingSince; }

private:
    void followMarks(const Look& look, std::vector<HandshakeEvent>& events);
    void followRecord(const Look& look, std::vector<HandshakeEvent>& events);
    [[nodiscard]] bool messageWaits(const Look& look);

    std::optional<Clock::time_point> m_handingOverSince;
    std::optional<Clock::time_point> m_waitingSince;
    std::optional<Clock::time_point> m_oddSince; // a bit that is set while the state doesn't say that a message waits
    bool m_asked = false;                        // since the last hand-over
    bool m_queueFull = false;
};

} // namespace plcctl
