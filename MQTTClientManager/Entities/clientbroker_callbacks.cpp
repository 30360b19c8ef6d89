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

// A request is long on its way to the broker after the first, and the library waits for its answer for some 10 s.
constexpr std::chrono::milliseconds RequestWritten(5);
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
    const unsigned loss = m_Losses.increment();
    tellSubscribersOfLoss();
    m_Connected = 0;
    m_SessionPresent = 0;
    m_ReturnCode = static_cast<std::int8_t>(CB_CONNECTION_LOST);
    UpdateClientBrokerStruct();
    for (const MQTTCallerBase* caller : qAsConst(m_Callers)) {
        if (caller->m_CallerType == CT_SUBSCRIBER)
            m_StatusLogManager->UpdateDroppedSubscriptions();
    }
    // Not here: the library's other threads wait for this one, and after 5 s it takes what this one stands on.
    startReconnecting(loss);
}

void ClientBroker::tellSubscribersOfLoss()
{
    for (int i = 0; i < m_Callers.size(); ++i) {
        MQTTCallerBase* caller = m_Callers.at(i);
        if (caller->m_CallerType != CT_SUBSCRIBER)
            continue;
        if (caller->IsSubscribed()) { // asked first: being told of the loss changes the answer
            PLOG_DEBUG
                << QString("Added caller %1' idx (%2) to SubDuringCLIdxList").arg(caller->m_Name, QString::number(i));
            SubDuringCLIdxList.append(i);
        }
        caller->ConnectionLost();
        caller->UpdateCfgStruct();
    }
}

int ClientBroker::CallbackMessageArrived(char* topicName, int /*topicLen*/, MQTTClient_message* message)
{
    const ClientUse client(*this);
    stayWhileProcessEnds();
    std::optional<Turn> turn;
    if (!CleanSessionFlag)
        waitForSessionNotice();
    else if (!takeMessage(turn))
        return 0; // nothing was touched: the message is gone with its session, or the library keeps it for now
    stayWhileProcessEnds();
    offerMessage(topicName, message);
    MQTTClient_freeMessage(&message);
    MQTTClient_free(topicName);
    m_InMessage = false;
    return 1; // consumed: never to be delivered again
}

// Without a session to keep, a connection attempt, a failing publication or a failing request frees the messages that
// the library holds, this one included. True when that hasn't happened and can't happen while `turn` lives.
bool ClientBroker::takeMessage(std::optional<Turn>& turn)
{
    while (true) {
        turn.emplace(m_MessagesInUse, MessagePause, messagePatience());
        if (!turn->isMine())
            return false;
        // First noted, then the look at the flags of others: a disconnect and a request do it the other way round.
        m_InMessage = true;
        if (!m_IsDisconnecting && !m_IsSessionClosed && !mayRequestCloseSession())
            return true;
        m_InMessage = false;
        if (m_IsDisconnecting || m_IsSessionClosed)
            return false;
        turn.reset(); // the request waits for it
        stayWhileProcessEnds();
        std::this_thread::sleep_for(MessagePause);
    }
}

// What a broker has kept for the session follows its answer at once, and the connecting thread may not have told the
// subscribers yet that they are subscribed. It is waited for once an attempt: a broker that sends before it answers
// must not hold up all others for long.
void ClientBroker::waitForSessionNotice()
{
    const auto deadline = std::chrono::steady_clock::now() + MessagePatience;
    while (m_InConnect && !m_IsSessionNoticeLate) {
        if (std::chrono::steady_clock::now() >= deadline)
            m_IsSessionNoticeLate = true;
        std::this_thread::sleep_for(MessagePause);
    }
}

std::chrono::milliseconds ClientBroker::messagePatience() const
{
    // An attempt can take 15 s, and all brokers would wait that long.
    return m_InConnect ? std::chrono::milliseconds(0) : MessagePatience;
}

bool ClientBroker::mayRequestCloseSession() const
{
    const qint64 begin = m_RequestBegin;
    if (begin == 0)
        return false;
    const std::chrono::milliseconds age(steadyMilliseconds() - begin);
    return age < RequestWritten || age >= RequestExpiring;
}

void ClientBroker::noteSessionEnd(MQTTClient client)
{
    if (CleanSessionFlag && !MQTTClient_isConnected(client))
        m_IsSessionClosed = true;
}

void ClientBroker::offerMessage(char* topicName, MQTTClient_message* message)
{
    // Intended: a topic with a zero byte inside ends there.
    const std::size_t length = std::strlen(topicName);
    const bool isSifted = m_Sieve.size() == m_Callers.size();
    bool isTaken = false;
    for (int i = 0; i < m_Callers.size(); ++i) {
        if (isSifted && !m_Sieve.mayMatch(i, topicName, length))
            continue;
        MQTTCallerBase* caller = m_Callers.at(i);
        // Whoever is being subscribed is offered messages, too: a subscription's first ones, retained ones above all,
        // may come ahead of the broker's answer, and come before the subscribing thread has noted it.
        if (caller->m_CallerType == CT_SUBSCRIBER && (caller->IsSubscribed() || caller == m_Subscribing))
            isTaken |= caller->MessageArrived(topicName, static_cast<int>(length), message);
    }
    if (!isTaken) {
        PLOG_DEBUG << "Accepted message does not belong to any topic";
    }
}

void ClientBroker::PrepareCallers()
{
    SubDuringCLIdxList.prepare(m_Callers.size());
    m_Sieve = {};
    for (const MQTTCallerBase* caller : qAsConst(m_Callers)) {
        if (caller->m_CallerType == CT_SUBSCRIBER)
            m_Sieve.addFilter(TopicFilter(caller->m_Topic), caller->m_Special);
        else
            m_Sieve.addNone();
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
