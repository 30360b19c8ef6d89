#pragma once

#include "tagmemoryimage.h"

#include <array>
#include <optional>

// How libTagMemory.so and the tools of other processes reach the shared memory object. Callable from any thread.
namespace TagMemoryImage {

enum class Access
{
    ReadOnly,       // an existing object, for looking only
    ReadWrite,      // an existing object
    CreateReadWrite // makes the object where it is missing
};

// Maps the object for the rest of the process's life, anew with each call. Returns null with errno set: ENOENT where
// there is no object, EPROTO where an object of another layout has the name, ENOSPC where shared memory is used up.
// Without CreateReadWrite it waits up to a second for a creator who is not ready yet, then gives ETIMEDOUT.
[[nodiscard]] Image* attach(Access access);

// The `size` bytes at `position`, or null where they aren't all inside one window.
[[nodiscard]] inline std::uint8_t* locate(Image& image, std::uint64_t size, std::uint64_t position)
{
    if (position < WindowSize && size <= WindowSize - position)
        return image.plain + position;
    const std::uint64_t offset = position - OperandWindowBase; // huge for a position below the window
    if (offset < WindowSize && size <= WindowSize - offset)
        return image.operands + offset;
    return nullptr;
}

// Both copy in the largest aligned pieces of 8, 4, 2 and 1 bytes, so that the other side never sees half of such a
// piece: an aligned block of 4 bytes changes as one. Whoever sees a write also sees all that the same thread wrote
// before it.
//
// write() also puts the write into the journal. Whoever sees one of the bytes sees that the header's `writes` counts
// the write, too, and whoever finds the entry whole sees all of the bytes. It does nothing and gives false where the
// bytes aren't all inside one window.
bool write(Image& image, std::uint64_t position, const std::uint8_t* data, std::uint32_t size);
void load(std::uint8_t* destination, const std::uint8_t* tags, std::size_t size);

// A journal entry, copied out whole.
struct Write
{
    std::uint64_t number;
    std::int64_t timeNanoseconds;
    std::uint64_t position;
    std::uint32_t size;
    std::int32_t processId;
    std::array<std::uint8_t, JournalBytes> bytes; // the first bytes of the write, zero behind them
};

// Entry `number` (0 is the first write ever), or nothing while it isn't written, not whole, or overwritten already:
// it is lost for good when the header's `writes` is more than JournalCapacity ahead of it.
[[nodiscard]] std::optional<Write> readWrite(const Image& image, std::uint64_t number);

} // namespace TagMemoryImage
