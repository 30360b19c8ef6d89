#pragma once

#include <functional>
#include <QByteArray>
#include <QString>

// What a file holds, and conditions under which it can't be read or written, also when the tests run as root.

QByteArray contentOf(const QString& path);

// The calling thread's process is nobody's while one of these lives, so that permissions count.
class Unprivileged
{
public:
    Unprivileged();
    ~Unprivileged();
    Unprivileged(const Unprivileged&) = delete;
    Unprivileged& operator=(const Unprivileged&) = delete;

private:
    unsigned m_user;
};

// Lets nobody get at the file, and at the directory that it lies in, with the file's permissions being `mode`.
void setReachable(const QString& path, unsigned mode);

enum class WriteOutcome
{
    Written,       // true, and the content is another
    Refused,       // false, and the content is as it was
    LostTheContent // anything else
};

// What becomes of a file with `content` on a disk with no room but the file's own, rounded up to pages of 4096 bytes,
// when `write` is called with its path. Happens in a process of its own.
WriteOutcome writeOnFullDisk(const QByteArray& content, const std::function<bool(const QString& path)>& write);

// The same on a disk that can't reserve room and takes files up to a size.
WriteOutcome writeOnPlainDisk(const QByteArray& content, int largestFile,
                              const std::function<bool(const QString& path)>& write);

// On a full disk where no file is yet: Written, or Refused when none was left behind.
WriteOutcome makeOnFullDisk(const std::function<bool(const QString& path)>& write);
