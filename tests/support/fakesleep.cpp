#include "fakesleep.h"

#include <ctime>
#include <mutex>

namespace FakeSleep {

std::vector<std::chrono::milliseconds>& waits()
{
    static std::vector<std::chrono::milliseconds> instance;
    return instance;
}

std::function<void()>& duringWait()
{
    static std::function<void()> instance;
    return instance;
}

} // namespace FakeSleep

// The linker's names for the replaced function and the real one.
extern "C" int __real_nanosleep(const timespec* wanted, timespec* remaining);

extern "C" int __wrap_nanosleep(const timespec* wanted, timespec* remaining)
{
    const auto wait = std::chrono::seconds(wanted->tv_sec) + std::chrono::nanoseconds(wanted->tv_nsec);
    if (wait < std::chrono::milliseconds(500))
        return __real_nanosleep(wanted, remaining);
    static std::mutex bookkeeping;
    const std::lock_guard lock(bookkeeping);
    FakeSleep::waits().push_back(std::chrono::duration_cast<std::chrono::milliseconds>(wait));
    if (const auto happening = FakeSleep::duringWait())
        happening();
    return 0;
}
