#include "bench/observer/childprocess.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <spawn.h>
#include <stdexcept>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace {

constexpr int EndingAttempts = 3000; // of 10 ms

void check(int error, const std::string& what)
{
    if (error != 0)
        throw std::system_error(error, std::generic_category(), what);
}

std::string describeEnding(int status)
{
    if (WIFSIGNALED(status))
        return "it died of signal " + std::to_string(WTERMSIG(status));
    return "it exited with status " + std::to_string(WEXITSTATUS(status));
}

} // namespace

ChildProcess::ChildProcess(const std::vector<std::string>& command, const std::string& outputFile)
{
    std::vector<char*> arguments;
    arguments.reserve(command.size() + 1);
    for (const std::string& word : command)
        arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    check(posix_spawn_file_actions_init(&actions), "spawn");
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, outputFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
    const int error = posix_spawnp(&m_id, arguments[0], &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    check(error, "start " + command[0]);
    check(clock_getcpuclockid(m_id, &m_clock), "processor clock of " + command[0]);
}

ChildProcess::~ChildProcess()
{
    if (m_id < 0)
        return;
    kill(m_id, SIGKILL);
    waitpid(m_id, nullptr, 0);
}

void ChildProcess::requireAlive()
{
    int status = 0;
    if (waitpid(m_id, &status, WNOHANG) != m_id)
        return;
    m_id = -1;
    throw std::runtime_error("the process under test ended too early: " + describeEnding(status));
}

long long ChildProcess::processorNanoseconds() const
{
    timespec time{};
    if (clock_gettime(m_clock, &time) != 0)
        throw std::system_error(errno, std::generic_category(), "processor clock");
    return time.tv_sec * 1'000'000'000LL + time.tv_nsec;
}

void ChildProcess::end()
{
    kill(m_id, SIGTERM);
    for (int i = 0; i < EndingAttempts; ++i) {
        if (waitpid(m_id, nullptr, WNOHANG) == m_id) {
            m_id = -1;
            return;
        }
        usleep(10'000);
    }
}
