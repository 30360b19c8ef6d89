#pragma once

#include <QByteArray>
#include <QString>

// A file that lives in memory, and its path: what the service opens by name.
class MemoryFile
{
public:
    MemoryFile();
    ~MemoryFile();
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    void setContent(const QByteArray& content);
    [[nodiscard]] QString path() const;

private:
    int m_descriptor;
};
