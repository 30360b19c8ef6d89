#include <CLI/CLI.hpp>
#include <MQTTClient.h>

#include <cstdio>
#include <ctime>
#include <exception>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

// The others in the plant: publishes one payload to a list of topics in turn, at a steady pace, with QoS 0.

namespace {

constexpr long NanosecondsPerSecond = 1'000'000'000;

struct Task
{
    int port = 1883;
    std::string topicsFile;
    std::string payloadFile;
    long rate = 0;  // messages per second; 0: as fast as the library takes them
    long count = 0; // messages; 0: for ever
};

void check(int result, const char* step)
{
    if (result != MQTTCLIENT_SUCCESS)
        throw std::runtime_error(std::string(step) + " failed with " + std::to_string(result));
}

std::ifstream openForReading(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    if (!file)
        throw std::runtime_error("cannot read " + path);
    return file;
}

std::vector<std::string> readLines(const std::string& path)
{
    std::ifstream file = openForReading(path);
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);)
        lines.push_back(line);
    if (lines.empty())
        throw std::runtime_error(path + " is empty");
    return lines;
}

std::string readWhole(const std::string& path)
{
    std::ifstream file = openForReading(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

// Ticks at points of time that don't depend on how late the one before was taken.
class Pace
{
public:
    explicit Pace(long rate) : m_step(rate > 0 ? NanosecondsPerSecond / rate : 0)
    {
        clock_gettime(CLOCK_MONOTONIC, &m_next);
    }

    void await()
    {
        if (m_step == 0)
            return;
        m_next.tv_nsec += m_step;
        m_next.tv_sec += m_next.tv_nsec / NanosecondsPerSecond;
        m_next.tv_nsec %= NanosecondsPerSecond;
        clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &m_next, nullptr);
    }

private:
    long m_step; // nanoseconds
    timespec m_next{};
};

void send(const Task& task)
{
    const std::vector<std::string> topics = readLines(task.topicsFile);
    const std::string payload = readWhole(task.payloadFile);
    const std::string uri = "tcp://127.0.0.1:" + std::to_string(task.port);

    MQTTClient handle = nullptr;
    check(MQTTClient_create(&handle, uri.c_str(), "bench-sender", MQTTCLIENT_PERSISTENCE_NONE, nullptr), "create");
    MQTTClient_connectOptions options = MQTTClient_connectOptions_initializer;
    options.keepAliveInterval = 0;
    options.cleansession = 1;
    check(MQTTClient_connect(handle, &options), "connect");

    Pace pace(task.rate);
    for (long i = 0; task.count == 0 || i < task.count; ++i) {
        pace.await();
        const std::string& topic = topics[static_cast<std::size_t>(i) % topics.size()];
        check(
            MQTTClient_publish(handle, topic.c_str(), static_cast<int>(payload.size()), payload.data(), 0, 0, nullptr),
            "publish");
    }
    check(MQTTClient_disconnect(handle, 1000), "disconnect");
    MQTTClient_destroy(&handle);
}

} // namespace

int main(int argc, char** argv)
{
    CLI::App app("Publishes one payload to a list of topics in turn, at a steady pace, with QoS 0.");
    Task task;
    app.add_option("--port", task.port, "Listener on the loopback address")->capture_default_str();
    app.add_option("--topics", task.topicsFile, "File with a topic per line")->required();
    app.add_option("--payload", task.payloadFile, "File that is the payload")->required();
    app.add_option("--rate", task.rate, "Messages per second; 0 for no pauses")->capture_default_str();
    app.add_option("--count", task.count, "Messages in all; 0 for a stream without an end")->capture_default_str();
    CLI11_PARSE(app, argc, argv);

    try {
        send(task);
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "bench_sender: %s\n", error.what());
        return 1;
    }
}
