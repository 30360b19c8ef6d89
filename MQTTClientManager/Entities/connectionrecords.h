#pragma once

#include <MQTTClient.h>
#include <QByteArray>

class ClientBroker;

// The client library's option records for one connection attempt, with the texts that they point to. Made anew for each
// attempt, so that rotated certificate files and the will tag of the moment take effect.
class ConnectionRecords
{
public:
    explicit ConnectionRecords(const ClientBroker& broker);
    ConnectionRecords(const ConnectionRecords&) = delete;
    ConnectionRecords& operator=(const ConnectionRecords&) = delete;

    [[nodiscard]] MQTTClient_connectOptions& options() { return m_options; }

private:
    void fillCredentials(const ClientBroker& broker);
    void applyEncryptionLevel(const ClientBroker& broker);
    void fillWill(const ClientBroker& broker);

    QByteArray m_caFile;
    QByteArray m_keyFile;
    QByteArray m_certificateFile;
    QByteArray m_userName;
    QByteArray m_password;
    QByteArray m_willTopic;
    QByteArray m_willMessage;
    MQTTClient_connectOptions m_options;
    MQTTClient_SSLOptions m_tls;
    MQTTClient_willOptions m_will;
};
