#include "Entities/connectionrecords.h"

#include "devicepaths.h"
#include "Entities/clientbroker.h"
#include "Entities/keyfile.h"
#include "logging.h"
#include "tagmemory.h"

#include <algorithm>
#include <sys/stat.h>

namespace {

constexpr int CONNECT_TIMEOUT_SECONDS = 15;
constexpr int RetryIntervalSeconds = 20;
constexpr int LargestTagRead = 0xFFFF; // bytes; tag memory's sizes have 16 bits

const char* textOrNull(const QByteArray& text)
{
    return text.isEmpty() ? nullptr : text.constData();
}

// The will tag's text as it stands now, up to its first zero byte.
QByteArray readWillMessage(const ClientBroker& broker)
{
    // One byte more than can be read, so that a tag filled to its last byte still ends with a zero.
    QByteArray tag(std::clamp(broker.LastWillDataSize, 0, LargestTagRead) + 1, '\0');
    if (broker.LastWillDataSize > 0)
        TagMemory::Read(static_cast<unsigned short>(broker.LastWillDataSize),
                        static_cast<unsigned int>(broker.LastWillAddr), reinterpret_cast<unsigned char*>(tag.data()));
    return QString::fromUtf8(tag.constData()).toUtf8();
}

// With a slash behind its name no file can be opened, and the attempt fails as with any bad file.
void keepFromOpening(QByteArray& path)
{
    path += '/';
}

// The path as the library gets it. A pipe or a device under that name might never end, and the attempt with it.
QByteArray certificatePath(const QString& path)
{
    QByteArray name = path.toLatin1();
    struct stat file = {};
    if (stat(name.constData(), &file) == 0 && !S_ISREG(file.st_mode) && !S_ISDIR(file.st_mode))
        keepFromOpening(name);
    return name;
}

} // namespace

ConnectionRecords::ConnectionRecords(ClientBroker& broker)
    : m_caFile(certificatePath(broker.SetCAFileName)), m_keyFile(certificatePath(broker.ClientKeyFileName)),
      m_certificateFile(certificatePath(broker.ClientCertificateFileName)),
      m_options(MQTTClient_connectOptions_initializer), m_tls(MQTTClient_SSLOptions_initializer),
      m_will(MQTTClient_willOptions_initializer)
{
    // Version 4 ends with the broker's answer, which is read; the fields of version 5 are not used.
    m_options.struct_version = 4;
    m_options.keepAliveInterval = static_cast<int>(broker.KeepAliveTime);
    m_options.cleansession = broker.CleanSessionFlag;
    m_options.reliable = 1;
    m_options.connectTimeout = CONNECT_TIMEOUT_SECONDS;
    m_options.retryInterval = RetryIntervalSeconds;
    m_options.ssl = &m_tls;

    m_tls.struct_version = 0;
    m_tls.enabledCipherSuites = "DEFAULT:!ECDH";
    m_tls.enableServerCertAuth = 0;

    fillCredentials(broker);
    applyEncryptionLevel(broker);
    fillWill(broker);
}

void ConnectionRecords::fillCredentials(const ClientBroker& broker)
{
    m_userName = broker.UserName.toUtf8();
    m_password = broker.Password.toUtf8();
    m_options.username = textOrNull(m_userName);
    m_options.password = textOrNull(m_password);
}

void ConnectionRecords::applyEncryptionLevel(ClientBroker& broker)
{
    switch (broker.Encryption) {
    case ENC_SSL_CA_CERTIFICATE_ONLY:
        PLOG_DEBUG << QString("Encryption level is 'SSL CA CERTIFICATE ONLY'. File is '%1'").arg(broker.SetCAFileName);
        m_tls.trustStore = m_caFile.constData();
        m_tls.enableServerCertAuth = 1;
        break;
    case ENC_CA_SIGNED_SERVER_CERTIFICATE:
        PLOG_DEBUG << "Encryption level is 'CA SIGNED SERVER CERTIFICATE'. Using trust store";
        m_tls.trustStore = DevicePaths::SystemTrustStore;
        m_tls.enableServerCertAuth = 1;
        break;
    case ENC_SELF_SIGNED_CERTIFICATE:
        PLOG_DEBUG << "Encryption level is 'SELF SIGNED CERTIFICATE'";
        m_tls.trustStore = m_caFile.constData();
        m_tls.keyStore = m_certificateFile.constData();
        // Asking for a passphrase at the terminal would hold up the attempts of all brokers.
        if (KeyFile(m_keyFile.constData()).wantsPassphrase())
            keepFromOpening(m_keyFile);
        m_tls.privateKey = m_keyFile.constData();
        m_tls.enableServerCertAuth = 1;
        break;
    case ENC_SSL_CA_AND_PRIVATE_KEY:
        PLOG_DEBUG << "Encryption level is 'SSL CA AND PRIVATE_KEY'";
        m_tls.trustStore = m_caFile.constData();
        m_tls.privateKey = m_keyFile.constData();
        m_tls.enableServerCertAuth = 1;
        useToken(broker);
        break;
    default:
        break;
    }
}

void ConnectionRecords::useToken(ClientBroker& broker)
{
    m_token.reset(broker.CreateJwt(broker.ClientKeyFileName.toLatin1().constData(),
                                   broker.GoogleCloudProjectID.toUtf8().constData(),
                                   broker.JWTAlgorithm.toUtf8().constData()));
    m_options.username = "unused";
    m_options.password = m_token.get();
}

void ConnectionRecords::fillWill(const ClientBroker& broker)
{
    m_options.will = nullptr;
    if (broker.LastWillAddr == -1)
        return;
    m_willTopic = broker.LastWillTopic.toUtf8();
    m_willMessage = readWillMessage(broker);
    m_will.struct_version = 1;
    m_will.topicName = m_willTopic.constData();
    m_will.message = m_willMessage.constData();
    m_will.retained = 0;
    m_will.qos = 0;
    m_options.will = &m_will;
}
