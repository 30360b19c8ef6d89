#include "bench/observer/measurement.h"

#include "MQTTClientManager/Records/statuscodes.h"
#include "MQTTClientManager/Records/subscriptionrecords.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <optional>
#include <stdexcept>

using Clock = std::chrono::steady_clock;

namespace {

constexpr auto PollInterval = std::chrono::microseconds(200);
constexpr int MarkAttempts = 10;
constexpr auto BurstRest = std::chrono::milliseconds(200); // the counter is raised ahead of a message's last steps
constexpr char SenderOutput[] = "/tmp/sender.txt";

void sleepFor(Clock::duration duration)
{
    usleep(static_cast<useconds_t>(std::chrono::duration_cast<std::chrono::microseconds>(duration).count()));
}

Clock::duration fromSeconds(double seconds)
{
    return std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
}

double waitUntilRunning(const Plan& plan, ChildProcess& process, Clock::time_point started)
{
    while (readRecord<MQTTGeneralStruct>(plan.addresses.general).m_ProcessStatus != PS_RUNNING) {
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

MQTTStatisticsStruct readStatistics(const Plan& plan)
{
    return readRecord<MQTTStatisticsStruct>(plan.addresses.statistics);
}

std::uint32_t messagesOf(const MQTTStatisticsStruct& statistics)
{
    return statistics.m_SentPubs + statistics.m_ReceivedSub;
}

std::uint32_t countMessages(const Plan& plan)
{
    return messagesOf(readStatistics(plan));
}

// Timers of one interval fire together, so between two rounds of ticks the counter stands still. A snapshot taken there
// holds whole rounds. A process that is behind its timers has no pause; then the snapshot is taken anyway.
bool waitForPause(const Plan& plan)
{
    const auto quiet = std::chrono::milliseconds(plan.interval) / 4;
    const auto deadline = Clock::now() + 3 * std::chrono::milliseconds(plan.interval);
    auto counted = countMessages(plan);
    std::optional<Clock::time_point> still;
    while (Clock::now() < deadline) {
        sleepFor(PollInterval);
        const auto now = countMessages(plan);
        if (now != counted)
            still = Clock::now();
        else if (still && Clock::now() - *still >= quiet)
            return true;
        counted = now;
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
    return {Clock::now(), process.processorNanoseconds(), readStatistics(plan), atRest, 0};
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
        if (snapshot.atRest && countMessages(plan) == messagesOf(snapshot.statistics))
            return snapshot;
    }
    throw std::runtime_error("no pause between two rounds was long enough for the mark command");
}

Window between(const Plan& plan, const Snapshot& begin, const Snapshot& end)
{
    Window window;
    window.seconds = std::chrono::duration<double>(end.time - begin.time).count();
    window.processorNanoseconds = end.processorNanoseconds - begin.processorNanoseconds;
    window.messages = messagesOf(end.statistics) - messagesOf(begin.statistics);
    window.acknowledged = end.statistics.m_AckPubs - begin.statistics.m_AckPubs;
    window.atRest = begin.atRest && end.atRest;
    window.beginMarks = begin.marks;
    window.endMarks = end.marks;
    if (plan.interval > 0)
        window.expected = std::llround(window.seconds * 1000 / plan.interval) * plan.publications;
    return window;
}

Window measureWindow(const Plan& plan, ChildProcess& process)
{
    const auto deadline = Clock::now() + fromSeconds(plan.patience);
    while (countMessages(plan) == 0) {
        process.requireAlive();
        if (Clock::now() > deadline)
            throw std::runtime_error("the process under test counts no message");
        sleepFor(PollInterval);
    }
    sleepFor(fromSeconds(plan.warmUp));
    const Snapshot begin = takeMarkedSnapshot(plan, process);
    sleepFor(fromSeconds(plan.window));
    process.requireAlive();
    return between(plan, begin, takeMarkedSnapshot(plan, process));
}

Window measureStream(const Plan& plan, ChildProcess& process)
{
    ChildProcess sender({"/bin/sh", "-c", "exec " + plan.sender}, SenderOutput);
    const Window window = measureWindow(plan, process);
    sender.requireAlive();
    return window;
}

void sendBurst(const Plan& plan, ChildProcess& process)
{
    const std::uint32_t whole = countMessages(plan) + plan.burst;
    if (std::system(plan.sender.c_str()) != 0)
        throw std::runtime_error("the sender failed: " + plan.sender);
    const auto deadline = Clock::now() + fromSeconds(plan.patience);
    while (countMessages(plan) != whole) {
        process.requireAlive();
        if (Clock::now() > deadline)
            throw std::runtime_error("messages are missing that were sent to the process under test");
        sleepFor(PollInterval);
    }
    sleepFor(BurstRest);
}

Snapshot takeRestingSnapshot(const Plan& plan, const ChildProcess& process)
{
    Snapshot snapshot{Clock::now(), process.processorNanoseconds(), readStatistics(plan), true, 0};
    if (!plan.mark.empty()) {
        runMark(plan, process.id());
        snapshot.marks = 1;
    }
    return snapshot;
}

Window measureBurst(const Plan& plan, ChildProcess& process)
{
    sendBurst(plan, process);
    const Snapshot begin = takeRestingSnapshot(plan, process);
    sendBurst(plan, process);
    return between(plan, begin, takeRestingSnapshot(plan, process));
}

Window measureAsPlanned(const Plan& plan, ChildProcess& process)
{
    if (plan.sender.empty())
        return measureWindow(plan, process);
    return plan.burst > 0 ? measureBurst(plan, process) : measureStream(plan, process);
}

} // namespace

Outcome measure(const Plan& plan, ChildProcess& process, Clock::time_point started)
{
    Outcome outcome;
    outcome.startUpSeconds = waitUntilRunning(plan, process, started);
    outcome.memory = readMemory(process.id());
    if (plan.window > 0)
        outcome.window = measureAsPlanned(plan, process);
    process.requireAlive();
    if (plan.addresses.records != 0) {
        outcome.record = readHexadecimal(plan.addresses.records, sizeof(SubscriberStatusStruct));
        outcome.tag = readHexadecimal(plan.addresses.data, plan.tagSize);
    }
    return outcome;
}
