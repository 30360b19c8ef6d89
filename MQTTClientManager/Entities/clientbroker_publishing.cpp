#include "Entities/clientbroker.h"

#include "Entities/steadyclock.h"
#include "Entities/turn.h"
#include "logging.h"

#include <thread>

namespace {

// Without an acknowledgement for this long, the broker counts as one that never acknowledges.
constexpr std::chrono::milliseconds AcknowledgementPatience(20'000);
constexpr std::chrono::microseconds AcknowledgementPoll(50);
constexpr std::chrono::milliseconds GraceBehindLock(400);

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
    m_PublishBegin = steadyMilliseconds();
    const int result = MQTTClient_publish(client.handle(), topic.constData(), payloadLength, payload, qualityOfService,
                                          retained, &token);
    m_PublishBegin = 0;
    // Above quality of service 0 the library keeps the message when the connection breaks, and says nothing.
    if (result != MQTTCLIENT_SUCCESS || qualityOfService > 0)
        noteSessionEnd(client.handle());
    return result;
}

void ClientBroker::endStalledPublication(std::chrono::milliseconds patience)
{
    const qint64 begin = m_PublishBegin;
    if (begin == 0 || steadyMilliseconds() - begin < patience.count())
        return;
    // No attempt may come between the end of the connection and the note of its loss.
    const Turn turn(m_Connecting, std::chrono::milliseconds(10));
    const ClientUse client(*this);
    // A name look-up for another broker holds the library's lock, and publications wait for it as well. So does this
    // call; a publication that was held up by nothing else then gets on.
    MQTTClient_isConnected(client.handle());
    std::this_thread::sleep_for(GraceBehindLock);
    if (m_PublishBegin != begin)
        return;
    PLOG_WARNING << QString("broker '%1' takes no more data: its connection is given up").arg(Name);
    // A connection that ends this way is no loss to the library; one that was lost already has been noted.
    if (disconnectInLibrary(client.handle(), 0) == MQTTCLIENT_SUCCESS)
        CallbackConnectionLost(nullptr);
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
