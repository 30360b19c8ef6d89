#include "tagtypes.h"

#include "failure.h"

#include <gtest/gtest.h>

using namespace plcctl;

namespace {

using Bytes = std::vector<std::uint8_t>;
using Values = std::vector<std::string>;

const TagType& type(const char* name)
{
    const TagType* found = findTagType(name);
    if (!found)
        throw std::logic_error(std::string("no type ") + name);
    return *found;
}

Bytes encode(const char* typeName, const Values& values, std::optional<unsigned> length = std::nullopt)
{
    return bytesFromText(type(typeName), values, length);
}

std::string decode(const char* typeName, const Bytes& bytes)
{
    return textFromBytes(type(typeName), bytes);
}

// The message of the refusal; empty if the value was taken.
std::string refusal(const char* typeName, const Values& values, std::optional<unsigned> length = std::nullopt)
{
    try {
        encode(typeName, values, length);
    } catch (const Failure& failure) {
        EXPECT_EQ(failure.code, ExitCode::Usage);
        return failure.what();
    }
    return {};
}

struct Row
{
    const char* typeName;
    Values values;
    Bytes bytes;
    const char* shown;
};

void PrintTo(const Row& row, std::ostream* out)
{
    *out << row.typeName << ' ' << row.shown;
}

class TagTypesTable : public testing::TestWithParam<Row>
{
};

} // namespace

TEST_P(TagTypesTable, ValuesBecomeTheseBytes)
{
    EXPECT_EQ(encode(GetParam().typeName, GetParam().values), GetParam().bytes);
}

TEST_P(TagTypesTable, TheseBytesAreShownAsTheText)
{
    EXPECT_EQ(decode(GetParam().typeName, GetParam().bytes), GetParam().shown);
}

INSTANTIATE_TEST_SUITE_P(
    Numbers, TagTypesTable,
    testing::Values(Row{"BOOL", {"true"}, {1}, "true"}, Row{"BOOL", {"0"}, {0}, "false"},
                    Row{"BOOL", {"1", "FALSE", "True"}, {1, 0, 1}, "true false true"},
                    Row{"INT8", {"-128"}, {0x80}, "-128"}, Row{"INT8", {"127"}, {0x7F}, "127"},
                    Row{"INT8", {"-1"}, {0xFF}, "-1"}, Row{"UINT8", {"255"}, {0xFF}, "255"},
                    Row{"UINT8", {"0x80"}, {0x80}, "128"}, Row{"INT16", {"-2"}, {0xFE, 0xFF}, "-2"},
                    Row{"INT16", {"-32768"}, {0x00, 0x80}, "-32768"}, Row{"INT16", {"-0x10"}, {0xF0, 0xFF}, "-16"},
                    Row{"UINT16", {"65535"}, {0xFF, 0xFF}, "65535"}, Row{"UINT16", {"258"}, {0x02, 0x01}, "258"},
                    Row{"INT32", {"-2147483648"}, {0, 0, 0, 0x80}, "-2147483648"},
                    Row{"INT32", {"+16909060"}, {4, 3, 2, 1}, "16909060"},
                    Row{"UINT32", {"4294967295"}, {0xFF, 0xFF, 0xFF, 0xFF}, "4294967295"},
                    Row{"INT32", {"1", "-1"}, {1, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF}, "1 -1"},
                    Row{"BYTES", {"00ff 7F", "10"}, {0x00, 0xFF, 0x7F, 0x10}, "00 ff 7f 10"}));

// 1.0 is 0x3F800000; 0.1 is nearest to 0x3DCCCCCD; 16777216 is the first whole number whose successor is missing;
// the largest number is 0x7F7FFFFF, the smallest one above zero 0x00000001.
INSTANTIATE_TEST_SUITE_P(Reals, TagTypesTable,
                         testing::Values(Row{"REAL", {"1"}, {0x00, 0x00, 0x80, 0x3F}, "1"},
                                         Row{"REAL", {"0.1"}, {0xCD, 0xCC, 0xCC, 0x3D}, "0.1"},
                                         Row{"REAL", {"-2.5"}, {0x00, 0x00, 0x20, 0xC0}, "-2.5"},
                                         Row{"REAL", {"-0"}, {0x00, 0x00, 0x00, 0x80}, "-0"},
                                         Row{"REAL", {"16777216"}, {0x00, 0x00, 0x80, 0x4B}, "16777216"},
                                         Row{"REAL", {"3.4028235e38"}, {0xFF, 0xFF, 0x7F, 0x7F}, "3.4028235e+38"},
                                         Row{"REAL", {"1e-45"}, {0x01, 0x00, 0x00, 0x00}, "1e-45"},
                                         Row{"REAL", {"inf"}, {0x00, 0x00, 0x80, 0x7F}, "inf"},
                                         Row{"REAL", {"-inf"}, {0x00, 0x00, 0x80, 0xFF}, "-inf"},
                                         Row{"REAL", {"nan"}, {0x00, 0x00, 0xC0, 0x7F}, "nan"}));

// U+00E4 is C3 A4, U+20AC is E2 82 AC, U+1F600 is F0 9F 98 80 in UTF-8 and D83D DE00 in UTF-16.
INSTANTIATE_TEST_SUITE_P(Texts, TagTypesTable,
                         testing::Values(Row{"STR8", {""}, {0}, ""},
                                         Row{"STR8", {"a\u00E4"}, {'a', 0xC3, 0xA4, 0}, "a\u00E4"},
                                         Row{"STR16", {"A\u20AC"}, {0x41, 0x00, 0xAC, 0x20, 0, 0}, "A\u20AC"},
                                         Row{"STR16", {"\U0001F600"}, {0x3D, 0xD8, 0x00, 0xDE, 0, 0}, "\U0001F600"},
                                         Row{"STR32",
                                             {"\u00E4\U0001F600"},
                                             {0xE4, 0, 0, 0, 0x00, 0xF6, 0x01, 0x00, 0, 0, 0, 0},
                                             "\u00E4\U0001F600"}));

TEST(TagTypes, NamesAreFoundInAnyCase)
{
    EXPECT_EQ(findTagType("real"), findTagType("REAL"));
    EXPECT_EQ(findTagType("STRUCT"), nullptr);
    EXPECT_EQ(findTagType(""), nullptr);
}

TEST(TagTypes, WholeNumbersOutsideTheRangeAreRefusedWithTheRange)
{
    EXPECT_NE(refusal("INT8", {"128"}).find("-128 to 127"), std::string::npos);
    EXPECT_NE(refusal("INT8", {"-129"}), "");
    EXPECT_NE(refusal("INT8", {"0xFF"}), "");
    EXPECT_NE(refusal("UINT8", {"-1"}).find("0 to 255"), std::string::npos);
    EXPECT_NE(refusal("UINT16", {"65536"}), "");
    EXPECT_NE(refusal("INT32", {"2147483648"}).find("-2147483648 to 2147483647"), std::string::npos);
    EXPECT_NE(refusal("UINT32", {"4294967296"}), "");
    EXPECT_NE(refusal("UINT32", {"18446744073709551615"}), "");
    EXPECT_NE(refusal("UINT32", {"99999999999999999999"}), "");
}

TEST(TagTypes, TextsThatAreNoNumberAreRefused)
{
    for (const char* value : {"", "-", "0x", "1.5", "1e3", "12 ", " 12", "--1", "0xG"})
        EXPECT_NE(refusal("INT32", {value}), "") << value;
    for (const char* value : {"", "1,5", "1.5x", "0x1p3", "++1"})
        EXPECT_NE(refusal("REAL", {value}), "") << value;
    EXPECT_NE(refusal("BOOL", {"2"}), "");
    EXPECT_NE(refusal("BYTES", {"123"}), "");
    EXPECT_NE(refusal("BYTES", {"1g"}), "");
    EXPECT_NE(refusal("BYTES", {"-1"}), "");
}

TEST(TagTypes, RealsBeyondSinglePrecisionAreRefused)
{
    EXPECT_NE(refusal("REAL", {"1e39"}), "");
    EXPECT_NE(refusal("REAL", {"1e-60"}), "");
}

TEST(TagTypes, OneBadElementRefusesTheWholeArray)
{
    EXPECT_NE(refusal("INT16", {"1", "two", "3"}).find("'two'"), std::string::npos);
}

TEST(TagTypes, EveryByteButOneIsFalse)
{
    EXPECT_EQ(decode("BOOL", {2}), "false");
    EXPECT_EQ(decode("BOOL", {255}), "false");
}

TEST(TagTypes, LengthFillsTheSlotWithZeros)
{
    EXPECT_EQ(encode("STR8", {"ab"}, 4), (Bytes{'a', 'b', 0, 0, 0}));
    EXPECT_EQ(encode("STR16", {"a"}, 2), (Bytes{'a', 0, 0, 0, 0, 0}));
    EXPECT_EQ(encode("STR32", {""}, 1), Bytes(8, 0));
}

TEST(TagTypes, LengthCountsUnitsOfTheTypeAndLongerTextsAreRefused)
{
    const std::string emoji = "\U0001F600"; // 4 bytes, 2 UTF-16 units, 1 code point
    EXPECT_EQ(encode("STR8", {emoji}, 4).size(), 5U);
    EXPECT_NE(refusal("STR8", {emoji}, 3).find("takes 4 characters"), std::string::npos);
    EXPECT_EQ(encode("STR16", {emoji}, 2).size(), 6U);
    EXPECT_NE(refusal("STR16", {emoji}, 1).find("the tag holds 1"), std::string::npos);
    EXPECT_EQ(encode("STR32", {emoji}, 1).size(), 8U);
    EXPECT_NE(refusal("STR32", {emoji}, 0), "");
}

TEST(TagTypes, TextsThatAreNoUtf8AreRefused)
{
    for (const char* name : {"STR8", "STR16", "STR32"}) {
        EXPECT_NE(refusal(name, {"a\xFF"}).find("no valid UTF-8"), std::string::npos) << name;
        EXPECT_NE(refusal(name, {"\xED\xA0\x80"}), "") << name; // a surrogate
        EXPECT_NE(refusal(name, {"\xC0\x80"}), "") << name;     // zero in two bytes
    }
}

TEST(TagTypes, ATextIsOneValue)
{
    EXPECT_NE(refusal("STR8", {"pump", "running"}), "");
}

TEST(TagTypes, LengthIsForTextsOnly)
{
    EXPECT_NE(refusal("INT8", {"1"}, 4), "");
}

TEST(TagTypes, MoreThanOneWriteTakesIsRefused)
{
    EXPECT_EQ(encode("STR8", {"a"}, 65534).size(), 65535U);
    EXPECT_NE(refusal("STR8", {"a"}, 65535), "");
    EXPECT_NE(refusal("STR32", {"a"}, 4'294'967'295U), "");
    EXPECT_EQ(encode("UINT8", Values(65535, "1")).size(), 65535U);
    EXPECT_NE(refusal("UINT8", Values(65536, "1")), "");
}

TEST(TagTypes, ATextEndsAtItsTerminatorOrAtTheSlotsEnd)
{
    EXPECT_EQ(decode("STR8", {'a', 0, 'b'}), "a");
    EXPECT_EQ(decode("STR8", {'a', 'b'}), "ab");
    EXPECT_EQ(decode("STR16", {'a', 0, 0, 0, 'b', 0}), "a");
    EXPECT_EQ(decode("STR16", {0x00, 0x01, 0, 0}), "\u0100");
}

TEST(TagTypes, WhatIsNoCharacterIsShownAsTheReplacement)
{
    EXPECT_EQ(decode("STR8", {'a', 0xFF, 'b', 0}), "a\uFFFDb");
    EXPECT_EQ(decode("STR16", {0x3D, 0xD8, 'x', 0, 0, 0}), "\uFFFDx");
    EXPECT_EQ(decode("STR32", {0x00, 0x00, 0x11, 0x00, 'x', 0, 0, 0}), "\uFFFDx");
}

TEST(TagTypes, ControlCharactersOfATextAreSpelledOut)
{
    EXPECT_EQ(decode("STR8", {'a', '\n', 0x1B, '[', '\\', 0}), "a\\n\\x1b[\\\\");
}

TEST(TagTypes, JsonKeepsTheKindOfTheValue)
{
    const auto json = [](const char* name, const Bytes& bytes, bool array) {
        return jsonFromBytes(type(name), bytes, array).dump();
    };
    EXPECT_EQ(json("BOOL", {1}, false), "true");
    EXPECT_EQ(json("INT8", {0xFF}, false), "-1");
    EXPECT_EQ(json("UINT32", {0xFF, 0xFF, 0xFF, 0xFF}, false), "4294967295");
    EXPECT_EQ(json("REAL", {0xCD, 0xCC, 0xCC, 0x3D}, false), "0.1");
    EXPECT_EQ(json("REAL", {0x00, 0x00, 0x80, 0xFF}, false), "\"-inf\"");
    EXPECT_EQ(json("INT16", {1, 0, 2, 0}, true), "[1,2]");
    EXPECT_EQ(json("INT16", {1, 0}, true), "[1]");
    EXPECT_EQ(json("STR8", {'a', '\n', '\\', 0}, false), "\"a\\n\\\\\"");
    EXPECT_EQ(json("BYTES", {0x01, 0xFF}, false), "\"01ff\"");
}
