#pragma once

#include "diagnose/reach.h"

#include <cstdint>
#include <memory>
#include <openssl/ssl.h>
#include <span>

namespace plcctl {

// What came, or why nothing did.
struct Reception
{
    enum class End
    {
        Data,
        Closed,
        TimedOut,
        Broken // by an error
    };
    End end;
    std::vector<std::uint8_t> bytes;
    unsigned long error = 0; // of OpenSSL, 0 for the socket's own
};

// A connection to a broker, plain or through TLS.
class Channel
{
public:
    explicit Channel(Descriptor descriptor) : m_descriptor(std::move(descriptor)) {}
    Channel(Descriptor descriptor, SSL* tls) : m_descriptor(std::move(descriptor)), m_tls(tls, &SSL_free) {}

    // False when the connection broke or the other side took nothing in time.
    bool send(std::span<const std::uint8_t> bytes, Deadline deadline);
    // The bytes that come first.
    Reception receive(Deadline deadline);

    [[nodiscard]] int descriptor() const { return m_descriptor.number(); }
    [[nodiscard]] SSL* tls() const { return m_tls.get(); }

private:
    Descriptor m_descriptor;
    std::unique_ptr<SSL, decltype(&SSL_free)> m_tls{nullptr, &SSL_free};
};

} // namespace plcctl
