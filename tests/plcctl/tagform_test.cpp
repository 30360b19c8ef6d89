#include "convert/tagform.h"

#include "failure.h"

#include <gtest/gtest.h>

namespace plcctl {

namespace {

struct FormCase
{
    const char* form;
    int type;
    int length;
    int entries;
};

TEST(TagForm, ATypeStandsWithItsElementsOrItsLength)
{
    const FormCase cases[] = {{"REAL", AT_REAL, NO_DATA_LEN, 0},      {"real", AT_REAL, NO_DATA_LEN, 0},
                              {"BOOL", AT_BOOL, NO_DATA_LEN, 0},      {"INT32[4]", AT_INT32, NO_DATA_LEN, 4},
                              {"UINT8[1]", AT_UINT8, NO_DATA_LEN, 1}, {"STR8:5", AT_STR8, 5, 0},
                              {"STR16:20", AT_STR16, 20, 0},          {"str32:65535", AT_STR32, 65535, 0}};
    for (const FormCase& c : cases) {
        const ValueLayout layout = parseTagForm(c.form);
        EXPECT_EQ(layout.type, c.type) << c.form;
        EXPECT_EQ(layout.length, c.length) << c.form;
        EXPECT_EQ(layout.entries, c.entries) << c.form;
    }
}

TEST(TagForm, WhatIsNoTypeIsRefused)
{
    for (const char* form : {"", "INT64", "STRUCT", "INT32[]", "INT32[0]", "INT32[-1]", "INT32[4", "INT32[4]x",
                             "INT32:4", "STR16", "STR16:", "STR16:0", "STR16[4]", "STR16:65536", "STR16:5x"})
        EXPECT_THROW(parseTagForm(form), Failure) << form;
}

TEST(TagForm, AMistypedNameGetsTheNearest)
{
    try {
        parseTagForm("RAEL");
        FAIL() << "taken";
    } catch (const Failure& failure) {
        EXPECT_NE(std::string(failure.what()).find("did you mean REAL?"), std::string::npos) << failure.what();
    }
}

TEST(TagForm, ALayoutIsNamedAsItIsTyped)
{
    for (const char* form : {"REAL", "INT32[4]", "STR16:20"})
        EXPECT_EQ(nameOf(parseTagForm(form)), form);
    EXPECT_EQ(nameOf({99, 0, 0}), "type 99");
}

} // namespace

} // namespace plcctl
