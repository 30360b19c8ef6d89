#include "live/logtail.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <vector>

using namespace plcctl::live;

namespace {

constexpr char Heading[] = "\xEF\xBB\xBFsep=;\nDate;Time;Severity;TID;Process;Function;File;Line;Message\n";

// A row as the service writes it; quotes in the message have to be doubled.
std::string row(const std::string& message, const std::string& severity = "INFO")
{
    return "2024/05/06;07:08:09.012;" + severity + ";17;MQTTClientManager;run;main.cpp;42;\"" + message + "\"\n";
}

std::vector<std::string> messages(const std::vector<LogRow>& rows)
{
    std::vector<std::string> result;
    for (const LogRow& each : rows)
        result.push_back(each.message);
    return result;
}

using Texts = std::vector<std::string>;

class LiveLogTail : public ::testing::Test
{
protected:
    void SetUp() override
    {
        std::string name = (std::filesystem::temp_directory_path() / "livelog-XXXXXX").string();
        ASSERT_NE(mkdtemp(name.data()), nullptr);
        m_directory = name;
        m_file = m_directory / "log.csv";
    }

    void TearDown() override { std::filesystem::remove_all(m_directory); }

    void write(const std::string& text) const { std::ofstream(m_file, std::ios::app | std::ios::binary) << text; }

    // As the service does it when the file is full.
    void roll() const
    {
        std::filesystem::rename(m_file, m_directory / "log.1.csv");
        write(Heading);
    }

    std::filesystem::path m_directory;
    std::filesystem::path m_file;
};

} // namespace

TEST(LiveLogRows, ARowIsTakenApart)
{
    const auto parsed =
        parseLogRow("2024/05/06;07:08:09.012;WARN;17;MQTTClientManager;run;main.cpp;42;\"a;\"\"b\"\"\"");
    ASSERT_TRUE(parsed);
    EXPECT_EQ(parsed->date, "2024/05/06");
    EXPECT_EQ(parsed->time, "07:08:09.012");
    EXPECT_EQ(parsed->severity, Severity::Warn);
    EXPECT_EQ(parsed->function, "run");
    EXPECT_EQ(parsed->place, "main.cpp:42");
    EXPECT_EQ(parsed->message, "a;\"b\"");
}

TEST(LiveLogRows, WhatIsNoRowIsLeftOut)
{
    for (const char* const text : {"", "sep=;", "Date;Time;Severity;TID;Process;Function;File;Line;Message",
                                   "2024/05/06;07:08:09.012;LOUD;17;p;f;m;1;\"x\"", "2024/05/06;07:08:09.012;WARN;17"})
        EXPECT_FALSE(parseLogRow(text)) << text;
}

TEST(LiveLogRows, AMessageWithLineFeedsIsOneRowEvenIfItLooksLikeTwo)
{
    LogRows rows;
    const std::string message = "first\n2024/05/06;07:08:09.012;FATAL;1;p;f;m;1;\"\"not a row\"\"";
    const std::vector<LogRow> taken = rows.take(row(message));
    ASSERT_EQ(taken.size(), 1U);
    EXPECT_EQ(taken[0].severity, Severity::Info);
}

TEST(LiveLogRows, ARowThatComesInPiecesIsWhole)
{
    LogRows rows;
    const std::string text = row("in pieces");
    Texts taken;
    for (const char c : text) {
        for (const LogRow& each : rows.take({&c, 1}))
            taken.push_back(each.message);
    }
    EXPECT_EQ(taken, Texts{"in pieces"});
}

TEST(LiveLogRows, FromTheMiddleTheFirstWholeRowIsTheFirst)
{
    LogRows rows;
    rows.beginInTheMiddle();
    EXPECT_EQ(messages(rows.take("half a message \"\n" + row("whole"))), Texts{"whole"});
}

TEST(LiveLogRows, TextThatIsNoLogTakesNoMemoryAndIsPassedOver)
{
    LogRows rows;
    for (int i = 0; i < 64; ++i)
        EXPECT_TRUE(rows.take("\"" + std::string(64 * 1024, 'x')).empty());
    EXPECT_EQ(messages(rows.take("\n" + row("found again"))), Texts{"found again"});
}

TEST_F(LiveLogTail, AFileThatIsNotThereYetIsWaitedFor)
{
    LogTail tail(m_file);
    EXPECT_TRUE(tail.look().empty());
    EXPECT_FALSE(tail.problem().empty());
    write(Heading + row("one"));
    EXPECT_EQ(messages(tail.look()), Texts{"one"});
    EXPECT_TRUE(tail.problem().empty());
}

TEST_F(LiveLogTail, OnlyNewRowsComeWithTheNextLook)
{
    write(Heading + row("one"));
    LogTail tail(m_file);
    EXPECT_EQ(messages(tail.look()), Texts{"one"});
    EXPECT_TRUE(tail.look().empty());
    write(row("two") + row("three"));
    EXPECT_EQ(messages(tail.look()), (Texts{"two", "three"}));
}

TEST_F(LiveLogTail, NoRowIsLostWhenTheFileIsRolled)
{
    write(Heading + row("one"));
    LogTail tail(m_file);
    EXPECT_EQ(messages(tail.look()), Texts{"one"});
    write(row("two"));
    roll();
    write(row("three"));
    EXPECT_EQ(messages(tail.look()), (Texts{"two", "three"}));
}

TEST_F(LiveLogTail, AFileThatIsEmptiedIsReadFromItsBegin)
{
    write(Heading + row("one") + row("two"));
    LogTail tail(m_file);
    EXPECT_EQ(tail.look().size(), 2U);
    std::filesystem::resize_file(m_file, 0);
    write(row("anew"));
    EXPECT_EQ(messages(tail.look()), Texts{"anew"});
}

TEST_F(LiveLogTail, OfALongFileTheLastRowsComeFirst)
{
    std::string text = Heading;
    for (int i = 0; i < 10000; ++i)
        text += row("row " + std::to_string(i));
    write(text);
    LogTail tail(m_file);
    const std::vector<LogRow> rows = tail.look();
    ASSERT_FALSE(rows.empty());
    EXPECT_LT(rows.size(), 5000U);
    EXPECT_EQ(rows.back().message, "row 9999");
    EXPECT_EQ(tail.skipped(), 0U);
}

TEST_F(LiveLogTail, AFloodIsCutAndCounted)
{
    write(Heading + row("one"));
    LogTail tail(m_file);
    EXPECT_EQ(tail.look().size(), 1U);
    std::string text;
    for (int i = 0; i < 30000; ++i)
        text += row("row " + std::to_string(i));
    write(text);
    const std::vector<LogRow> rows = tail.look();
    ASSERT_FALSE(rows.empty());
    EXPECT_EQ(rows.back().message, "row 29999");
    EXPECT_GT(tail.skipped(), 1000000U);
}

TEST_F(LiveLogTail, APipeInItsPlaceIsNotOpened)
{
    ASSERT_EQ(mkfifo(m_file.c_str(), 0600), 0);
    LogTail tail(m_file);
    EXPECT_TRUE(tail.look().empty()); // does not wait for a writer
    EXPECT_EQ(tail.problem(), "this is no regular file");
}
