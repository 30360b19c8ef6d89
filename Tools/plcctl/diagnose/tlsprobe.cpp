#include "diagnose/tlsprobe.h"

#include "diagnose/certificates.h"
#include "diagnose/mqttprobe.h"
#include "diagnose/tlsadvice.h"

#include <array>
#include <openssl/err.h>
#include <openssl/x509v3.h>
#include <poll.h>

namespace plcctl {

namespace {

using Context = std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)>;

// TLS 1.3 brokers judge the client's certificate after the client's side of the handshake is done.
constexpr Patience LateAlert{300};

constexpr char AnySuite[] = "ALL:@SECLEVEL=0";

void deleteFault(void* /*tls*/, void* fault, CRYPTO_EX_DATA* /*data*/, int /*index*/, long /*argument*/,
                 void* /*context*/)
{
    delete static_cast<CertificateFault*>(fault);
}

int faultIndex()
{
    static const int index = SSL_get_ex_new_index(0, nullptr, nullptr, nullptr, deleteFault);
    return index;
}

// Notes the first fault and goes on, so that the whole chain is seen.
int noteFault(int isGood, X509_STORE_CTX* context)
{
    if (isGood == 1)
        return 1;
    auto* tls = static_cast<SSL*>(X509_STORE_CTX_get_ex_data(context, SSL_get_ex_data_X509_STORE_CTX_idx()));
    auto* fault = static_cast<CertificateFault*>(SSL_get_ex_data(tls, faultIndex()));
    if (fault && fault->code == X509_V_OK)
        *fault = {X509_STORE_CTX_get_error(context), X509_STORE_CTX_get_error_depth(context)};
    return 1;
}

// The same calls as the client library makes.
Context contextFor(const MQTTClient_SSLOptions& tls, TlsLeniency leniency)
{
    Context context(SSL_CTX_new(TLS_client_method()), &SSL_CTX_free);
    SSL_CTX_set_cipher_list(context.get(),
                            leniency.takesAnySuite || leniency.takesOldVersions ? AnySuite : tls.enabledCipherSuites);
    if (leniency.takesAnySuite && !leniency.takesOldVersions)
        SSL_CTX_set_min_proto_version(context.get(), TLS1_2_VERSION); // the suites bring old versions with them
    if (leniency.takesOldVersions) {
        SSL_CTX_set_security_level(context.get(), 0);
        SSL_CTX_set_min_proto_version(context.get(), TLS1_VERSION);
    }
    if (tls.trustStore)
        SSL_CTX_load_verify_locations(context.get(), tls.trustStore, nullptr);
    else
        SSL_CTX_set_default_verify_paths(context.get());
    if (tls.keyStore) {
        SSL_CTX_use_certificate_chain_file(context.get(), tls.keyStore);
        SSL_CTX_use_PrivateKey_file(context.get(), tls.privateKey ? tls.privateKey : tls.keyStore, SSL_FILETYPE_PEM);
    }
    const bool isVerified = tls.enableServerCertAuth != 0 && !leniency.takesAnyCertificate;
    SSL_CTX_set_verify(context.get(), isVerified ? SSL_VERIFY_PEER : SSL_VERIFY_NONE, noteFault);
    return context;
}

bool finishHandshake(SSL* tls, int descriptor, Deadline deadline, TlsFailure& failure)
{
    while (true) {
        ERR_clear_error();
        const int result = SSL_connect(tls);
        if (result == 1)
            return true;
        const int error = SSL_get_error(tls, result);
        if (error != SSL_ERROR_WANT_READ && error != SSL_ERROR_WANT_WRITE) {
            failure = {ERR_get_error(), false};
            return false;
        }
        if (!waitFor(descriptor, static_cast<short>(error == SSL_ERROR_WANT_READ ? POLLIN : POLLOUT), deadline)) {
            failure = {0, true};
            return false;
        }
    }
}

void tellChain(Step& step, const Channel& channel, const std::string& host)
{
    STACK_OF(X509)* chain = SSL_get_peer_cert_chain(channel.tls());
    for (int i = 0; i < sk_X509_num(chain); ++i)
        step.details.push_back("certificate " + std::to_string(i) + ": " + certificateText(sk_X509_value(chain, i)));
    X509* own = sk_X509_num(chain) > 0 ? sk_X509_value(chain, 0) : nullptr;
    if (own && X509_check_host(own, host.c_str(), host.size(), 0, nullptr) != 1 &&
        X509_check_ip_asc(own, host.c_str(), 0) != 1)
        step.details.push_back("the certificate is not for '" + host + "'; the service doesn't look at the name");
}

// What works where the service's way doesn't.
void findWhatWorks(Step& step, const MQTTClient_SSLOptions& tls, const std::string& host, Patience patience,
                   const std::function<Descriptor()>& reconnect)
{
    struct Attempt
    {
        TlsLeniency leniency;
        const char* finding;
        const char* advice;
    };
    constexpr std::array Attempts{
        Attempt{{true, true, false},
                "with other suites the handshake succeeds",
                "the broker speaks TLS 1.2 with suites that the service doesn't offer: give it TLS 1.3, or an RSA "
                "certificate with DHE or RSA key exchange"},
        Attempt{{true, true, true},
                "with an outdated version or weak keys the handshake succeeds",
                "the broker offers nothing newer than TLS 1.1, or keys that are too weak: update the broker"}};
    for (const Attempt& attempt : Attempts) {
        TlsFailure failure;
        const auto channel =
            shakeHands(reconnect(), tls, host, attempt.leniency, std::chrono::steady_clock::now() + patience, failure);
        if (!channel)
            continue;
        step.details.push_back(std::string(attempt.finding) + ": " + SSL_get_version(channel->tls()) + ", " +
                               SSL_get_cipher_name(channel->tls()));
        step.advice.insert(step.advice.begin(), attempt.advice);
        return;
    }
    Channel plain(reconnect());
    if (const PlainAnswer answer = askForConnection(plain, Connect{}, std::chrono::steady_clock::now() + patience);
        answer.isMqtt) {
        step.details.emplace_back("without TLS an MQTT broker answers on this port");
        step.advice.insert(step.advice.begin(),
                           "this port speaks plain MQTT: set Port to the broker's TLS port, commonly 8883, or "
                           "EncryptionType to 0 if everybody may read along");
    }
}

void explainFailure(Step& step, const TlsFailure& failure, Patience patience)
{
    if (failure.isTimeout)
        return step.fail("no answer to the handshake within " + std::to_string(patience.count() / 1000) + " s",
                         "something accepts the connection and says nothing: look whether the broker hangs, and "
                         "whether this port is the broker's");
    const TlsText text = textOf(failure.error);
    step.fail(text.seen, text.advice);
}

} // namespace

std::optional<Channel> shakeHands(Descriptor descriptor, const MQTTClient_SSLOptions& tls, const std::string& host,
                                  TlsLeniency leniency, Deadline deadline, TlsFailure& failure)
{
    if (descriptor.number() < 0)
        return std::nullopt;
    const Context context = contextFor(tls, leniency);
    Channel channel(std::move(descriptor), SSL_new(context.get()));
    SSL_set_fd(channel.tls(), channel.descriptor());
    SSL_set_tlsext_host_name(channel.tls(), host.c_str());
    SSL_set_ex_data(channel.tls(), faultIndex(), new CertificateFault);
    if (!finishHandshake(channel.tls(), channel.descriptor(), deadline, failure))
        return std::nullopt;
    return channel;
}

CertificateFault certificateFault(const Channel& channel)
{
    return *static_cast<CertificateFault*>(SSL_get_ex_data(channel.tls(), faultIndex()));
}

std::optional<Channel> tryTls(Step& step, Descriptor descriptor, const MQTTClient_SSLOptions& tls,
                              const std::string& host, Patience patience, const std::function<Descriptor()>& reconnect)
{
    TlsFailure failure;
    auto channel =
        shakeHands(std::move(descriptor), tls, host, {}, std::chrono::steady_clock::now() + patience, failure);
    if (!channel) {
        explainFailure(step, failure, patience);
        if (!failure.isTimeout)
            findWhatWorks(step, tls, host, patience, reconnect);
        return std::nullopt;
    }
    step.seen = std::string(SSL_get_version(channel->tls())) + ", " + SSL_get_cipher_name(channel->tls());
    if (SSL_version(channel->tls()) < TLS1_2_VERSION)
        step.details.emplace_back("this version of TLS is outdated, and no longer secure: update the broker");
    tellChain(step, *channel, host);
    const CertificateFault fault = certificateFault(*channel);
    if (tls.enableServerCertAuth != 0 && fault.code != X509_V_OK) {
        const TlsText text = textOf(fault);
        step.fail(text.seen, text.advice);
        return std::nullopt;
    }
    const Reception late = channel->receive(std::chrono::steady_clock::now() + LateAlert);
    if (late.end == Reception::End::Closed || late.end == Reception::End::Broken) {
        const TlsText text = textOf(late.error);
        step.fail("after the handshake: " + text.seen, text.advice);
        return std::nullopt;
    }
    if (tls.enableServerCertAuth == 0)
        step.details.emplace_back("nothing is verified at this level: anybody in between can read and change all");
    return channel;
}

} // namespace plcctl
