#pragma once

namespace plcctl {

// Goes on as the program that holds the service's code, with the same arguments. It is a program of its own since that
// code writes to tag memory, and there it gets one that is nobody else's. Throws Failure where it isn't installed.
[[noreturn]] void becomeServiceProgram();

} // namespace plcctl
