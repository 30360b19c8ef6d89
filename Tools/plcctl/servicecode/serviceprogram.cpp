#include "servicecode/serviceprogram.h"

#include "failure.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace plcctl {

namespace {

std::vector<std::string> ownArguments()
{
    std::ifstream file("/proc/self/cmdline", std::ios::binary);
    std::vector<std::string> arguments;
    for (std::string argument; std::getline(file, argument, '\0');)
        arguments.push_back(argument);
    return arguments;
}

// Beside the directory that this program lies in, as it is built and as it is installed.
std::string programPath()
{
    std::error_code error;
    const auto self = std::filesystem::read_symlink("/proc/self/exe", error);
    return (self.parent_path().parent_path() / "libexec" / "plcctl" / "plcctl-servicecode").string();
}

} // namespace

void becomeServiceProgram()
{
    std::vector<std::string> arguments = ownArguments();
    std::vector<char*> pointers;
    std::transform(arguments.begin(), arguments.end(), std::back_inserter(pointers),
                   [](std::string& argument) { return argument.data(); });
    pointers.push_back(nullptr);
    const std::string program = programPath();
    execv(program.c_str(), pointers.data());
    throw Failure(ExitCode::Failed, program + " can't be started: " + std::strerror(errno) +
                                        "; it belongs to plcctl, install both from one build");
}

} // namespace plcctl
