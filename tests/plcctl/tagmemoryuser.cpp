// A process that uses tag memory as the service does, for the tests of what plcctl shows of it.
// usage: tagmemoryuser write COUNT    writes one byte COUNT times
//        tagmemoryuser register       leaves two registrations behind
//        tagmemoryuser unregister ID

#include "tagmemory.h"

#include <array>
#include <cstdlib>
#include <string_view>

namespace {

bool writeTimes(unsigned long count)
{
    constexpr unsigned char Value = 1;
    constexpr unsigned long Area = 1000;
    for (unsigned long number = 0; number < count; ++number) {
        if (TagMemory::Write(1, number % Area, &Value) != 0)
            return false;
    }
    return true;
}

bool registerTags()
{
    constexpr std::array Tags{HdrOperandData_t{4, 0, 3000}, HdrOperandData_t{1, 0, 44}, HdrOperandData_t{2, 0, 5000}};
    return TagMemory::RegSync(300, Tags.data(), 3, 10) != 0 && TagMemory::RegSync(300, &Tags[1], 1, 10) != 0;
}

} // namespace

int main(int argc, char** argv)
{
    const std::string_view what = argc > 1 ? argv[1] : "";
    const unsigned long number = argc > 2 ? std::strtoul(argv[2], nullptr, 10) : 0;
    bool done = false;
    if (what == "write")
        done = writeTimes(number);
    else if (what == "register")
        done = registerTags();
    else if (what == "unregister")
        done = TagMemory::UnRegSync(number, 10) == 0;
    return done ? EXIT_SUCCESS : EXIT_FAILURE;
}
