#include "Entities/clientbroker.h"

#include "Entities/steadyclock.h"
#include "Entities/turn.h"

#include <thread>

namespace {

// Without an acknowledgement for this long, the broker counts as one that never acknowledges.
constexpr std::chrono::milliseconds AcknowledgementPatience(20'000);
constexpr std::chrono::microseconds AcknowledgementPoll(50);

int pendingMessages(MQTTClient client)
{
    MQTTClient_deliveryToken* tokens = nullptr;
    if (MQTTClient_getPendingDeliveryTokens(client, &tokens) != MQTTCLIENT_SUCCESS || !tokens)
        return 0;
    int count = 0;
    while (tokens[count] != -1)
        ++count;
    MQTTClient_free(tokens);
    return count;
}

} // namespace

int ClientBroker::Publish(const QByteArray& topic, const void* payload, int payloadLength, int qualityOfService,
                          bool retained, MQTTClient_deliveryToken& token)
{
    // The library takes any number here; some of them would block every later publication of this broker for ever.
    if (qualityOfService < 0 || qualityOfService > 2)
        return MQTTCLIENT_BAD_QOS;
    const Turn turn(m_Publishing, AcknowledgementPoll, AcknowledgementPatience);
    // The library allows one message in flight and waits for its acknowledgement in steps of 100 ms and without end.
    if (!turn.isMine() || !waitForAcknowledgements())
        return MQTTCLIENT_MAX_MESSAGES_INFLIGHT;
    if (qualityOfService == 0)
        return publishInLibrary(topic, payload, payloadLength, qualityOfService, retained, token);

    // Counted ahead of the call: the acknowledgement may arrive before the call returns.
    restartAcknowledgementClock();
    m_InFlight.increment();
    const int result = publishInLibrary(topic, payload, payloadLength, qualityOfService, retained, token);
    if (result != MQTTCLIENT_SUCCESS)
        leaveFlight();
    return result;
}

int ClientBroker::publishInLibrary(const QByteArray& topic, const void* payload, int payloadLength,
                                   int qualityOfService, bool retained, MQTTClient_deliveryToken& token)
{
    const ClientUse client(*this);
    if (!client.handle())
        return PSC_ERROR_NOT_PUBLISHED;
    const Turn turn(m_MessagesInUse, AcknowledgementPoll);
    const int result = MQTTClient_publish(client.handle(), topic.constData(), payloadLength, payload, qualityOfService,
                                          retained, &token);
    // Above quality of service 0 the library keeps the message when the connection breaks, and says nothing.
    if (result != MQTTCLIENT_SUCCESS || qualityOfService > 0)
        noteSessionEnd(client.handle());
    return result;
}

bool ClientBroker::waitForAcknowledgements()
{
    while (m_InFlight > 0) {
        if (ProcessEnding::hasBegun() || steadyMilliseconds() - m_WaitingSince >= AcknowledgementPatience.count())
            return false;
        if (!m_Connected)
            return true; // the library knows what to answer
        std::this_thread::sleep_for(AcknowledgementPoll);
    }
    return true;
}

void ClientBroker::adoptMessagesInFlight(MQTTClient client)
{
    // A kept session may still hold messages, of this process or of one before it; the library sends them again. The
    // count is taken anew when a delivery came in between, since that one may be in the list or not.
    unsigned deliveries = 0;
    do {
        deliveries = m_Deliveries;
        m_InFlight = pendingMessages(client);
    } while (m_Deliveries != deliveries);
    restartAcknowledgementClock();
}

void ClientBroker::restartAcknowledgementClock()
{
    m_WaitingSince = steadyMilliseconds();
}

void ClientBroker::leaveFlight()
{
    // Never below 0: acknowledgements for messages of an earlier life of the process are not in the count.
    int inFlight = m_InFlight;
    while (inFlight > 0 && !m_InFlight.compareExchange(inFlight, inFlight - 1)) {
    }
}
