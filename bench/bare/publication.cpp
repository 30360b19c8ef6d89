#include "bench/bare/publication.h"

#include "bench/bare/sample.h"
#include "Platform/TagMemory/tagmemory.h"

#include <array>

Publication::Publication(int number, const Workload& workload, Client& client)
    : m_workload(workload), m_client(client), m_topic("bench/publication/" + std::to_string(number)),
      m_address(workload.dataAddress + static_cast<unsigned>((number - 1) * workload.spacing))
{
    QObject::connect(&m_timer, &QTimer::timeout, [this] { publish(); });
}

void Publication::startTimer()
{
    m_timer.start(m_workload.interval);
}

void Publication::publish()
{
    if (!m_client.isConnected())
        return;
    if (m_workload.json != 0)
        publishSample();
    else
        publishBytes();
}

void Publication::publishBytes()
{
    std::array<unsigned char, LargestPayload> payload;
    TagMemory::Read(static_cast<unsigned short>(m_workload.size), m_address, payload.data());
    m_client.publish(m_topic.c_str(), payload.data(), m_workload.size, m_workload.qos);
}

void Publication::publishSample()
{
    Sample sample;
    TagMemory::Read(SampleSize, m_address, reinterpret_cast<unsigned char*>(&sample));
    std::array<char, LongestSampleText> text;
    const std::size_t length = formatSample(sample, text.data());
    m_client.publish(m_topic.c_str(), text.data(), static_cast<int>(length), m_workload.qos);
}
