#pragma once

#include <optional>
#include <QDomDocument>
#include <QIODevice>
#include <QString>

// Reading XML into a document, with the limits that keep a hostile file from taking the process down. Content is
// invalid when it is malformed, nested deeper than 256 elements, larger than 16 MiB or 50,000 elements, or declares
// entities of its own. Namespaces are not looked at.
namespace XmlDocumentReader {

inline constexpr qint64 LargestFile = 16 << 20; // bytes

enum class Outcome
{
    Read,
    NotOpened,
    InvalidContent
};

// What makes content invalid, and where; line and column are 0 where it is the whole.
struct ContentError
{
    QString message;
    int line = 0;
    int column = 0;
};

// Opens an existing regular file in `mode` and parses it. Opened for reading and writing, a file without write
// permission counts as unreadable. `error` is assigned for invalid content only. Nothing is logged.
[[nodiscard]] Outcome read(const QString& fileName, QIODevice::OpenMode mode, QDomDocument& document,
                           ContentError& error);

// The same for content in memory; nothing when it is valid.
[[nodiscard]] std::optional<ContentError> parse(const QByteArray& content, QDomDocument& document);

} // namespace XmlDocumentReader
