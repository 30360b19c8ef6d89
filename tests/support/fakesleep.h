#pragma once

#include <chrono>
#include <vector>

// Waits of half a second and more end at once in programs that are linked with this (--wrap=nanosleep), so that a test
// need not sit them out. Shorter ones are real.
namespace FakeSleep {

// The waits that were shortened, in order.
std::vector<std::chrono::milliseconds>& waits();

} // namespace FakeSleep
