#include "fakemessagequeue.h"

#include <cerrno>
#include <mqueue.h>

namespace FakeMessageQueue {

State& state()
{
    static State instance;
    return instance;
}

} // namespace FakeMessageQueue

// The linker's name for the replaced function.
extern "C" mqd_t __wrap_mq_open(const char* name, int flags, ...)
{
    FakeMessageQueue::State& state = FakeMessageQueue::state();
    state.name = name;
    state.flags = flags;
    errno = state.descriptor < 0 ? state.error : 0;
    return state.descriptor;
}
