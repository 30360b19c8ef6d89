#include "convert/surprises.h"

#include <gtest/gtest.h>

namespace plcctl {

namespace {

using Bytes = std::vector<std::uint8_t>;

struct SurpriseCase
{
    const char* form;
    bool isMember;
    const char* payload;
    Bytes bytes;
    const char* reason; // a part of the one note; null where nothing surprises
};

class SurprisesTable : public testing::TestWithParam<SurpriseCase>
{
};

std::vector<std::string> notesOf(const SurpriseCase& c)
{
    Json wanted = Json::parse(c.payload, nullptr, false);
    return surprisesOf({"member", 0, parseTagForm(c.form)}, c.isMember, c.payload,
                       wanted.is_discarded() ? std::nullopt : std::optional(wanted), c.bytes);
}

TEST_P(SurprisesTable, EachDifferenceHasItsReason)
{
    const SurpriseCase& c = GetParam();
    const std::vector<std::string> notes = notesOf(c);
    ASSERT_EQ(notes.size(), c.reason ? 1U : 0U) << (notes.empty() ? "" : notes.front());
    if (c.reason) {
        EXPECT_NE(notes.front().find(c.reason), std::string::npos) << notes.front();
    }
}

INSTANTIATE_TEST_SUITE_P(Values, SurprisesTable,
                         testing::Values(SurpriseCase{"INT8", false, "44", {44}, nullptr},
                                         SurpriseCase{"INT8", false, "300", {44}, "cut to the type's width"},
                                         SurpriseCase{"UINT8", true, "2.5", {3}, "rounded"},
                                         SurpriseCase{"INT8", true, "2.5", {0}, "not written as a whole number"},
                                         SurpriseCase{"REAL", false, "0.1", {0xcd, 0xcc, 0xcc, 0x3d}, nullptr},
                                         SurpriseCase{"REAL", false, "16777217", {0, 0, 0x80, 0x4b}, nullptr},
                                         SurpriseCase{"BOOL", true, "\"true\"", {0}, "exactly these letters"},
                                         SurpriseCase{"INT8[2]", true, "[1,null]", {1, 0}, "null takes no element"},
                                         SurpriseCase{"INT8[2]", true, "5", {0, 0}, "no list"},
                                         SurpriseCase{"STR8:2", true, "\"abc\"", {'a', 'b', 'c'}, "runs on"},
                                         SurpriseCase{"STR8:2", true, "5", {0, 0, 0}, "no text"}));

TEST(Surprises, AMissingKeyIsTold)
{
    const auto notes = surprisesOf({"sugar", 0, parseTagForm("REAL")}, true, "{}", std::nullopt, Bytes(4));
    ASSERT_EQ(notes.size(), 1U);
    EXPECT_NE(notes.front().find("no key 'sugar'"), std::string::npos);
}

} // namespace

} // namespace plcctl
