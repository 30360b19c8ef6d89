#include "watchloop.h"

#include <algorithm>
#include <csignal>
#include <ctime>

namespace plcctl {

namespace {

sigset_t endSignals()
{
    sigset_t ends;
    sigemptyset(&ends);
    sigaddset(&ends, SIGINT);
    sigaddset(&ends, SIGTERM);
    return ends;
}

} // namespace

WatchLoop::WatchLoop(std::optional<double> seconds)
{
    // Blocked, not handled: a signal then waits for the next pause, and none falls between a test and a sleep.
    const sigset_t ends = endSignals();
    sigprocmask(SIG_BLOCK, &ends, nullptr);
    if (seconds)
        m_deadline =
            Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(*seconds));
}

bool WatchLoop::pause(std::chrono::milliseconds interval)
{
    if (m_over)
        return false;
    std::chrono::nanoseconds rest = interval;
    if (m_deadline)
        rest = std::clamp(std::chrono::nanoseconds(*m_deadline - Clock::now()), std::chrono::nanoseconds::zero(), rest);

    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(rest);
    const timespec timeout{static_cast<std::time_t>(seconds.count()), static_cast<long>((rest - seconds).count())};
    const sigset_t ends = endSignals();
    const bool signalled = sigtimedwait(&ends, nullptr, &timeout) > 0;
    m_over = signalled || (m_deadline && Clock::now() >= *m_deadline);
    return !m_over;
}

} // namespace plcctl
