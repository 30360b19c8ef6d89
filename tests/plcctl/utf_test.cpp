#include "utf.h"

#include <gtest/gtest.h>

using namespace plcctl;

TEST(Utf, EachLengthOfUtf8IsDecoded)
{
    // The first and last character of each length: U+0000 7F, 80 7FF, 800 FFFF, 10000 10FFFF.
    const std::string text("\x00\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF\xF0\x90\x80\x80\xF4\x8F\xBF\xBF", 20);
    const std::u32string expected{0x0, 0x7F, 0x80, 0x7FF, 0x800, 0xFFFF, 0x10000, 0x10FFFF};
    EXPECT_EQ(decodeUtf8(text), expected);
    EXPECT_EQ(encodeUtf8(expected), text);
}

TEST(Utf, WhatIsNoUtf8IsRefused)
{
    for (const char* text : {"\x80", "\xC3", "\xE2\x82", "\xC0\xAF", "\xE0\x80\x80", "\xF0\x80\x80\x80", "\xED\xA0\x80",
                             "\xF4\x90\x80\x80", "\xF8\x88\x80\x80\x80", "\xC3\x28", "\xFE"})
        EXPECT_FALSE(decodeUtf8(text)) << text;
}

TEST(Utf, LossyDecodingReplacesEachBadByteAndKeepsTheRest)
{
    EXPECT_EQ(decodeUtf8Lossy("a\xFFz"), U"a\uFFFDz");
    EXPECT_EQ(decodeUtf8Lossy("\xE2\x82"), U"\uFFFD\uFFFD");
}

TEST(Utf, SurrogatesCountInPairsOnly)
{
    EXPECT_EQ(decodeUtf16Lossy(u"\U0001F600"), U"\U0001F600");
    EXPECT_EQ(decodeUtf16Lossy(std::u16string{0xD83D}), U"\uFFFD");
    EXPECT_EQ(decodeUtf16Lossy(std::u16string{0xDE00, 0xD83D}), U"\uFFFD\uFFFD");
    EXPECT_EQ(decodeUtf16Lossy(std::u16string{0xD83D, 0xD83D, 0xDE00}), U"\uFFFD\U0001F600");
    EXPECT_EQ(encodeUtf16(U"\U0001F600"), (std::u16string{0xD83D, 0xDE00}));
    EXPECT_EQ(encodeUtf16(U"\uFFFF"), (std::u16string{0xFFFF}));
    EXPECT_EQ(encodeUtf16(U"\U0010FFFF"), (std::u16string{0xDBFF, 0xDFFF}));
}

TEST(Utf, ValuesThatAreNoCodePointAreWrittenAsTheReplacement)
{
    EXPECT_EQ(encodeUtf8(std::u32string{0xD800, 0x110000, 0xFFFFFFFF}), "\uFFFD\uFFFD\uFFFD");
}
