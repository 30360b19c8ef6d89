#include "require.h"

#include <cstdio>
#include <cstdlib>

void Fuzzing::require(bool condition, const char* what)
{
    if (condition)
        return;
    std::fprintf(stderr, "fuzzing: this doesn't hold: %s\n", what);
    std::abort();
}
