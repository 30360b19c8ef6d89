#include "logcapture.h"

#include <algorithm>
#include <mutex>
#include <plog/Init.h>
#include <plog/Log.h>

namespace {

std::mutex bookkeeping;
std::vector<std::string> captured;

class Appender : public plog::IAppender
{
public:
    void write(const plog::Record& record) override
    {
        const std::lock_guard lock(bookkeeping);
        captured.push_back(std::string(plog::severityToString(record.getSeverity())) + " " + record.getMessage());
    }
};

} // namespace

LogCapture::LogCapture()
{
    static Appender appender;
    if (!plog::get())
        plog::init(plog::debug, &appender);
    plog::get()->setMaxSeverity(plog::debug);
    const std::lock_guard lock(bookkeeping);
    captured.clear();
}

LogCapture::~LogCapture()
{
    plog::get()->setMaxSeverity(plog::none);
}

std::vector<std::string> LogCapture::lines() const
{
    const std::lock_guard lock(bookkeeping);
    return captured;
}

bool LogCapture::contains(const std::string& line) const
{
    return count(line) > 0;
}

int LogCapture::count(const std::string& line) const
{
    const std::lock_guard lock(bookkeeping);
    return static_cast<int>(std::count(captured.begin(), captured.end(), line));
}
