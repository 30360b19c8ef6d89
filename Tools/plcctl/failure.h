#pragma once

#include <stdexcept>
#include <string>

namespace plcctl {

// The exit status of the program. Scripts rely on the numbers.
enum class ExitCode : int
{
    Done = 0,
    Failed = 1,       // the operation failed
    Usage = 2,        // the arguments are wrong; nothing was touched
    NothingToRead = 3 // what was to be read isn't there, or only in part
};

// Ends a command. main prints the text, which says what to do next where there is something to do.
class Failure : public std::runtime_error
{
public:
    Failure(ExitCode exitCode, const std::string& text) : std::runtime_error(text), code(exitCode) {}

    const ExitCode code;
};

} // namespace plcctl
