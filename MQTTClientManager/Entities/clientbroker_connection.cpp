#include "Entities/clientbroker.h"

#include "Entities/connectionrecords.h"
#include "Entities/mqttcallerbase.h"
#include "Entities/turn.h"
#include "logging.h"
#include "Services/mqttmanagerservices.h"

namespace {

std::atomic<int> attemptsInLibrary{0};

} // namespace

CBrokerStatusCodes ClientBroker::Connect()
{
    const BusyMark busy(*this);
    ConnectionRecords records(*this);
    const Attempt attempt = attemptConnection(records.options());

    m_ReturnCode = static_cast<std::int8_t>(attempt.result);
    // The loss of the new connection may have been reported, on its own thread, before this one got here.
    if (attempt.result == CB_OK && m_Losses != attempt.losses)
        m_ReturnCode = static_cast<std::int8_t>(CB_CONNECTION_LOST);
    UpdateClientBrokerStruct();
    PLOG_DEBUG << QString("CONNECT by cBroker '%1' endded with (%2). Stats are (Connected(%3) | ReturnCode(%4) | "
                          "SessionPresent(%5)). returned.sessionPresent is (%6)")
                      .arg(Name, QString::number(attempt.result), QString::number(m_Connected),
                           QString::number(m_ReturnCode), QString::number(m_SessionPresent),
                           QString::number(records.options().returned.sessionPresent));
    return attempt.result;
}

ClientBroker::Attempt ClientBroker::attemptConnection(MQTTClient_connectOptions& options)
{
    // A second attempt on the same handle would succeed and leak the first one's socket, so it waits for its turn.
    const Turn turn(m_Connecting, std::chrono::milliseconds(10));
    const unsigned losses = m_Losses;
    const ClientUse client(*this);
    if (MQTTClient_isConnected(client.handle()))
        return {CB_CONNECT_REFUSED, losses};
    if (!m_Services->CheckEthPortLinkState()) {
        m_Connected = 0;
        return {CB_CONNECT_REFUSED, losses};
    }
    const int callbacksSet = MQTTClient_setCallbacks(client.handle(), this, CallbackCallerConnectionLost,
                                                     CallbackCallerMessageArrived, CallbackCallerDelivered);
    if (callbacksSet != MQTTCLIENT_SUCCESS)
        return {static_cast<CBrokerStatusCodes>(callbacksSet), losses};
    return {connectInLibrary(client.handle(), options, losses), losses};
}

CBrokerStatusCodes ClientBroker::connectInLibrary(MQTTClient client, MQTTClient_connectOptions& options,
                                                  unsigned losses)
{
    const Turn turn(m_MessagesInUse, std::chrono::milliseconds(1));
    m_IsSessionNoticeLate = false;
    m_InConnect = true;
    attemptsInLibrary.fetch_add(1);
    // Looked at after the count: once the end has begun and the count is 0, no attempt enters the library any more.
    const int connected = ProcessEnding::hasBegun() ? int{CB_CONNECT_REFUSED} : MQTTClient_connect(client, &options);
    attemptsInLibrary.fetch_sub(1);
    if (connected == MQTTCLIENT_SUCCESS)
        noteConnection(client, options.returned.sessionPresent == 1, losses);
    else
        m_Connected = 0;
    m_InConnect = false;
    if (connected != MQTTCLIENT_SUCCESS)
        startCaFileChange();
    return static_cast<CBrokerStatusCodes>(connected);
}

void ClientBroker::noteConnection(MQTTClient client, bool isSessionPresent, unsigned losses)
{
    m_IsSessionClosed = false;
    adoptMessagesInFlight(client);
    m_Connected = 1;
    if (isSessionPresent) {
        m_SessionPresent = 1;
        notifyOnCleanSessionConnection();
    }
    if (m_Losses == losses)
        return;
    // Lost again, and noted on another thread before this one got here.
    m_Connected = 0;
    m_SessionPresent = 0;
    for (MQTTCallerBase* caller : qAsConst(m_Callers)) {
        if (caller->m_CallerType == CT_SUBSCRIBER)
            caller->ConnectionLost();
    }
}

bool ClientBroker::isAnyConnecting()
{
    return attemptsInLibrary.load() > 0;
}
