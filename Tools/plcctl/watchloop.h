#pragma once

#include <chrono>
#include <optional>

namespace plcctl {

// Paces a command that keeps looking, and tells when it is to end: at Ctrl-C, at SIGTERM or when its time is up.
// From construction on the two signals no longer end the process by themselves.
class WatchLoop
{
public:
    explicit WatchLoop(std::optional<double> seconds);

    // Waits for `interval`, less if the end comes first. False once the command is to end.
    [[nodiscard]] bool pause(std::chrono::milliseconds interval);

private:
    using Clock = std::chrono::steady_clock;

    bool m_over = false;
    std::optional<Clock::time_point> m_deadline;
};

} // namespace plcctl
