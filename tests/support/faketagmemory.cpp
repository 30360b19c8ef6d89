#include "faketagmemory.h"

#include <mutex>

namespace {

// The service writes from several threads; the test's bookkeeping must not be what races.
std::mutex bookkeeping;

} // namespace

namespace FakeTagMemory {

State& state()
{
    static State instance;
    return instance;
}

void reset()
{
    const std::lock_guard lock(bookkeeping);
    state() = State{};
}

void put(unsigned long address, const std::vector<std::uint8_t>& bytes)
{
    const std::lock_guard lock(bookkeeping);
    for (std::size_t i = 0; i < bytes.size(); ++i)
        state().bytes[address + i] = bytes[i];
}

std::vector<std::uint8_t> bytesAt(unsigned long address, std::size_t size)
{
    const std::lock_guard lock(bookkeeping);
    std::vector<std::uint8_t> bytes(size);
    for (std::size_t i = 0; i < size; ++i) {
        const auto found = state().bytes.find(address + i);
        bytes[i] = found == state().bytes.end() ? 0 : found->second;
    }
    return bytes;
}

std::size_t writeCount()
{
    const std::lock_guard lock(bookkeeping);
    return state().writes.size();
}

std::vector<std::vector<std::uint8_t>> writesAt(unsigned long address)
{
    const std::lock_guard lock(bookkeeping);
    std::vector<std::vector<std::uint8_t>> found;
    for (const WriteRecord& write : state().writes) {
        if (write.address == address)
            found.push_back(write.bytes);
    }
    return found;
}

} // namespace FakeTagMemory

int TagMemory::Open()
{
    ++FakeTagMemory::state().opens;
    return 0;
}

int TagMemory::Read(unsigned short size, unsigned long address, unsigned char* data)
{
    const std::lock_guard lock(bookkeeping);
    auto& state = FakeTagMemory::state();
    state.reads.push_back(address);
    if (state.unreadable.count(address) != 0)
        return -1;
    for (unsigned i = 0; i < size; ++i) {
        const auto found = state.bytes.find(address + i);
        data[i] = found == state.bytes.end() ? 0 : found->second;
    }
    return 0;
}

int TagMemory::Write(unsigned short size, unsigned long address, unsigned char const* data)
{
    if (const auto duringWrite = FakeTagMemory::state().duringWrite)
        duringWrite();
    const std::lock_guard lock(bookkeeping);
    auto& state = FakeTagMemory::state();
    state.writes.push_back({address, {data, data + size}});
    if (!state.writeResults.empty()) {
        const int result = state.writeResults.front();
        state.writeResults.erase(state.writeResults.begin());
        if (result != 0)
            return result;
    }
    for (unsigned i = 0; i < size; ++i)
        state.bytes[address + i] = data[i];
    return 0;
}

unsigned int TagMemory::RegSync(unsigned long kind, HdrOperandData_t const* entries, unsigned char count,
                                unsigned char argument)
{
    auto& state = FakeTagMemory::state();
    state.registrations.push_back({kind, {entries, entries + count}, argument});
    return state.nextRegistrationId == 0 ? 0 : state.nextRegistrationId++;
}

int TagMemory::UnRegSync(unsigned long regID, unsigned char argument)
{
    FakeTagMemory::state().unregistered.emplace_back(regID, argument);
    return 0;
}

unsigned long TagMemory::OperandAddr2OffsetConversion(unsigned long address)
{
    const std::lock_guard lock(bookkeeping);
    FakeTagMemory::state().conversions.push_back(address);
    return 0x7F400000UL + address;
}
