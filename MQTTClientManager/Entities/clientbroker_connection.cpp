#include "Entities/clientbroker.h"

#include "Entities/connectionrecords.h"
#include "logging.h"
#include "Services/mqttmanagerservices.h"

#include <thread>

namespace {

std::atomic<int> attemptsInLibrary{0};

} // namespace

class ClientBroker::BusyMark
{
public:
    explicit BusyMark(ClientBroker& broker) : m_broker(broker) { m_broker.m_Busy = true; }
    ~BusyMark() { m_broker.m_Busy = false; }
    BusyMark(const BusyMark&) = delete;
    BusyMark& operator=(const BusyMark&) = delete;

private:
    ClientBroker& m_broker;
};

// A second attempt on the same handle would succeed and leak the first one's socket, so it waits for its turn.
class ClientBroker::AttemptTurn
{
public:
    explicit AttemptTurn(ClientBroker& broker) : m_broker(broker)
    {
        while (m_broker.m_Connecting.exchange(true))
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    ~AttemptTurn() { m_broker.m_Connecting = false; }
    AttemptTurn(const AttemptTurn&) = delete;
    AttemptTurn& operator=(const AttemptTurn&) = delete;

private:
    ClientBroker& m_broker;
};

CBrokerStatusCodes ClientBroker::Connect()
{
    const BusyMark busy(*this);
    ConnectionRecords records(*this);
    const unsigned losses = m_Losses;
    const CBrokerStatusCodes result = attemptConnection(records.options());

    const bool isLostAlready = result == CB_OK && m_Losses != losses;
    m_ReturnCode = static_cast<std::int8_t>(isLostAlready ? CB_CONNECTION_LOST : result);
    UpdateClientBrokerStruct();
    PLOG_DEBUG << QString("CONNECT by cBroker '%1' endded with (%2). Stats are (Connected(%3) | ReturnCode(%4) | "
                          "SessionPresent(%5)). returned.sessionPresent is (%6)")
                      .arg(Name, QString::number(result), QString::number(m_Connected), QString::number(m_ReturnCode),
                           QString::number(m_SessionPresent),
                           QString::number(records.options().returned.sessionPresent));
    return result;
}

CBrokerStatusCodes ClientBroker::attemptConnection(MQTTClient_connectOptions& options)
{
    const AttemptTurn turn(*this);
    const ClientUse client(*this);
    if (MQTTClient_isConnected(client.handle()))
        return CB_CONNECT_REFUSED;
    if (!m_Services->CheckEthPortLinkState()) {
        m_Connected = 0;
        return CB_CONNECT_REFUSED;
    }
    const int callbacksSet = MQTTClient_setCallbacks(client.handle(), this, CallbackCallerConnectionLost,
                                                     CallbackCallerMessageArrived, CallbackCallerDelivered);
    if (callbacksSet != MQTTCLIENT_SUCCESS)
        return static_cast<CBrokerStatusCodes>(callbacksSet);

    if (CleanSessionFlag)
        m_InFlight = 0; // the library forgets what was in flight
    const unsigned losses = m_Losses;
    attemptsInLibrary.fetch_add(1);
    const int connected = MQTTClient_connect(client.handle(), &options);
    attemptsInLibrary.fetch_sub(1);
    if (connected != MQTTCLIENT_SUCCESS) {
        m_Connected = 0;
        return static_cast<CBrokerStatusCodes>(connected);
    }

    restartAcknowledgementClock();
    m_Connected = 1;
    if (options.returned.sessionPresent == 1)
        m_SessionPresent = 1;
    // The loss of the new connection may have been reported on its own thread before this one got here.
    if (m_Losses != losses) {
        m_Connected = 0;
        m_SessionPresent = 0;
    }
    return CB_OK;
}

bool ClientBroker::isAnyConnecting()
{
    return attemptsInLibrary.load() > 0;
}
