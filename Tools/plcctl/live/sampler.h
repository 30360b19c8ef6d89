#pragma once

#include "livedata.h"
#include "logtail.h"
#include "series.h"
#include "tagaccess.h"
#include "tally.h"

#include <array>
#include <chrono>
#include <map>
#include <optional>
#include <string>

namespace plcctl::live {

// Looks at tag memory, its journal, the configuration files, the request queue and the log, and writes to none. What is
// missing or broken is told in the result, and looked for again with the next look.
//
// sampler.cpp looks at where all comes from, sampler_log.cpp at the log; sampler_service.cpp fills in what is of the
// service as a whole, sampler_entities.cpp its brokers, publications and subscriptions.
class Sampler
{
public:
    Sampler(std::string configDirectory, std::string logFile);

    [[nodiscard]] LiveData look();

    // As of the last look.
    [[nodiscard]] const DeviceConfig& config() const { return m_config; }

    // Null while there is no tag memory. Stays valid until the next look.
    [[nodiscard]] const TagReader* tags() const { return m_reader ? &*m_reader : nullptr; }

private:
    static constexpr double NanosecondsPerSecond = 1e9;
    static constexpr double RateWindow = 10; // seconds

    struct EventSeries
    {
        Series series;
        std::uint64_t seen = 0;

        void take(double time, std::uint64_t events);
    };

    struct SentSeries
    {
        Series series;
        std::uint64_t events = 0;
        std::int64_t lastNanoseconds = 0;
    };

    struct CounterSeries
    {
        CounterSteps steps;
        Series series;
    };

    void lookAtConfig(LiveData& data);
    void lookAtTagMemory(LiveData& data);
    void lookAtLog(LiveData& data);
    void lookAtQueue(LiveData& data) const;
    void takeLogRow(LogRow row);
    void fillService(LiveData& data);
    void fillStatistics(LiveData& data);
    void fillBrokers(LiveData& data);
    void fillPublications(LiveData& data);
    void fillSubscriptions(LiveData& data);
    [[nodiscard]] std::string configSignature() const;
    [[nodiscard]] std::vector<std::uint8_t> bytesAt(std::uint64_t position, std::uint64_t size) const;
    [[nodiscard]] std::optional<double> ageOf(std::optional<std::int64_t> nanoseconds) const;
    [[nodiscard]] std::string brokerName(const Attributes& attributes) const;
    [[nodiscard]] bool isConnected(const LiveData& data, const Attributes& attributes) const;

    std::string m_configDirectory;
    std::string m_configSignature;
    DeviceConfig m_config;
    std::optional<TagReader> m_reader;
    std::uint64_t m_tagMemoryIdentity = 0;
    std::string m_tagMemoryProblem;
    Tally m_tally;
    LogTail m_log;
    std::uint64_t m_logRows = 0;
    std::array<std::deque<NumberedLogRow>, Severities> m_rowsBySeverity;
    std::uint64_t m_logSkipped = 0;
    bool m_wasLogRead = false;
    std::array<CounterSeries, 4> m_counters;
    std::map<std::uint64_t, EventSeries> m_events; // by position of the acknowledgement byte or record
    std::map<std::string, SentSeries> m_sent;      // by name of the publication
    std::optional<std::int32_t> m_seriesProcessId;
    std::int64_t m_now = 0; // nanoseconds since 1970
    double m_time = 0;      // seconds of the steady clock
};

} // namespace plcctl::live
