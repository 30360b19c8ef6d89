#include "journalcursor.h"

#include <gtest/gtest.h>
#include <memory>

using namespace plcctl;
using TagMemoryImage::JournalCapacity;

namespace {

class JournalCursorTest : public testing::Test
{
protected:
    void write(std::uint64_t position, std::uint8_t value) { TagMemoryImage::write(*image, position, &value, 1); }

    void writeTimes(std::size_t count)
    {
        for (std::size_t i = 0; i < count; ++i)
            write(i, 0);
    }

    // Takes a number as a writer does, and stops there.
    void dieWhileWriting() { image->header.writes.fetch_add(1); }

    std::unique_ptr<TagMemoryImage::Image> image = std::make_unique<TagMemoryImage::Image>();
};

} // namespace

TEST_F(JournalCursorTest, WritesComeInTheirOrderAndThenNothing)
{
    write(1024, 2);
    write(1024, 0xFE);
    JournalCursor cursor(*image, 0);

    const auto first = cursor.step();
    ASSERT_TRUE(first && first->write);
    EXPECT_EQ(first->write->number, 0U);
    EXPECT_EQ(first->write->position, 1024U);
    EXPECT_EQ(first->write->bytes[0], 2);
    const auto second = cursor.step();
    ASSERT_TRUE(second && second->write);
    EXPECT_EQ(second->write->number, 1U);
    EXPECT_EQ(second->write->bytes[0], 0xFE);
    EXPECT_FALSE(cursor.step());

    write(1025, 1);
    const auto third = cursor.step();
    ASSERT_TRUE(third && third->write);
    EXPECT_EQ(third->write->position, 1025U);
}

TEST_F(JournalCursorTest, OverwrittenWritesAreCountedOnceAndTheRestFollows)
{
    writeTimes(JournalCapacity + 3);
    JournalCursor cursor(*image, 1);
    const auto lost = cursor.step();
    ASSERT_TRUE(lost);
    EXPECT_FALSE(lost->write);
    EXPECT_EQ(lost->lost, 2U);
    const auto kept = cursor.step();
    ASSERT_TRUE(kept && kept->write);
    EXPECT_EQ(kept->write->number, 3U);
}

TEST_F(JournalCursorTest, AFullJournalHasLostNothing)
{
    writeTimes(JournalCapacity);
    EXPECT_EQ(oldestWrite(*image), 0U);
    JournalCursor cursor(*image, 0);
    std::uint64_t seen = 0;
    while (const auto step = cursor.step()) {
        ASSERT_TRUE(step->write);
        ++seen;
    }
    EXPECT_EQ(seen, JournalCapacity);
}

TEST_F(JournalCursorTest, AnUnfinishedWriteIsWaitedForAndThenGivenUp)
{
    write(1, 1);
    dieWhileWriting();
    write(3, 3);
    JournalCursor cursor(*image, 1);
    EXPECT_FALSE(cursor.step());

    const auto begin = std::chrono::steady_clock::now();
    auto step = cursor.step();
    while (!step && std::chrono::steady_clock::now() - begin < std::chrono::seconds(20))
        step = cursor.step();
    ASSERT_TRUE(step);
    EXPECT_EQ(step->lost, 1U);
    const auto next = cursor.step();
    ASSERT_TRUE(next && next->write);
    EXPECT_EQ(next->write->position, 3U);
}

TEST_F(JournalCursorTest, ANumberThatIsStillToComeIsWaitedFor)
{
    write(1, 1);
    JournalCursor cursor(*image, 2);
    EXPECT_FALSE(cursor.step());
    write(2, 2);
    EXPECT_FALSE(cursor.step());
    write(3, 3);
    const auto step = cursor.step();
    ASSERT_TRUE(step && step->write);
    EXPECT_EQ(step->write->number, 2U);
}
