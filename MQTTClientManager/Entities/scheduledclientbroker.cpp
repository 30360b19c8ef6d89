#include "Entities/scheduledclientbroker.h"

#include "Entities/clientbroker.h"

void ScheduledClientBroker::ScheduledConnect()
{
    if (ProcessEnding::hasBegun())
        return;
    if (m_ClientBroker->Connect() == CB_OK || m_ClientBroker->IsConnected())
        emit SignalStopPeriodicConnectAttempt(m_Idx);
}
