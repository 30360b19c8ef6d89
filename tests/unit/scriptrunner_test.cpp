#include "unittest.h"
#include "Utils/scriptrunner.h"

#include <QElapsedTimer>

namespace {

using namespace std::chrono_literals;

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

TEST(ScriptRunner, givesUpOnAProgramThatHangs)
{
    QElapsedTimer timer;
    timer.start();
    EXPECT_FALSE(ScriptRunner::run("/bin/sh", {"-c", "trap '' TERM; while :; do sleep 0.05; done"}, 200ms));
    EXPECT_LT(timer.elapsed(), 5000);
}

} // namespace
