#include "series.h"

namespace plcctl::live {

void Series::add(double time, std::uint64_t events)
{
    m_steps.push_back({time, m_steps.empty() ? 0 : events});
    if (m_steps.size() > Capacity)
        m_steps.pop_front();
}

std::optional<double> Series::perSecond(double window) const
{
    if (m_steps.size() < 2)
        return std::nullopt;
    const double end = m_steps.back().time;
    std::uint64_t events = 0;
    double begin = end;
    for (auto step = m_steps.rbegin(); step + 1 != m_steps.rend() && end - begin < window; ++step) {
        events += step->events;
        begin = (step + 1)->time;
    }
    return end > begin ? std::optional(static_cast<double>(events) / (end - begin)) : std::nullopt;
}

std::vector<double> Series::rates() const
{
    std::vector<double> result;
    for (std::size_t at = 1; at < m_steps.size(); ++at) {
        const double seconds = m_steps[at].time - m_steps[at - 1].time;
        result.push_back(seconds > 0 ? static_cast<double>(m_steps[at].events) / seconds : 0);
    }
    return result;
}

std::uint64_t CounterSteps::take(std::uint32_t value)
{
    constexpr std::uint32_t Quarter = 1U << 30;
    constexpr std::uint32_t LittleOlder = 64;
    constexpr std::uint32_t LongRun = 1024; // a counter that was reset is hardly ever so close to one of this size
    const std::uint32_t last = m_last.value_or(value);
    if (value < last && last >= LongRun && last - value <= LittleOlder)
        return 0;
    m_last = value;
    if (value >= last)
        return value - last;
    const bool wentRound = last >= 3 * Quarter && value < Quarter;
    return wentRound ? std::uint32_t{value - last} : value;
}

} // namespace plcctl::live
