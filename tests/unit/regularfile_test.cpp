#include "unittest.h"
#include "Utils/regularfile.h"

#include <QDir>
#include <QFile>
#include <sys/stat.h>
#include <unistd.h>

namespace {

TEST(RegularFile, isReadUpToTheLimit)
{
    const TestFile file(QByteArray("ab\0cd", 5));
    EXPECT_EQ(readRegularFile(file.path(), 6), QByteArray("ab\0cd", 5));
    EXPECT_EQ(readRegularFile(file.path(), 5), QByteArray("ab\0cd", 5));
    EXPECT_EQ(readRegularFile(file.path(), 4), QByteArray("ab\0c", 4));
}

TEST(RegularFile, mayBeEmpty)
{
    const TestFile file("");
    EXPECT_EQ(readRegularFile(file.path(), 10), QByteArray());
}

TEST(RegularFile, mayBeReachedByALink)
{
    const TestFile file("content");
    const QTemporaryDir directory;
    ASSERT_TRUE(QFile::link(file.path(), directory.filePath("link")));
    EXPECT_EQ(readRegularFile(directory.filePath("link"), 10), QByteArray("content"));
}

TEST(RegularFile, nothingElseIsRead)
{
    const QTemporaryDir directory;
    const QString pipe = directory.filePath("pipe");
    ASSERT_EQ(mkfifo(pipe.toLocal8Bit().constData(), 0600), 0);
    for (const QString& path : {QString(), directory.path(), directory.filePath("absent"), pipe, QString("/dev/zero")})
        EXPECT_FALSE(readRegularFile(path, 10)) << path.toStdString();
}

TEST(RegularFile, mayTellNoSize)
{
    EXPECT_EQ(readRegularFile("/proc/self/comm", 3).value_or("").size(), 3);
    EXPECT_TRUE(readRegularFile("/proc/self/comm", 1000).value_or("").endsWith('\n'));
}

} // namespace
