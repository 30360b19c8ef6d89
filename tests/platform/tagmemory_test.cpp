#include "tagmemorytest.h"

#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <limits>
#include <sstream>
#include <sys/mman.h>
#include <sys/resource.h>
#include <thread>

using namespace TagMemoryTest;

namespace {

constexpr unsigned long PlainEnd = 16UL * 1024 * 1024;
constexpr unsigned long OperandBegin = 0x7F400000;
constexpr unsigned long OperandEnd = OperandBegin + PlainEnd;

} // namespace

TEST(TagMemoryConversion, AddsTheOperandWindowsBase)
{
    EXPECT_EQ(TagMemory::OperandAddr2OffsetConversion(0), 0x7F400000UL);
    EXPECT_EQ(TagMemory::OperandAddr2OffsetConversion(8208), 0x7F402010UL);
    EXPECT_EQ(TagMemory::OperandAddr2OffsetConversion(65536), 0x7F410000UL);
}

struct AccessCase
{
    unsigned long position;
    unsigned short size;
    bool inside;
};

void PrintTo(const AccessCase& access, std::ostream* out)
{
    *out << access.size << " bytes at 0x" << std::hex << access.position << std::dec;
}

class TagMemoryBounds : public testing::TestWithParam<AccessCase>
{
};

TEST_P(TagMemoryBounds, WriteSucceedsOnlyWhollyInsideAWindow)
{
    const auto before = writesSoFar();
    EXPECT_EQ(write(GetParam().position, Bytes(GetParam().size, 0x5A)) == 0, GetParam().inside);
    EXPECT_EQ(writesSoFar() - before, GetParam().inside ? 1U : 0U) << "the journal holds the writes that were made";
}

TEST_P(TagMemoryBounds, ReadLeavesTheDestinationAloneOutside)
{
    const Bytes untouched(GetParam().size, 0xEE);
    if (GetParam().inside) {
        const Bytes written(GetParam().size, 0x5A);
        write(GetParam().position, written);
        EXPECT_EQ(read(GetParam().position, GetParam().size), written);
    } else {
        EXPECT_EQ(read(GetParam().position, GetParam().size), untouched);
    }
}

INSTANTIATE_TEST_SUITE_P(Edges, TagMemoryBounds,
                         testing::Values(AccessCase{0, 1, true}, AccessCase{PlainEnd - 1, 1, true},
                                         AccessCase{PlainEnd - 1, 2, false}, AccessCase{PlainEnd, 1, false},
                                         AccessCase{PlainEnd - 1, 0, true}, AccessCase{PlainEnd, 0, false},
                                         AccessCase{PlainEnd - 65535, 65535, true},
                                         AccessCase{PlainEnd - 65534, 65535, false},
                                         AccessCase{OperandBegin - 1, 1, false}, AccessCase{OperandBegin - 1, 2, false},
                                         AccessCase{OperandBegin, 1, true}, AccessCase{OperandEnd - 1, 1, true},
                                         AccessCase{OperandEnd - 1, 2, false}, AccessCase{OperandEnd, 1, false},
                                         AccessCase{std::numeric_limits<unsigned long>::max(), 1, false},
                                         AccessCase{std::numeric_limits<unsigned long>::max(), 2, false}),
                         [](const auto& access) {
                             std::ostringstream name;
                             name << access.param.size << "BytesAt" << std::hex << access.param.position;
                             return name.str();
                         });

TEST(TagMemory, AWriteAcrossTheEndOfAWindowChangesNothing)
{
    for (const unsigned long end : {PlainEnd, OperandEnd}) {
        ASSERT_EQ(write(end - 4, {1, 2, 3, 4}), 0);
        EXPECT_NE(write(end - 4, Bytes(5, 9)), 0);
        EXPECT_EQ(read(end - 4, 4), (Bytes{1, 2, 3, 4}));
    }
}

TEST(TagMemory, TheWindowsDoNotOverlap)
{
    write(4096, {1});
    write(OperandBegin + 4096, {2});
    EXPECT_EQ(read(4096, 1), Bytes{1});
    EXPECT_EQ(read(OperandBegin + 4096, 1), Bytes{2});
}

TEST(TagMemory, EverySizeAtEveryAlignmentIsCopiedExactly)
{
    constexpr unsigned long base = 20000;
    for (unsigned long shift = 0; shift < 8; ++shift) {
        for (unsigned short size = 0; size <= 40; ++size) {
            ASSERT_EQ(write(base, Bytes(64, 0xAA)), 0);
            Bytes expected(64, 0xAA);
            Bytes tag(size);
            for (unsigned short i = 0; i < size; ++i)
                expected[8 + shift + i] = tag[i] = static_cast<unsigned char>(i + 1);
            ASSERT_EQ(write(base + 8 + shift, tag), 0);
            ASSERT_EQ(read(base, 64), expected) << "shift " << shift << ", size " << size;
            ASSERT_EQ(read(base + 8 + shift, size), tag) << "shift " << shift << ", size " << size;
        }
    }
}

TEST(TagMemory, AnAlignedBlockOfFourBytesIsNeverSeenInPart)
{
    const Bytes ones(4, 0xFF);
    const Bytes zeros(4, 0);
    write(1088, zeros);
    std::atomic<bool> stop{false};
    std::thread writer([&] {
        while (!stop) {
            write(1088, ones);
            write(1088, zeros);
        }
    });
    int changesSeen = 0;
    Bytes last = zeros;
    int halves = 0;
    const auto deadline = std::chrono::steady_clock::now() + MeetingTimeout;
    while (changesSeen < 300 && std::chrono::steady_clock::now() < deadline) {
        const Bytes seen = read(1088, 4);
        halves += seen != ones && seen != zeros ? 1 : 0;
        changesSeen += seen != last ? 1 : 0;
        last = seen;
    }
    stop = true;
    writer.join();
    EXPECT_EQ(halves, 0);
    EXPECT_GE(changesSeen, 300) << "the two threads hardly met, so nothing was proved";
}

TEST(TagMemory, OpenMayBeCalledAgain)
{
    EXPECT_EQ(TagMemory::Open(), 0);
    write(100, {7});
    EXPECT_EQ(TagMemory::Open(), 0);
    EXPECT_EQ(read(100, 1), Bytes{7});
}

TEST(TagMemory, TwoProcessesSeeOneMemory)
{
    const pid_t child = inOtherProcess([] { return write(3000, {42}) == 0 && write(OperandBegin + 3000, {43}) == 0; });
    ASSERT_EQ(exitStatus(child), 1);
    EXPECT_EQ(read(3000, 1), Bytes{42});
    EXPECT_EQ(read(OperandBegin + 3000, 1), Bytes{43});
}

TEST(TagMemory, ProcessesThatCreateItAtOnceShareOneObject)
{
    constexpr int processes = 8;
    for (int round = 0; round < 25; ++round) {
        ::shm_unlink(TagMemoryImage::SharedMemoryName);
        std::vector<pid_t> children;
        for (int i = 0; i < processes; ++i) {
            children.push_back(inOtherProcess([] {
                auto* const mine = TagMemoryImage::attach(TagMemoryImage::Access::CreateReadWrite);
                return mine == nullptr ? 1 : (mine->header.writes.fetch_add(1), 0);
            }));
        }
        for (const pid_t child : children)
            ASSERT_EQ(exitStatus(child), 0);
        auto* const shared = TagMemoryImage::attach(TagMemoryImage::Access::ReadOnly);
        ASSERT_NE(shared, nullptr);
        ASSERT_EQ(shared->header.writes.load(), static_cast<std::uint64_t>(processes));
        ::munmap(shared, sizeof(*shared));
    }
}

TEST(TagMemoryAttach, LookingOnlyCreatesNothing)
{
    ::shm_unlink(TagMemoryImage::SharedMemoryName);
    EXPECT_EQ(TagMemoryImage::attach(TagMemoryImage::Access::ReadOnly), nullptr);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(TagMemoryImage::attach(TagMemoryImage::Access::ReadWrite), nullptr);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_LT(::shm_open(TagMemoryImage::SharedMemoryName, O_RDONLY, 0), 0);
}

TEST(TagMemoryAttach, LookingOnlyWaitsForACreatorForABoundedTime)
{
    ::shm_unlink(TagMemoryImage::SharedMemoryName);
    const int unfinished = ::shm_open(TagMemoryImage::SharedMemoryName, O_RDWR | O_CREAT | O_EXCL, 0600);
    ASSERT_GE(unfinished, 0);
    EXPECT_EQ(TagMemoryImage::attach(TagMemoryImage::Access::ReadOnly), nullptr);
    EXPECT_EQ(errno, ETIMEDOUT);
    EXPECT_NE(TagMemoryImage::attach(TagMemoryImage::Access::CreateReadWrite), nullptr) << "a dead creator's object";
    EXPECT_NE(TagMemoryImage::attach(TagMemoryImage::Access::ReadOnly), nullptr);
    ::close(unfinished);
}

// Each of these begins in a process that has not attached yet, hence the death tests: they run a fresh one.
class TagMemoryUnavailable : public testing::Test
{
protected:
    TagMemoryUnavailable() { testing::FLAGS_gtest_death_test_style = "threadsafe"; }

    static void exitWithWhatWorks()
    {
        Bytes destination(4, 0xEE);
        const HdrOperandData_t operand{};
        const bool opened = TagMemory::Open() == 0;
        const bool written = write(100, {1, 2, 3, 4}) == 0;
        const bool read = TagMemory::Read(4, 100, destination.data()) == 0;
        const bool kept = destination == Bytes(4, 0xEE);
        const bool registered = TagMemory::RegSync(300, &operand, 1, 10) != 0;
        const bool unregistered = TagMemory::UnRegSync(1, 10) == 0;
        ::_exit(!opened && !written && !read && kept && !registered && !unregistered ? 0 : 1);
    }
};

TEST_F(TagMemoryUnavailable, AnObjectOfAnotherLayoutIsLeftAlone)
{
    const auto body = [] {
        ::shm_unlink(TagMemoryImage::SharedMemoryName);
        const int foreign = ::shm_open(TagMemoryImage::SharedMemoryName, O_RDWR | O_CREAT | O_EXCL, 0600);
        if (::write(foreign, "someone else's", 14) != 14)
            ::_exit(2);
        exitWithWhatWorks();
    };
    EXPECT_EXIT(body(), testing::ExitedWithCode(0), "");
    ::shm_unlink(TagMemoryImage::SharedMemoryName);
}

TEST_F(TagMemoryUnavailable, NoRoomForItIsAnErrorAndNoCrash)
{
    const auto body = [] {
        ::shm_unlink(TagMemoryImage::SharedMemoryName);
        std::signal(SIGXFSZ, SIG_IGN);
        const rlimit oneMegabyte{1 << 20, 1 << 20};
        if (::setrlimit(RLIMIT_FSIZE, &oneMegabyte) != 0)
            ::_exit(2);
        exitWithWhatWorks();
    };
    EXPECT_EXIT(body(), testing::ExitedWithCode(0), "");
    ::shm_unlink(TagMemoryImage::SharedMemoryName);
}
