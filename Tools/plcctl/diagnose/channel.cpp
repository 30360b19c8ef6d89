#include "diagnose/channel.h"

#include <cerrno>
#include <openssl/err.h>
#include <poll.h>

namespace plcctl {

namespace {

constexpr std::size_t MostAtOnce = 4096;

// Negative is an error, 0 the end.
struct Transfer
{
    ssize_t size;
    short waitsFor; // poll(2) events; 0 where nothing will help
    unsigned long error;
};

Transfer resultOf(SSL* tls, int size)
{
    if (size > 0)
        return {size, 0, 0};
    switch (SSL_get_error(tls, size)) {
    case SSL_ERROR_WANT_READ:
        return {-1, POLLIN, 0};
    case SSL_ERROR_WANT_WRITE:
        return {-1, POLLOUT, 0};
    case SSL_ERROR_ZERO_RETURN:
        return {0, 0, 0};
    default:
        break;
    }
    const unsigned long error = ERR_get_error();
    // Many close the socket without a word of TLS.
    if (error == 0 || ERR_GET_REASON(error) == SSL_R_UNEXPECTED_EOF_WHILE_READING)
        return {0, 0, 0};
    return {-1, 0, error};
}

Transfer resultOf(ssize_t size, short events)
{
    if (size >= 0)
        return {size, 0, 0};
    return {-1, static_cast<short>(errno == EAGAIN || errno == EINTR ? events : 0), 0};
}

} // namespace

bool Channel::send(std::span<const std::uint8_t> bytes, Deadline deadline)
{
    while (!bytes.empty()) {
        ERR_clear_error();
        const Transfer sent =
            m_tls ? resultOf(m_tls.get(), SSL_write(m_tls.get(), bytes.data(), static_cast<int>(bytes.size())))
                  : resultOf(::send(m_descriptor.number(), bytes.data(), bytes.size(), MSG_NOSIGNAL), POLLOUT);
        if (sent.size > 0)
            bytes = bytes.subspan(static_cast<std::size_t>(sent.size));
        else if (sent.waitsFor == 0 || !waitFor(m_descriptor.number(), sent.waitsFor, deadline))
            return false;
    }
    return true;
}

Reception Channel::receive(Deadline deadline)
{
    std::vector<std::uint8_t> bytes(MostAtOnce);
    while (true) {
        ERR_clear_error();
        const Transfer got =
            m_tls ? resultOf(m_tls.get(), SSL_read(m_tls.get(), bytes.data(), static_cast<int>(bytes.size())))
                  : resultOf(recv(m_descriptor.number(), bytes.data(), bytes.size(), 0), POLLIN);
        if (got.size > 0) {
            bytes.resize(static_cast<std::size_t>(got.size));
            return {Reception::End::Data, bytes};
        }
        if (got.size == 0)
            return {Reception::End::Closed, {}};
        if (got.waitsFor == 0)
            return {got.error == 0 ? Reception::End::Closed : Reception::End::Broken, {}, got.error};
        if (!waitFor(m_descriptor.number(), got.waitsFor, deadline))
            return {Reception::End::TimedOut, {}};
    }
}

} // namespace plcctl
