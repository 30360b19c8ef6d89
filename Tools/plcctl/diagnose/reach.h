#pragma once

#include "diagnose/step.h"

#include <chrono>
#include <optional>
#include <sys/socket.h>
#include <utility>

namespace plcctl {

using Deadline = std::chrono::steady_clock::time_point;
using Patience = std::chrono::milliseconds;

// Owns a descriptor.
class Descriptor
{
public:
    explicit Descriptor(int number = -1) : m_number(number) {}
    Descriptor(Descriptor&& other) noexcept : m_number(std::exchange(other.m_number, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept
    {
        std::swap(m_number, other.m_number);
        return *this;
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor();

    [[nodiscard]] int number() const { return m_number; }

private:
    int m_number;
};

struct Address
{
    sockaddr_storage bytes{};
    socklen_t size = 0;
    std::string text; // "127.0.0.1"
};

// Looks the name up and picks the address that the client library takes: the first of IPv4, or else the last of all. It
// tries no other one. The look-up can't be stopped: past the patience it is left alone.
std::optional<Address> lookUp(Step& step, const std::string& host, unsigned port, Patience patience);

// A connected socket that doesn't block.
Descriptor connectTo(Step& step, const Address& address, unsigned port, Patience patience);

// Waits until the descriptor is ready for these poll(2) events; false past the deadline.
bool waitFor(int descriptor, short events, Deadline deadline);

} // namespace plcctl
