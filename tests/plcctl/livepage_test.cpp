#include "livesample.h"

#include <gtest/gtest.h>
#include <string>
#include <utility>

using namespace livesample;

TEST(LivePage, EveryViewFillsTheScreenExactlyAtEverySize)
{
    const LiveData sample = data();
    for (const auto view : {View::Overview, View::Brokers, View::Publications, View::Subscriptions, View::Log}) {
        for (const auto& [width, height] : {std::pair{80, 24}, {64, 12}, {120, 40}, {200, 60}}) {
            UiState state = showing(view);
            const auto lines = screen(sample, state, width, height);
            EXPECT_EQ(lines.size(), static_cast<std::size_t>(height));
            for (const std::string& line : lines)
                EXPECT_LE(columnsOf(line), width) << line;
        }
    }
}

TEST(LivePage, ASmallTerminalIsToldHowLargeItHasToBe)
{
    UiState state;
    const auto lines = screen(data(), state, 40, 10);
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].substr(0, 26), "too small: 64x12 at least,");
}

TEST(LivePage, TheOverviewHasCountersQueueLinksBrokersAndTheWorstOfTheLog)
{
    UiState state;
    const auto lines = screen(data(), state);
    EXPECT_TRUE(hasLine(lines, {"PS_RUNNING"}));
    EXPECT_TRUE(hasLine(lines, {"sent", "120", "4.50", "%"}));
    EXPECT_TRUE(hasLine(lines, {"request queue [###       ] 3 of 10 waiting   links up, down"}));
    EXPECT_TRUE(hasLine(lines, {"publications  2, their periods make 4.50 per second"}));
    EXPECT_TRUE(hasLine(lines, {"subscriptions 1 of 2 in force; buffered: 0 with messages, 1 full"}));
    EXPECT_TRUE(hasLine(lines, {"2 cloud", "lost", "CB_CONNECTION_LOST"}));
    EXPECT_TRUE(hasLine(lines, {"ERROR it failed"}));
    EXPECT_FALSE(hasLine(lines, {"a detail"}));
}

TEST(LivePage, EachBrokerHasItsStateAndItsLastCodeByName)
{
    UiState state = showing(View::Brokers);
    const auto lines = screen(data(), state);
    EXPECT_TRUE(hasLine(lines, {"1 plant", "connected", "CB_OK"}));
    EXPECT_TRUE(hasLine(lines, {"2 cloud", "lost", "CB_CONNECTION_LOST"}));
}

TEST(LivePage, EachPublicationHasItsPeriodAcknowledgementAndValue)
{
    UiState state = showing(View::Publications);
    const auto lines = screen(data(), state);
    EXPECT_TRUE(hasLine(lines, {"10 speed", "500 ms", "-", "-", "-", "-", "12.5"}));
    EXPECT_TRUE(hasLine(lines, {"9 note", "request", "1", "3.0 s", "'hello'"}));
}

TEST(LivePage, EachSubscriptionHasItsStateTopicAndAge)
{
    UiState state = showing(View::Subscriptions);
    const auto lines = screen(data(), state);
    EXPECT_TRUE(hasLine(lines, {"1 setpoint", "in force", "2.5 s", "plant/set/speed"}));
    EXPECT_TRUE(hasLine(lines, {"2 work order", "no", "full", "no message yet"}));
}

TEST(LivePage, AServiceThatHasEndedIsToldInTheTitleAndItsStatesAreNoLongerShown)
{
    LiveData ended = data();
    ended.hasProcessEnded = true;
    UiState state = showing(View::Brokers);
    const auto lines = screen(ended, state);
    EXPECT_TRUE(hasLine(lines, {"NOT RUNNING: process 4711 has ended"}));
    EXPECT_TRUE(hasLine(lines, {"1 plant", "(ended)"}));
}

TEST(LivePage, WhatCanNotBeReadIsToldAboveEveryView)
{
    LiveData broken = data();
    broken.problems = {"Brokers.xml: line 3\x1b[31m", "more"};
    for (const auto view : {View::Overview, View::Log}) {
        UiState state = showing(view);
        EXPECT_TRUE(hasLine(screen(broken, state), {"Brokers.xml: line 3\\x1b[31m (and 1 more)"}));
    }
}

TEST(LivePage, NothingFromOutsideReachesTheScreenRaw)
{
    const std::string hostile = "\x1b]0;owned\x07\n";
    LiveData sample = data();
    sample.brokers[0].entry.name = sample.brokers[0].entry.host = hostile;
    sample.publications[0].entry.name = sample.publications[0].value = sample.publications[0].topic = hostile;
    sample.subscriptions[0].entry.name = sample.subscriptions[0].topic = sample.subscriptions[0].value = hostile;
    sample.log[0].row.message = sample.log[0].row.function = hostile;
    sample.logProblem = sample.queue.problem = hostile;
    for (const auto view : {View::Overview, View::Brokers, View::Publications, View::Subscriptions, View::Log}) {
        for (const auto overlay : {Overlay::None, Overlay::Details}) {
            UiState state = showing(view);
            state.overlay = view == View::Overview ? Overlay::None : overlay;
            state.current().filter = "o";
            for (const std::string& line : screen(sample, state, 200, 60)) {
                EXPECT_EQ(line.find('\x1b'), std::string::npos);
                EXPECT_EQ(line.find('\n'), std::string::npos);
                EXPECT_EQ(line.find('\x07'), std::string::npos);
            }
        }
    }
}

TEST(LivePage, DetailsShowTheFileWithoutPasswords)
{
    UiState state = showing(View::Brokers);
    state.overlay = Overlay::Details;
    const auto lines = screen(data(), state);
    EXPECT_TRUE(hasLine(lines, {"broker 1 'plant'"}));
    EXPECT_TRUE(hasLine(lines, {"Password", "(hidden)"}));
    EXPECT_FALSE(hasLine(lines, {"secret"}));
}

TEST(LivePage, AnOverlayIsScrolledNoFurtherThanToItsEnd)
{
    UiState state;
    state.overlay = Overlay::Help;
    state.scrolled = 1000;
    const auto lines = screen(data(), state, 80, 16);
    EXPECT_TRUE(hasLine(lines, {"not known"}));
    EXPECT_LT(state.scrolled, 20U);
}

TEST(LivePage, TheSelectedRowIsAlwaysOnTheScreen)
{
    LiveData many = data();
    many.brokers.resize(500, many.brokers[0]);
    for (std::size_t at = 0; at < many.brokers.size(); ++at)
        many.brokers[at].entry.name = "broker-" + std::to_string(at);
    for (const std::uint64_t selected : {0, 3, 250, 499}) {
        UiState state = showing(View::Brokers);
        state.current().selected = selected;
        EXPECT_TRUE(hasLine(screen(many, state), {"broker-" + std::to_string(selected)})) << selected;
    }
}

TEST(LivePage, WhatWasLostOrLeftOutIsTold)
{
    LiveData lossy = data();
    lossy.lostWrites = 17;
    lossy.logBytesSkipped = 5000;
    UiState state;
    EXPECT_TRUE(hasLine(screen(lossy, state), {"journal lost 17"}));
    state = showing(View::Log);
    EXPECT_TRUE(hasLine(screen(lossy, state, 120, 40), {"INFO and worse, 5 KiB left out"}));
}
