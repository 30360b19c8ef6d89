#include "sampler.h"

#include "answerwatch.h"
#include "failure.h"
#include "requestqueue.h"
#include "tagtypes.h"

#include "devicepaths.h"
#include "Records/requestrecords.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace plcctl::live {

namespace {

// Tells one tag memory from another that takes its name; 0 for none.
std::uint64_t tagMemoryIdentity()
{
    const int descriptor = shm_open(TagMemoryImage::SharedMemoryName, O_RDONLY | O_CLOEXEC, 0);
    if (descriptor == -1)
        return 0;
    struct stat status
    {
    };
    const bool known = fstat(descriptor, &status) == 0;
    close(descriptor);
    return known ? status.st_ino + 1 : 0;
}

} // namespace

Sampler::Sampler(std::string configDirectory, std::string logFile)
    : m_configDirectory(std::move(configDirectory)), m_log(std::move(logFile))
{
}

LiveData Sampler::look()
{
    LiveData data;
    m_now = journalNanoseconds();
    m_time = std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
    data.timeNanoseconds = m_now;
    lookAtConfig(data);
    lookAtTagMemory(data);
    lookAtLog(data);
    lookAtQueue(data);
    fillService(data);
    fillStatistics(data);
    fillBrokers(data);
    fillPublications(data);
    fillSubscriptions(data);
    return data;
}

void Sampler::lookAtConfig(LiveData& data)
{
    const std::string signature = configSignature();
    if (signature != m_configSignature) {
        m_config = readDeviceConfig(m_configDirectory, ConfigScope::AllFiles);
        m_configSignature = signature;
        m_tally.watch(m_config);
        m_events.clear();
    }
    for (const FileProblem& problem : m_config.problems)
        data.problems.push_back(problem.file + ": " + problem.text);
}

std::string Sampler::configSignature() const
{
    std::string signature;
    for (const char* const name : {DevicePaths::GeneralFile, DevicePaths::BrokersFile, DevicePaths::SubscriptionsFile,
                                   DevicePaths::PublicationsFile}) {
        struct stat status
        {
        };
        if (stat((m_configDirectory + "/" + name).c_str(), &status) != 0) {
            signature += "error " + std::to_string(errno) + ';';
            continue;
        }
        for (const auto number : {static_cast<std::int64_t>(status.st_ino), static_cast<std::int64_t>(status.st_size),
                                  std::int64_t{status.st_mtim.tv_sec}, std::int64_t{status.st_mtim.tv_nsec},
                                  std::int64_t{status.st_ctim.tv_sec}, std::int64_t{status.st_ctim.tv_nsec}})
            signature += std::to_string(number) + ' ';
        signature += ';';
    }
    return signature;
}

void Sampler::lookAtTagMemory(LiveData& data)
{
    const std::uint64_t identity = tagMemoryIdentity();
    if (identity != m_tagMemoryIdentity || !m_reader) {
        m_tagMemoryIdentity = identity;
        m_reader.reset();
        m_tally.restart();
        m_events.clear();
        try {
            m_reader.emplace();
        } catch (const Failure& failure) {
            m_tagMemoryProblem = failure.what();
        }
    }
    if (!m_reader) {
        data.problems.push_back(m_tagMemoryProblem);
        return;
    }
    m_tally.look(m_reader->image());
    data.lostWrites = m_tally.lost();
}

void Sampler::lookAtQueue(LiveData& data) const
{
    const RequestQueue queue(mq_open(RequestQueueName, O_RDONLY | O_CLOEXEC));
    if (!queue.isOpen()) {
        data.queue.problem = errno == ENOENT ? "there is none: `plcctl queue create`, then start the service again"
                                             : std::strerror(errno);
        return;
    }
    const mq_attr attributes = queue.attributes();
    data.queue.waiting = attributes.mq_curmsgs;
    data.queue.capacity = attributes.mq_maxmsg;
}

std::vector<std::uint8_t> Sampler::bytesAt(std::uint64_t position, std::uint64_t size) const
{
    const std::uint64_t inside = std::min<std::uint64_t>({size, MaxTagBytes, bytesFrom(position)});
    return m_reader && inside > 0 ? m_reader->read(position, inside) : std::vector<std::uint8_t>{};
}

std::optional<double> Sampler::ageOf(std::optional<std::int64_t> nanoseconds) const
{
    if (!nanoseconds)
        return std::nullopt;
    return static_cast<double>(m_now - *nanoseconds) / NanosecondsPerSecond;
}

} // namespace plcctl::live
