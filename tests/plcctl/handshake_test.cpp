#include "handshake.h"

#include <gtest/gtest.h>

using namespace plcctl;
using std::chrono::milliseconds;
using std::chrono::seconds;
using Events = std::vector<HandshakeEvent>;
using Marks = std::vector<std::uint8_t>;

namespace {

class HandshakeTest : public testing::Test
{
protected:
    Events look(std::uint8_t bit, std::uint8_t state, Marks marks = {}, bool marksLost = false)
    {
        record.m_ReceivedBit = bit;
        record.m_BufferedDataStatus = state;
        time += milliseconds(5);
        return handshake.look({time, record, std::move(marks), marksLost});
    }

    void begin(std::uint8_t bit, std::uint8_t state, Marks marks = {})
    {
        record.m_ReceivedBit = bit;
        record.m_BufferedDataStatus = state;
        handshake.begin({time, record, std::move(marks)});
    }

    [[nodiscard]] bool mayClear() const { return handshake.waitingSince().has_value(); }

    Handshake handshake;
    SubscriberStatusStruct record{};
    Handshake::Clock::time_point time;
};

} // namespace

TEST_F(HandshakeTest, AMessageGoesThroughEveryState)
{
    EXPECT_EQ(look(0, BDS_NONE), Events{});
    EXPECT_EQ(look(1, BDS_WAITING), Events{HandshakeEvent::Waiting});
    EXPECT_TRUE(mayClear());
    handshake.cleared();
    EXPECT_FALSE(mayClear());
    EXPECT_EQ(look(0, BDS_WAITING), Events{});
    EXPECT_EQ(look(0, BDS_WAITING, {BDS_HANDING_OVER}), Events{HandshakeEvent::HandingOver});
    EXPECT_EQ(look(0, BDS_HANDING_OVER), Events{});
    EXPECT_EQ(look(0, BDS_HANDING_OVER, {BDS_NONE}), Events{HandshakeEvent::HandedOver});
    EXPECT_EQ(look(0, BDS_NONE), Events{});
    EXPECT_FALSE(mayClear());
}

TEST_F(HandshakeTest, TheTimeOfWaitingIsThatOfTheFirstLookAtIt)
{
    look(1, BDS_WAITING);
    const auto first = time;
    look(1, BDS_WAITING);
    EXPECT_EQ(handshake.waitingSince(), first);
}

TEST_F(HandshakeTest, AnArrivalDuringAHandOverDoesNotAllowClearingUntilTheServiceHasComeBackToIt)
{
    look(0, BDS_WAITING, {BDS_HANDING_OVER});
    EXPECT_EQ(look(1, BDS_WAITING), Events{});
    EXPECT_FALSE(mayClear());
    // The record of this look is older than the mark.
    EXPECT_EQ(look(1, BDS_WAITING, {BDS_NONE}), Events{HandshakeEvent::HandedOver});
    EXPECT_FALSE(mayClear());
    look(1, BDS_NONE);
    EXPECT_FALSE(mayClear());
    look(1, BDS_NONE, {BDS_WAITING});
    EXPECT_FALSE(mayClear());
    EXPECT_EQ(look(1, BDS_WAITING), Events{HandshakeEvent::Waiting});
    EXPECT_TRUE(mayClear());
}

TEST_F(HandshakeTest, AnArrivalThatTakesTheAskingBackIsNoNewMessageAndIsToldToTheCaller)
{
    look(1, BDS_WAITING);
    EXPECT_FALSE(handshake.isAskingTakenBack());
    handshake.cleared();
    look(0, BDS_WAITING);
    EXPECT_FALSE(handshake.isAskingTakenBack());
    EXPECT_EQ(look(1, BDS_WAITING), Events{});
    EXPECT_TRUE(handshake.isAskingTakenBack());
    handshake.cleared();
    look(0, BDS_WAITING, {BDS_HANDING_OVER});
    look(0, BDS_HANDING_OVER, {BDS_NONE});
    EXPECT_EQ(look(1, BDS_WAITING), Events{HandshakeEvent::Waiting});
    EXPECT_FALSE(handshake.isAskingTakenBack());
}

TEST_F(HandshakeTest, AHandOverThatBeganAfterTheRecordWasReadForbidsClearing)
{
    look(1, BDS_WAITING);
    EXPECT_EQ(look(1, BDS_WAITING, {BDS_HANDING_OVER}), Events{HandshakeEvent::HandingOver});
    EXPECT_FALSE(mayClear());
}

TEST_F(HandshakeTest, AHandOverBetweenTwoLooksIsSeenWhole)
{
    const Events both{HandshakeEvent::HandingOver, HandshakeEvent::HandedOver};
    EXPECT_EQ(look(0, BDS_NONE, {BDS_HANDING_OVER, BDS_NONE}), both);
}

TEST_F(HandshakeTest, AnotherHandThatClearsTheBitIsTold)
{
    look(1, BDS_WAITING);
    EXPECT_EQ(look(0, BDS_WAITING), Events{HandshakeEvent::Asked});
    EXPECT_FALSE(mayClear());
}

TEST_F(HandshakeTest, ItBeginsInAHandOverThatTheMarksOrTheRecordTellOf)
{
    begin(1, BDS_WAITING, {BDS_NONE, BDS_HANDING_OVER});
    look(1, BDS_WAITING);
    EXPECT_FALSE(mayClear());

    handshake = {};
    begin(0, BDS_HANDING_OVER);
    look(1, BDS_WAITING);
    EXPECT_FALSE(mayClear());

    handshake = {};
    begin(1, BDS_WAITING, {BDS_HANDING_OVER, BDS_NONE});
    look(1, BDS_WAITING);
    EXPECT_TRUE(mayClear());
}

TEST_F(HandshakeTest, LostMarksForbidClearingUntilAHandOverCannotBeUnderWay)
{
    look(1, BDS_WAITING);
    look(1, BDS_WAITING, {}, true);
    look(1, BDS_WAITING);
    EXPECT_FALSE(handshake.waitingSince() && *handshake.waitingSince() == time);
    time += Handshake::Patience;
    look(1, BDS_WAITING);
    EXPECT_TRUE(mayClear());
}

TEST_F(HandshakeTest, AHandOverThatNeverEndsIsGivenUp)
{
    look(0, BDS_WAITING, {BDS_HANDING_OVER});
    time += Handshake::Patience;
    EXPECT_EQ(look(1, BDS_WAITING), Events{HandshakeEvent::Waiting});
    EXPECT_TRUE(mayClear());
}

TEST_F(HandshakeTest, ABitThatStandsInNoStateOfTheHandshakeIsClearedAfterAll)
{
    look(1, BDS_NONE);
    time += Handshake::Patience - seconds(1);
    look(1, BDS_NONE);
    EXPECT_FALSE(mayClear());
    time += seconds(1);
    EXPECT_EQ(look(1, BDS_NONE), Events{HandshakeEvent::Waiting});
    EXPECT_TRUE(mayClear());
}

TEST_F(HandshakeTest, AFullQueueIsToldOnceAndItsEndAsWell)
{
    record.m_QueueFull = 1;
    EXPECT_EQ(look(0, BDS_NONE), Events{HandshakeEvent::QueueFull});
    EXPECT_EQ(look(0, BDS_NONE), Events{});
    record.m_QueueFull = 0;
    EXPECT_EQ(look(0, BDS_NONE), Events{HandshakeEvent::QueueHasRoom});
}
