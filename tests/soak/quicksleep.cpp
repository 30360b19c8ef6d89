#include <ctime>

// Waits of half a second and more take a twentieth of their time in a program that is linked with this
// (--wrap=nanosleep): a thousand pauses and starts then fit into minutes. What ships never waits less than it should.

namespace {

constexpr long long NanosecondsPerSecond = 1'000'000'000;
constexpr long long ShortestShortened = NanosecondsPerSecond / 2;
constexpr long long Share = 20;

} // namespace

// The linker's names for the replaced function and the real one.
extern "C" int __real_nanosleep(const timespec* wanted, timespec* remaining);

extern "C" int __wrap_nanosleep(const timespec* wanted, timespec* remaining)
{
    const long long nanoseconds = wanted->tv_sec * NanosecondsPerSecond + wanted->tv_nsec;
    if (nanoseconds < ShortestShortened)
        return __real_nanosleep(wanted, remaining);
    const timespec shortened{nanoseconds / Share / NanosecondsPerSecond, nanoseconds / Share % NanosecondsPerSecond};
    return __real_nanosleep(&shortened, remaining);
}
