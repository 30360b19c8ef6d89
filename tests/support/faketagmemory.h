#pragma once

#include "tagmemory.h"

#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <utility>
#include <vector>

// Tag memory inside the test's process, in place of libTagMemory.so: keeps the order of all writes, and fails on
// command.
namespace FakeTagMemory {

struct WriteRecord
{
    unsigned long address;
    std::vector<std::uint8_t> bytes;

    bool operator==(const WriteRecord&) const = default;
};

struct Registration
{
    unsigned long kind;
    std::vector<HdrOperandData_t> entries;
    unsigned char argument;
};

struct State
{
    std::map<unsigned long, std::uint8_t> bytes; // what was never written reads as 0
    std::vector<WriteRecord> writes;             // all that were asked for, also those that failed
    std::vector<Registration> registrations;
    std::vector<std::pair<unsigned long, unsigned char>> unregistered; // ID and argument
    std::vector<unsigned long> reads;                                  // addresses, in order
    std::vector<unsigned long> conversions;                            // operand addresses, in order
    int opens = 0;
    std::function<void()> duringWrite;   // called by the next write, outside all bookkeeping
    std::vector<int> writeResults;       // of the coming writes, first to last; then 0
    std::set<unsigned long> unreadable;  // addresses at which a read fails
    unsigned int nextRegistrationId = 1; // 0 makes registrations fail
};

State& state();
void reset();

void put(unsigned long address, const std::vector<std::uint8_t>& bytes);
std::vector<std::uint8_t> bytesAt(unsigned long address, std::size_t size);
// Of all writes, also while another thread may write.
std::size_t writeCount();
// Writes at this address, first to last.
std::vector<std::vector<std::uint8_t>> writesAt(unsigned long address);

} // namespace FakeTagMemory
