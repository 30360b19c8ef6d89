#include "programrun.h"

#include <cstdio>
#include <exception>
#include <iostream>

namespace plcctl {

namespace {

ExitCode parse(CLI::App& app, int argc, char** argv)
{
    try {
        app.parse(argc, argv);
        return ExitCode::Done;
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? ExitCode::Done : ExitCode::Usage;
    }
}

ExitCode run(const Action& action)
{
    try {
        return action();
    } catch (const Failure& failure) {
        std::cerr << "plcctl: " << failure.what() << '\n';
        return failure.code;
    } catch (const std::exception& error) {
        std::cerr << "plcctl: " << error.what() << '\n';
        return ExitCode::Failed;
    }
}

} // namespace

int runProgram(CLI::App& app, const Action& action, int argc, char** argv)
{
    // A reader at the other end of a pipe sees each line at once.
    if (std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ) != 0)
        std::cerr << "plcctl: output may come late: standard output can't be buffered by lines\n";

    ExitCode result = parse(app, argc, argv);
    if (result == ExitCode::Done && action)
        result = run(action);

    std::cout.flush();
    if (!std::cout) {
        std::cerr << "plcctl: standard output could not be written\n";
        return static_cast<int>(ExitCode::Failed);
    }
    return static_cast<int>(result);
}

} // namespace plcctl
