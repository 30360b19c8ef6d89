#include "Utils/scriptrunner.h"

#include <algorithm>
#include <QDeadlineTimer>
#include <QProcess>

namespace {

constexpr int MostOutput = 16 << 20; // bytes

// Takes what has arrived out of the process's buffer, which would grow without bound.
void takeOutput(QProcess& process, QByteArray& output)
{
    const QByteArray arrived = process.readAllStandardOutput();
    output += arrived.left(std::max(MostOutput - output.size(), 0));
}

} // namespace

namespace ScriptRunner {

std::optional<QByteArray> run(const QString& program, const QStringList& arguments, std::chrono::milliseconds timeout)
{
    QProcess process;
    process.setStandardErrorFile(QProcess::nullDevice());
    process.start(program, arguments, QIODevice::ReadWrite);

    const QDeadlineTimer deadline(timeout);
    QByteArray output;
    while (process.state() != QProcess::NotRunning && !deadline.hasExpired()) {
        process.waitForReadyRead(static_cast<int>(deadline.remainingTime()));
        takeOutput(process, output);
    }
    if (process.state() != QProcess::NotRunning) {
        process.kill();
        process.waitForFinished(1000);
        return std::nullopt;
    }
    if (process.error() == QProcess::FailedToStart)
        return std::nullopt;
    takeOutput(process, output);
    return output;
}

std::optional<QByteArray> runCommandLine(const QString& commandLine, std::chrono::milliseconds timeout)
{
    QStringList words = QProcess::splitCommand(commandLine);
    if (words.isEmpty())
        return std::nullopt;
    const QString program = words.takeFirst();
    return run(program, words, timeout);
}

} // namespace ScriptRunner
