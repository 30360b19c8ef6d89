#pragma once

#include "diagnose/channel.h"

#include <functional>
#include <MQTTClient.h>
#include <optional>
#include <string>

namespace plcctl {

// How a handshake is made where it isn't made as the service does it.
struct TlsLeniency
{
    bool takesAnyCertificate = false;
    bool takesAnySuite = false;    // not only those that the service offers
    bool takesOldVersions = false; // TLS 1.0 and 1.1, and keys that are weak today
};

// Why a handshake ended, where it did.
struct TlsFailure
{
    unsigned long error = 0; // of OpenSSL; 0 where the connection ended or nothing came
    bool isTimeout = false;
};

// A handshake with the service's settings and more leniency; null where it fails. Chains are not judged here: what
// verification found is in the SSL, see certificateFault.
std::optional<Channel> shakeHands(Descriptor descriptor, const MQTTClient_SSLOptions& tls, const std::string& host,
                                  TlsLeniency leniency, Deadline deadline, TlsFailure& failure);

// The first fault that verification found in the other side's chain; X509_V_OK where there is none.
struct CertificateFault
{
    int code = 0;
    int depth = 0; // 0 is the broker's own certificate
};
CertificateFault certificateFault(const Channel& channel);

// Makes the handshake as the service does, tells what was seen, and what to do where it fails. `reconnect` gives a new
// connection to the same place, to find out what would work instead.
std::optional<Channel> tryTls(Step& step, Descriptor descriptor, const MQTTClient_SSLOptions& tls,
                              const std::string& host, Patience patience, const std::function<Descriptor()>& reconnect);

} // namespace plcctl
