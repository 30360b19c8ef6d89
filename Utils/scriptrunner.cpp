#include "Utils/scriptrunner.h"

#include <algorithm>
#include <csignal>
#include <linux/close_range.h>
#include <QDeadlineTimer>
#include <QProcess>
#include <unistd.h>

namespace {

// A program that gets none of this process's files and sockets: a child that it leaves behind would keep a broker from
// seeing the end of its connection. And it leads a group of its own, so that what it has started can be ended with it.
class Program : public QProcess
{
public:
    void killGroup()
    {
        if (processId() > 0)
            ::kill(-static_cast<pid_t>(processId()), SIGKILL);
        kill(); // itself, in case that it has no group yet
        waitForFinished(1000);
    }

protected:
    void setupChildProcess() override // between fork and exec
    {
        close_range(STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC);
        setpgid(0, 0);
    }
};

constexpr int MostOutput = 16 << 20; // bytes
constexpr qint64 LongestWait = 100;  // ms, between two looks whether the program is still wanted

// Qt ignores broken pipes from its first such program on. The process's own handler is to stay.
void startWithOwnSignals(Program& process, const QString& program, const QStringList& arguments)
{
    struct sigaction brokenPipe = {};
    sigaction(SIGPIPE, nullptr, &brokenPipe);
    process.start(program, arguments, QIODevice::ReadWrite);
    if (brokenPipe.sa_handler != SIG_DFL && brokenPipe.sa_handler != SIG_IGN)
        sigaction(SIGPIPE, &brokenPipe, nullptr);
}

// Takes what has arrived out of the process's buffer, which would grow without bound.
void takeOutput(QProcess& process, QByteArray& output)
{
    const QByteArray arrived = process.readAllStandardOutput();
    output += arrived.left(std::max(MostOutput - output.size(), 0));
}

} // namespace

namespace ScriptRunner {

std::optional<QByteArray> run(const QString& program, const QStringList& arguments, std::chrono::milliseconds timeout,
                              bool (*isGivenUp)())
{
    Program process;
    process.setStandardErrorFile(QProcess::nullDevice());
    startWithOwnSignals(process, program, arguments);

    const QDeadlineTimer deadline(timeout);
    QByteArray output;
    while (process.state() != QProcess::NotRunning && !deadline.hasExpired() && !(isGivenUp && isGivenUp())) {
        process.waitForReadyRead(static_cast<int>(std::min(deadline.remainingTime(), LongestWait)));
        takeOutput(process, output);
    }
    if (process.state() != QProcess::NotRunning) {
        process.killGroup();
        return std::nullopt;
    }
    if (process.error() == QProcess::FailedToStart)
        return std::nullopt;
    takeOutput(process, output);
    return output;
}

std::optional<QByteArray> runCommandLine(const QString& commandLine, std::chrono::milliseconds timeout,
                                         bool (*isGivenUp)())
{
    QStringList words = QProcess::splitCommand(commandLine);
    if (words.isEmpty())
        return std::nullopt;
    const QString program = words.takeFirst();
    return run(program, words, timeout, isGivenUp);
}

} // namespace ScriptRunner
