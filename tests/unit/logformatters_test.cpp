#include "logformatters.h"
#include "unittest.h"

#include <plog/Log.h>

namespace {

// What plog makes of a line at this severity, formed by one of the layouts.
template<typename Formatter>
std::string formatted(plog::Severity severity, const std::string& message)
{
    plog::Record record(severity, "void Class::member(int)", 42, "/a/b/source.cpp", nullptr, 0);
    record << message;
    return Formatter::format(record);
}

constexpr char CsvHead[] = "[0-9]{4}/[0-9]{2}/[0-9]{2};[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3};";

std::string messageField(const std::string& message)
{
    CsvLogFormatter::setProcessName("Process");
    const std::string row = formatted<CsvLogFormatter>(plog::info, message);
    return row.substr(row.find(";42;") + 4);
}

TEST(CsvLayout, beginsWithTwoHeaderLines)
{
    EXPECT_EQ(CsvLogFormatter::header(), "sep=;\nDate;Time;Severity;TID;Process;Function;File;Line;Message\n");
}

TEST(CsvLayout, hasNineFields)
{
    CsvLogFormatter::setProcessName("Process");
    EXPECT_THAT(
        formatted<CsvLogFormatter>(plog::warning, "text"),
        testing::MatchesRegex(std::string(CsvHead) + "WARN;[0-9]+;Process;Class::member;source\\.cpp;42;\"text\"\n"));
}

TEST(CsvLayout, namesTheSeverities)
{
    const std::pair<plog::Severity, const char*> words[] = {
        {plog::none, "NONE"}, {plog::fatal, "FATAL"}, {plog::error, "ERROR"}, {plog::warning, "WARN"},
        {plog::info, "INFO"}, {plog::debug, "DEBUG"}, {plog::verbose, "VERB"}};
    for (const auto& [severity, word] : words)
        EXPECT_THAT(formatted<CsvLogFormatter>(severity, ""), testing::HasSubstr(std::string(";") + word + ";"));
}

TEST(CsvLayout, doublesQuotes)
{
    EXPECT_EQ(messageField("say \"hi\" now"), "\"say \"\"hi\"\" now\"\n");
    EXPECT_EQ(messageField("\""), "\"\"\"\"\n");
    EXPECT_EQ(messageField("end\""), "\"end\"\"\"\n");
    EXPECT_EQ(messageField(""), "\"\"\n");
}

TEST(CsvLayout, keepsSeparatorsAndNewlinesInsideTheQuotes)
{
    EXPECT_EQ(messageField("a;b\nc"), "\"a;b\nc\"\n");
}

TEST(CsvLayout, cutsMessagesAt32000Characters)
{
    EXPECT_EQ(messageField(std::string(32'000, 'x')), "\"" + std::string(32'000, 'x') + "\"\n");
    EXPECT_EQ(messageField(std::string(32'001, 'x')), "\"" + std::string(32'000, 'x') + "...\"\n");
}

TEST(CsvLayout, countsCharactersAndNotBytes)
{
    const auto repeated = [](int times) {
        std::string text;
        for (int i = 0; i < times; ++i)
            text += "ä";
        return text;
    };
    EXPECT_EQ(messageField(repeated(32'000)), "\"" + repeated(32'000) + "\"\n");
    EXPECT_EQ(messageField(repeated(32'001)), "\"" + repeated(32'000) + "...\"\n");
}

TEST(ConsoleLayout, hasNoHeader)
{
    EXPECT_EQ(ConsoleLogFormatter::header(), "");
}

TEST(ConsoleLayout, showsTheFieldsInOneLine)
{
    EXPECT_THAT(
        formatted<ConsoleLogFormatter>(plog::info, "say \"hi\""),
        testing::MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3} INFO  \\[[0-9]+\\] "
                              "\\[Class::member@42\\] say \"hi\"\n"));
}

} // namespace
