#include "check/checking.h"

#include "check/checks.h"
#include "check/loading.h"

#include <algorithm>

namespace plcctl::check {

std::size_t Result::count(Severity severity) const
{
    return static_cast<std::size_t>(std::count_if(
        findings.begin(), findings.end(), [severity](const Finding& finding) { return finding.severity == severity; }));
}

void runChecks(const Configuration& configuration, std::int64_t now, Findings& findings)
{
    for (const auto check : {checkElements, checkIdentities, checkConnections, checkWills, checkTopics, checkLayouts,
                             checkSizes, checkCapacity, checkTagRanges, checkScripts})
        check(configuration, findings);
    checkCertificates(configuration, now, findings);
}

Result checkDirectory(const std::string& directory, std::int64_t now, const std::set<std::string>& ignoredRules)
{
    Findings findings;
    const Configuration configuration = loadConfiguration(directory, findings);
    runChecks(configuration, now, findings);

    Result result{configuration.surroundings.directory, {}, findings.inOrder()};
    for (const SourceFile& file : configuration.files)
        result.files.push_back(file.path);
    std::erase_if(result.findings, [&](const Finding& finding) { return ignoredRules.contains(finding.rule); });
    return result;
}

} // namespace plcctl::check
