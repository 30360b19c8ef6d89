#include "Entities/scheduledbufferedsubscriptionsmanager.h"

#include "Entities/subscriber.h"
#include "Entities/turn.h"
#include "logging.h"
#include "processending.h"
#include "Services/mqttmanagerservices.h"

#include <chrono>
#include <thread>

namespace {

// Lets the control application see the present state. False when the process ends: there is nothing more to show then.
[[nodiscard]] bool letStateBeSeen()
{
    using namespace std::chrono_literals;
    if (!ProcessEnding::hasBegun())
        std::this_thread::sleep_for(1s);
    return !ProcessEnding::hasBegun();
}

} // namespace

ScheduledBufferedSubscriptionsManager::ScheduledBufferedSubscriptionsManager()
    : m_Services(MQTTManagerServices::instance())
{
}

void ScheduledBufferedSubscriptionsManager::ScheduledBufferedSubscriptionsCheck()
{
    for (int i = 0; i < m_SubscribersCount && !ProcessEnding::hasBegun(); ++i)
        serve(*m_Subscribers.at(i));
}

void ScheduledBufferedSubscriptionsManager::serve(Subscriber& subscriber)
{
    const Turn turn = subscriber.TakeBufferedMessages();
    if (!turn.isMine()) // the messages are being thrown away
        return;
    if (subscriber.RefreshReceivedBit() != 0 || subscriber.m_BufferedMessages.count() == 0)
        return;
    handOverFirst(subscriber);
}

void ScheduledBufferedSubscriptionsManager::handOverFirst(Subscriber& subscriber)
{
    subscriber.ShowBufferedDataStatus(BDS_HANDING_OVER);
    // Ahead of the removal: a message that takes the free place at once sets it again.
    subscriber.m_Status.m_QueueFull = 0;
    const auto message = subscriber.m_BufferedMessages.takeFirst();
    subscriber.UpdateCfgStruct();
    const bool isReceived = subscriber.RefreshReceivedBit() != 0;
    PLOG_DEBUG << QString("Proccesing message of '%1', queue count is '%2', ReceiveFlag '%3'")
                      .arg(subscriber.m_Name, QString::number(subscriber.m_BufferedMessages.count()),
                           QString::number(isReceived ? 1 : 0));
    m_Services->PrintMQTTMessageDebug(message.get());
    subscriber.SetDataInSubscription(message->Payload, message->PayloadLen);
    if (!letStateBeSeen())
        return;
    subscriber.ShowBufferedDataStatus(BDS_NONE);
    if (!letStateBeSeen() || subscriber.m_BufferedMessages.count() == 0)
        return;
    subscriber.ShowBufferedDataStatus(BDS_WAITING);
    subscriber.ShowReceivedBit();
    static_cast<void>(letStateBeSeen()); // nothing follows
}
