#pragma once

#include <chrono>
#include <optional>
#include <QByteArray>
#include <QStringList>

namespace ScriptRunner {

// Runs a program to its end and returns what it wrote to its standard output. Empty when it could not be started or did
// not end in time; then it is killed, with what it has started. It inherits none of this process's files. Output past
// 16 MiB is dropped. The exit status and the standard error are not looked at. Blocks the calling thread; needs no
// event loop. Once `isGivenUp` says so, the program is killed as well, within some 100 ms.
std::optional<QByteArray> run(const QString& program, const QStringList& arguments, std::chrono::milliseconds timeout,
                              bool (*isGivenUp)() = nullptr);

// The same for a command line, split at blanks; double quotes group. There is no shell.
std::optional<QByteArray> runCommandLine(const QString& commandLine, std::chrono::milliseconds timeout,
                                         bool (*isGivenUp)() = nullptr);

} // namespace ScriptRunner
