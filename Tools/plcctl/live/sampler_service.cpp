#include "sampler.h"

#include "reporttext.h"

#include "Records/linkstates.h"

#include <cerrno>
#include <csignal>

namespace plcctl::live {

namespace {

bool isGone(std::int32_t processId)
{
    return processId > 0 && kill(processId, 0) != 0 && errno == ESRCH;
}

} // namespace

void Sampler::fillService(LiveData& data)
{
    if (!m_reader)
        return;
    data.general = readRecord<MQTTGeneralStruct>(*m_reader, m_config.generalAddress);
    data.processId = m_tally.processId();
    data.hasProcessEnded = data.processId && isGone(*data.processId);
    for (std::size_t port = 0; port < data.links.size(); ++port)
        data.links[port] = m_reader->read(LinkStatePositions[port], 1).front();
}

void Sampler::fillStatistics(LiveData& data)
{
    const auto statistics =
        m_reader ? readRecord<MQTTStatisticsStruct>(*m_reader, m_config.statisticsAddress) : std::nullopt;
    if (!statistics)
        return;
    // Another process counts from 0 on, and may write no debug lines.
    if (m_seriesProcessId != data.processId) {
        m_counters = {};
        m_sent.clear();
    }
    m_seriesProcessId = data.processId;
    const std::array<std::uint32_t, 4> values{statistics->m_SentPubs, statistics->m_AckPubs, statistics->m_ReceivedSub,
                                              statistics->m_DroppedSubs};
    for (std::size_t at = 0; at < values.size(); ++at) {
        CounterSeries& counter = m_counters[at];
        counter.series.add(m_time, counter.steps.take(values[at]));
        data.counters[at].value = values[at];
        data.counters[at].rate = counter.series.perSecond(RateWindow);
        data.counters[at].rates = counter.series.rates();
    }
}

} // namespace plcctl::live
