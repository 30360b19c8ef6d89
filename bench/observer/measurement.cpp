#include "bench/observer/measurement.h"

#include "MQTTClientManager/Records/requestrecords.h"
#include "MQTTClientManager/Records/statuscodes.h"
#include "Platform/TagMemory/tagmemory.h"

#include <fcntl.h>
#include <mqueue.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <optional>
#include <stdexcept>
#include <system_error>

using Clock = std::chrono::steady_clock;

namespace {

constexpr unsigned FirstLinkStateAddress = 44;
constexpr int NotStarted = -1; // no ProcessStatus
constexpr auto PollInterval = std::chrono::microseconds(200);
constexpr int MarkAttempts = 10;

void sleepFor(Clock::duration duration)
{
    usleep(static_cast<useconds_t>(std::chrono::duration_cast<std::chrono::microseconds>(duration).count()));
}

Clock::duration fromSeconds(double seconds)
{
    return std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
}

template<typename Record>
void writeRecord(unsigned address, const Record& record)
{
    if (TagMemory::Write(sizeof record, address, reinterpret_cast<const unsigned char*>(&record)) != 0)
        throw std::runtime_error("tag memory takes no write at " + std::to_string(address));
}

template<typename Record>
Record readRecord(unsigned address)
{
    Record record{};
    TagMemory::Read(sizeof record, address, reinterpret_cast<unsigned char*>(&record));
    return record;
}

void createRequestQueue()
{
    mq_attr attributes{};
    attributes.mq_maxmsg = 10;
    attributes.mq_msgsize = RequestRecordSize;
    const mqd_t queue = mq_open(RequestQueueName, O_RDWR | O_CREAT, 0666, &attributes);
    if (queue < 0)
        throw std::system_error(errno, std::generic_category(), "create the request queue");
    mq_close(queue);
}

double waitUntilRunning(const Plan& plan, ChildProcess& process, Clock::time_point started)
{
    while (readRecord<MQTTGeneralStruct>(plan.generalAddress).m_ProcessStatus != PS_RUNNING) {
        process.requireAlive();
        if (Clock::now() - started > fromSeconds(plan.patience))
            throw std::runtime_error("the process under test does not report that it runs");
        sleepFor(PollInterval);
    }
    return std::chrono::duration<double>(Clock::now() - started).count();
}

Memory readMemory(pid_t process)
{
    std::ifstream file("/proc/" + std::to_string(process) + "/smaps_rollup");
    Memory memory;
    for (std::string word; file >> word;) {
        if (word == "Rss:")
            file >> memory.residentKiB;
        else if (word == "Pss:")
            file >> memory.proportionalKiB;
    }
    if (memory.residentKiB == 0)
        throw std::runtime_error("the kernel tells no memory figures of the process under test");
    return memory;
}

// Timers of one interval fire together, so between two rounds of ticks the counter stands still. A snapshot taken there
// holds whole rounds. A process that is behind its timers has no pause; then the snapshot is taken anyway.
bool waitForPause(const Plan& plan)
{
    const auto quiet = std::chrono::milliseconds(plan.interval) / 4;
    const auto deadline = Clock::now() + 3 * std::chrono::milliseconds(plan.interval);
    auto sent = readRecord<MQTTStatisticsStruct>(plan.statisticsAddress).m_SentPubs;
    std::optional<Clock::time_point> still;
    while (Clock::now() < deadline) {
        sleepFor(PollInterval);
        const auto now = readRecord<MQTTStatisticsStruct>(plan.statisticsAddress).m_SentPubs;
        if (now != sent)
            still = Clock::now();
        else if (still && Clock::now() - *still >= quiet)
            return true;
        sent = now;
    }
    return false;
}

struct Snapshot
{
    Clock::time_point time;
    long long processorNanoseconds;
    MQTTStatisticsStruct statistics;
    bool atRest;
    int marks;
};

Snapshot takeSnapshot(const Plan& plan, const ChildProcess& process)
{
    const bool atRest = plan.interval > 0 && waitForPause(plan);
    return {Clock::now(), process.processorNanoseconds(), readRecord<MQTTStatisticsStruct>(plan.statisticsAddress),
            atRest, 0};
}

void runMark(const Plan& plan, pid_t process)
{
    std::string command = plan.mark;
    if (const auto place = command.find("{pid}"); place != std::string::npos)
        command.replace(place, 5, std::to_string(process));
    if (std::system(command.c_str()) != 0)
        throw std::runtime_error("the mark command failed: " + command);
}

// A mark belongs to a snapshot only if no message was sent while the command ran.
Snapshot takeMarkedSnapshot(const Plan& plan, const ChildProcess& process)
{
    for (int attempt = 1; attempt <= MarkAttempts; ++attempt) {
        Snapshot snapshot = takeSnapshot(plan, process);
        if (plan.mark.empty())
            return snapshot;
        snapshot.marks = attempt;
        runMark(plan, process.id());
        const auto after = readRecord<MQTTStatisticsStruct>(plan.statisticsAddress).m_SentPubs;
        if (snapshot.atRest && after == snapshot.statistics.m_SentPubs)
            return snapshot;
    }
    throw std::runtime_error("no pause between two rounds was long enough for the mark command");
}

Window measureWindow(const Plan& plan, ChildProcess& process)
{
    const auto deadline = Clock::now() + fromSeconds(plan.patience);
    while (readRecord<MQTTStatisticsStruct>(plan.statisticsAddress).m_SentPubs == 0) {
        process.requireAlive();
        if (Clock::now() > deadline)
            throw std::runtime_error("the process under test publishes nothing");
        sleepFor(PollInterval);
    }
    sleepFor(fromSeconds(plan.warmUp));
    const Snapshot begin = takeMarkedSnapshot(plan, process);
    sleepFor(fromSeconds(plan.window));
    process.requireAlive();
    const Snapshot end = takeMarkedSnapshot(plan, process);

    Window window;
    window.seconds = std::chrono::duration<double>(end.time - begin.time).count();
    window.processorNanoseconds = end.processorNanoseconds - begin.processorNanoseconds;
    window.sent = end.statistics.m_SentPubs - begin.statistics.m_SentPubs;
    window.acknowledged = end.statistics.m_AckPubs - begin.statistics.m_AckPubs;
    window.atRest = begin.atRest && end.atRest;
    window.beginMarks = begin.marks;
    window.endMarks = end.marks;
    if (plan.interval > 0)
        window.expected = std::llround(window.seconds * 1000 / plan.interval) * plan.publications;
    return window;
}

} // namespace

void prepareController(const Plan& plan)
{
    TagMemory::Open();
    createRequestQueue();
    const unsigned char linkUp = 1;
    writeRecord(FirstLinkStateAddress, linkUp);
    writeRecord(plan.generalAddress, MQTTGeneralStruct{NotStarted, 0, 0, 0, 0});
    writeRecord(plan.statisticsAddress, MQTTStatisticsStruct{});
    for (unsigned i = 0; i < plan.dataSize; ++i)
        writeRecord(plan.dataAddress + i, static_cast<unsigned char>(i));
}

Outcome measure(const Plan& plan, ChildProcess& process, Clock::time_point started)
{
    Outcome outcome;
    outcome.startUpSeconds = waitUntilRunning(plan, process, started);
    outcome.memory = readMemory(process.id());
    if (plan.window > 0)
        outcome.window = measureWindow(plan, process);
    process.requireAlive();
    return outcome;
}
