#include "diagnose/certificates.h"

#include "output.h"

#include "devicepaths.h"
#include "Entities/clientbroker.h"
#include "Entities/keyfile.h"
#include "Utils/regularfile.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <memory>
#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/pem.h>

namespace plcctl {

namespace {

constexpr std::size_t MostAuthoritiesShown = 5;
constexpr int LargestFile = 16 * 1024 * 1024; // bytes

using Bio = std::unique_ptr<BIO, decltype(&BIO_free)>;
using Certificate = std::unique_ptr<X509, decltype(&X509_free)>;
using Key = std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)>;

Bio memoryOf(const QByteArray& content)
{
    return {BIO_new_mem_buf(content.constData(), content.size()), &BIO_free};
}

// The content of a file that is read by the path of the configuration.
std::optional<QByteArray> contentOf(Step& step, const char* attribute, const QString& path)
{
    errno = 0;
    auto content = readRegularFile(path, LargestFile);
    if (!content) {
        const std::string reason = errno == 0 ? "no regular file" : std::strerror(errno);
        step.fail(std::string(attribute) + ": " + printable(path.toStdString()) + ": " + reason,
                  std::string("put the file there, readable for the service's user, or mend ") + attribute);
    }
    return content;
}

std::vector<Certificate> certificatesIn(const QByteArray& content)
{
    std::vector<Certificate> certificates;
    const Bio bio = memoryOf(content);
    while (X509* certificate = PEM_read_bio_X509(bio.get(), nullptr, nullptr, nullptr))
        certificates.emplace_back(certificate, &X509_free);
    ERR_clear_error();
    return certificates;
}

int noPassphrase(char* /*buffer*/, int /*size*/, int /*isWriting*/, void* /*context*/)
{
    return -1;
}

void noteDates(Step& step, const char* attribute, const X509* certificate)
{
    const Validity validity = validityOf(certificate);
    if (validity == Validity::Now)
        return;
    if (step.outcome != Outcome::Failed)
        step.fail(std::string(attribute) + ": " +
                      (validity == Validity::Expired ? "the certificate has expired"
                                                     : "the certificate is not valid "
                                                       "yet"),
                  "compare its dates with this device's clock: set the clock, or have a new certificate issued");
}

void checkAuthorities(Step& step, const char* attribute, const QString& path, bool areShown)
{
    const auto content = contentOf(step, attribute, path);
    if (!content)
        return;
    const std::vector<Certificate> authorities = certificatesIn(*content);
    if (authorities.empty()) {
        step.fail(std::string(attribute) + ": " + printable(path.toStdString()) + " holds no certificate",
                  "it has to hold the authority's certificate as PEM text, -----BEGIN CERTIFICATE-----; convert DER "
                  "with: openssl x509 -inform der -in FILE -out FILE.pem");
        return;
    }
    step.details.push_back(std::string(attribute) + " " + printable(path.toStdString()) + ": " +
                           std::to_string(authorities.size()) +
                           (authorities.size() == 1 ? " authority" : " authorities"));
    for (std::size_t i = 0; areShown && i < std::min(authorities.size(), MostAuthoritiesShown); ++i)
        step.details.push_back("  " + certificateText(authorities[i].get()));
    // With several of them, one that is past may be there on purpose.
    if (authorities.size() == 1)
        noteDates(step, attribute, authorities.front().get());
}

bool wantsPassphrase(const ClientBroker& broker)
{
    return KeyFile(broker.ClientKeyFileName.toLatin1().constData()).wantsPassphrase();
}

void failForPassphrase(Step& step)
{
    step.fail("ClientKeyFileName: the key has a passphrase, and nobody is there to be asked",
              "take it off: openssl pkey -in FILE -out FILE.plain");
}

void checkKeyPair(Step& step, const ClientBroker& broker)
{
    const auto content = contentOf(step, "ClientCertificateFileName", broker.ClientCertificateFileName);
    const auto keyContent = contentOf(step, "ClientKeyFileName", broker.ClientKeyFileName);
    if (!content || !keyContent)
        return;
    const std::vector<Certificate> own = certificatesIn(*content);
    if (own.empty())
        return step.fail("ClientCertificateFileName holds no certificate",
                         "it has to hold this device's certificate as PEM text, its authority's behind it if there is "
                         "one in between");
    step.details.push_back("client certificate: " + certificateText(own.front().get()));
    if (wantsPassphrase(broker))
        return failForPassphrase(step);
    const Bio bio = memoryOf(*keyContent);
    const Key key(PEM_read_bio_PrivateKey(bio.get(), nullptr, &noPassphrase, nullptr), &EVP_PKEY_free);
    ERR_clear_error();
    if (!key)
        return step.fail("ClientKeyFileName holds no private key", "it has to hold the key as PEM text");
    if (X509_check_private_key(own.front().get(), key.get()) != 1) {
        ERR_clear_error();
        return step.fail("the key doesn't fit the client certificate",
                         "take certificate and key of one pair: 'openssl x509 -noout -pubkey -in CERTIFICATE' and "
                         "'openssl pkey -pubout -in KEY' have to print the same");
    }
    step.details.emplace_back("the key fits the client certificate");
    noteDates(step, "ClientCertificateFileName", own.front().get());
}

std::vector<std::string> split(const std::string& token)
{
    std::vector<std::string> parts(1);
    for (const char c : token) {
        if (c == '.')
            parts.emplace_back();
        else
            parts.back() += c;
    }
    return parts;
}

} // namespace

std::string nameText(const X509_NAME* name)
{
    const Bio bio(BIO_new(BIO_s_mem()), &BIO_free);
    X509_NAME_print_ex(bio.get(), name, 0, XN_FLAG_ONELINE & ~ASN1_STRFLGS_ESC_MSB);
    char* text = nullptr;
    const long size = BIO_get_mem_data(bio.get(), &text);
    return size > 0 ? printable({text, static_cast<std::size_t>(size)}) : "no name";
}

std::string timeText(const ASN1_TIME* time)
{
    std::tm parts{};
    if (ASN1_TIME_to_tm(time, &parts) != 1)
        return "an unreadable time";
    std::array<char, 40> text{};
    std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S UTC", &parts);
    return text.data();
}

Validity validityOf(const X509* certificate)
{
    if (X509_cmp_current_time(X509_get0_notBefore(certificate)) > 0)
        return Validity::NotYet;
    return X509_cmp_current_time(X509_get0_notAfter(certificate)) < 0 ? Validity::Expired : Validity::Now;
}

std::string certificateText(const X509* certificate)
{
    const Validity validity = validityOf(certificate);
    return nameText(X509_get_subject_name(certificate)) + ", issued by " + nameText(X509_get_issuer_name(certificate)) +
           ", good from " + timeText(X509_get0_notBefore(certificate)) + " to " +
           timeText(X509_get0_notAfter(certificate)) +
           (validity == Validity::Expired  ? ", EXPIRED"
            : validity == Validity::NotYet ? ", NOT VALID YET"
                                           : "");
}

void checkCertificateFiles(Step& step, const ClientBroker& broker, const MQTTClient_SSLOptions& tls)
{
    step.seen = "all that this level needs is there";
    if (tls.trustStore && broker.Encryption == ENC_CA_SIGNED_SERVER_CERTIFICATE)
        checkAuthorities(step, "the system's store", DevicePaths::SystemTrustStore, false);
    else if (tls.trustStore)
        checkAuthorities(step, "CAFileName", broker.SetCAFileName, true);
    if (tls.keyStore)
        checkKeyPair(step, broker);
    if (!tls.trustStore)
        step.seen = "none needed at this level: any certificate is taken";
}

void checkToken(Step& step, const ClientBroker& broker, const char* token, const std::vector<std::string>& logLines)
{
    for (const std::string& line : logLines)
        step.details.push_back("the service logs: " + printable(line));
    const std::string key = printable(broker.ClientKeyFileName.toStdString());
    if (!token && wantsPassphrase(broker))
        return failForPassphrase(step);
    if (!token)
        return step.fail(
            "no token can be made, and no password goes out",
            "the key has to be RSA for RS256 and P-256 for ES256, and whole: openssl pkey -noout -text -in " + key);
    if (*token == '\0')
        return step.fail("the key can't be read, and an empty password goes out",
                         "put the key there as a regular file of at most 64 KiB, readable for the service's user: " +
                             key);
    const std::vector<std::string> parts = split(token);
    if (parts.size() != 3 || parts.back().empty())
        return step.fail("the token has no signature",
                         "JWTAlgorithm has to be RS256 or ES256 in exactly these letters, and the key not empty");
    step.seen = "signed with " + broker.JWTAlgorithm.toStdString() + ", good for one hour from now, audience " +
                inQuotes(broker.GoogleCloudProjectID.toStdString());
}

} // namespace plcctl
