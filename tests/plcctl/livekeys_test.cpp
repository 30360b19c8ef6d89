#include "live/keys.h"
#include "live/requestkeys.h"
#include "live/views.h"
#include "livesample.h"

#include <gtest/gtest.h>
#include <string>
#include <string_view>

using namespace livesample;

namespace {

class LiveKeys : public testing::Test
{
protected:
    // The effect of the last one.
    KeyEffect type(std::u32string_view keys)
    {
        KeyEffect effect;
        for (const char32_t key : keys)
            effect = press(key);
        return effect;
    }

    KeyEffect press(char32_t key) { return live::press(state, key, sample); }

    [[nodiscard]] std::vector<std::string> names() const
    {
        std::vector<std::string> result;
        for (const TableRow& row : shownTable(sample, state).rows)
            result.push_back(row.cells[1].text);
        return result;
    }

    LiveData sample = data();
    UiState state;
};

using Names = std::vector<std::string>;

} // namespace

TEST_F(LiveKeys, NumbersAndTabTurnToTheViews)
{
    type(U"3");
    EXPECT_EQ(state.view, View::Publications);
    press(KeyTab);
    EXPECT_EQ(state.view, View::Subscriptions);
    press(KeyBackTab);
    press(KeyLeft);
    press(KeyLeft);
    press(KeyLeft);
    EXPECT_EQ(state.view, View::Log);
}

TEST_F(LiveKeys, AFilterLeavesTheRowsThatHaveItInAnyCase)
{
    type(U"3/SPEEX");
    press(KeyBackspace);
    type(U"D");
    EXPECT_EQ(names(), (Names{"speed", "note"})); // not before Enter
    press(KeyEnter);
    EXPECT_EQ(names(), Names{"speed"});
    press(KeyEscape);
    EXPECT_EQ(names(), (Names{"speed", "note"}));
}

TEST_F(LiveKeys, KeysOfAFilterAreTextAndNoCommands)
{
    EXPECT_FALSE(type(U"3/qPy").quit);
    EXPECT_EQ(state.typed, "qPy");
    press(KeyEscape);
    EXPECT_EQ(state.typed, std::nullopt);
    EXPECT_EQ(state.current().filter, "");
}

TEST_F(LiveKeys, SortingGoesFromColumnToColumnAndBackToTheOrderOfTheFile)
{
    type(U"3s");
    EXPECT_EQ(names(), (Names{"note", "speed"})); // 9 before 10: by number, not by text
    type(U"r");
    EXPECT_EQ(names(), (Names{"speed", "note"}));
    type(U"rs");
    EXPECT_EQ(names(), (Names{"note", "speed"})); // by name
    // Over all columns that an 80-column terminal shows: two are hidden.
    const std::size_t columns = shownTable(sample, state).columns.size() - 2;
    for (std::size_t at = 1; at < columns; ++at)
        type(U"s");
    EXPECT_EQ(state.current().sortedBy, std::nullopt);
    EXPECT_EQ(names(), (Names{"speed", "note"}));
}

TEST_F(LiveKeys, RowsWithoutAValueComeLastInBothOrders)
{
    sample.subscriptions.push_back(sample.subscriptions[0]);
    sample.subscriptions.back().entry.name = "late";
    sample.subscriptions.back().ageSeconds = 100;
    type(U"4");
    state.current().sortedBy = 5; // age
    EXPECT_EQ(names(), (Names{"setpoint", "late", "work order"}));
    state.current().descending = true;
    EXPECT_EQ(names(), (Names{"late", "setpoint", "work order"}));
}

TEST_F(LiveKeys, TheSelectionStaysWithItsRow)
{
    type(U"3");
    press(KeyDown);
    const auto chosen = [this] {
        const Table table = shownTable(sample, state);
        return table.rows[*selectedRow(table, state.current())].cells[1].text;
    };
    EXPECT_EQ(chosen(), "note");
    type(U"s"); // now it is the first one
    EXPECT_EQ(chosen(), "note");
    press(KeyDown);
    EXPECT_EQ(chosen(), "speed");
    press(KeyDown);
    EXPECT_EQ(chosen(), "speed");
}

TEST_F(LiveKeys, TheLogShowsTheSeveritiesThatAreChosen)
{
    type(U"5");
    EXPECT_EQ(shownTable(sample, state).rows.size(), 2U);
    type(U"v");
    EXPECT_EQ(shownTable(sample, state).rows.size(), 1U);
    type(U"vv");
    EXPECT_EQ(shownTable(sample, state).rows.size(), 3U);
    type(U"v");
    EXPECT_EQ(state.mildest, Severity::Info);
}

TEST_F(LiveKeys, ARequestIsForTheSelectedRow)
{
    type(U"2");
    press(KeyDown);
    const auto sent = type(U"c").send;
    ASSERT_TRUE(sent);
    EXPECT_EQ(describe(*sent), "connect broker 2 'cloud'");
    EXPECT_EQ(sent->opcode, MRO_CONNECT_BROKER);
}

TEST_F(LiveKeys, WhatDisturbsAPlantIsAskedForFirst)
{
    for (const std::u32string_view keys : {U"2d", U"2U", U"4U", U"3T", U"P", U"S"}) {
        state = {};
        EXPECT_FALSE(type(keys).send);
        EXPECT_TRUE(state.asked);
        EXPECT_FALSE(state.message.empty());
        EXPECT_TRUE(type(U"y").send);
        EXPECT_FALSE(state.asked);
        type(keys);
        EXPECT_FALSE(type(U"n").send);
        EXPECT_EQ(state.message, "nothing was sent");
    }
}

TEST_F(LiveKeys, EachRequestKeySendsItsRequest)
{
    const auto opcode = [this](std::u32string_view keys) {
        state = {};
        const auto sent = type(keys).send;
        return sent ? static_cast<int>(sent->opcode) : -1;
    };
    EXPECT_EQ(opcode(U"2u"), MRO_SUBSCRIBE_ALL);
    EXPECT_EQ(opcode(U"2Uy"), MRO_UNSUBSCRIBE_ALL);
    EXPECT_EQ(opcode(U"2dy"), MRO_DISCONNECT_BROKER);
    EXPECT_EQ(opcode(U"4u"), MRO_SUBSCRIBE_TO_TOPIC);
    EXPECT_EQ(opcode(U"4Uy"), MRO_UNSUBSCRIBE_FROM_TOPIC);
    EXPECT_EQ(opcode(U"3n"), MRO_SEND_APERIODIC);
    EXPECT_EQ(opcode(U"3t"), MRO_SET_PUBLISH_STATE);
    EXPECT_EQ(opcode(U"Py"), MRO_PAUSE);
    EXPECT_EQ(opcode(U"Sy"), MRO_START);
}

TEST_F(LiveKeys, ARequestKeyInAnotherViewSendsNothingAndSaysWhereItBelongs)
{
    EXPECT_FALSE(type(U"5c").send);
    EXPECT_NE(state.message.find("press 2"), std::string::npos);
}

TEST_F(LiveKeys, WithoutARowNothingIsSent)
{
    sample.brokers.clear();
    EXPECT_FALSE(type(U"2c").send);
    EXPECT_FALSE(state.message.empty());
}

TEST_F(LiveKeys, PauseHoldsAndGoesOn)
{
    EXPECT_TRUE(type(U"p").pauseChanged);
    EXPECT_TRUE(state.paused);
    type(U"p");
    EXPECT_FALSE(state.paused);
}

TEST_F(LiveKeys, QuitQuits)
{
    EXPECT_TRUE(type(U"q").quit);
}
