#pragma once

#include <string>
#include <vector>

namespace plcctl {

enum class Outcome
{
    Ok,
    Failed,
    Skipped
};

// One step on the way to a broker.
struct Step
{
    const char* name;
    Outcome outcome = Outcome::Ok;
    std::string seen = {}; // one line
    std::vector<std::string> details = {};
    std::vector<std::string> advice = {}; // what to do, and where there is more than one cause, the likely one first

    void fail(std::string what, std::string toDo)
    {
        outcome = Outcome::Failed;
        seen = std::move(what);
        if (!toDo.empty())
            advice.push_back(std::move(toDo));
    }
};

} // namespace plcctl
