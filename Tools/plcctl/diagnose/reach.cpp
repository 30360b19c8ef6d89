#include "diagnose/reach.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <future>
#include <memory>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <thread>
#include <unistd.h>

namespace plcctl {

namespace {

using std::chrono::steady_clock;

struct LookUp
{
    int result = 0;
    int error = 0; // errno, of EAI_SYSTEM
    std::vector<Address> addresses;
};

Address addressOf(const addrinfo& entry)
{
    Address address;
    address.size = entry.ai_addrlen;
    std::memcpy(&address.bytes, entry.ai_addr, entry.ai_addrlen);
    std::array<char, NI_MAXHOST> text{};
    if (getnameinfo(entry.ai_addr, entry.ai_addrlen, text.data(), text.size(), nullptr, 0, NI_NUMERICHOST) == 0)
        address.text = text.data();
    return address;
}

LookUp lookUpNow(const std::string& host)
{
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* list = nullptr;
    LookUp answer;
    answer.result = getaddrinfo(host.c_str(), nullptr, &hints, &list);
    answer.error = errno;
    if (answer.result != 0)
        return answer;
    const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> owner(list, &freeaddrinfo);
    for (const addrinfo* entry = list; entry; entry = entry->ai_next)
        answer.addresses.push_back(addressOf(*entry));
    return answer;
}

std::optional<LookUp> lookUpInTime(const std::string& host, Patience patience)
{
    const auto promise = std::make_shared<std::promise<LookUp>>();
    std::future<LookUp> future = promise->get_future();
    std::thread([promise, host] { promise->set_value(lookUpNow(host)); }).detach();
    if (future.wait_for(patience) != std::future_status::ready)
        return std::nullopt;
    return future.get();
}

std::string milliseconds(steady_clock::time_point begin)
{
    const auto passed = std::chrono::duration_cast<std::chrono::milliseconds>(steady_clock::now() - begin);
    return std::to_string(passed.count()) + " ms";
}

void explainFailure(Step& step, const std::string& host, const LookUp& answer)
{
    const std::string reason = answer.result == EAI_SYSTEM ? std::strerror(answer.error) : gai_strerror(answer.result);
    step.fail("'" + host + "' has no address: " + reason,
              answer.result == EAI_AGAIN
                  ? "no name server answers: look at /etc/resolv.conf and the way there, or set IPOrURL to an address"
                  : "check the spelling of IPOrURL, which is a name or an address without tcp:// and without a port");
    if (answer.result != EAI_AGAIN)
        step.advice.emplace_back("if the name is right, look at the name servers in /etc/resolv.conf");
}

void explainRefusal(Step& step, const std::string& place, int error, const std::string& time)
{
    const std::string what = place + ": " + std::strerror(error) + " after " + time;
    switch (error) {
    case ECONNREFUSED:
        return step.fail(what,
                         "the machine is there and nothing listens on that port: check Port (1883 plain and 8883 "
                         "with TLS are usual), and that the broker runs and listens to more than its own machine");
    case EHOSTUNREACH:
    case ENETUNREACH:
        return step.fail(what, "there is no way there: check address, netmask and gateway of this device, and the "
                               "cable");
    case ETIMEDOUT:
        return step.fail(what, "nothing answers: the address is wrong, the machine is off, or a firewall drops the "
                               "port in silence");
    default:
        return step.fail(what, "check IPOrURL and Port");
    }
}

} // namespace

Descriptor::~Descriptor()
{
    if (m_number >= 0)
        close(m_number);
}

bool waitFor(int descriptor, short events, Deadline deadline)
{
    pollfd poll{descriptor, events, 0};
    while (true) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - steady_clock::now());
        if (left.count() <= 0)
            return false;
        const int ready = ::poll(&poll, 1, static_cast<int>(left.count()));
        if (ready > 0)
            return true;
        if (ready < 0 && errno != EINTR)
            return false;
    }
}

std::optional<Address> lookUp(Step& step, const std::string& host, unsigned port, Patience patience)
{
    const auto begin = steady_clock::now();
    const auto answer = lookUpInTime(host, patience);
    if (!answer) {
        step.fail("'" + host + "': no answer within " + std::to_string(patience.count() / 1000) + " s",
                  "set IPOrURL to an address, or use a name server that answers: a slow look-up holds up all brokers "
                  "of the service, twice as long as it takes");
        return std::nullopt;
    }
    if (answer->addresses.empty()) {
        explainFailure(step, host, *answer);
        return std::nullopt;
    }
    // An IPv4 address goes ahead of others, as in the client library.
    const auto isIpv4 = [](const Address& address) { return address.bytes.ss_family == AF_INET; };
    const auto first = std::find_if(answer->addresses.begin(), answer->addresses.end(), isIpv4);
    Address chosen = first == answer->addresses.end() ? answer->addresses.back() : *first;
    std::string all;
    for (const Address& address : answer->addresses) {
        if (!all.empty())
            all += ", ";
        all += address.text;
    }
    step.seen = all + ", in " + milliseconds(begin);
    if (answer->addresses.size() > 1)
        step.details.push_back("the service tries " + chosen.text + " and no other one");
    if (chosen.bytes.ss_family == AF_INET)
        reinterpret_cast<sockaddr_in&>(chosen.bytes).sin_port = htons(static_cast<std::uint16_t>(port));
    else
        reinterpret_cast<sockaddr_in6&>(chosen.bytes).sin6_port = htons(static_cast<std::uint16_t>(port));
    return chosen;
}

Descriptor connectTo(Step& step, const Address& address, unsigned port, Patience patience)
{
    const std::string place = address.text + " port " + std::to_string(port);
    const auto begin = steady_clock::now();
    Descriptor descriptor(socket(address.bytes.ss_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    int error = 0;
    if (descriptor.number() < 0 ||
        (connect(descriptor.number(), reinterpret_cast<const sockaddr*>(&address.bytes), address.size) != 0 &&
         errno != EINPROGRESS)) {
        error = errno;
    } else if (!waitFor(descriptor.number(), POLLOUT, begin + patience)) {
        error = ETIMEDOUT;
    } else {
        socklen_t size = sizeof error;
        getsockopt(descriptor.number(), SOL_SOCKET, SO_ERROR, &error, &size);
    }
    if (error != 0) {
        explainRefusal(step, place, error, milliseconds(begin));
        return Descriptor();
    }
    step.seen = place + ", in " + milliseconds(begin);
    return descriptor;
}

} // namespace plcctl
