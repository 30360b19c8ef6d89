#include "check/checks.h"
#include "check/wording.h"

#include <array>
#include <map>
#include <QRegularExpression>
#include <tuple>

namespace plcctl::check {

namespace {

constexpr std::uint32_t TokenLevel = 5;
constexpr std::uint32_t PlainPort = 1883;
constexpr std::uint32_t EncryptedPort = 8883;

bool isDottedAddress(const QString& host)
{
    static const QRegularExpression dotted(R"(^\d+\.\d+\.\d+\.\d+$)");
    return dotted.match(host).hasMatch();
}

bool isIpv4(const QString& host)
{
    constexpr int LargestByte = 255;
    for (const QString& part : host.split('.')) {
        if (part.toInt() > LargestByte || part.size() > 3)
            return false;
    }
    return true;
}

void checkHost(const Broker& broker, Findings& findings)
{
    const QString host = broker.entry.text("IPOrURL");
    const Site site = broker.entry.site("IPOrURL");
    // A missing attribute has a finding of its own.
    if (host.isEmpty() && broker.entry.element().attribute("IPOrURL") != nullptr)
        findings.error(site, "host",
                       "IPOrURL is empty: every attempt to connect fails; write the broker's name or "
                       "address");
    else if (host.contains("://"))
        findings.error(site, "host",
                       "IPOrURL " + quoted(host) +
                           " has a scheme: the service puts one in front by itself, and can't "
                           "connect; write the host alone");
    else if (host.contains('/') || host.contains(' '))
        findings.error(site, "host",
                       "IPOrURL " + quoted(host) +
                           " is no host: every attempt to connect fails; write "
                           "the broker's name or address alone");
    else if (host.contains(':') && !host.startsWith('['))
        findings.error(site, "host",
                       "IPOrURL " + quoted(host) +
                           " holds a ':': write the host alone and its number into Port, and "
                           "an IPv6 address in brackets, '[::1]'");
    else if (isDottedAddress(host) && !isIpv4(host))
        findings.error(site, "host", "IPOrURL " + quoted(host) + " is no IPv4 address: a part of it is above 255");
}

void checkPort(const Broker& broker, Findings& findings)
{
    const std::uint32_t port = broker.entry.address("Port");
    const Site site = broker.entry.site("Port");
    if (broker.level == 0 && port == EncryptedPort)
        findings.warning(site, "port-and-level",
                         "Port 8883 is commonly the one with encryption, and EncryptionType is 0: nothing is "
                         "encrypted; write EncryptionType 1 to 5, or Port 1883");
    if (broker.level != 0 && port == PlainPort)
        findings.warning(site, "port-and-level",
                         "Port 1883 is commonly the one without encryption, and EncryptionType is " +
                             std::to_string(broker.level) + "; write Port 8883, or EncryptionType 0");
}

void checkClientId(const Broker& broker, Findings& findings)
{
    constexpr int LongestFolder = 255; // bytes of a file's name
    const QString id = broker.entry.text("ClientID");
    const Site site = broker.entry.site("ClientID");
    const QString folder =
        id + '-' + broker.entry.text("IPOrURL") + '-' + QString::number(broker.entry.address("Port"));
    if (folder.toUtf8().size() > LongestFolder)
        findings.error(site, "client-id",
                       "ClientID, IPOrURL and Port together have more than 253 bytes: the client can't be made, and "
                       "the service ends at its start; write a shorter ClientID");
    if (id.contains('/') || id == "." || id == "..")
        findings.warning(site, "client-id",
                         "ClientID " + quoted(id) +
                             " is taken as a path: its messages are kept in folders of that "
                             "name, maybe elsewhere than in /tmp/MQTT_PERSISTENCE; write it "
                             "without '/'");
    if (id.contains("{PLC."))
        findings.warning(site, "variable-place",
                         "ClientID " + quoted(id) + " holds a variable, and variables are expanded in topics alone");
    if (id.isEmpty() && broker.entry.number("CleanSession") == 0)
        findings.warning(site, "session-without-id",
                         "CleanSession 0 asks the broker to keep the session, and without a ClientID the service "
                         "makes up another one at each start: no session is found again, and the broker keeps them "
                         "all; write a ClientID, or CleanSession=\"1\"");
}

void checkCredentials(const Broker& broker, Findings& findings)
{
    const bool hasUser = !broker.entry.text("UserName").isEmpty();
    const bool hasPassword = !broker.entry.text("Password").isEmpty();
    if (broker.level == TokenLevel) {
        for (const char* attribute : {"UserName", "Password"}) {
            if (!broker.entry.text(attribute).isEmpty())
                findings.warning(broker.entry.site(attribute), "ignored-attribute",
                                 std::string(attribute) + " is not used at EncryptionType 5: the service sends "
                                                          "'unused' and a token; remove it");
        }
        return;
    }
    const Site site = broker.entry.site("Password");
    if (hasPassword && !hasUser)
        findings.error(site, "password-alone",
                       "Password without UserName: MQTT has no such thing, and every attempt to connect fails; write "
                       "a UserName");
    if (hasPassword && broker.level == 0)
        findings.warning(site, "password-in-clear",
                         "EncryptionType is 0: everybody on the way can read the password; write EncryptionType 2 to "
                         "4, if the broker has it");
    if (broker.level == 1)
        findings.warning(broker.entry.site("EncryptionType"), "unverified-broker",
                         "EncryptionType 1 takes any certificate: whoever is in between can read and change "
                         "everything; write EncryptionType 2 or 3");
}

void checkRetrying(const Broker& broker, Findings& findings)
{
    if (broker.entry.address("ConnectionInterval") == 0 && broker.entry.number("AutoConnect") != 0)
        findings.warning(broker.entry.site("ConnectionInterval"), "no-retry",
                         "ConnectionInterval 0 switches retrying off: after one failed attempt or one lost connection "
                         "nothing connects again but a request; write seconds");
    const Attribute* keepAlive = broker.entry.element().attribute("KeepAlive");
    if (keepAlive != nullptr && broker.entry.address("KeepAlive") == 0)
        findings.warning(broker.entry.site("KeepAlive"), "no-keep-alive",
                         "KeepAlive 0 switches the look at silent connections off: a dead one may count as connected "
                         "for ever; write seconds, such as 60");
}

// Two clients of one name throw each other out.
void checkClientIdsDiffer(const std::vector<Broker>& brokers, Findings& findings)
{
    std::map<std::tuple<QString, std::uint32_t, QString>, const Broker*> seen;
    for (const Broker& broker : brokers) {
        const QString id = broker.entry.text("ClientID");
        const auto key = std::tuple(broker.entry.text("IPOrURL").toLower(), broker.entry.address("Port"), id);
        const auto [found, isFirst] = seen.try_emplace(key, &broker);
        if (!isFirst && !id.isEmpty())
            findings.error(broker.entry.site("ClientID"), "duplicate-client-id",
                           "the same ClientID at the same broker as in line " +
                               std::to_string(found->second->entry.site().place.line) +
                               ": the broker ends one connection when the other begins, again and again; write "
                               "another ClientID");
    }
}

} // namespace

void checkConnections(const Configuration& configuration, Findings& findings)
{
    for (const Broker& broker : configuration.brokers) {
        for (const auto check : {checkHost, checkPort, checkClientId, checkCredentials, checkRetrying})
            check(broker, findings);
    }
    checkClientIdsDiffer(configuration.brokers, findings);
}

} // namespace plcctl::check
