#pragma once

#include "commands.h"

namespace plcctl {

// Parses the command line, runs the action that it asks for, tells failures on standard error, and returns the exit
// status.
int runProgram(CLI::App& app, const Action& action, int argc, char** argv);

} // namespace plcctl
