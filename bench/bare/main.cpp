#include "bench/bare/client.h"
#include "bench/bare/publication.h"
#include "MQTTClientManager/Records/generalrecords.h"
#include "MQTTClientManager/Records/statuscodes.h"
#include "Platform/TagMemory/tagmemory.h"

#include <QCoreApplication>

#include <unistd.h>

#include <cstdio>
#include <deque>
#include <exception>

namespace {

void reportRunning(const Workload& workload)
{
    const MQTTGeneralStruct record{PS_RUNNING, static_cast<std::uint16_t>(workload.brokers),
                                   static_cast<std::uint16_t>(workload.publications),
                                   static_cast<std::uint16_t>(workload.subscriptions), 0};
    (void)TagMemory::Write(sizeof record, workload.generalAddress, reinterpret_cast<const unsigned char*>(&record));
}

// One message in flight, and no timer: the rate that one connection can reach.
[[noreturn]] void publishForEver(const Workload& workload, const Counters& counters, Publication& publication)
{
    for (;;) {
        while (workload.qos > 0 && counters.acknowledged() < counters.sent())
            usleep(50);
        publication.publish();
    }
}

int run(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    const Workload workload = parseWorkload(argc, argv);
    TagMemory::Open();
    Counters counters(workload.statisticsAddress);
    Reception reception(workload, counters);

    std::deque<Client> clients;
    for (int i = 0; i < workload.brokers; ++i)
        clients.emplace_back(i + 1, workload.port, counters, reception);
    for (Client& client : clients)
        client.connect();
    for (const std::string& filter : reception.filters())
        clients.front().subscribe(filter.c_str(), workload.qos);

    std::deque<Publication> publications;
    for (int i = 0; i < workload.publications; ++i) {
        publications.emplace_back(i + 1, workload, clients[static_cast<std::size_t>(i) % clients.size()]);
        if (workload.loop == 0)
            publications.back().startTimer();
    }
    reportRunning(workload);
    if (workload.loop != 0)
        publishForEver(workload, counters, publications.front());
    return QCoreApplication::exec();
}

} // namespace

int main(int argc, char** argv)
{
    try {
        return run(argc, argv);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "bench_bare: %s\n", error.what());
        return 2;
    }
}
