#include "fileconditions.h"

#include <csignal>
#include <gtest/gtest.h>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr unsigned Nobody = 65534;
constexpr int NoDisk = 100; // exit status beyond the outcomes

bool put(const QString& path, const QByteArray& content)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(content) == content.size();
}

// Mounts a disk where only this process and its children see it.
bool mountDisk(const QString& directory, const char* kind, const QByteArray& options = {})
{
    const QByteArray user = QByteArray::number(geteuid());
    const QByteArray group = QByteArray::number(getegid());
    if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0 || !put("/proc/self/setgroups", "deny") ||
        !put("/proc/self/uid_map", "0 " + user + " 1") || !put("/proc/self/gid_map", "0 " + group + " 1"))
        return false;
    return mount("none", QFile::encodeName(directory).constData(), kind, 0, options.constData()) == 0;
}

bool mountDiskOfSize(const QString& directory, int size)
{
    return mountDisk(directory, "tmpfs", "size=" + QByteArray::number(size));
}

// A disk that doesn't know of reservations, so that the C library makes room by growing the file, up to a size.
bool mountPlainDisk(const QString& directory, rlim_t largestFile)
{
    const rlimit limit = {largestFile, largestFile};
    return mountDisk(directory, "ramfs") && signal(SIGXFSZ, SIG_IGN) != SIG_ERR && setrlimit(RLIMIT_FSIZE, &limit) == 0;
}

WriteOutcome inProcessOfItsOwn(const std::function<int(const QString& directory)>& run)
{
    const QTemporaryDir directory;
    const pid_t child = fork();
    if (child == 0)
        _exit(run(directory.path()));
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) != NoDisk) << "no disk of its own, status " << status;
    return static_cast<WriteOutcome>(WEXITSTATUS(status));
}

int outcome(WriteOutcome value)
{
    return static_cast<int>(value);
}

int replace(const QString& path, const QByteArray& content, const std::function<bool(const QString&)>& write)
{
    const bool isWritten = write(path);
    const bool isAsBefore = contentOf(path) == content;
    if (isWritten == isAsBefore)
        return outcome(WriteOutcome::LostTheContent);
    return outcome(isWritten ? WriteOutcome::Written : WriteOutcome::Refused);
}

} // namespace

QByteArray contentOf(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("(can't be read)");
}

Unprivileged::Unprivileged() : m_user(geteuid())
{
    EXPECT_EQ(seteuid(m_user == 0 ? Nobody : m_user), 0);
}

Unprivileged::~Unprivileged()
{
    EXPECT_EQ(seteuid(m_user), 0);
}

void setReachable(const QString& path, unsigned mode)
{
    EXPECT_EQ(chmod(QFile::encodeName(QFileInfo(path).path()).constData(), 0755), 0);
    EXPECT_EQ(chmod(QFile::encodeName(path).constData(), mode), 0);
}

WriteOutcome writeOnFullDisk(const QByteArray& content, const std::function<bool(const QString&)>& write)
{
    return inProcessOfItsOwn([&](const QString& directory) {
        const QString path = directory + "/file";
        return mountDiskOfSize(directory, content.size()) && put(path, content) ? replace(path, content, write)
                                                                                : NoDisk;
    });
}

WriteOutcome writeOnPlainDisk(const QByteArray& content, int largestFile,
                              const std::function<bool(const QString&)>& write)
{
    return inProcessOfItsOwn([&](const QString& directory) {
        const QString path = directory + "/file";
        const bool isReady = mountPlainDisk(directory, static_cast<rlim_t>(largestFile)) && put(path, content);
        return isReady ? replace(path, content, write) : NoDisk;
    });
}

WriteOutcome makeOnFullDisk(const std::function<bool(const QString&)>& write)
{
    return inProcessOfItsOwn([&](const QString& directory) {
        const QString path = directory + "/file";
        if (!mountDiskOfSize(directory, 4096) || !put(directory + "/other", QByteArray(4096, 'x')))
            return NoDisk;
        const bool isWritten = write(path);
        if (isWritten != QFile::exists(path))
            return outcome(WriteOutcome::LostTheContent);
        return outcome(isWritten ? WriteOutcome::Written : WriteOutcome::Refused);
    });
}
