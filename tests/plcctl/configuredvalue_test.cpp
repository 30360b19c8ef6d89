#include "configuredvalue.h"

#include "Records/argtype.h"

#include <gtest/gtest.h>

using namespace plcctl;

namespace {

using Bytes = std::vector<std::uint8_t>;

SubscriptionEntry subscriptionOf(const ValueLayout& value)
{
    SubscriptionEntry entry;
    entry.value = value;
    return entry;
}

} // namespace

TEST(ConfiguredValue, EveryTypeShowsByItsOwnRules)
{
    struct Case
    {
        ValueLayout value;
        Bytes bytes;
        std::string text;
        std::string json;
    };
    const std::vector<Case> cases{
        {{AT_BOOL, -1, 0}, {1}, "true", "true"},
        {{AT_INT8, -1, 0}, {0xFE}, "-2", "-2"},
        {{AT_UINT8, -1, 0}, {0xFE}, "254", "254"},
        {{AT_INT16, -1, 0}, {0xFE, 0xFF}, "-2", "-2"},
        {{AT_UINT16, -1, 0}, {0xFE, 0xFF}, "65534", "65534"},
        {{AT_INT32, -1, 0}, {0xFE, 0xFF, 0xFF, 0xFF}, "-2", "-2"},
        {{AT_UINT32, -1, 0}, {0xFE, 0xFF, 0xFF, 0xFF}, "4294967294", "4294967294"},
        {{AT_REAL, -1, 0}, {0, 0, 0x48, 0x41}, "12.5", "12.5"},
        {{AT_INT8, -1, 3}, {1, 2, 3}, "1 2 3", "[1,2,3]"},
        {{AT_INT8, -1, 1}, {1}, "1", "[1]"},
        {{AT_STR8, 4, 0}, {'a', 'b', 0, 'x', 0}, "'ab'", "\"ab\""},
        {{AT_STR16, 1, 0}, {0xE9, 0, 0, 0}, "'é'", "\"é\""},
        {{AT_STR32, 1, 0}, {0x00, 0xF6, 0x01, 0, 0, 0, 0, 0}, "'😀'", "\"😀\""},
        {{99, -1, 0}, {1, 0xAB}, "01 ab", "\"01ab\""},
    };
    for (const Case& each : cases) {
        const SubscriptionEntry entry = subscriptionOf(each.value);
        EXPECT_EQ(textOfData(entry, each.bytes), each.text);
        EXPECT_EQ(jsonOfData(entry, each.bytes).dump(), each.json);
    }
}

TEST(ConfiguredValue, AStructShowsItsMembersByName)
{
    SubscriptionEntry entry = subscriptionOf({AT_STRUCT, -1, 0});
    entry.members = {{"sugar", 0, {AT_REAL, -1, 0}}, {"name", 4, {AT_STR8, 5, 0}}};
    const Bytes bytes{0, 0, 0x48, 0x41, 'c', 'o', 'l', 'a', 0, 0};
    EXPECT_EQ(textOfData(entry, bytes), "sugar 12.5, name 'cola'");
    EXPECT_EQ(jsonOfData(entry, bytes).dump(), R"({"sugar":12.5,"name":"cola"})");
}

TEST(ConfiguredValue, WhatIsMissingIsLeftOut)
{
    SubscriptionEntry entry = subscriptionOf({AT_STRUCT, -1, 0});
    entry.members = {{"near", 0, {AT_UINT8, -1, 0}}, {"far", 4'000'000'000, {AT_INT32, -1, 0}}};
    EXPECT_EQ(textOfData(entry, Bytes{7}), "near 7, far ");
    EXPECT_EQ(jsonOfData(entry, Bytes{7}).dump(), R"({"near":7,"far":null})");
    EXPECT_EQ(jsonOfData(subscriptionOf({AT_INT32, -1, 0}), Bytes{}).dump(), "null");
}
