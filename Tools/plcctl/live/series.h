#pragma once

#include <cstdint>
#include <deque>
#include <optional>
#include <vector>

namespace plcctl::live {

// How many events there were from one look to the next. Times are seconds of a clock that only goes forward.
class Series
{
public:
    static constexpr std::size_t Capacity = 240;

    // `events` since the last call; the first call only begins the time.
    void add(double time, std::uint64_t events);

    // Forgets everything, so that the next call begins the time.
    void clear() { m_steps.clear(); }

    // Events a second over the last `window` seconds, or over all that is known if that is less. Nothing before there
    // were two looks.
    [[nodiscard]] std::optional<double> perSecond(double window) const;

    // Events a second from each look to the next, the oldest first.
    [[nodiscard]] std::vector<double> rates() const;

private:
    struct Step
    {
        double time;
        std::uint64_t events;
    };

    std::deque<Step> m_steps;
};

// The events that lie between two values of a 32-bit counter of the service.
class CounterSteps
{
public:
    // 0 for the first value, and for one that is a little older than the last: the service writes its counters without
    // a lock, and the next write mends it. A much lower value is a new beginning, or a counter that went round.
    [[nodiscard]] std::uint64_t take(std::uint32_t value);

private:
    std::optional<std::uint32_t> m_last;
};

} // namespace plcctl::live
