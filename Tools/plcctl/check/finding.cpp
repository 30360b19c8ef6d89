#include "check/finding.h"

#include <algorithm>

namespace plcctl::check {

void Findings::add(Severity severity, Site site, std::string_view rule, std::string text)
{
    m_findings.push_back({site, severity, std::string(rule), std::move(text)});
}

std::vector<Finding> Findings::inOrder() const
{
    std::vector<Finding> result = m_findings;
    std::stable_sort(result.begin(), result.end(),
                     [](const Finding& left, const Finding& right) { return left.site < right.site; });
    return result;
}

} // namespace plcctl::check
