#include "Entities/clientbroker.h"

#include "Entities/mqttcallerbase.h"
#include "Entities/subscriptionrequest.h"
#include "logging.h"

#include <system_error>
#include <thread>

namespace {

constexpr int DISCONNECT_TIMEOUT_MS = 10'000;
constexpr std::chrono::microseconds MessagePause(50);

} // namespace

ClientBroker::~ClientBroker()
{
    // A loop keeps its whole generation alive, and so does a change of the CA file: none is left when the
    // configuration's entities go.
    m_State = PS_PAUSED;
    while (isReconnecting() || m_caFileChangeRunning)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    m_Callers.clear();
    if (m_MQTTClient)
        DestroyMQTTClient();
}

CBrokerStatusCodes ClientBroker::DisConnect()
{
    const CBrokerStatusCodes result = IsConnected() ? disconnectCallersAndClient() : CB_NOT_CONNECTED;
    m_ReturnCode = static_cast<std::int8_t>(result);
    UpdateClientBrokerStruct();
    PLOG_DEBUG << QString("DISCONNECT by cBroker '%1' endded with (%2). Stats are (Connected(%3) | ReturnCode(%4) | "
                          "SessionPresent(%5))")
                      .arg(Name, QString::number(result), QString::number(m_Connected), QString::number(m_ReturnCode),
                           QString::number(m_SessionPresent));
    return result;
}

CBrokerStatusCodes ClientBroker::disconnectCallersAndClient()
{
    // No attempt may come in between: it would store "connected", and then this "not connected" over it.
    const Turn turn(m_Connecting, std::chrono::milliseconds(10));
    const unsigned losses = m_Losses;
    const ClientUse client(*this);
    if (!MQTTClient_isConnected(client.handle()))
        return CB_NOT_CONNECTED;
    for (MQTTCallerBase* caller : qAsConst(m_Callers)) {
        if (caller->m_CallerType != CT_SUBSCRIBER)
            continue;
        // Subscribed or not; whatever comes of it.
        (void)SubscriptionRequest(*this).unsubscribe(caller->m_Topic.toUtf8().constData());
        caller->Disconnect();
    }
    const int result = disconnectInLibrary(client.handle(), DISCONNECT_TIMEOUT_MS);
    if (result == MQTTCLIENT_SUCCESS) {
        m_Connected = 0;
        m_SessionPresent = 0;
    } else {
        // The library can't disconnect what was lost meanwhile, and that has been noted.
        m_Connected = m_Losses == losses ? 1 : 0;
    }
    return static_cast<CBrokerStatusCodes>(result);
}

void ClientBroker::closeLateConnection(MQTTClient client)
{
    // Destroying a connected client would leave its socket open, and the broker would take the service for alive.
    for (MQTTCallerBase* caller : qAsConst(m_Callers)) {
        if (caller->m_CallerType == CT_SUBSCRIBER)
            caller->Disconnect();
    }
    disconnectInLibrary(client, DISCONNECT_TIMEOUT_MS);
    ClearCfgStruct();
}

int ClientBroker::disconnectInLibrary(MQTTClient client, int timeoutMilliseconds)
{
    // With a clean session the library frees its messages, the one under a callback included. No callback begins to
    // look at one from here on; the last one is short.
    m_IsDisconnecting = true;
    while (m_InMessage)
        std::this_thread::sleep_for(MessagePause);
    const int result = MQTTClient_disconnect(client, timeoutMilliseconds);
    noteSessionEnd(client);
    m_IsDisconnecting = false;
    return result;
}

void ClientBroker::startReconnecting(unsigned loss)
{
    m_ReconnectLoops.increment();
    try {
        // The generation outlives the loop, however long its sleep is and whatever a start reads meanwhile.
        std::thread([this, loss, generation = m_Generation.lock()] {
            TryReconnect(loss);
            m_ReconnectLoops.decrement();
        }).detach();
    } catch (const std::system_error& error) {
        m_ReconnectLoops.decrement();
        PLOG_ERROR << QString("broker '%1' is not reconnected: there is no thread for it (%2)")
                          .arg(Name, QString::fromLocal8Bit(error.what()));
    }
}

CBrokerStatusCodes ClientBroker::TryReconnect(unsigned loss)
{
    PLOG_DEBUG << QString("FIRED ('%1')").arg(Name);
    while (mayReconnect(loss) && !m_Connected && ConnectionInterval != 0) {
        sleepInterval(loss);
        // First busy, then the look at the state: a pause that changes the state after that look waits for the attempt.
        const BusyMark busy(*this);
        if (!mayReconnect(loss))
            break;
        Connect();
    }
    PLOG_DEBUG << QString("Done reconnecting, State is (%1) broker '%2'").arg(QString::number(m_State), Name);
    return CB_OK;
}

bool ClientBroker::mayReconnect(unsigned loss) const
{
    return m_State == PS_RUNNING && m_Losses == loss && !ProcessEnding::hasBegun();
}

void ClientBroker::sleepInterval(unsigned loss) const
{
    // In steps, so that a loop that has nothing left to do ends soon, however long its interval is.
    for (unsigned second = 0; second < ConnectionInterval && mayReconnect(loss); ++second)
        std::this_thread::sleep_for(std::chrono::seconds(1));
}

void ClientBroker::notifyOnCleanSessionConnection()
{
    PLOG_DEBUG << "FIRED";
    const std::uint64_t size = SubDuringCLIdxList.size();
    for (int i = 0; i < m_Callers.size() && static_cast<std::uint64_t>(i) < size; ++i) {
        // Intended: position i of the one list against position i of the other, whose own index isn't looked at. A
        // subscriber that follows one that wasn't subscribed at the loss hears nothing.
        const int lost = SubDuringCLIdxList.at(static_cast<std::uint64_t>(i));
        if (lost != LostSubscriptions::NotKept && m_Callers.at(i)->m_Topic == m_Callers.at(lost)->m_Topic)
            m_Callers.at(i)->PresentSessionEstablished();
    }
}
