#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace plcctl::check {

// Both count from 1; a column is a character, whatever its width or its bytes.
struct Place
{
    int line = 1;
    int column = 1;

    auto operator<=>(const Place&) const = default; // NOLINT(modernize-use-nullptr): clang-tidy takes its 0 for one
};

// A place in one of the files that are checked; `file` is an index into their list.
struct Site
{
    int file = 0;
    Place place = {};

    auto operator<=>(const Site&) const = default; // NOLINT(modernize-use-nullptr): the same
};

enum class Severity
{
    Error,  // doesn't work as it is written
    Warning // works, but probably not as it was meant
};

struct Finding
{
    Site site;
    Severity severity = Severity::Error;
    std::string rule; // a short name for scripts: "duplicate-id"
    std::string text; // one line: what the service makes of it, and what to write instead
};

// What the checks have found.
class Findings
{
public:
    void error(Site site, std::string_view rule, std::string text)
    {
        add(Severity::Error, site, rule, std::move(text));
    }
    void warning(Site site, std::string_view rule, std::string text)
    {
        add(Severity::Warning, site, rule, std::move(text));
    }
    void add(Severity severity, Site site, std::string_view rule, std::string text);

    // By file, line and column; at one place in the order in which they were found.
    [[nodiscard]] std::vector<Finding> inOrder() const;

private:
    std::vector<Finding> m_findings;
};

} // namespace plcctl::check
