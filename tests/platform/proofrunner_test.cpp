#include "proofrunner.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

namespace {

class ProofRunnerTest : public testing::Test
{
protected:
    ProofRunnerTest() { std::filesystem::remove_all(m_directory); }

    ~ProofRunnerTest() override { std::filesystem::remove_all(m_directory); }

    [[nodiscard]] std::string results() const
    {
        std::ostringstream text;
        text << std::ifstream(m_file).rdbuf();
        return text.str();
    }

    const std::filesystem::path m_directory = testing::TempDir() + "proofrunner";
    const std::string m_file = m_directory / "Results" / "Service.txt";
    ProofRunner m_runner;
};

TEST_F(ProofRunnerTest, WritesOneLineAResultAndTheTotals)
{
    m_runner.InitAutoTest("Service", m_file.c_str());
    m_runner.ReportOnTest("look-up of broker 999", "", true);
    m_runner.ReportOnTest("size of AT_REAL", "expected 4, got 8", false);
    testing::internal::CaptureStdout();
    m_runner.PrintSummary();

    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Service: 2 tests, 1 passed, 1 failed\n");
    EXPECT_EQ(results(), "Self-test Service\n"
                         "PASS  look-up of broker 999\n"
                         "FAIL  size of AT_REAL  expected 4, got 8\n"
                         "Service: 2 tests, 1 passed, 1 failed\n");
}

TEST_F(ProofRunnerTest, KeepsEachResultAtOnce)
{
    m_runner.InitAutoTest("Service", m_file.c_str());
    m_runner.ReportOnTest("first", "", true);
    EXPECT_EQ(results(), "Self-test Service\nPASS  first\n");
}

TEST_F(ProofRunnerTest, ANewRunStartsFromNothing)
{
    m_runner.InitAutoTest("Service", m_file.c_str());
    m_runner.ReportOnTest("old", "", false);
    m_runner.InitAutoTest("Service", m_file.c_str());
    testing::internal::CaptureStdout();
    m_runner.PrintSummary();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Service: 0 tests, 0 passed, 0 failed\n");
    EXPECT_EQ(results(), "Self-test Service\nService: 0 tests, 0 passed, 0 failed\n");
}

TEST_F(ProofRunnerTest, AFileThatCannotBeWrittenCostsOneLineOfWarning)
{
    testing::internal::CaptureStderr();
    testing::internal::CaptureStdout();
    m_runner.InitAutoTest("Service", "/proc/nowhere/Service.txt");
    m_runner.ReportOnTest("first", nullptr, true);
    m_runner.PrintSummary();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Service: 1 tests, 1 passed, 0 failed\n");
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "ProofRunner: can't write \"/proc/nowhere/Service.txt\"; the results of this run are not kept\n");
}

} // namespace
