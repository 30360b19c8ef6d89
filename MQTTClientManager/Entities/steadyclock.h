#pragma once

#include <chrono>
#include <QtGlobal>

// Milliseconds of a clock that nobody sets; never 0.
inline qint64 steadyMilliseconds()
{
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
}
