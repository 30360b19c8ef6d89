#include "live/tally.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <memory>
#include <vector>

using namespace plcctl;
using plcctl::live::Tally;

namespace {

constexpr std::uint64_t General = 1024;
constexpr std::uint64_t Block = 1088;
constexpr std::uint64_t Acknowledgement = 3072;
constexpr std::uint64_t Record = 8192;

class LiveTally : public testing::Test
{
protected:
    void SetUp() override
    {
        DeviceConfig config;
        config.generalAddress = static_cast<std::uint32_t>(General);
        config.brokers.emplace_back();
        config.brokers.back().statusAddress = static_cast<std::uint32_t>(Block);
        config.publications.emplace_back();
        config.publications.back().acknowledgeAddress = static_cast<std::uint32_t>(Acknowledgement);
        config.subscriptions.emplace_back();
        config.subscriptions.back().recordAddress = static_cast<std::uint32_t>(Record);
        tally.watch(config);
    }

    void write(std::uint64_t position, std::vector<std::uint8_t> bytes, std::size_t size = 0)
    {
        bytes.resize(std::max(size, bytes.size()));
        TagMemoryImage::write(*image, position, bytes.data(), static_cast<std::uint32_t>(bytes.size()));
    }

    void acknowledge() { write(Acknowledgement, {1}); }

    std::unique_ptr<TagMemoryImage::Image> image = std::make_unique<TagMemoryImage::Image>();
    Tally tally;
};

} // namespace

TEST_F(LiveTally, AcknowledgementsAreCountedAndTheirClearingIsNot)
{
    acknowledge();
    write(Acknowledgement, {0});
    acknowledge();
    tally.look(*image);
    EXPECT_EQ(tally.at(Acknowledgement).events, 2U);
    EXPECT_TRUE(tally.at(Acknowledgement).eventNanoseconds);
    EXPECT_EQ(tally.processId(), std::nullopt); // anybody writes single bytes
}

TEST_F(LiveTally, AnArrivalIsAWholeRecordWithTheBitSet)
{
    write(Record, {1, 0, 0, 0}, 524); // subscribed
    write(Record, {1, 0, 1, 0}, 524);
    write(Record + 2, {0}); // the application clears the bit
    tally.look(*image);
    EXPECT_EQ(tally.at(Record).events, 1U);
}

TEST_F(LiveTally, ALossIsABlockThatSaysSo)
{
    write(Block, {1, 0, 0, 0});
    write(Block, {0, 0, static_cast<std::uint8_t>(-13), 0});
    write(Block, {0, 0, static_cast<std::uint8_t>(-1), 0});
    tally.look(*image);
    EXPECT_EQ(tally.at(Block).events, 1U);
    EXPECT_TRUE(tally.at(Block).writeNanoseconds);
}

TEST_F(LiveTally, WhoeverWritesARecordIsTheService)
{
    write(General, {1}, 12);
    image->journal[0].processId = 4711;
    write(Acknowledgement, {0});
    image->journal[1].processId = 4712; // the control application
    tally.look(*image);
    EXPECT_EQ(tally.processId(), 4711);
}

TEST_F(LiveTally, TheNextLookTakesOnlyWhatIsNew)
{
    acknowledge();
    tally.look(*image);
    tally.look(*image);
    acknowledge();
    tally.look(*image);
    EXPECT_EQ(tally.at(Acknowledgement).events, 2U);
}

TEST_F(LiveTally, OverwrittenWritesAreCountedAsLostButNotThoseFromBeforeTheFirstLook)
{
    for (std::size_t i = 0; i < TagMemoryImage::JournalCapacity + 10; ++i)
        acknowledge();
    tally.look(*image);
    EXPECT_EQ(tally.lost(), 0U);
    EXPECT_EQ(tally.at(Acknowledgement).events, TagMemoryImage::JournalCapacity);
    for (std::size_t i = 0; i < TagMemoryImage::JournalCapacity + 10; ++i)
        acknowledge();
    tally.look(*image);
    EXPECT_EQ(tally.lost(), 10U);
}

TEST_F(LiveTally, AfterARestartItCountsAnew)
{
    acknowledge();
    tally.look(*image);
    tally.restart();
    tally.look(*image);
    EXPECT_EQ(tally.at(Acknowledgement).events, 1U);
    EXPECT_EQ(tally.at(4711).events, 0U); // a place that nothing is known of
}
