#pragma once

#include "check/configuration.h"

#include <cstdint>

// What is looked at, a room each. They only read; a room takes what it needs from the configuration and adds findings.
namespace plcctl::check {

void checkElements(const Configuration& configuration, Findings& findings);    // names, missing and repeated ones
void checkIdentities(const Configuration& configuration, Findings& findings);  // IDs, names, the brokers of entries
void checkConnections(const Configuration& configuration, Findings& findings); // hosts, ports, sessions, credentials
void checkWills(const Configuration& configuration, Findings& findings);
void checkTopics(const Configuration& configuration, Findings& findings);
void checkLayouts(const Configuration& configuration, Findings& findings);  // types and members of tags
void checkSizes(const Configuration& configuration, Findings& findings);    // of tags and messages
void checkCapacity(const Configuration& configuration, Findings& findings); // rows and periods of the scheduler
void checkTagRanges(const Configuration& configuration, Findings& findings);
// Files that brokers name; `now` in seconds since 1970.
void checkCertificates(const Configuration& configuration, std::int64_t now, Findings& findings);
void checkScripts(const Configuration& configuration, Findings& findings); // and the settings that topics use

} // namespace plcctl::check
