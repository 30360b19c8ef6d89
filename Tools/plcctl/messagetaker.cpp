#include "messagetaker.h"

#include "reporttext.h"

#include <algorithm>
#include <array>
#include <cstddef>

namespace plcctl {

MessageTaker::MessageTaker(const TagReader& reader, const SubscriptionEntry& subscription,
                           const TakerSchedule& schedule, bool json)
    : m_reader(reader), m_subscription(subscription), m_schedule(schedule), m_printer(reader, subscription, json)
{
    requireInside(subscription.recordAddress, sizeof(SubscriberStatusStruct));
}

void MessageTaker::readTheRecord()
{
    m_record = *readRecord<SubscriberStatusStruct>(m_reader, m_subscription.recordAddress);
}

void MessageTaker::follow(const JournalCursor::Step& step)
{
    if (!step.write) {
        m_marksLost = true;
        return;
    }
    const std::uint64_t statePosition =
        std::uint64_t{m_subscription.recordAddress} + offsetof(SubscriberStatusStruct, m_BufferedDataStatus);
    if (step.write->position == statePosition && step.write->size == 1)
        m_marks.push_back(step.write->bytes[0]);
}

void MessageTaker::begin()
{
    m_handshake.begin({Clock::now(), m_record, m_marks});
    forgetMarks();
}

unsigned MessageTaker::look()
{
    const auto events = m_handshake.look({Clock::now(), m_record, m_marks, m_marksLost});
    forgetMarks();
    if (!events.empty())
        readTheRecord(); // as it stands after the marks
    for (const HandshakeEvent event : events)
        m_printer.print(event, m_record);
    return static_cast<unsigned>(std::count(events.begin(), events.end(), HandshakeEvent::HandedOver));
}

void MessageTaker::askIfDue()
{
    if (m_handshake.isAskingTakenBack())
        return clearReceivedBit();
    const auto waitingSince = m_handshake.waitingSince();
    const auto now = Clock::now();
    if (!waitingSince || now < *waitingSince + m_schedule.delay || now < m_notBefore)
        return;
    clearReceivedBit();
    m_notBefore = now + m_schedule.every;
    m_printer.printAsked();
}

void MessageTaker::clearReceivedBit()
{
    constexpr std::array<std::uint8_t, 1> Clear{0};
    writeTag(std::uint64_t{m_subscription.recordAddress} + offsetof(SubscriberStatusStruct, m_ReceivedBit), Clear);
    m_handshake.cleared();
}

void MessageTaker::forgetMarks()
{
    m_marks.clear();
    m_marksLost = false;
}

} // namespace plcctl
