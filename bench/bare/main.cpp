#include "bench/bare/client.h"
#include "MQTTClientManager/Records/statuscodes.h"
#include "Platform/TagMemory/tagmemory.h"

#include <QCoreApplication>
#include <QTimer>

#include <unistd.h>

#include <cstdio>
#include <deque>
#include <exception>

namespace {

struct Publication
{
    Client* client;
    std::string topic;
    unsigned address;
    QTimer timer;
};

void reportRunning(const Workload& workload)
{
    const MQTTGeneralStruct record{PS_RUNNING, static_cast<std::uint16_t>(workload.brokers),
                                   static_cast<std::uint16_t>(workload.publications), 0, 0};
    (void)TagMemory::Write(sizeof record, workload.generalAddress, reinterpret_cast<const unsigned char*>(&record));
}

// One message in flight, and no timer: the rate that one connection can reach.
[[noreturn]] void publishForEver(const Workload& workload, const Counters& counters, const Publication& publication)
{
    for (;;) {
        while (workload.qos > 0 && counters.acknowledged() < counters.sent())
            usleep(50);
        publication.client->publish(publication.topic.c_str(), static_cast<unsigned short>(workload.size),
                                    publication.address, workload.qos);
    }
}

int run(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    const Workload workload = parseWorkload(argc, argv);
    TagMemory::Open();
    Counters counters(workload.statisticsAddress);

    std::deque<Client> clients;
    for (int i = 0; i < workload.brokers; ++i)
        clients.emplace_back(i + 1, workload.port, counters);
    for (Client& client : clients)
        client.connect();

    std::deque<Publication> publications(static_cast<std::size_t>(workload.publications));
    for (std::size_t i = 0; i < publications.size(); ++i) {
        Publication& publication = publications[i];
        publication.client = &clients[i % clients.size()];
        publication.topic = "bench/publication/" + std::to_string(i + 1);
        publication.address = workload.dataAddress + static_cast<unsigned>(i) * static_cast<unsigned>(workload.size);
        if (workload.loop)
            continue;
        QObject::connect(&publication.timer, &QTimer::timeout, [&publication, &workload] {
            publication.client->publish(publication.topic.c_str(), static_cast<unsigned short>(workload.size),
                                        publication.address, workload.qos);
        });
        publication.timer.start(workload.interval);
    }
    reportRunning(workload);
    if (workload.loop)
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
