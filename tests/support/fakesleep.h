#pragma once

#include <chrono>
#include <functional>
#include <vector>

// Waits of half a second and more end at once in programs that are linked with this (--wrap=nanosleep), so that a test
// need not sit them out. Shorter ones are real.
namespace FakeSleep {

// The waits that were shortened, in order. Not to be looked at while another thread may wait.
std::vector<std::chrono::milliseconds>& waits();

// What happens meanwhile: called in every wait that is shortened, after it was noted.
std::function<void()>& duringWait();

} // namespace FakeSleep
