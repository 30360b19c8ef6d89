#include "output.h"

#include <gtest/gtest.h>

using namespace plcctl;

TEST(Output, ControlCharactersAreSpelledOutAndNothingElseChanges)
{
    EXPECT_EQ(printable("pump 'a' \u00E4\U0001F600"), "pump 'a' \u00E4\U0001F600");
    EXPECT_EQ(printable(std::string("\0\x1B\x7F\r", 4)), "\\x00\\x1b\\x7f\\x0d");
    EXPECT_EQ(printable("a\nb\tc\\"), "a\\nb\\tc\\\\");
}

TEST(Output, TheControlCharactersAbove127AreSpelledOut)
{
    EXPECT_EQ(printable("\u009B2J"), "\\x9b2J");
    EXPECT_EQ(printable("\u00A0"), "\u00A0");
}

TEST(Output, BytesAreShownInHexAndInAscii)
{
    const std::uint8_t bytes[] = {0x00, 0x0A, 0x41, 0x7E, 0x7F, 0xFF};
    EXPECT_EQ(hexBytes(bytes), "00 0a 41 7e 7f ff");
    EXPECT_EQ(hexBytes(bytes, ""), "000a417e7fff");
    EXPECT_EQ(asciiBytes(bytes), "..A~..");
    EXPECT_EQ(hexBytes({}), "");
}

TEST(Output, TimesAreShownToTheMicrosecond)
{
    EXPECT_EQ(utcTime(0), "1970-01-01T00:00:00.000000Z");
    EXPECT_EQ(utcTime(1'000'000'000'000'001'999), "2001-09-09T01:46:40.000001Z");
    EXPECT_EQ(utcTime(-1), "1969-12-31T23:59:59.999999Z");
}

TEST(Output, TheTimesOfRecordsAreShownToTheSecondUpToTheirLast)
{
    EXPECT_EQ(utcSeconds(0), "1970-01-01T00:00:00Z");
    EXPECT_EQ(utcSeconds(1'000'000'000), "2001-09-09T01:46:40Z");
    EXPECT_EQ(utcSeconds(4'294'967'295), "2106-02-07T06:28:15Z");
}
