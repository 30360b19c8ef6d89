#include "live/series.h"

#include <gtest/gtest.h>
#include <vector>

using namespace plcctl::live;

TEST(LiveSeries, NothingIsKnownBeforeTheSecondLook)
{
    Series series;
    EXPECT_EQ(series.perSecond(10), std::nullopt);
    series.add(100, 5000); // what was counted before anybody looked has no time
    EXPECT_EQ(series.perSecond(10), std::nullopt);
    series.add(101, 3);
    EXPECT_EQ(series.perSecond(10), 3.0);
}

TEST(LiveSeries, TheRateIsThatOfTheWindow)
{
    Series series;
    for (int second = 0; second <= 20; ++second)
        series.add(second, second <= 10 ? 0 : 2);
    EXPECT_EQ(series.perSecond(10), 2.0);
    EXPECT_EQ(series.perSecond(20), 1.0);
    EXPECT_EQ(series.perSecond(1), 2.0);
}

TEST(LiveSeries, TheRatesAreThoseFromLookToLook)
{
    Series series;
    series.add(0, 0);
    series.add(2, 4);
    series.add(3, 5);
    EXPECT_EQ(series.rates(), (std::vector<double>{2, 5}));
}

TEST(LiveSeries, OnlyTheLastStepsAreKept)
{
    Series series;
    for (std::size_t step = 0; step < 2 * Series::Capacity; ++step)
        series.add(static_cast<double>(step), 1);
    EXPECT_EQ(series.rates().size(), Series::Capacity - 1);
}

TEST(LiveCounter, TheStepsAreTheDifferences)
{
    CounterSteps steps;
    EXPECT_EQ(steps.take(100), 0U);
    EXPECT_EQ(steps.take(103), 3U);
    EXPECT_EQ(steps.take(103), 0U);
}

TEST(LiveCounter, ALittleOlderValueIsMendedByTheNext)
{
    CounterSteps steps;
    EXPECT_EQ(steps.take(5000), 0U);
    EXPECT_EQ(steps.take(4999), 0U);
    EXPECT_EQ(steps.take(5001), 1U);
}

TEST(LiveCounter, ACounterThatWentRoundGoesOn)
{
    CounterSteps steps;
    EXPECT_EQ(steps.take(0xFFFFFFFE), 0U);
    EXPECT_EQ(steps.take(3), 5U);
}

TEST(LiveCounter, ACounterThatBeganAnewCountsFromZero)
{
    CounterSteps steps;
    EXPECT_EQ(steps.take(90000), 0U);
    EXPECT_EQ(steps.take(7), 7U);
}
