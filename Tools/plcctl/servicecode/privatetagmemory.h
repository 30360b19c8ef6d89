#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <vector>

// Tag memory of this process alone, in place of the controller's library: the service's code writes here what it would
// write to tags, and no tag of the machine ever changes. One thread.
namespace PrivateTagMemory {

struct WriteRecord
{
    unsigned long position;
    std::vector<std::uint8_t> bytes;
};

// All writes since the last reset, in order.
const std::vector<WriteRecord>& writes();
void reset();

// What reads see: fills the bytes and returns true, or returns false where there is nothing. Without a source reads
// fail.
using Source = std::function<bool(unsigned long position, std::span<std::uint8_t> bytes)>;
void setSource(Source source);

} // namespace PrivateTagMemory
