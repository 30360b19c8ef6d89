#include "fileconditions.h"
#include "unittest.h"
#include "Utils/filecontent.h"

#include <QDir>
#include <QFile>
#include <sys/stat.h>

namespace {

using FileContent::replaceContent;

TEST(FileContent, replacesWhatIsLongerOrShorter)
{
    const TestFile file("in the middle");
    for (const QByteArray& content : {QByteArray("short"), QByteArray(10'000, 'l'), QByteArray()}) {
        EXPECT_TRUE(replaceContent(file.path(), content));
        EXPECT_EQ(contentOf(file.path()), content);
    }
}

TEST(FileContent, theFileItselfStays)
{
    const TestFile file("old");
    const QByteArray name = file.path().toLocal8Bit();
    const QByteArray secondName = name + "-2";
    ASSERT_EQ(chmod(name.constData(), 0640), 0);
    ASSERT_EQ(link(name.constData(), secondName.constData()), 0);
    struct stat before = {};
    ASSERT_EQ(stat(name.constData(), &before), 0);

    EXPECT_TRUE(replaceContent(file.path(), "new and longer"));
    struct stat after = {};
    ASSERT_EQ(stat(name.constData(), &after), 0);
    EXPECT_EQ(after.st_ino, before.st_ino);
    EXPECT_EQ(after.st_mode, before.st_mode);
    EXPECT_EQ(contentOf(QString::fromLocal8Bit(secondName)), "new and longer");
    EXPECT_EQ(QDir(QFileInfo(file.path()).path()).entryList(QDir::Files).size(), 2); // and no other file
}

TEST(FileContent, aMissingFileIsMade)
{
    const QTemporaryDir directory;
    EXPECT_TRUE(replaceContent(directory.filePath("new"), "content"));
    EXPECT_EQ(contentOf(directory.filePath("new")), "content");
    EXPECT_FALSE(replaceContent(directory.filePath("none/new"), "content"));
}

TEST(FileContent, whatIsNoRegularFileIsLeftAlone)
{
    const QTemporaryDir directory;
    const QString pipe = directory.filePath("pipe");
    ASSERT_EQ(mkfifo(pipe.toLocal8Bit().constData(), 0600), 0);
    EXPECT_FALSE(replaceContent(pipe, "content"));
    EXPECT_FALSE(replaceContent(directory.path(), "content"));
    EXPECT_FALSE(replaceContent("/dev/null", "content"));
}

TEST(FileContent, aFileWithoutWritePermissionKeepsItsContent)
{
    const TestFile file("old");
    const auto writeWithMode = [&](unsigned mode, const QByteArray& content) {
        setReachable(file.path(), mode);
        const Unprivileged nobody;
        return replaceContent(file.path(), content);
    };
    EXPECT_TRUE(writeWithMode(0666, "older"));
    EXPECT_FALSE(writeWithMode(0444, "new"));
    EXPECT_EQ(contentOf(file.path()), "older");
}

TEST(FileContent, aFullDiskDoesNotCostTheOldContent)
{
    const QByteArray old(4096, 'o');
    const auto write = [](int size) {
        return [size](const QString& path) { return replaceContent(path, QByteArray(size, 'n')); };
    };
    EXPECT_EQ(writeOnFullDisk(old, write(4097)), WriteOutcome::Refused);
    EXPECT_EQ(writeOnFullDisk(old, write(1'000'000)), WriteOutcome::Refused);
    EXPECT_EQ(writeOnFullDisk(old, write(4096)), WriteOutcome::Written);
    EXPECT_EQ(writeOnFullDisk(old, write(10)), WriteOutcome::Written);
}

TEST(FileContent, roomThatWasMadeInPartIsGivenBack)
{
    const QByteArray old(4096, 'o');
    const auto write = [](int size) {
        return [size](const QString& path) { return replaceContent(path, QByteArray(size, 'n')); };
    };
    EXPECT_EQ(writeOnPlainDisk(old, 8192, write(20'000)), WriteOutcome::Refused);
    EXPECT_EQ(writeOnPlainDisk(old, 8192, write(8192)), WriteOutcome::Written);
}

TEST(FileContent, aFullDiskLeavesNoEmptyFile)
{
    EXPECT_EQ(makeOnFullDisk([](const QString& path) { return replaceContent(path, "content"); }),
              WriteOutcome::Refused);
}

} // namespace
