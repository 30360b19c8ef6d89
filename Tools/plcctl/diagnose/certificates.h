#pragma once

#include "diagnose/step.h"

#include <MQTTClient.h>
#include <openssl/x509.h>

class ClientBroker;

namespace plcctl {

// "CN = plant broker"
std::string nameText(const X509_NAME* name);

// "2026-01-31 12:00:00 UTC"
std::string timeText(const ASN1_TIME* time);

enum class Validity
{
    Now,
    NotYet,
    Expired
};
Validity validityOf(const X509* certificate);

// "CN = broker, issued by CN = ca, good from ... to ...", and ", EXPIRED" where it is.
std::string certificateText(const X509* certificate);

// Looks at the files that this level of encryption needs, as the service will: there, readable, a certificate or key
// inside, in date, fitting to each other.
void checkCertificateFiles(Step& step, const ClientBroker& broker, const MQTTClient_SSLOptions& tls);

// Looks at the token that takes the place of the password. `token` may be null; `logLines` are what the service logged
// while it made it.
void checkToken(Step& step, const ClientBroker& broker, const char* token, const std::vector<std::string>& logLines);

} // namespace plcctl
