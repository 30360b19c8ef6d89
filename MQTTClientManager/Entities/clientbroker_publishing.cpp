#include "Entities/clientbroker.h"

#include <unistd.h>

namespace {

// Without an acknowledgement for this long, the broker counts as one that never acknowledges.
constexpr qint64 AcknowledgementPatience = 20'000; // ms
constexpr useconds_t AcknowledgementPoll = 50;     // us

qint64 steadyMilliseconds()
{
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
}

} // namespace

int ClientBroker::Publish(const QByteArray& topic, const void* payload, int payloadLength, int qualityOfService,
                          bool retained, MQTTClient_deliveryToken& token)
{
    // The library takes any number here; some of them would block every later publication of this broker for ever.
    if (qualityOfService < 0 || qualityOfService > 2)
        return MQTTCLIENT_BAD_QOS;
    // The library allows one message in flight and waits for its acknowledgement in steps of 100 ms and without end.
    if (!waitForAcknowledgements())
        return MQTTCLIENT_MAX_MESSAGES_INFLIGHT;

    const ClientUse client(*this);
    if (!client.handle())
        return PSC_ERROR_NOT_PUBLISHED;
    if (qualityOfService == 0)
        return MQTTClient_publish(client.handle(), topic.constData(), payloadLength, payload, 0, retained, &token);

    // Counted ahead of the call: the acknowledgement may arrive before the call returns.
    restartAcknowledgementClock();
    m_InFlight.increment();
    const int result = MQTTClient_publish(client.handle(), topic.constData(), payloadLength, payload, qualityOfService,
                                          retained, &token);
    if (result != MQTTCLIENT_SUCCESS)
        leaveFlight();
    return result;
}

bool ClientBroker::waitForAcknowledgements()
{
    while (m_InFlight > 0) {
        if (ProcessEnding::isRaised() || steadyMilliseconds() - m_LastAcknowledged >= AcknowledgementPatience)
            return false;
        if (!m_Connected)
            return true; // the library knows what to answer
        usleep(AcknowledgementPoll);
    }
    return true;
}

void ClientBroker::restartAcknowledgementClock()
{
    m_LastAcknowledged = steadyMilliseconds();
}

void ClientBroker::leaveFlight()
{
    // Never below 0: acknowledgements for messages of an earlier life of the process are not in the count.
    int inFlight = m_InFlight;
    while (inFlight > 0 && !m_InFlight.compareExchange(inFlight, inFlight - 1)) {
    }
}
