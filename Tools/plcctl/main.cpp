#include "programrun.h"

namespace {

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

} // namespace

int main(int argc, char** argv)
{
    CLI::App app{"The controller's side of the MQTT client service: its tags, records, queue and links.", "plcctl"};
    app.set_version_flag("--version", "plcctl " PLCCTL_VERSION);
    app.footer(Footer);
    app.require_subcommand(1);

    plcctl::Action action;
    for (const auto add : plcctl::CommandGroups)
        add(app, action);

    return plcctl::runProgram(app, action, argc, argv);
}
