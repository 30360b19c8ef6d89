#include "Entities/clientbroker.h"

#include "devicepaths.h"
#include "logging.h"

#include <thread>

namespace {

// For a callback of the last moment that isn't counted as a use yet.
constexpr auto GraceForEnteringCallbacks = std::chrono::milliseconds(10);

} // namespace

StatusCodes ClientBroker::CreateMQTTClient()
{
    const QString scheme = Encryption == ENC_NONE ? "tcp" : "ssl";
    const QString connection = QString("%1://%2:%3").arg(scheme, IPorURL, QString::number(Port));

    MQTTClient client = nullptr;
    const int result =
        MQTTClient_create(&client, connection.toUtf8().constData(), ClientID.toUtf8().constData(),
                          MQTTCLIENT_PERSISTENCE_DEFAULT, const_cast<char*>(DevicePaths::PersistenceDirectory));
    m_MQTTClient = client;
    m_ReturnCode = static_cast<std::int8_t>(result);
    UpdateClientBrokerStruct();
    PLOG_DEBUG << QString("Broker '%1' with connection (%2), m_ClientID len (%3) and connectionStr len (%4) creation "
                          "done with (%5)")
                      .arg(Name, connection, QString::number(ClientID.size()), QString::number(connection.size()),
                           QString::number(result));
    return static_cast<StatusCodes>(result);
}

void ClientBroker::DestroyMQTTClient(std::chrono::steady_clock::time_point deadline)
{
    MQTTClient client = m_MQTTClient.exchange(nullptr);
    if (!waitUntilUnused(deadline))
        return;
    // At the end of the process nobody says goodbye: the broker is to publish the will.
    if (!ProcessEnding::hasBegun() && MQTTClient_isConnected(client)) {
        closeLateConnection(client);
        std::this_thread::sleep_for(GraceForEnteringCallbacks);
        waitUntilUnused(std::chrono::steady_clock::time_point::max());
    }
    MQTTClient_destroy(&client);
}

bool ClientBroker::waitUntilUnused(std::chrono::steady_clock::time_point deadline) const
{
    while (m_ClientUsers > 0) {
        if (std::chrono::steady_clock::now() >= deadline)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

bool ClientBroker::IsConnected()
{
    const ClientUse client(*this);
    return MQTTClient_isConnected(client.handle()) != 0;
}
