#include "handshake.h"

#include "subscriptionreport.h"

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
    EXPECT_EQ(look(0, BufferedNone), Events{});
    EXPECT_EQ(look(1, BufferedWaiting), Events{HandshakeEvent::Waiting});
    EXPECT_TRUE(mayClear());
    handshake.cleared();
    EXPECT_FALSE(mayClear());
    EXPECT_EQ(look(0, BufferedWaiting), Events{});
    EXPECT_EQ(look(0, BufferedWaiting, {BufferedHandingOver}), Events{HandshakeEvent::HandingOver});
    EXPECT_EQ(look(0, BufferedHandingOver), Events{});
    EXPECT_EQ(look(0, BufferedHandingOver, {BufferedNone}), Events{HandshakeEvent::HandedOver});
    EXPECT_EQ(look(0, BufferedNone), Events{});
    EXPECT_FALSE(mayClear());
}

TEST_F(HandshakeTest, TheTimeOfWaitingIsThatOfTheFirstLookAtIt)
{
    look(1, BufferedWaiting);
    const auto first = time;
    look(1, BufferedWaiting);
    EXPECT_EQ(handshake.waitingSince(), first);
}

TEST_F(HandshakeTest, AnArrivalDuringAHandOverDoesNotAllowClearingUntilTheServiceHasComeBackToIt)
{
    look(0, BufferedWaiting, {BufferedHandingOver});
    EXPECT_EQ(look(1, BufferedWaiting), Events{});
    EXPECT_FALSE(mayClear());
    // The record of this look is older than the mark.
    EXPECT_EQ(look(1, BufferedWaiting, {BufferedNone}), Events{HandshakeEvent::HandedOver});
    EXPECT_FALSE(mayClear());
    look(1, BufferedNone);
    EXPECT_FALSE(mayClear());
    look(1, BufferedNone, {BufferedWaiting});
    EXPECT_FALSE(mayClear());
    EXPECT_EQ(look(1, BufferedWaiting), Events{HandshakeEvent::Waiting});
    EXPECT_TRUE(mayClear());
}

TEST_F(HandshakeTest, AnArrivalThatTakesTheAskingBackIsNoNewMessageAndIsToldToTheCaller)
{
    look(1, BufferedWaiting);
    EXPECT_FALSE(handshake.isAskingTakenBack());
    handshake.cleared();
    look(0, BufferedWaiting);
    EXPECT_FALSE(handshake.isAskingTakenBack());
    EXPECT_EQ(look(1, BufferedWaiting), Events{});
    EXPECT_TRUE(handshake.isAskingTakenBack());
    handshake.cleared();
    look(0, BufferedWaiting, {BufferedHandingOver});
    look(0, BufferedHandingOver, {BufferedNone});
    EXPECT_EQ(look(1, BufferedWaiting), Events{HandshakeEvent::Waiting});
    EXPECT_FALSE(handshake.isAskingTakenBack());
}

TEST_F(HandshakeTest, AHandOverThatBeganAfterTheRecordWasReadForbidsClearing)
{
    look(1, BufferedWaiting);
    EXPECT_EQ(look(1, BufferedWaiting, {BufferedHandingOver}), Events{HandshakeEvent::HandingOver});
    EXPECT_FALSE(mayClear());
}

TEST_F(HandshakeTest, AHandOverBetweenTwoLooksIsSeenWhole)
{
    const Events both{HandshakeEvent::HandingOver, HandshakeEvent::HandedOver};
    EXPECT_EQ(look(0, BufferedNone, {BufferedHandingOver, BufferedNone}), both);
}

TEST_F(HandshakeTest, AnotherHandThatClearsTheBitIsTold)
{
    look(1, BufferedWaiting);
    EXPECT_EQ(look(0, BufferedWaiting), Events{HandshakeEvent::Asked});
    EXPECT_FALSE(mayClear());
}

TEST_F(HandshakeTest, ItBeginsInAHandOverThatTheMarksOrTheRecordTellOf)
{
    begin(1, BufferedWaiting, {BufferedNone, BufferedHandingOver});
    look(1, BufferedWaiting);
    EXPECT_FALSE(mayClear());

    handshake = {};
    begin(0, BufferedHandingOver);
    look(1, BufferedWaiting);
    EXPECT_FALSE(mayClear());

    handshake = {};
    begin(1, BufferedWaiting, {BufferedHandingOver, BufferedNone});
    look(1, BufferedWaiting);
    EXPECT_TRUE(mayClear());
}

TEST_F(HandshakeTest, LostMarksForbidClearingUntilAHandOverCannotBeUnderWay)
{
    look(1, BufferedWaiting);
    look(1, BufferedWaiting, {}, true);
    look(1, BufferedWaiting);
    EXPECT_FALSE(handshake.waitingSince() && *handshake.waitingSince() == time);
    time += Handshake::Patience;
    look(1, BufferedWaiting);
    EXPECT_TRUE(mayClear());
}

TEST_F(HandshakeTest, AHandOverThatNeverEndsIsGivenUp)
{
    look(0, BufferedWaiting, {BufferedHandingOver});
    time += Handshake::Patience;
    EXPECT_EQ(look(1, BufferedWaiting), Events{HandshakeEvent::Waiting});
    EXPECT_TRUE(mayClear());
}

TEST_F(HandshakeTest, ABitThatStandsInNoStateOfTheHandshakeIsClearedAfterAll)
{
    look(1, BufferedNone);
    time += Handshake::Patience - seconds(1);
    look(1, BufferedNone);
    EXPECT_FALSE(mayClear());
    time += seconds(1);
    EXPECT_EQ(look(1, BufferedNone), Events{HandshakeEvent::Waiting});
    EXPECT_TRUE(mayClear());
}

TEST_F(HandshakeTest, AFullQueueIsToldOnceAndItsEndAsWell)
{
    record.m_QueueFull = 1;
    EXPECT_EQ(look(0, BufferedNone), Events{HandshakeEvent::QueueFull});
    EXPECT_EQ(look(0, BufferedNone), Events{});
    record.m_QueueFull = 0;
    EXPECT_EQ(look(0, BufferedNone), Events{HandshakeEvent::QueueHasRoom});
}
