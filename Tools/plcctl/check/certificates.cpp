#include "check/checks.h"
#include "check/pemfile.h"
#include "check/wording.h"
#include "devicepaths.h"
#include "output.h"
#include "Utils/regularfile.h"

#include <openssl/ec.h>
#include <openssl/obj_mac.h>
#include <openssl/x509v3.h>
#include <QDir>
#include <sys/stat.h>

namespace plcctl::check {

namespace {

constexpr int LargestCertificateFile = 16 << 20; // bytes
constexpr int LargestKeyFile = 64 * 1024;        // bytes
constexpr std::int64_t Day = 24 * 60 * 60;       // seconds
constexpr std::int64_t ShortRest = 30 * Day;
constexpr int ShortestRsaKey = 2048; // bits

constexpr std::uint32_t SystemStoreLevel = 3;
constexpr std::uint32_t ClientCertificateLevel = 4;
constexpr std::uint32_t TokenLevel = 5;

std::string dateOf(std::int64_t secondsSinceEpoch)
{
    constexpr std::int64_t NanosecondsPerSecond = 1'000'000'000;
    // Dates beyond what nanoseconds can count are as good as any far one.
    constexpr std::int64_t Farthest = 9'000'000'000;
    return utcTime(std::min(secondsSinceEpoch, Farthest) * NanosecondsPerSecond).substr(0, 10);
}

bool isExpired(const X509& certificate, std::int64_t now)
{
    return notAfter(certificate) < now;
}

// The files that one broker names.
class BrokerFiles
{
public:
    BrokerFiles(const Broker& broker, const Configuration& configuration, std::int64_t now, Findings& findings)
        : m_broker(broker), m_configuration(configuration), m_now(now), m_findings(findings)
    {
    }

    void check()
    {
        const std::uint32_t level = m_broker.level;
        if (level == SystemStoreLevel)
            checkSystemStore();
        if (level == 2 || level == ClientCertificateLevel || level == TokenLevel)
            checkAuthority();
        if (level == ClientCertificateLevel) {
            checkClientCertificate();
            checkCandidates();
        }
        if (level == TokenLevel)
            checkToken();
    }

private:
    void error(const char* attribute, const char* rule, const std::string& text)
    {
        m_findings.error(m_broker.entry.site(attribute), rule, text);
    }
    void warning(const char* attribute, const char* rule, const std::string& text)
    {
        m_findings.warning(m_broker.entry.site(attribute), rule, text);
    }

    // Nothing where the file can't be used as it is; that has been told.
    std::optional<QByteArray> contentOf(const char* attribute, int largest)
    {
        const QString name = m_broker.entry.text(attribute);
        if (name.isEmpty()) {
            if (m_broker.entry.element().attribute(attribute) != nullptr)
                error(attribute, "file",
                      std::string(attribute) + " is empty: every attempt to connect fails; write "
                                               "the name of a file beside this one");
            return std::nullopt;
        }
        const std::string path = m_configuration.surroundings.inDirectory(name);
        m_shown = std::string(attribute) + " " + quotedPath(path);
        if (QString::fromLatin1(name.toLatin1()) != name) {
            error(attribute, "file-name",
                  m_shown + " has characters beyond Latin-1, and the service finds no such "
                            "file; write a name of plain letters");
            return std::nullopt;
        }
        auto content = readRegularFile(QString::fromStdString(path), largest + 1);
        if (!content)
            error(attribute, "file",
                  m_shown +
                      (QFileInfo::exists(QString::fromStdString(path)) ? " can't be read, or is no regular file"
                                                                       : " doesn't exist") +
                      ": every attempt to connect fails; put it there");
        else if (content->size() > largest) {
            error(attribute, "file",
                  m_shown + " has more than " + std::to_string(largest) +
                      " bytes, and isn't read; it must hold PEM alone");
            content.reset();
        }
        return content;
    }

    std::vector<Certificate> certificatesOf(const char* attribute)
    {
        const auto content = contentOf(attribute, LargestCertificateFile);
        if (!content)
            return {};
        auto certificates = certificatesIn(*content);
        if (certificates.empty())
            error(attribute, "certificate",
                  m_shown + " holds no certificate in PEM: every attempt to connect fails; "
                            "write 'openssl x509 -in FILE -inform DER' to convert one");
        return certificates;
    }

    void checkDates(const char* attribute, const X509& certificate, bool isOnly)
    {
        const std::string subject = isOnly ? "" : ", " + inQuotes(subjectOf(certificate)) + ",";
        const std::int64_t end = notAfter(certificate);
        if (notBefore(certificate) > m_now)
            error(attribute, "certificate-dates",
                  m_shown + subject + " is valid from " + dateOf(notBefore(certificate)) +
                      " on: no attempt to connect succeeds until then");
        else if (end < m_now)
            error(attribute, "certificate-dates",
                  m_shown + subject + " has expired on " + dateOf(end) +
                      ": every attempt to connect fails; replace it, it is read anew at each attempt");
        else if (end - m_now < ShortRest)
            warning(attribute, "certificate-dates",
                    m_shown + subject + " expires on " + dateOf(end) + ", in " + counted((end - m_now) / Day, "day") +
                        "; replace it until then");
    }

    void checkAuthority()
    {
        constexpr const char* Attribute = "CAFileName";
        const auto certificates = certificatesOf(Attribute);
        bool isAnyAuthority = false;
        for (const Certificate& certificate : certificates) {
            checkDates(Attribute, *certificate, certificates.size() == 1);
            isAnyAuthority |= X509_check_ca(certificate.get()) != 0;
        }
        if (!certificates.empty() && !isAnyAuthority)
            warning(Attribute, "no-authority",
                    m_shown + " holds no authority's certificate (CA:TRUE): only a broker that shows this very "
                              "certificate could be taken; put the authority's certificate there");
    }

    void checkClientCertificate()
    {
        constexpr const char* Attribute = "ClientCertificateFileName";
        const auto certificates = certificatesOf(Attribute);
        if (!certificates.empty()) {
            X509* own = certificates.front().get();
            checkDates(Attribute, *own, true);
            if (X509_check_purpose(own, X509_PURPOSE_SSL_CLIENT, 0) == 0)
                warning(Attribute, "certificate-purpose",
                        m_shown + " isn't made out for clients (extended key usage): brokers that look refuse it; "
                                  "have one made for 'clientAuth'");
        }
        const Key key = checkedKey();
        if (key && !certificates.empty() && X509_check_private_key(certificates.front().get(), key.get()) != 1)
            error("ClientKeyFileName", "key-mismatch",
                  m_shown + " doesn't belong to the certificate in ClientCertificateFileName: every attempt to "
                            "connect fails; put the key there that the certificate was made for");
    }

    Key checkedKey()
    {
        constexpr const char* Attribute = "ClientKeyFileName";
        const auto content = contentOf(Attribute, LargestKeyFile);
        if (!content)
            return nullptr;
        checkPermissions(Attribute);
        if (wantsPassphrase(*content)) {
            error(Attribute, "key-passphrase",
                  m_shown + " has a passphrase, and nobody is there to be asked: every attempt to connect fails; "
                            "remove it with 'openssl pkey -in FILE -out NEWFILE'");
            return nullptr;
        }
        Key key = privateKeyIn(*content);
        if (!key)
            error(Attribute, "key", m_shown + " holds no private key in PEM: every attempt to connect fails");
        else if (EVP_PKEY_is_a(key.get(), "RSA") == 1 && EVP_PKEY_bits(key.get()) < ShortestRsaKey)
            warning(Attribute, "key-length",
                    m_shown + " has an RSA key of " + std::to_string(EVP_PKEY_bits(key.get())) +
                        " bits: brokers may refuse it; make one of 2048 or more");
        return key;
    }

    void checkPermissions(const char* attribute)
    {
        struct stat status = {};
        const std::string path = m_configuration.surroundings.inDirectory(m_broker.entry.text(attribute));
        if (stat(path.c_str(), &status) == 0 && (status.st_mode & (S_IRGRP | S_IROTH)) != 0)
            warning(attribute, "key-readable",
                    m_shown + " can be read by others than its owner; take that away with 'chmod 600'");
    }

    void checkToken()
    {
        const Key key = checkedKey();
        const QString algorithm = m_broker.entry.text("JWTAlgorithm");
        if (m_broker.entry.element().attribute("JWTAlgorithm") != nullptr && algorithm.isEmpty())
            error("JWTAlgorithm", "unknown-value",
                  "JWTAlgorithm is empty: the token goes out without a signature; write RS256 or ES256");
        if (key && algorithm == "RS256" && EVP_PKEY_is_a(key.get(), "RSA") != 1)
            error("ClientKeyFileName", "key-type",
                  m_shown + " holds no RSA key, which RS256 signs with: there is no token, and the broker refuses; "
                            "make an RSA key, or write JWTAlgorithm=\"ES256\" for a P-256 one");
        if (key && algorithm == "ES256" && !isP256(*key))
            error("ClientKeyFileName", "key-type",
                  m_shown + " holds no key of the curve P-256, which ES256 signs with: no broker takes the token; make "
                            "one of P-256, or write JWTAlgorithm=\"RS256\" for an RSA one");
        checkAudience();
    }

    static bool isP256(const EVP_PKEY& key)
    {
        char group[64] = {};
        return EVP_PKEY_is_a(&key, "EC") == 1 && EVP_PKEY_get_group_name(&key, group, sizeof group, nullptr) == 1 &&
               OBJ_txt2nid(group) == NID_X9_62_prime256v1;
    }

    void checkAudience()
    {
        constexpr int LongestAudience = 48 * 1024; // bytes
        constexpr const char* Attribute = "GoogleCloudProjectID";
        const QByteArray audience = m_broker.entry.text(Attribute).toUtf8();
        if (audience.isEmpty() && m_broker.entry.element().attribute(Attribute) != nullptr)
            warning(Attribute, "audience",
                    "GoogleCloudProjectID is empty: the token is meant for nobody, and brokers "
                    "that look refuse it; write the audience");
        if (audience.size() > LongestAudience)
            error(Attribute, "audience",
                  "GoogleCloudProjectID has more than 48 KiB: the token goes out without an "
                  "audience; write a shorter one");
    }

    // Elsewhere than on the device, the system's store is this machine's.
    void checkSystemStore()
    {
        const auto path = m_configuration.surroundings.inTree(DevicePaths::SystemTrustStore);
        const bool isDevice = m_configuration.surroundings.root == "";
        if (isDevice && !QFileInfo::exists(QString::fromStdString(*path)))
            error("EncryptionType", "file",
                  "EncryptionType 3 needs the system's authorities, and " + inQuotes(*path) +
                      " doesn't exist: every attempt to connect fails; install them");
    }

    // What a broker's CA file is replaced by when its issuer is unknown.
    void checkCandidates()
    {
        const auto directory = m_configuration.surroundings.inTree(DevicePaths::CandidateCaDirectory);
        if (!directory)
            return;
        const QDir candidates(QString::fromStdString(*directory));
        const QStringList names = candidates.entryList({"*.pem", "*.crt"}, QDir::Files);
        if (names.isEmpty())
            return warning("EncryptionType", "candidates",
                           inQuotes(*directory) + " holds no *.pem and no *.crt: when the broker's authority changes, "
                                                  "there is none to take its place; put it there ahead of time");
        for (const QString& name : names)
            checkCandidate(candidates.filePath(name));
    }

    void checkCandidate(const QString& path)
    {
        const auto content = readRegularFile(path, LargestCertificateFile);
        const auto certificates = certificatesIn(content.value_or(QByteArray()));
        const std::string shown = "the candidate " + inQuotes(path.toStdString());
        if (certificates.empty())
            warning("EncryptionType", "candidates",
                    shown + " holds no certificate in PEM, and takes its turn all the same; remove it");
        else if (isExpired(*certificates.front(), m_now))
            warning("EncryptionType", "candidates",
                    shown + " has expired on " + dateOf(notAfter(*certificates.front())) +
                        ", and takes its turn all the same; remove it");
    }

    const Broker& m_broker;
    const Configuration& m_configuration;
    std::int64_t m_now;
    Findings& m_findings;
    std::string m_shown; // the attribute and the path of its file
};

} // namespace

void checkCertificates(const Configuration& configuration, std::int64_t now, Findings& findings)
{
    for (const Broker& broker : configuration.brokers)
        BrokerFiles(broker, configuration, now, findings).check();
}

} // namespace plcctl::check
