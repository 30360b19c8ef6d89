#pragma once

#include "tagmemoryimageaccess.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace plcctl {

// A place in tag memory as people write it: decimal or with 0x. A position is what the configuration files use;
// with `operand` it is an operand address and is converted. Throws Failure (usage) for any other text.
std::uint64_t parsePosition(const std::string& text, bool operand);

// The operand address that belongs to a position; nothing outside the operands' window.
std::optional<std::uint64_t> operandOf(std::uint64_t position);

// "1024", or "operand 100 (position 2134900836)".
std::string describePosition(std::uint64_t position);

// How many bytes there are from `position` to the end of its window; 0 outside tag memory.
std::uint64_t bytesFrom(std::uint64_t position);

// Throws Failure (usage) unless all of these bytes lie in one window.
void requireInside(std::uint64_t position, std::size_t size);

// Tag memory for looking only: attaching never creates it, and nothing can be written through it.
class TagReader
{
public:
    // Throws Failure (nothing to read) where there is no tag memory.
    TagReader();

    [[nodiscard]] std::vector<std::uint8_t> read(std::uint64_t position, std::size_t size) const;

    [[nodiscard]] const TagMemoryImage::Image& image() const { return *m_image; }

private:
    TagMemoryImage::Image* m_image;
};

// Writes as one write and creates tag memory where it is missing. Throws Failure where it can't be done.
void writeTag(std::uint64_t position, std::span<const std::uint8_t> bytes);

} // namespace plcctl
