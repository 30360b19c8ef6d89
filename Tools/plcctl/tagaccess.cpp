#include "tagaccess.h"

#include "failure.h"
#include "output.h"

#include <cerrno>
#include <charconv>
#include <cstring>
#include <limits>
#include <string_view>

namespace plcctl {

using TagMemoryImage::OperandWindowBase;
using TagMemoryImage::WindowSize;

std::uint64_t parsePosition(const std::string& text, bool operand)
{
    std::string_view digits = text;
    const bool hexadecimal = digits.starts_with("0x") || digits.starts_with("0X");
    if (hexadecimal)
        digits.remove_prefix(2);
    std::uint64_t value = 0;
    const char* const end = digits.data() + digits.size();
    const auto [stop, error] = std::from_chars(digits.data(), end, value, hexadecimal ? 16 : 10);
    if (error != std::errc{} || stop != end)
        throw Failure(ExitCode::Usage, inQuotes(text) + " is no address: write it decimal or in hexadecimal with 0x");
    if (!operand)
        return value;
    if (value >= WindowSize) {
        throw Failure(ExitCode::Usage, "operand addresses go from 0 to " + std::to_string(WindowSize - 1) + ", and " +
                                           inQuotes(text) + " is above; is it a position? Then leave --operand out");
    }
    return OperandWindowBase + value;
}

std::optional<std::uint64_t> operandOf(std::uint64_t position)
{
    if (position < OperandWindowBase || position - OperandWindowBase >= WindowSize)
        return std::nullopt;
    return position - OperandWindowBase;
}

std::string describePosition(std::uint64_t position)
{
    const std::string text = std::to_string(position);
    const auto operand = operandOf(position);
    return operand ? "operand " + std::to_string(*operand) + " (position " + text + ")" : text;
}

std::uint64_t bytesFrom(std::uint64_t position)
{
    if (position < WindowSize)
        return WindowSize - position;
    const auto operand = operandOf(position);
    return operand ? WindowSize - *operand : 0;
}

void requireInside(std::uint64_t position, std::size_t size)
{
    if (bytesFrom(position) >= size && bytesFrom(position) > 0)
        return;
    throw Failure(ExitCode::Usage, std::to_string(size) + (size == 1 ? " byte at " : " bytes at ") +
                                       describePosition(position) +
                                       " would be outside tag memory, which has the positions 0 to " +
                                       std::to_string(WindowSize - 1) + " and " + std::to_string(OperandWindowBase) +
                                       " to " + std::to_string(OperandWindowBase + WindowSize - 1));
}

TagReader::TagReader() : m_image(TagMemoryImage::attach(TagMemoryImage::Access::ReadOnly))
{
    if (m_image)
        return;
    switch (errno) {
    case ENOENT:
        throw Failure(ExitCode::NothingToRead,
                      "no controller here: tag memory does not exist; start the service or `plcctl link up` first");
    case EPROTO:
        throw Failure(ExitCode::Failed, "tag memory has another layout: this plcctl and the tag memory library come "
                                        "from different versions; use the pair of one build");
    default:
        throw Failure(ExitCode::Failed, std::string("tag memory can't be read: ") + std::strerror(errno));
    }
}

std::vector<std::uint8_t> TagReader::read(std::uint64_t position, std::size_t size) const
{
    requireInside(position, size);
    std::vector<std::uint8_t> bytes(size);
    TagMemoryImage::load(bytes.data(), TagMemoryImage::locate(*m_image, size, position), size);
    return bytes;
}

void writeTag(std::uint64_t position, std::span<const std::uint8_t> bytes)
{
    requireInside(position, bytes.size());
    if (bytes.size() > std::numeric_limits<unsigned short>::max())
        throw Failure(ExitCode::Usage, "one write takes at most 65535 bytes");
    const auto size = static_cast<unsigned short>(bytes.size());
    if (TagMemory::Write(size, position, bytes.data()) != 0) {
        throw Failure(ExitCode::Failed, "tag memory refused to write " + std::to_string(size) + " bytes at " +
                                            describePosition(position) +
                                            "; is shared memory full, or does it belong to another user?");
    }
}

} // namespace plcctl
