#include "explain/codeexplanations.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <set>

namespace plcctl {

namespace {

std::set<std::string> placesOf(const std::vector<CodeExplanation>& found)
{
    std::set<std::string> places;
    for (const CodeExplanation& explanation : found)
        places.emplace(explanation.place->key);
    return places;
}

struct NumberCase
{
    const char* text;
    std::optional<int> code;
};

TEST(CodeExplanations, NumbersAreTakenAsRecordsAndTheLogShowThem)
{
    const NumberCase cases[] = {
        {"-11", -11},         {"245", 245},         {"0xF5", 0xF5},         {"0Xf5", 0xF5},       {"0", 0},
        {"", std::nullopt},   {"0x", std::nullopt}, {"0x-1", std::nullopt}, {"5x", std::nullopt}, {"x", std::nullopt},
        {"1.5", std::nullopt}};
    for (const NumberCase& c : cases)
        EXPECT_EQ(parseCode(c.text), c.code) << c.text;
}

TEST(CodeExplanations, AByteFindsItsSignedValueInEveryPlace)
{
    const std::set<std::string> places{"request", "broker", "subscription", "publication"};
    EXPECT_EQ(placesOf(explanationsOf(245)), placesOf(explanationsOf(-11)));
    for (const std::string& place : places)
        EXPECT_TRUE(placesOf(explanationsOf(245)).contains(place)) << place;
}

TEST(CodeExplanations, ANumberAbove127ThatIsNoNegativeCodeStaysItself)
{
    const auto found = explanationsOf(102);
    ASSERT_EQ(found.size(), 1U);
    EXPECT_EQ(found.front().name, "SC_AC_ERROR_INVALID_ID");
    EXPECT_EQ(found.front().place->key, "exit");
}

TEST(CodeExplanations, NamesAreFoundInAnyCase)
{
    const auto found = explanationsOf(std::string_view("cb_connection_lost"));
    ASSERT_EQ(found.size(), 1U);
    EXPECT_EQ(found.front().code, -13);
    EXPECT_TRUE(explanationsOf(std::string_view("CB_NONSENSE")).empty());
    EXPECT_TRUE(explanationsOf(std::string_view("")).empty()) << "codes without a name aren't found by none";
}

TEST(CodeExplanations, EveryFailureSaysWhatToDo)
{
    for (const CodeExplanation& explanation : allExplanations()) {
        const bool isState = explanation.place->key == std::string_view("process");
        const bool isGood = isState ? explanation.name == "PS_RUNNING" : explanation.code == 0;
        EXPECT_EQ(explanation.advice.empty(), isGood)
            << explanation.place->key << ' ' << explanation.code << ' ' << explanation.meaning;
    }
}

TEST(CodeExplanations, NoCodeStandsTwiceAtOnePlace)
{
    std::set<std::pair<std::string_view, int>> seen;
    for (const CodeExplanation& explanation : allExplanations())
        EXPECT_TRUE(seen.emplace(explanation.place->key, explanation.code).second)
            << explanation.place->key << ' ' << explanation.code;
}

} // namespace

} // namespace plcctl
