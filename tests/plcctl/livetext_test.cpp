#include "live/text.h"

#include <clocale>
#include <gtest/gtest.h>
#include <string>

using namespace plcctl::live;

namespace {

class LiveText : public ::testing::Test
{
protected:
    void SetUp() override { ASSERT_NE(std::setlocale(LC_CTYPE, "C.UTF-8"), nullptr); }

    void TearDown() override { std::setlocale(LC_CTYPE, "C"); }
};

} // namespace

TEST_F(LiveText, NothingThatCommandsOrTurnsTextAroundIsLeft)
{
    EXPECT_EQ(safe("a\x1b[2Jb\r\n", Charset::Unicode), "a\\x1b[2Jb\\x0d\\n");
    EXPECT_EQ(safe("a\xC2\x9b"
                   "1mb",
                   Charset::Unicode),
              "a\\x9b1mb");
    EXPECT_EQ(safe("abc\u202Edef\u200Bghi", Charset::Unicode), "abc?def?ghi");
    EXPECT_EQ(safe("bad \xff byte", Charset::Ascii), "bad ? byte");
}

TEST_F(LiveText, WithoutUnicodeOnlyAsciiIsShown)
{
    EXPECT_EQ(safe("Größe 🙂", Charset::Ascii), "Gr??e ?");
    EXPECT_EQ(safe("Größe 🙂", Charset::Unicode), "Größe 🙂");
    EXPECT_EQ(plot({0, 1, 2}, 4, Charset::Ascii), "  =%");
    EXPECT_EQ(plot({0, 1, 2}, 4, Charset::Unicode), "  ▄█");
}

TEST_F(LiveText, AWideCharacterTakesItsTwoColumns)
{
    EXPECT_EQ(columnsOf("🙂x"), 3);
    EXPECT_EQ(fitted("🙂🙂🙂", 4, Align::Left, Charset::Unicode), "🙂… ");
}

TEST_F(LiveText, ATextFillsExactlyItsColumns)
{
    EXPECT_EQ(fitted("ab", 4, Align::Left, Charset::Unicode), "ab  ");
    EXPECT_EQ(fitted("ab", 4, Align::Right, Charset::Unicode), "  ab");
    EXPECT_EQ(fitted("abcde", 4, Align::Left, Charset::Unicode), "abc…");
    EXPECT_EQ(fitted("abcde", 4, Align::Left, Charset::Ascii), "abc~");
    EXPECT_EQ(fitted("abcde", 0, Align::Left, Charset::Ascii), "");
}

TEST_F(LiveText, ALongTextGoesOnOverLines)
{
    EXPECT_EQ(wrapped("abcdefg", 3), (std::vector<std::string>{"abc", "def", "g"}));
    EXPECT_EQ(wrapped("", 3), (std::vector<std::string>{""}));
}

TEST_F(LiveText, APlotShowsTheLastValuesAgainstTheHighestOfThem)
{
    EXPECT_EQ(plot({100, 0, 8}, 2, Charset::Unicode), " █");
    EXPECT_EQ(plot({}, 3, Charset::Unicode), "   ");
    // However small, what is there is seen.
    EXPECT_EQ(plot({1, 1000}, 2, Charset::Unicode), "▁█");
}

TEST_F(LiveText, ABarShowsTheShareAndSomethingForTheFirstPart)
{
    EXPECT_EQ(bar(0, 10, 4), "[    ]");
    EXPECT_EQ(bar(1, 10, 4), "[#   ]");
    EXPECT_EQ(bar(10, 10, 4), "[####]");
    EXPECT_EQ(bar(11, 0, 4), "[    ]");
}

TEST_F(LiveText, AgesAreShownInTheUnitThatFits)
{
    EXPECT_EQ(ageText(std::nullopt), "-");
    EXPECT_EQ(ageText(-3), "0.0 s");
    EXPECT_EQ(ageText(0.44), "0.4 s");
    EXPECT_EQ(ageText(119.9), "119 s");
    EXPECT_EQ(ageText(125), "2 min");
    EXPECT_EQ(ageText(7300), "2 h");
    EXPECT_EQ(ageText(200000), "2 d");
}

TEST_F(LiveText, RatesAndPeriodsKeepTheirMeaningDigits)
{
    EXPECT_EQ(rateText(std::nullopt), "-");
    EXPECT_EQ(rateText(0), "0");
    EXPECT_EQ(rateText(0.25), "0.25");
    EXPECT_EQ(rateText(12.34), "12.3");
    EXPECT_EQ(rateText(1234), "1234");
    EXPECT_EQ(periodText(500), "500 ms");
    EXPECT_EQ(periodText(2000), "2 s");
}
