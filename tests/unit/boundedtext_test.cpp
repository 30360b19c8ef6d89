#include "Utils/boundedtext.h"

#include <gtest/gtest.h>

namespace {

TEST(BoundedTextInMemory, holdsWhatFitsToTheLastByte)
{
    char memory[6] = {'x', 'x', 'x', 'x', 'x', 'x'};
    BoundedText text(memory, 5);
    text.append("ab");
    text.append("");
    text.append("cde");
    EXPECT_TRUE(text.fits());
    EXPECT_EQ(text.text(), "abcde");
    EXPECT_EQ(memory[5], 'x');
}

TEST(BoundedTextInMemory, leavesOutThePieceThatDoesNotFitAndAllBehindIt)
{
    char memory[5];
    BoundedText text(memory, sizeof memory);
    text.append("abc");
    text.append("def");
    text.append("g");
    EXPECT_FALSE(text.fits());
    EXPECT_EQ(text.text(), "abc");
}

} // namespace
