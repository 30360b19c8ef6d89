#pragma once

#include <QByteArray>

// The content of a private key's file. It is wiped from memory with the object.
class KeyFile
{
public:
    // Never waits: what is no regular file counts as one that can't be read, and so does one of more than 64 KiB.
    explicit KeyFile(const char* path);
    ~KeyFile();
    KeyFile(const KeyFile&) = delete;
    KeyFile& operator=(const KeyFile&) = delete;

    [[nodiscard]] bool isRead() const { return m_isRead; }
    [[nodiscard]] const QByteArray& content() const { return m_content; }

    // The libraries would ask for the passphrase at the terminal or on standard input, and wait for it.
    [[nodiscard]] bool wantsPassphrase() const;

private:
    void read(int descriptor);

    QByteArray m_content;
    bool m_isRead = false;
};
