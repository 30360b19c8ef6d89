#include "convert/convert.h"
#include "diagnose/diagnose.h"
#include "programrun.h"
#include "servicecode/collectedlog.h"

// The commands of plcctl that run the service's own code. plcctl starts this program with its own arguments.
int main(int argc, char** argv)
{
    plcctl::collectLog();
    CLI::App app{"The commands of plcctl that run the service's own code.", "plcctl"};
    app.require_subcommand(1);
    plcctl::Action action;
    const auto conversion = std::make_shared<plcctl::ConvertArguments>();
    plcctl::describeConvert(app, *conversion)->callback([&] { action = [&] { return plcctl::convert(*conversion); }; });
    const auto diagnosis = std::make_shared<plcctl::DiagnoseArguments>();
    plcctl::describeDiagnose(app, *diagnosis)->callback([&] { action = [&] { return plcctl::diagnose(*diagnosis); }; });
    return plcctl::runProgram(app, action, argc, argv);
}
