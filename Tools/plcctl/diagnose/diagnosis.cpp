#include "diagnose/diagnosis.h"

#include "diagnose/certificates.h"
#include "diagnose/mqttprobe.h"
#include "diagnose/tlsprobe.h"
#include "output.h"
#include "servicecode/collectedlog.h"
#include "servicecode/configuredentities.h"
#include "servicecode/privatetagmemory.h"
#include "tagaccess.h"

#include "devicepaths.h"
#include "Entities/connectionrecords.h"
#include "Services/mqttmanagerservices.h"
#include "Utils/scriptrunner.h"

#include <ctime>
#include <unistd.h>

namespace plcctl {

namespace {

constexpr char IdSuffix[] = "-diagnose";
constexpr std::uint32_t EarliestPossible = 1735689600; // 2025-01-01: before that a clock isn't set
constexpr auto ClockCheckPatience = std::chrono::seconds(10);

const char* levelText(int level)
{
    constexpr const char* Levels[] = {"no encryption",
                                      "TLS, any certificate is taken",
                                      "TLS, authority in CAFileName",
                                      "TLS, authorities of the system",
                                      "TLS, authority in CAFileName and a client certificate",
                                      "TLS, authority in CAFileName and a token as password"};
    return level >= 0 && level <= ENC_SSL_CA_AND_PRIVATE_KEY ? Levels[level] : Levels[ENC_SSL_NO_SERVER_AUTH];
}

bool isTls(const ClientBroker& broker)
{
    return broker.Encryption != ENC_NONE;
}

// Reads of the service's code see the tags of this machine, if there are any.
bool lookAtRealTags()
{
    try {
        PrivateTagMemory::setSource([reader = TagReader()](unsigned long position, std::span<std::uint8_t> bytes) {
            if (bytesFrom(position) < bytes.size())
                return false;
            const auto content = reader.read(position, bytes.size());
            std::copy(content.begin(), content.end(), bytes.begin());
            return true;
        });
        return true;
    } catch (const Failure&) {
        return false;
    }
}

class Diagnosis
{
public:
    Diagnosis(ClientBroker& broker, const DiagnoseArguments& arguments, const std::function<void(const Step&)>& report)
        : m_broker(broker), m_arguments(arguments), m_report(report),
          m_patience(std::chrono::seconds(arguments.timeoutSeconds)), m_host(broker.IPorURL.toStdString()),
          m_hasTags(lookAtRealTags()), m_records(broker), m_tokenLog(takeLogLines())
    {
    }

    void run()
    {
        settings();
        link();
        clock();
        const bool areFilesGood = !isTls(m_broker) || files();
        if (m_broker.Encryption == ENC_SSL_CA_AND_PRIVATE_KEY)
            token();
        Step name{"name"};
        m_address = lookUp(name, m_host, m_broker.Port, m_patience);
        m_report(name);
        Descriptor descriptor = tcp();
        const bool isConnected = descriptor.number() >= 0;
        const bool isSecured = isConnected && (!isTls(m_broker) || tls(std::move(descriptor), areFilesGood));
        mqtt(isSecured);
    }

private:
    void settings();
    void link();
    void clock();
    bool files();
    void token();
    Descriptor tcp();
    bool tls(Descriptor descriptor, bool areFilesGood);
    void mqtt(bool isReady);

    MQTTClient_connectOptions& options() { return m_records.options(); }
    [[nodiscard]] std::string clientId() const
    {
        return m_broker.ClientID.toStdString() + (m_arguments.asService ? "" : IdSuffix);
    }
    Descriptor reconnect()
    {
        Step unused{""};
        return connectTo(unused, *m_address, m_broker.Port, m_patience);
    }
    std::optional<Channel> reconnectForMqtt();

    ClientBroker& m_broker;
    const DiagnoseArguments& m_arguments;
    const std::function<void(const Step&)>& m_report;
    Patience m_patience;
    std::string m_host;
    bool m_hasTags;
    ConnectionRecords m_records; // reads the will's tag, and makes the token
    std::vector<std::string> m_tokenLog;
    std::optional<Address> m_address;
};

void Diagnosis::settings()
{
    Step step{"settings"};
    step.seen = "broker " + std::to_string(m_broker.UniqueID) + " " + inQuotes(m_broker.Name.toStdString()) + ", " +
                printable(m_host) + " port " + std::to_string(m_broker.Port) + ", EncryptionType " +
                std::to_string(m_broker.Encryption) + ": " + levelText(m_broker.Encryption);
    const std::string file = pathIn(m_arguments.configDirectory, DevicePaths::BrokersFile);
    if (access(file.c_str(), W_OK) != 0)
        step.details.push_back(printable(file) + " can't be written by this user; the service refuses a file that it "
                                                 "can't write, and ends at once");
    const MQTTClient_connectOptions& o = options();
    step.details.push_back(std::string("user name ") + (o.username ? inQuotes(o.username) : "none") + ", password " +
                           (o.password ? "set" : "none") + ", keep-alive " + std::to_string(o.keepAliveInterval) +
                           " s, CleanSession " + (o.cleansession != 0 ? "1" : "0"));
    if (!m_arguments.asService)
        step.details.push_back("client ID " + inQuotes(clientId()) +
                               " and a clean session, so that a running service "
                               "as " +
                               inQuotes(m_broker.ClientID.toStdString()) + " keeps its connection");
    else
        step.details.emplace_back("the service's own client ID: a running service loses its connection, and what waits "
                                  "for it in a stored session is taken here and lost");
    if (o.password && !o.username)
        step.fail("Password is set and UserName is empty", "set UserName: brokers close such a connection");
    if (m_broker.Port == 0)
        step.fail("Port is 0", "set Port in Brokers.xml: 1883 plain and 8883 with TLS are usual");
    if (m_host.empty() || m_host.find("://") != std::string::npos)
        step.fail("IPOrURL is " + inQuotes(m_host), "set it to a name or an address, without tcp:// in front");
    if (o.will && *o.will->topicName == '\0')
        step.fail("LastWillAddr is set and LastWillTopic is empty: no connection can be made (-17)",
                  "set LastWillTopic, or LastWillAddr to -1 for no will");
    m_report(step);
}

void Diagnosis::link()
{
    Step step{"link"};
    if (!m_hasTags) {
        step.outcome = Outcome::Skipped;
        step.seen = "there is no tag memory here that tells";
    } else if (MQTTManagerServices::instance()->CheckEthPortLinkState()) {
        step.seen = "an Ethernet port has a link";
    } else {
        step.fail("no Ethernet port has a link, by tag memory: the service tries nothing and shows -11",
                  "plug the cable in, or look at the link bytes with plcctl link show");
    }
    m_report(step);
}

void Diagnosis::clock()
{
    Step step{"clock"};
    const std::time_t now = std::time(nullptr);
    step.seen = utcSeconds(static_cast<std::uint32_t>(now));
    const bool hasScript = access(DevicePaths::ClockCheckScript, X_OK) == 0;
    const auto answer = hasScript ? ScriptRunner::run(DevicePaths::ClockCheckScript, {}, ClockCheckPatience)
                                  : std::optional<QByteArray>();
    if (now < EarliestPossible || (answer && !answer->contains('1')))
        step.fail(step.seen + ", not set" + (answer ? ", by the device's own script" : ""),
                  "set the clock: certificates and tokens are judged by it");
    m_report(step);
}

bool Diagnosis::files()
{
    Step step{"files"};
    checkCertificateFiles(step, m_broker, *options().ssl);
    m_report(step);
    return step.outcome == Outcome::Ok;
}

void Diagnosis::token()
{
    Step step{"token"};
    checkToken(step, m_broker, options().password, m_tokenLog);
    m_report(step);
}

Descriptor Diagnosis::tcp()
{
    Step step{"tcp", Outcome::Skipped, "there is no address to connect to"};
    Descriptor descriptor;
    if (m_address) {
        step.outcome = Outcome::Ok;
        descriptor = connectTo(step, *m_address, m_broker.Port, m_patience);
    }
    m_report(step);
    if (descriptor.number() < 0 && isTls(m_broker))
        m_report({"tls", Outcome::Skipped, "there is no connection"});
    return descriptor;
}

bool Diagnosis::tls(Descriptor descriptor, bool areFilesGood)
{
    Step step{"tls"};
    const auto channel =
        tryTls(step, std::move(descriptor), *options().ssl, m_host, m_patience, [this] { return reconnect(); });
    if (!channel && !areFilesGood)
        step.advice.insert(step.advice.begin(),
                           "mend first what the step 'files' tells; it may be all there is to this");
    m_report(step);
    return channel.has_value() && areFilesGood;
}

std::optional<Channel> Diagnosis::reconnectForMqtt()
{
    Descriptor descriptor = reconnect();
    if (descriptor.number() < 0)
        return std::nullopt;
    if (!isTls(m_broker))
        return Channel(std::move(descriptor));
    TlsFailure failure;
    return shakeHands(std::move(descriptor), *options().ssl, m_host, {}, std::chrono::steady_clock::now() + m_patience,
                      failure);
}

void Diagnosis::mqtt(bool isReady)
{
    Step step{"mqtt", Outcome::Skipped, "an earlier step failed"};
    if (isReady) {
        step.outcome = Outcome::Ok;
        if (!m_arguments.asService)
            options().cleansession = 1;
        options().connectTimeout = static_cast<int>(m_arguments.timeoutSeconds);
        const std::string uri = (isTls(m_broker) ? "ssl://" : "tcp://") + m_host + ":" + std::to_string(m_broker.Port);
        tryMqtt(step, uri, clientId(), options(), m_patience, [this] { return reconnectForMqtt(); });
    }
    m_report(step);
}

} // namespace

void runDiagnosis(ClientBroker& broker, const DiagnoseArguments& arguments,
                  const std::function<void(const Step&)>& report)
{
    Diagnosis(broker, arguments, report).run();
}

} // namespace plcctl
