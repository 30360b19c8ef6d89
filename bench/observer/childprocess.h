#pragma once

#include <ctime>
#include <string>
#include <sys/types.h>
#include <vector>

// The process under test. Its output goes to a file; it is ended with the object.
class ChildProcess
{
public:
    // Starts `command` (a program found by PATH, then its arguments); throws std::system_error when that fails.
    ChildProcess(const std::vector<std::string>& command, const std::string& outputFile);
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;
    ~ChildProcess();

    pid_t id() const { return m_id; }

    // Throws std::runtime_error, with the way it ended, when the process is no longer there.
    void requireAlive();

    // Processor time of all its threads, ended ones included, in nanoseconds.
    long long processorNanoseconds() const;

    // Asks it to end and waits for that; a process that is still there after 30 s is killed.
    void end();

private:
    pid_t m_id = -1;
    clockid_t m_clock = 0;
};
