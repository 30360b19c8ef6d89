#pragma once

#include "failure.h"

#include <array>
#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <functional>

namespace plcctl {

// What the parsed command line asks for.
using Action = std::function<ExitCode()>;

// Each adds one command group to the program; parsing a command of the group sets the action.
void addQueueCommands(CLI::App& app, Action& action);
void addLinkCommands(CLI::App& app, Action& action);
void addTagCommands(CLI::App& app, Action& action);
void addJournalCommand(CLI::App& app, Action& action);
void addStatusCommand(CLI::App& app, Action& action);
void addRegistrationsCommand(CLI::App& app, Action& action);
void addRequestCommands(CLI::App& app, Action& action);
void addConfigCommands(CLI::App& app, Action& action);
void addAppCommand(CLI::App& app, Action& action);
void addCheckCommand(CLI::App& app, Action& action);
void addLiveCommand(CLI::App& app, Action& action);
void addExplainCommand(CLI::App& app, Action& action);
void addConvertCommand(CLI::App& app, Action& action);
void addDiagnoseCommand(CLI::App& app, Action& action);

// In the order in which the help lists them.
inline constexpr std::array CommandGroups{
    addStatusCommand,   addTagCommands,     addJournalCommand, addLinkCommands,         addQueueCommands,
    addRequestCommands, addConfigCommands,  addAppCommand,     addRegistrationsCommand, addCheckCommand,
    addLiveCommand,     addDiagnoseCommand, addConvertCommand, addExplainCommand};

} // namespace plcctl
