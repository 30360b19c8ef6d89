#include "servicecode/collectedlog.h"

#include "Utils/log.h"

#include <plog/Init.h>
#include <utility>

namespace plcctl {

namespace {

class Collector : public plog::IAppender
{
public:
    void write(const plog::Record& record) override { lines.emplace_back(record.getMessage()); }

    std::vector<std::string> lines;
};

Collector& collector()
{
    static Collector instance;
    return instance;
}

} // namespace

void collectLog()
{
    // Below warnings, the service logs tokens.
    plog::init(plog::warning, &collector());
}

std::vector<std::string> takeLogLines()
{
    return std::exchange(collector().lines, {});
}

} // namespace plcctl
