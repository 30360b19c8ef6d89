#pragma once

#include <QDomDocument>
#include <QString>

// Reading a configuration file into a document, with the limits that keep a hostile file from taking the process down.
namespace XmlDocumentReader {

enum class Outcome
{
    Read,
    NotOpened,
    InvalidContent
};

// Opens an existing regular file for reading and writing, so that one without write permission counts as unreadable,
// and parses it without namespaces. Content is invalid when it is malformed, nested deeper than 256 elements, larger
// than 16 MiB or 50,000 elements, or declares entities of its own; that is logged as an error with line and column.
Outcome read(const QString& fileName, QDomDocument& document);

} // namespace XmlDocumentReader
