#include "tagmemorytest.h"

#include <array>
#include <chrono>
#include <cstring>
#include <set>
#include <thread>

using namespace TagMemoryTest;
using TagMemoryImage::JournalCapacity;

TEST(TagMemoryJournal, KeepsWritesInTheirOrder)
{
    const auto first = writesSoFar();
    write(8208, {2});
    write(0x7F402010, {0xFE});
    write(1024, {1, 0, 0, 0, 5, 6});
    ASSERT_EQ(writesSoFar() - first, 3U);

    EXPECT_EQ(entry(first).position, 8208U);
    EXPECT_EQ(entry(first).size, 1U);
    EXPECT_EQ(entry(first).bytes[0], 2);
    EXPECT_EQ(entry(first + 1).position, 0x7F402010U);
    EXPECT_EQ(entry(first + 1).bytes[0], 0xFE);
    EXPECT_EQ(entry(first + 2).size, 6U);
    EXPECT_EQ(entry(first + 2).bytes[5], 6);
    EXPECT_EQ(entry(first + 2).number, first + 2);
}

TEST(TagMemoryJournal, ShowsTheFirstBytesOfALongWriteAndZerosBehindAShortOne)
{
    Bytes longTag(100);
    for (std::size_t i = 0; i < longTag.size(); ++i)
        longTag[i] = static_cast<unsigned char>(i + 1);
    const auto first = writesSoFar();
    write(5000, longTag);
    write(5000, {9, 9, 9});

    const auto longEntry = entry(first);
    EXPECT_EQ(longEntry.size, 100U);
    EXPECT_TRUE(std::equal(longEntry.bytes.begin(), longEntry.bytes.end(), longTag.begin()));
    const std::array<std::uint8_t, 32> nines{9, 9, 9};
    EXPECT_EQ(entry(first + 1).bytes, nines);
}

TEST(TagMemoryJournal, AWriteOfNothingIsAWrite)
{
    const auto first = writesSoFar();
    EXPECT_EQ(write(5000, {}), 0);
    EXPECT_EQ(entry(first).size, 0U);
    EXPECT_EQ(entry(first).position, 5000U);
}

TEST(TagMemoryJournal, NamesProcessAndTime)
{
    const auto first = writesSoFar();
    write(1, {1});
    const pid_t child = inOtherProcess([] { return write(2, {2}); });
    ASSERT_EQ(exitStatus(child), 0);

    EXPECT_EQ(entry(first).processId, ::getpid());
    EXPECT_EQ(entry(first + 1).processId, child);
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    const auto age = now - std::chrono::nanoseconds(entry(first).timeNanoseconds);
    EXPECT_LT(std::chrono::abs(age), std::chrono::seconds(5));
}

TEST(TagMemoryJournal, ForgetsTheOldestWhenItIsFull)
{
    const auto first = writesSoFar();
    for (std::uint32_t i = 0; i < JournalCapacity + 10; ++i)
        TagMemory::Write(4, 6000, reinterpret_cast<const unsigned char*>(&i));

    for (std::uint64_t i = 0; i < 10; ++i)
        EXPECT_FALSE(TagMemoryImage::readWrite(image(), first + i).has_value()) << i;
    for (std::uint32_t i = 10; i < JournalCapacity + 10; ++i) {
        std::uint32_t kept = 0;
        std::memcpy(&kept, entry(first + i).bytes.data(), sizeof(kept));
        ASSERT_EQ(kept, i);
    }
    EXPECT_FALSE(TagMemoryImage::readWrite(image(), writesSoFar()).has_value()) << "not written yet";
}

TEST(TagMemoryJournal, AnEntryThatIsBeingFilledIsNotRead)
{
    const auto first = writesSoFar();
    write(6000, {1});
    auto* const writable = TagMemoryImage::attach(TagMemoryImage::Access::ReadWrite);
    ASSERT_NE(writable, nullptr);
    auto& sequence = writable->journal[first % JournalCapacity].sequence;
    EXPECT_EQ(sequence.exchange(0), first + 1);
    EXPECT_FALSE(TagMemoryImage::readWrite(image(), first).has_value());
    sequence = first + 1;
    EXPECT_TRUE(TagMemoryImage::readWrite(image(), first).has_value());
}

TEST(TagMemoryJournal, TwoWritersGetEveryWriteInWholeAndEachInItsOrder)
{
    constexpr std::uint64_t each = JournalCapacity / 2;
    const auto first = writesSoFar();
    const auto writer = [](std::uint64_t who) {
        for (std::uint64_t i = 0; i < each; ++i) {
            const std::array<std::uint64_t, 4> tag{who, i, who ^ i, ~i};
            TagMemory::Write(sizeof(tag), 7000 + 8 * who, reinterpret_cast<const unsigned char*>(tag.data()));
        }
    };
    std::thread one(writer, 1);
    std::thread two(writer, 2);
    one.join();
    two.join();

    ASSERT_EQ(writesSoFar() - first, 2 * each);
    std::array<std::uint64_t, 3> next{};
    for (std::uint64_t n = first; n < first + 2 * each; ++n) {
        const auto write = entry(n);
        std::array<std::uint64_t, 4> tag{};
        std::memcpy(tag.data(), write.bytes.data(), sizeof(tag));
        const auto who = tag[0];
        ASSERT_TRUE(who == 1 || who == 2);
        ASSERT_EQ(write.position, 7000 + 8 * who);
        ASSERT_EQ(tag[1], next[who]);
        ASSERT_EQ(tag[2], who ^ tag[1]);
        ASSERT_EQ(tag[3], ~tag[1]);
        ++next[who];
    }
}

TEST(TagMemoryJournal, WhoSeesATagsNewValueFindsItsWriteCountedAndWhoFindsTheWriteSeesTheValue)
{
    constexpr std::uint64_t wanted = 500;
    const auto first = writesSoFar();
    std::atomic<bool> stop{false};
    std::thread writer([&] {
        for (std::uint64_t i = 1; !stop; ++i)
            TagMemory::Write(sizeof(i), 7000, reinterpret_cast<const unsigned char*>(&i));
    });
    const auto valueNow = [] {
        std::uint64_t value = 0;
        TagMemory::Read(sizeof(value), 7000, reinterpret_cast<unsigned char*>(&value));
        return value;
    };
    std::uint64_t changes = 0;
    std::uint64_t last = 0;
    const auto deadline = std::chrono::steady_clock::now() + MeetingTimeout;
    while (changes < wanted && !HasFailure() && std::chrono::steady_clock::now() < deadline) {
        const std::uint64_t value = valueNow();
        EXPECT_GE(writesSoFar() - first, value);
        const bool isNextWhole = TagMemoryImage::readWrite(image(), first + value).has_value();
        EXPECT_TRUE(!isNextWhole || valueNow() > value);
        changes += value != last ? 1 : 0;
        last = value;
    }
    stop = true;
    writer.join();
    EXPECT_TRUE(HasFailure() || changes == wanted) << "the two threads hardly met, so nothing was proved";
}

TEST(TagMemoryJournal, AReaderBesideAFastWriterOnlyGetsWholeEntries)
{
    const auto first = writesSoFar();
    std::atomic<bool> stop{false};
    std::thread writer([&] {
        for (std::uint64_t i = 0; !stop; ++i) {
            const std::array<std::uint64_t, 4> tag{i, i, i, i};
            TagMemory::Write(sizeof(tag), 7000, reinterpret_cast<const unsigned char*>(tag.data()));
        }
    });
    while (writesSoFar() - first < 2 * JournalCapacity)
        std::this_thread::yield();
    std::uint64_t whole = 0;
    std::uint64_t mixed = 0;
    const auto deadline = std::chrono::steady_clock::now() + MeetingTimeout;
    for (std::uint64_t i = 0; whole < 300'000 && std::chrono::steady_clock::now() < deadline; ++i) {
        // The oldest entries, which the writer is about to overwrite.
        const auto found = TagMemoryImage::readWrite(image(), writesSoFar() - JournalCapacity + i % 8);
        if (!found)
            continue;
        std::array<std::uint64_t, 4> tag{};
        std::memcpy(tag.data(), found->bytes.data(), sizeof(tag));
        ++(tag[0] == tag[1] && tag[1] == tag[2] && tag[2] == tag[3] ? whole : mixed);
    }
    stop = true;
    writer.join();
    EXPECT_EQ(mixed, 0U);
    EXPECT_GE(whole, 300'000U) << "the reader was hardly ever in time, so nothing was proved";
}

namespace {

const TagMemoryImage::Registration* registration(unsigned int id)
{
    for (const auto& candidate : image().registrations) {
        if (candidate.id == id)
            return &candidate;
    }
    return nullptr;
}

} // namespace

TEST(TagMemoryRegistrations, AreRecordedUntilTheyAreUndone)
{
    const std::array<HdrOperandData_t, 2> tags{{{33, 0, 2048}, {1, 0, 44}}};
    const unsigned int id = TagMemory::RegSync(300, tags.data(), 2, 10);
    ASSERT_GT(id, 0U);
    const auto* const recorded = registration(id);
    ASSERT_NE(recorded, nullptr);
    EXPECT_EQ(recorded->count, 2U);
    EXPECT_EQ(recorded->entries[0].length, 33);
    EXPECT_EQ(recorded->entries[0].Address, 2048U);
    EXPECT_EQ(recorded->entries[1].Address, 44U);

    EXPECT_EQ(TagMemory::UnRegSync(id, 10), 0);
    EXPECT_EQ(registration(id), nullptr);
    EXPECT_NE(TagMemory::UnRegSync(id, 10), 0) << "undone already";
}

TEST(TagMemoryRegistrations, TakeUpTo150Tags)
{
    std::vector<HdrOperandData_t> tags(151);
    for (unsigned int i = 0; i < tags.size(); ++i)
        tags[i] = {1, 0, i};
    const unsigned int id = TagMemory::RegSync(300, tags.data(), 150, 10);
    ASSERT_GT(id, 0U);
    EXPECT_EQ(registration(id)->entries[149].Address, 149U);
    EXPECT_EQ(TagMemory::RegSync(300, tags.data(), 151, 10), 0U);
    TagMemory::UnRegSync(id, 10);
}

TEST(TagMemoryRegistrations, HaveDifferentIdsAndAnEnd)
{
    const HdrOperandData_t tag{1, 0, 44};
    std::set<unsigned int> ids;
    for (std::size_t i = 0; i < TagMemoryImage::MaxRegistrations; ++i)
        ids.insert(TagMemory::RegSync(300, &tag, 1, 10));
    EXPECT_EQ(ids.size(), TagMemoryImage::MaxRegistrations);
    EXPECT_EQ(ids.count(0), 0U);
    EXPECT_EQ(TagMemory::RegSync(300, &tag, 1, 10), 0U) << "all places are taken";

    EXPECT_EQ(TagMemory::UnRegSync(*ids.begin(), 10), 0);
    const unsigned int again = TagMemory::RegSync(300, &tag, 1, 10);
    EXPECT_EQ(ids.count(again), 0U) << "an ID is not given out twice";
    EXPECT_NE(again, 0U);
    ids.erase(ids.begin());
    ids.insert(again);
    for (const unsigned int id : ids)
        EXPECT_EQ(TagMemory::UnRegSync(id, 10), 0);
}

TEST(TagMemoryRegistrations, AnUnknownIdIsAnError)
{
    EXPECT_NE(TagMemory::UnRegSync(0, 10), 0);
    EXPECT_NE(TagMemory::UnRegSync(123456, 10), 0);
    EXPECT_NE(TagMemory::UnRegSync(0x100000001UL, 10), 0);
}
