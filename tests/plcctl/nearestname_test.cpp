#include "nearestname.h"

#include <gtest/gtest.h>
#include <vector>

using namespace plcctl;

TEST(NearestName, TheNameWithTheFewestMistakesIsFound)
{
    const std::vector<std::string> names{"Port", "Topic", "Username", "AutoConnect"};
    const struct
    {
        const char* text;
        const char* name;
    } rows[] = {{"Prt", "Port"},
                {"ports", "Port"},
                {"tropic", "Topic"},
                {"user-name", "Username"},
                {"auto-connect", "AutoConnect"},
                {"PORT", "Port"},
                {"", ""},
                {"x", ""},
                {"KeepAlive", ""}};
    for (const auto& row : rows)
        EXPECT_EQ(nearestName(names, row.text), row.name) << row.text;
}

TEST(NearestName, WithoutNamesNoneIsNear)
{
    EXPECT_EQ(nearestName({}, "Port"), "");
}
