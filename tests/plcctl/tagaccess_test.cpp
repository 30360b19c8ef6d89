#include "tagaccess.h"

#include "failure.h"

#include <gtest/gtest.h>

using namespace plcctl;

TEST(TagAccess, AddressesAreDecimalOrHexadecimal)
{
    EXPECT_EQ(parsePosition("1024", false), 1024U);
    EXPECT_EQ(parsePosition("0x400", false), 1024U);
    EXPECT_EQ(parsePosition("0XfF", false), 255U);
    EXPECT_EQ(parsePosition("010", false), 10U); // a leading zero is no octal number
}

TEST(TagAccess, OperandAddressesAreConverted)
{
    EXPECT_EQ(parsePosition("65536", true), 0x7F410000U);
    EXPECT_EQ(parsePosition("0", true), 0x7F400000U);
    EXPECT_EQ(parsePosition("16777215", true), 0x803FFFFFU);
    EXPECT_THROW(parsePosition("16777216", true), Failure);
}

TEST(TagAccess, OtherTextsAreNoAddress)
{
    for (const char* text : {"", "0x", "-1", "+1", "12a", "1 ", " 1", "1.0", "18446744073709551616"})
        EXPECT_THROW(parsePosition(text, false), Failure) << text;
}

TEST(TagAccess, PositionsOfTheOperandWindowAreShownAsOperands)
{
    EXPECT_EQ(describePosition(1024), "1024");
    EXPECT_EQ(describePosition(0x7F400064), "operand 100 (position 2134900836)");
    EXPECT_EQ(describePosition(0x803FFFFF), "operand 16777215 (position 2151677951)");
    EXPECT_EQ(describePosition(0x80400000), "2151677952");
}

TEST(TagAccess, AccessesStayInsideOneWindow)
{
    const auto isInside = [](std::uint64_t position, std::size_t size) {
        try {
            requireInside(position, size);
            return true;
        } catch (const Failure&) {
            return false;
        }
    };
    EXPECT_TRUE(isInside(0, 1));
    EXPECT_TRUE(isInside(16777215, 1));
    EXPECT_FALSE(isInside(16777215, 2));
    EXPECT_FALSE(isInside(16777216, 1));
    EXPECT_FALSE(isInside(0x7F3FFFFF, 2));
    EXPECT_TRUE(isInside(0x7F400000, 4));
    EXPECT_TRUE(isInside(0x803FFFFC, 4));
    EXPECT_FALSE(isInside(0x803FFFFD, 4));
    EXPECT_FALSE(isInside(0x80400000, 1));
    EXPECT_FALSE(isInside(0xFFFFFFFFFFFFFFFF, 2));
}
