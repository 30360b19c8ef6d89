#include "Utils/jsontext.h"

#include <gtest/gtest.h>
#include <QJsonDocument>
#include <QStringList>
#include <random>

#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/lsan_interface.h>
#endif

namespace {

// The parser never frees what is replaced; here that is no finding.
QJsonDocument parseAsItIs(const QByteArray& json)
{
#ifdef __SANITIZE_ADDRESS__
    const __lsan::ScopedDisabler ignored;
#endif
    return QJsonDocument::fromJson(json);
}

struct RepeatCase
{
    const char* json;
    const char* expected;
};

class Repeats : public testing::TestWithParam<RepeatCase>
{
};

TEST_P(Repeats, loseTheContainersThatAreReplaced)
{
    EXPECT_EQ(JsonText::withoutReplacedContainers(GetParam().json).toStdString(), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Documents, Repeats,
    testing::Values(RepeatCase{R"({"a":[1],"a":2})", R"({        "a":2})"},
                    RepeatCase{R"({"a":{"b":1} , "a":[2]})", R"({              "a":[2]})"},
                    RepeatCase{R"({"a":[1],"\u0061":2})", R"({        "\u0061":2})"},
                    RepeatCase{R"({"a":[1],"a":[2],"a":[3]})", R"({                "a":[3]})"},
                    RepeatCase{R"([{"a":[1],"a":2}])", R"([{        "a":2}])"},
                    RepeatCase{R"({"o":{"a":[1],"a":2},"a":[3]})", R"({"o":{        "a":2},"a":[3]})"},
                    RepeatCase{R"({"a":["}",",\"a\":"],"a":2})", R"({                    "a":2})"}));

INSTANTIATE_TEST_SUITE_P(
    LeftAlone, Repeats,
    testing::Values(RepeatCase{"", ""}, RepeatCase{"12", "12"}, RepeatCase{"[1,2]", "[1,2]"},
                    RepeatCase{R"({"a":1,"a":2})", R"({"a":1,"a":2})"},
                    RepeatCase{R"({"a":1,"a":[2]})", R"({"a":1,"a":[2]})"},
                    RepeatCase{R"({"a":[1],"b":{"a":[2]}})", R"({"a":[1],"b":{"a":[2]}})"},
                    RepeatCase{R"([["a",[1],"a",2],{}])", R"([["a",[1],"a",2],{}])"},
                    RepeatCase{R"({"a":[1],"c":"a","b":"a"})", R"({"a":[1],"c":"a","b":"a"})"},
                    RepeatCase{R"({"a":[1 x],"a":2})", R"({"a":[1 x],"a":2})"}, // no JSON, and stays so
                    RepeatCase{R"(]]}}{"a":[1],"a":2})", R"(]]}}{"a":[1],"a":2})"},
                    RepeatCase{R"({"a":[1],"a)", R"({"a":[1],"a)"}, RepeatCase{"{[\"\\", "{[\"\\"}));

// The parser takes different halves of surrogate pairs for one key at times, and for two at others.
TEST(KeysThatAreNoText, makeTheDocumentEmpty)
{
    EXPECT_TRUE(JsonText::withoutReplacedContainers(R"({"\ud83d\ude00":[1],"\ud95d":[1],"\ud83d":2})").isEmpty());
    EXPECT_FALSE(JsonText::withoutReplacedContainers(R"({"\ud83d\ude00":[1],"a":2})").isEmpty());
}

TEST(RepeatsInDepth, endSoon)
{
    QByteArray deep = "1";
    for (int level = 0; level < 1000; ++level)
        deep = "{\"a\":" + deep + ",\"a\":1}";
    EXPECT_TRUE(JsonText::withoutReplacedContainers(deep).isEmpty());
    const QByteArray open(1'000'000, '[');
    EXPECT_EQ(JsonText::withoutReplacedContainers('{' + open), '{' + open);
}

// Documents of random pieces mean the same without them, and what is no JSON doesn't become JSON.
TEST(RandomRepeats, meanTheSame)
{
    const QStringList pieces{"{",           "}", "[",      "]",          ",",         ":",        "\"a\"", "\"b\"",
                             "\"\\u0061\"", "1", "\"a\":", "\"a\":[1],", "\"a\":{},", "{\"a\":1", "}",     "]"};
    std::mt19937 random(5);
    int valid = 0;
    for (int i = 0; i < 300'000; ++i) {
        QByteArray json = "{";
        for (auto length = random() % 9; length > 0; --length)
            json += pieces.at(static_cast<int>(random() % static_cast<unsigned>(pieces.size()))).toUtf8();
        json += '}';
        const QJsonDocument expected = parseAsItIs(json);
        ASSERT_EQ(QJsonDocument::fromJson(JsonText::withoutReplacedContainers(json)), expected) << json.toStdString();
        valid += expected.isNull() ? 0 : 1;
    }
    EXPECT_GT(valid, 1'000);
}

} // namespace
