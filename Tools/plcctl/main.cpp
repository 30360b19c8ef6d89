#include "commands.h"

#include <cstdio>
#include <exception>
#include <iostream>

namespace {

using plcctl::ExitCode;

constexpr char Footer[] = "Exit status:\n"
                          "  0  done\n"
                          "  1  the operation failed; the message says why\n"
                          "  2  the arguments are wrong, nothing was touched\n"
                          "  3  nothing to read, or only a part of it could be read\n"
                          "  4  a request got no final answer in time\n"
                          "  5  a request was not sent: the queue is missing or full\n"
                          "  101 to 228  a request was answered with 100 less this: 102 is -2, SC_AC_ERROR_INVALID_ID\n"
                          "Examples:\n"
                          "  plcctl link up\n"
                          "  plcctl status\n"
                          "  plcctl tag set 2048 REAL 21.5\n"
                          "  plcctl request connect 1\n"
                          "  plcctl COMMAND --help";

ExitCode parse(CLI::App& app, int argc, char** argv)
{
    try {
        app.parse(argc, argv);
        return ExitCode::Done;
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? ExitCode::Done : ExitCode::Usage;
    }
}

ExitCode run(const plcctl::Action& action)
{
    try {
        return action();
    } catch (const plcctl::Failure& failure) {
        std::cerr << "plcctl: " << failure.what() << '\n';
        return failure.code;
    } catch (const std::exception& error) {
        std::cerr << "plcctl: " << error.what() << '\n';
        return ExitCode::Failed;
    }
}

} // namespace

int main(int argc, char** argv)
{
    // A reader at the other end of a pipe sees each line at once.
    if (std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ) != 0)
        std::cerr << "plcctl: output may come late: standard output can't be buffered by lines\n";

    CLI::App app{"The controller's side of the MQTT client service: its tags, records, queue and links.", "plcctl"};
    app.set_version_flag("--version", "plcctl " PLCCTL_VERSION);
    app.footer(Footer);
    app.require_subcommand(1);

    plcctl::Action action;
    for (const auto add : plcctl::CommandGroups)
        add(app, action);

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
