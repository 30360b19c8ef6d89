#pragma once

#include "check/configuration.h"

#include <string>

namespace plcctl::check {

// Reads the four files of a configuration directory, or of the device's file tree that holds one, and tells of what
// keeps the service from reading them. Throws Failure where there is no such directory, or nothing to read in it.
Configuration loadConfiguration(const std::string& directory, Findings& findings);

} // namespace plcctl::check
