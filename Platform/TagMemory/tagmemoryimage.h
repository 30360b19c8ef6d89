#pragma once

#include "tagmemory.h"

#include <atomic>
#include <cstddef>
#include <cstdint>

// The stand-in's shared memory object. libTagMemory.so and the tools of other processes map the same bytes; the service
// itself knows only tagmemory.h.
namespace TagMemoryImage {

inline constexpr char SharedMemoryName[] = "/TagMemory";
inline constexpr std::uint32_t Magic = 0x4D474154; // "TAGM"
inline constexpr std::uint32_t Version = 1;

inline constexpr std::uint64_t WindowSize = 16ULL << 20;
// Positions 0 to WindowSize are the plain window. Operand address a has the position OperandWindowBase + a.
inline constexpr std::uint64_t OperandWindowBase = 0x7F400000;

inline constexpr std::size_t JournalCapacity = 65536;
inline constexpr std::size_t JournalBytes = 32;
inline constexpr std::size_t MaxRegistrations = 256;
inline constexpr std::size_t MaxEntriesPerRegistration = 150;

// One write, as the journal keeps it. Entry n stands in slot n % JournalCapacity until JournalCapacity later writes
// have come. A reader copies the slot and keeps the copy only if `sequence` was n + 1 before and after.
struct JournalEntry
{
    std::atomic<std::uint64_t> sequence; // n + 1 when the entry is whole, 0 while it is being filled
    std::int64_t timeNanoseconds;        // CLOCK_REALTIME_COARSE: steps of 1 to 4 ms; the order is told by `sequence`
    std::uint64_t position;
    std::uint32_t size; // of the whole write; bytes[] holds the first JournalBytes of it
    std::int32_t processId;
    std::uint8_t bytes[JournalBytes];
};
static_assert(sizeof(JournalEntry) == 64);

inline constexpr std::uint32_t RegistrationBeingFilled = 0xFFFFFFFF;

struct Registration
{
    std::atomic<std::uint32_t> id; // 0: free, RegistrationBeingFilled: taken and not yet whole
    std::uint32_t count;
    HdrOperandData_t entries[MaxEntriesPerRegistration];
};

struct Header
{
    std::atomic<std::uint32_t> magic; // stored last, when the rest is in place
    std::uint32_t version;
    std::atomic<std::uint64_t> writes;        // writes ever made: the next journal entry's n
    std::atomic<std::uint32_t> registrations; // registrations ever made: the last ID given out
};

struct Image
{
    alignas(4096) Header header;
    alignas(4096) Registration registrations[MaxRegistrations];
    alignas(4096) JournalEntry journal[JournalCapacity];
    alignas(4096) std::uint8_t plain[WindowSize];
    alignas(4096) std::uint8_t operands[WindowSize];
};

static_assert(std::atomic<std::uint64_t>::is_always_lock_free && std::atomic<std::uint32_t>::is_always_lock_free);

} // namespace TagMemoryImage
