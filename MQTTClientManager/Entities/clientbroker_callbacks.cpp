#include "Entities/clientbroker.h"

#include "Entities/mqttcallerbase.h"
#include "Entities/steadyclock.h"
#include "Entities/topicfilter.h"
#include "Entities/turn.h"
#include "logging.h"
#include "Services/mqttStatusLogManager.h"

#include <cstring>
#include <thread>
#include <unistd.h>

// The client library holds a lock of its own in some of these calls, and one thread of it serves all brokers: nothing
// here may wait for long, or call back into it but to free a message.

namespace {

constexpr std::chrono::microseconds MessagePause(50);
constexpr std::chrono::milliseconds MessagePatience(100);

// A request is long on its way to the broker after the first, and the library waits for its answer for 10 s.
constexpr std::chrono::milliseconds RequestWritten(10);
constexpr std::chrono::milliseconds RequestExpiring(9'000);

// The clean-up thread may have destroyed the client whose message this is, and the message with it. The use that the
// caller holds keeps the client from being destroyed from here on; the process ends within a second or two.
void stayWhileProcessEnds()
{
    while (ProcessEnding::hasBegun())
        pause();
}

} // namespace

void ClientBroker::CallbackCallerConnectionLost(void* context, char* cause)
{
    static_cast<ClientBroker*>(context)->CallbackConnectionLost(cause);
}

int ClientBroker::CallbackCallerMessageArrived(void* context, char* topicName, int topicLen,
                                               MQTTClient_message* message)
{
    return static_cast<ClientBroker*>(context)->CallbackMessageArrived(topicName, topicLen, message);
}

void ClientBroker::CallbackCallerDelivered(void* context, int token)
{
    static_cast<ClientBroker*>(context)->CallbackDelivered(token);
}

void ClientBroker::CallbackConnectionLost(char* /*cause*/)
{
    const ClientUse client(*this);
    if (ProcessEnding::hasBegun())
        return;
    PLOG_INFO << QString("ClientBroker '%1' lost is connection").arg(Name);
    // Counted first: a connection attempt that is just ending must not store "connected" over this loss.
    m_Losses.increment();
    for (MQTTCallerBase* caller : qAsConst(m_Callers)) {
        if (caller->m_CallerType == CT_SUBSCRIBER) {
            caller->ConnectionLost();
            caller->UpdateCfgStruct();
        }
    }
    m_Connected = 0;
    m_SessionPresent = 0;
    m_ReturnCode = static_cast<std::int8_t>(CB_CONNECTION_LOST);
    UpdateClientBrokerStruct();
    for (const MQTTCallerBase* caller : qAsConst(m_Callers)) {
        if (caller->m_CallerType == CT_SUBSCRIBER)
            m_StatusLogManager->UpdateDroppedSubscriptions();
    }
}

int ClientBroker::CallbackMessageArrived(char* topicName, int /*topicLen*/, MQTTClient_message* message)
{
    const ClientUse client(*this);
    stayWhileProcessEnds();
    std::optional<Turn> turn;
    if (CleanSessionFlag && !takeMessage(turn))
        return 0; // nothing was touched: the library keeps the message, or has dropped it with the session
    stayWhileProcessEnds();
    awaitRequestFor(topicName);
    offerMessage(topicName, message);
    MQTTClient_freeMessage(&message);
    MQTTClient_free(topicName);
    return 1; // consumed: never to be delivered again
}

// Without a session to keep, a connection attempt, a failing publication or a failing request frees the messages that
// the library holds, this one included. True when that can't happen while `turn` lives.
bool ClientBroker::takeMessage(std::optional<Turn>& turn)
{
    while (true) {
        turn.emplace(m_MessagesInUse, MessagePause, messagePatience());
        if (!turn->isMine())
            return false;
        switch (requestPhase()) {
        case RequestPhase::None:
        case RequestPhase::Waiting:
            return true;
        case RequestPhase::Expiring:
            return false;
        case RequestPhase::Writing:
            break;
        }
        turn.reset(); // the request waits for it
        std::this_thread::sleep_for(MessagePause);
    }
}

std::chrono::milliseconds ClientBroker::messagePatience() const
{
    // An attempt can take 15 s, and all brokers would wait that long.
    return m_InConnect ? std::chrono::milliseconds(0) : MessagePatience;
}

ClientBroker::RequestPhase ClientBroker::requestPhase() const
{
    const qint64 begin = m_RequestBegin;
    if (begin == 0)
        return RequestPhase::None;
    const std::chrono::milliseconds age(steadyMilliseconds() - begin);
    if (age < RequestWritten)
        return RequestPhase::Writing;
    return age < RequestExpiring ? RequestPhase::Waiting : RequestPhase::Expiring;
}

void ClientBroker::awaitRequestFor(const char* topicName)
{
    // The broker's answer and the subscription's first messages come together, retained ones above all: the subscribing
    // thread has to note the answer first, or nobody counts as subscribed.
    const TopicFilter* filter = m_RequestedFilter;
    if (!filter || !filter->matchesByAnyRule(topicName))
        return;
    const auto begin = std::chrono::steady_clock::now();
    while (m_RequestedFilter == filter && std::chrono::steady_clock::now() - begin < MessagePatience)
        std::this_thread::sleep_for(MessagePause);
}

void ClientBroker::offerMessage(char* topicName, MQTTClient_message* message)
{
    // Intended: a topic with a zero byte inside ends there.
    const int length = static_cast<int>(std::strlen(topicName));
    bool isTaken = false;
    for (MQTTCallerBase* caller : qAsConst(m_Callers)) {
        if (caller->m_CallerType == CT_SUBSCRIBER && caller->IsSubscribed())
            isTaken |= caller->MessageArrived(topicName, length, message);
    }
    if (!isTaken) {
        PLOG_DEBUG << "Accepted message does not belong to any topic";
    }
}

void ClientBroker::CallbackDelivered(int token)
{
    const ClientUse client(*this);
    if (ProcessEnding::hasBegun())
        return;
    for (MQTTCallerBase* caller : qAsConst(m_Callers)) {
        if (caller->m_CallerType == CT_PUBLISHER)
            caller->DeliveryComplete(token);
    }
    m_StatusLogManager->UpdatePublicationAckReceived();
    restartAcknowledgementClock();
    m_Deliveries.increment();
    leaveFlight();
}
