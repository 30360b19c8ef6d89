#pragma once

#include <cstdlib>
#include <memory>
#include <MQTTClient.h>
#include <QByteArray>

class ClientBroker;

// The client library's option records for one connection attempt, with the texts that they point to. Made anew for each
// attempt, so that rotated certificate files, the will tag of the moment and a fresh token take effect.
class ConnectionRecords
{
public:
    explicit ConnectionRecords(ClientBroker& broker);
    ConnectionRecords(const ConnectionRecords&) = delete;
    ConnectionRecords& operator=(const ConnectionRecords&) = delete;

    [[nodiscard]] MQTTClient_connectOptions& options() { return m_options; }

private:
    void fillCredentials(const ClientBroker& broker);
    void applyEncryptionLevel(ClientBroker& broker);
    void useToken(ClientBroker& broker);
    void fillWill(const ClientBroker& broker);

    QByteArray m_caFile;
    QByteArray m_keyFile;
    QByteArray m_certificateFile;
    QByteArray m_userName;
    QByteArray m_password;
    std::unique_ptr<char, decltype(&std::free)> m_token{nullptr, &std::free};
    QByteArray m_willTopic;
    QByteArray m_willMessage;
    MQTTClient_connectOptions m_options;
    MQTTClient_SSLOptions m_tls;
    MQTTClient_willOptions m_will;
};
