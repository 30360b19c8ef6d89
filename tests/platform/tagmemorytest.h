#pragma once

#include "tagmemory.h"
#include "tagmemoryimageaccess.h"

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

// What the tests of the stand-in share. They look at the shared memory as another process would.
namespace TagMemoryTest {

using Bytes = std::vector<unsigned char>;

// How long two threads get to come across each other: on one busy processor that takes many of its turns.
inline constexpr std::chrono::seconds MeetingTimeout(45);

inline int write(unsigned long position, const Bytes& bytes)
{
    return TagMemory::Write(static_cast<unsigned short>(bytes.size()), position, bytes.data());
}

inline Bytes read(unsigned long position, unsigned short size)
{
    Bytes bytes(size, 0xEE);
    TagMemory::Read(size, position, bytes.data());
    return bytes;
}

inline const TagMemoryImage::Image& image()
{
    static const auto* const mapped = TagMemoryImage::attach(TagMemoryImage::Access::CreateReadWrite);
    if (mapped == nullptr)
        throw std::runtime_error("no shared memory");
    return *mapped;
}

inline std::uint64_t writesSoFar()
{
    return image().header.writes.load();
}

inline TagMemoryImage::Write entry(std::uint64_t number)
{
    const auto found = TagMemoryImage::readWrite(image(), number);
    EXPECT_TRUE(found.has_value()) << "journal entry " << number << " is missing";
    return found.value_or(TagMemoryImage::Write{});
}

// Runs `body` in a process of its own, whose exit status is the result of `body`.
inline pid_t inOtherProcess(const std::function<int()>& body)
{
    const pid_t child = ::fork();
    if (child == 0)
        ::_exit(body());
    return child;
}

inline int exitStatus(pid_t child)
{
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

} // namespace TagMemoryTest
