#include "unittest.h"
#include "Utils/scriptrunner.h"

#include <QElapsedTimer>
#include <sys/resource.h>

namespace {

using namespace std::chrono_literals;

// Of this process, in kB.
long peakMemory()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

TEST(ScriptRunner, returnsStandardOutput)
{
    EXPECT_EQ(ScriptRunner::run("/bin/sh", {"-c", "echo out; echo err >&2; exit 3"}, 10s), QByteArray("out\n"));
}

TEST(ScriptRunner, splitsACommandLineWithoutAShell)
{
    EXPECT_EQ(ScriptRunner::runCommandLine("/bin/echo a \"b c\" $HOME ;", 10s), QByteArray("a b c $HOME ;\n"));
}

TEST(ScriptRunner, hasNoAnswerFromAProgramThatIsNotThere)
{
    EXPECT_FALSE(ScriptRunner::run("/nonexistent/program", {}, 10s));
    EXPECT_FALSE(ScriptRunner::runCommandLine("", 10s));
}

TEST(ScriptRunner, takesLargeOutputWhole)
{
    const auto output = ScriptRunner::run("/bin/sh", {"-c", "head -c 8000000 /dev/zero"}, 30s);
    ASSERT_TRUE(output);
    EXPECT_EQ(output->size(), 8'000'000);
}

TEST(ScriptRunner, dropsWhatComesBehind16MiB)
{
    const auto output = ScriptRunner::run("/bin/sh", {"-c", "head -c 20000000 /dev/zero"}, 30s);
    ASSERT_TRUE(output);
    EXPECT_EQ(output->size(), 16 << 20);
}

TEST(ScriptRunner, anEndlessAnswerOfBothKindsTakesNoMemory)
{
    const auto before = peakMemory();
    EXPECT_FALSE(ScriptRunner::run("/bin/sh", {"-c", "exec yes"}, 3s));
    EXPECT_FALSE(ScriptRunner::run("/bin/sh", {"-c", "exec yes >&2"}, 1s));
    // In kB. Unbounded it would be gigabytes; a sanitizer keeps some hundred megabytes of freed memory.
    EXPECT_LT(peakMemory() - before, 1'000'000);
}

TEST(ScriptRunner, waitsForAProgramThatSaysNothingMore)
{
    EXPECT_EQ(ScriptRunner::run("/bin/sh", {"-c", "echo a; exec >&-; sleep 0.3; exit"}, 10s), QByteArray("a\n"));
}

TEST(ScriptRunner, givesUpOnAProgramThatHangs)
{
    QElapsedTimer timer;
    timer.start();
    EXPECT_FALSE(ScriptRunner::run("/bin/sh", {"-c", "trap '' TERM; while :; do sleep 0.05; done"}, 200ms));
    EXPECT_LT(timer.elapsed(), 5000);
}

TEST(ScriptRunner, endsAProgramThatIsGivenUp)
{
    static QElapsedTimer timer;
    timer.start();
    EXPECT_FALSE(ScriptRunner::run("/bin/sh", {"-c", "exec sleep 300"}, 300s, [] { return timer.hasExpired(200); }));
    EXPECT_GE(timer.elapsed(), 200);
    EXPECT_FALSE(ScriptRunner::runCommandLine("/bin/sleep 300", 300s, [] { return true; }));
    EXPECT_LT(timer.elapsed(), 60'000);
}

} // namespace
