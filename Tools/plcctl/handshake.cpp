#include "handshake.h"

namespace plcctl {

void Handshake::begin(const Look& look)
{
    const std::uint8_t state = look.marks.empty() ? look.record.m_BufferedDataStatus : look.marks.back();
    if (state == BDS_HANDING_OVER)
        m_handingOverSince = look.time;
}

std::vector<HandshakeEvent> Handshake::look(const Look& look)
{
    std::vector<HandshakeEvent> events;
    followMarks(look, events);
    followRecord(look, events);
    return events;
}

void Handshake::cleared()
{
    m_asked = true;
    m_waitingSince.reset();
}

void Handshake::followMarks(const Look& look, std::vector<HandshakeEvent>& events)
{
    for (const std::uint8_t mark : look.marks) {
        if (mark != BDS_WAITING)
            m_asked = false;
        if (mark == BDS_HANDING_OVER) {
            m_handingOverSince = look.time;
            m_waitingSince.reset();
            events.push_back(HandshakeEvent::HandingOver);
        } else if (mark == BDS_NONE) {
            m_handingOverSince.reset();
            events.push_back(HandshakeEvent::HandedOver);
        }
    }
    // A hand-over may have begun unseen. To wait is safe, to clear the bit is not.
    if (look.marksLost && !m_handingOverSince)
        m_handingOverSince = look.time;
    if (m_handingOverSince && look.time - *m_handingOverSince > Patience)
        m_handingOverSince.reset();
}

void Handshake::followRecord(const Look& look, std::vector<HandshakeEvent>& events)
{
    const bool queueFull = look.record.m_QueueFull != 0;
    if (queueFull != m_queueFull)
        events.push_back(queueFull ? HandshakeEvent::QueueFull : HandshakeEvent::QueueHasRoom);
    m_queueFull = queueFull;

    // Where there are marks, the record is older than they are.
    if (m_handingOverSince || !look.marks.empty())
        return;
    const bool waits = messageWaits(look);
    if (waits && !m_waitingSince) {
        m_waitingSince = look.time;
        if (!m_asked)
            events.push_back(HandshakeEvent::Waiting);
    } else if (!waits && m_waitingSince) {
        m_waitingSince.reset();
        if (!m_asked)
            events.push_back(HandshakeEvent::Asked);
        m_asked = true;
    }
}

bool Handshake::messageWaits(const Look& look)
{
    const bool odd = look.record.m_ReceivedBit != 0 && look.record.m_BufferedDataStatus != BDS_WAITING;
    if (!odd) {
        m_oddSince.reset();
        return look.record.m_ReceivedBit != 0;
    }
    // Between the end of a hand-over and the next message's turn the service sets the bit once more: not yet.
    if (!m_oddSince)
        m_oddSince = look.time;
    return look.time - *m_oddSince > Patience;
}

} // namespace plcctl
