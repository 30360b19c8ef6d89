#pragma once

#include <QByteArray>
#include <vector>

// Tag memory inside the fuzzed process, in place of libTagMemory.so: ends the process at the first write outside the
// places that the service may write to, and keeps the order of all others.
namespace GuardedTagMemory {

struct Place
{
    unsigned long address;
    unsigned long size;
};

struct WriteRecord
{
    unsigned long address;
    QByteArray bytes;

    bool operator==(const WriteRecord&) const = default;
};

// Forgets all writes; from now on, only these places may be written to.
void reset(const std::vector<Place>& writable);
[[nodiscard]] const std::vector<WriteRecord>& writes();

// What every read gets: the head of `content`, and zeros behind it.
void setContent(const QByteArray& content);

} // namespace GuardedTagMemory
