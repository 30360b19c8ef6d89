#include "tagnames.h"

#include <gtest/gtest.h>

using namespace plcctl;

namespace {

DeviceConfig plant()
{
    DeviceConfig config;
    config.generalAddress = 1024;
    config.statisticsAddress = 1536;
    config.brokers.push_back({1, "plant", "127.0.0.1", 1883, 4096, 2048, 21});
    config.publications.push_back({7, "level", 3000, 4, 3100});
    config.publications.push_back({8, "mute", 3200, 8, std::nullopt});
    config.subscriptions.push_back({3, "setpoint", 8192, 16, 9000});
    return config;
}

} // namespace

TEST(TagNames, EveryKnownTagHasItsName)
{
    const TagNames names(plant());
    EXPECT_EQ(names.describe(44, 1), "link of port 1");
    EXPECT_EQ(names.describe(47, 1), "link of port 2");
    EXPECT_EQ(names.describe(1024, 12), "general");
    EXPECT_EQ(names.describe(1536, 16), "statistics");
    EXPECT_EQ(names.describe(4096, 4), "broker 'plant' status");
    EXPECT_EQ(names.describe(2048, 21), "broker 'plant' will");
    EXPECT_EQ(names.describe(3000, 4), "publication 'level' data");
    EXPECT_EQ(names.describe(3100, 1), "publication 'level' acknowledgement");
    EXPECT_EQ(names.describe(8192, 16), "subscription 'setpoint' data");
    EXPECT_EQ(names.describe(9000, 524), "subscription 'setpoint' record");
}

TEST(TagNames, ATagIsNamedFromItsFirstByteToItsLast)
{
    const TagNames names(plant());
    EXPECT_EQ(names.describe(1023, 1), "");
    EXPECT_EQ(names.describe(1023, 2), "general");
    EXPECT_EQ(names.describe(1035, 1), "general");
    EXPECT_EQ(names.describe(1036, 1), "");
    EXPECT_EQ(names.describe(9523, 1), "subscription 'setpoint' record");
    EXPECT_EQ(names.describe(9524, 1), "");
}

TEST(TagNames, BytesWithinOneFieldOfASubscriptionsRecordAreNamedByTheField)
{
    struct
    {
        std::uint64_t offset, size;
        const char* field;
    } const rows[] = {{0, 1, ": subscribed"},
                      {1, 1, ": last result"},
                      {2, 1, ": received bit"},
                      {3, 1, ": queue full"},
                      {4, 512, ": topic of the last message"},
                      {514, 2, ": topic of the last message"},
                      {516, 4, ": time of the last message"},
                      {520, 1, ": hand-over state"},
                      {2, 2, ""},
                      {515, 2, ""},
                      {520, 2, ""},
                      {521, 3, ""}};
    const TagNames names(plant());
    for (const auto& row : rows)
        EXPECT_EQ(names.describe(9000 + row.offset, row.size),
                  std::string("subscription 'setpoint' record") + row.field)
            << row.offset << " " << row.size;
    EXPECT_EQ(names.describe(8999, 2), "subscription 'setpoint' record");
}

TEST(TagNames, AWriteOverSeveralTagsNamesThemAll)
{
    EXPECT_EQ(TagNames(plant()).describe(1024, 600), "general, statistics");
}

TEST(TagNames, RoomIsFoundBehindWhateverIsInTheWay)
{
    TagNames names(plant());
    EXPECT_EQ(names.firstUnnamed(10'000, 2012), 10'000U);
    EXPECT_EQ(names.firstUnnamed(1000, 24), 1000U);
    EXPECT_EQ(names.firstUnnamed(1000, 25), 1036U);
    EXPECT_EQ(names.firstUnnamed(1030, 1), 1036U);
    EXPECT_EQ(names.firstUnnamed(1000, 900), 2069U);
    EXPECT_EQ(names.firstUnnamed(1000, 1000), 4100U);
    names.add(1036, 400, "more");
    EXPECT_EQ(names.firstUnnamed(1000, 25), 1436U);
    EXPECT_EQ(names.describe(1100, 1), "more");
}

TEST(TagNames, ANameCannotCommandTheTerminal)
{
    DeviceConfig config;
    config.brokers.push_back({1, "\x1B[2J", "", 0, 4096, std::nullopt, 0});
    EXPECT_EQ(TagNames(config).describe(4096, 4), "broker '\\x1b[2J' status");
}
