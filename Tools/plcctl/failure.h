#pragma once

#include <stdexcept>
#include <string>

namespace plcctl {

// The exit status of the program. Scripts rely on the numbers.
enum class ExitCode : int
{
    Done = 0,
    Failed = 1,        // the operation failed
    Usage = 2,         // the arguments are wrong; nothing was touched
    NothingToRead = 3, // what was to be read isn't there, or only in part
    NoAnswer = 4,      // a request got no final answer in time
    NotSent = 5,       // a request was not sent: the queue is missing or full
    RequestBase = 100  // 101 to 228: a request was answered with this less the exit status as its code
};

// The exit status for the final answer to a request, a StatusCodes value.
constexpr ExitCode exitCodeOf(int answer)
{
    if (answer == 0)
        return ExitCode::Done;
    // No answer of the service's own is positive and final.
    return answer > 0 ? ExitCode::Failed : static_cast<ExitCode>(static_cast<int>(ExitCode::RequestBase) - answer);
}

// Ends a command. main prints the text, which says what to do next where there is something to do.
class Failure : public std::runtime_error
{
public:
    Failure(ExitCode exitCode, const std::string& text) : std::runtime_error(text), code(exitCode) {}

    const ExitCode code;
};

} // namespace plcctl
