#include "Entities/scheduledclientbroker.h"

#include "Entities/clientbroker.h"

#include <QTimer>

void ScheduledClientBroker::setBroker(ClientBroker* broker)
{
    m_ClientBroker = broker;
    m_UniqueID = broker->UniqueID;
}

void ScheduledClientBroker::ScheduledConnect()
{
    if (ProcessEnding::hasBegun())
        return;
    if (m_ClientBroker->Connect() == CB_OK || m_ClientBroker->IsConnected()) {
        emit SignalStopPeriodicConnectAttempt(m_Idx);
        return;
    }
    // An attempt may take longer than the interval. The timer would then fire again at once, and each publication get
    // out a single time between two attempts.
    if (auto* timer = qobject_cast<QTimer*>(sender()))
        timer->start();
}
