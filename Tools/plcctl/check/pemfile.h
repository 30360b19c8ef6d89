#pragma once

#include <cstdint>
#include <memory>
#include <openssl/evp.h>
#include <openssl/x509.h>
#include <QByteArray>
#include <string>
#include <vector>

namespace plcctl::check {

struct OpenSslDeleter
{
    void operator()(X509* certificate) const { X509_free(certificate); }
    void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
};
using Certificate = std::unique_ptr<X509, OpenSslDeleter>;
using Key = std::unique_ptr<EVP_PKEY, OpenSslDeleter>;

// All certificates of a PEM text, in their order; an empty list where there is none.
std::vector<Certificate> certificatesIn(const QByteArray& pem);

// The private key of a PEM text; null where there is none, or it wants a passphrase.
Key privateKeyIn(const QByteArray& pem);

// Whether the key in the text, if there is one, wants a passphrase, which the service can't give.
bool wantsPassphrase(const QByteArray& pem);

// Seconds since 1970 at which the certificate begins and ends to be valid.
std::int64_t notBefore(const X509& certificate);
std::int64_t notAfter(const X509& certificate);

// "CN = plant"
std::string subjectOf(const X509& certificate);

} // namespace plcctl::check
