#include "Utils/scriptrunner.h"

#include <QProcess>

namespace ScriptRunner {

std::optional<QByteArray> run(const QString& program, const QStringList& arguments, std::chrono::milliseconds timeout)
{
    QProcess process;
    process.start(program, arguments, QIODevice::ReadWrite);
    if (!process.waitForFinished(static_cast<int>(timeout.count()))) {
        process.kill();
        process.waitForFinished(1000);
        return std::nullopt;
    }
    return process.readAllStandardOutput();
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
