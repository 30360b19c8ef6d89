#pragma once

#include "check/configuration.h"

#include <cstdint>
#include <set>
#include <string>
#include <vector>

namespace plcctl::check {

struct Result
{
    std::string directory;
    std::vector<std::string> files; // by the index of a finding's site
    std::vector<Finding> findings;  // in order

    [[nodiscard]] std::size_t count(Severity severity) const;
};

// Runs all checks; `now` in seconds since 1970. Findings of the ignored rules are left out.
Result checkDirectory(const std::string& directory, std::int64_t now, const std::set<std::string>& ignoredRules);

// The same for a configuration that is loaded; the findings so far are taken along.
void runChecks(const Configuration& configuration, std::int64_t now, Findings& findings);

} // namespace plcctl::check
