#pragma once

#include "fileconditions.h"
#include "unittest.h"
#include "Utils/xmlparser.h"

#include <memory>

// What an XML reader of another kind finds in a document, one text for each element's begin (attributes by name), end,
// text, comment, and so on. White space between elements and the declaration are left out.
std::vector<std::string> canonical(const QByteArray& content);

// A parser that has loaded a plant's file, or the one that a test gives it.
class XmlDocument : public testing::Test
{
protected:
    XmlDocument();

    void load(const QByteArray& content);
    // What the file says of the element with this ID.
    [[nodiscard]] QString attributeInFile(const QString& id, const QString& name) const;

    static const QByteArray Plant;
    static const QStringList Lines; // the path of the lines
    std::unique_ptr<TestFile> file;
    XmlParser parser;
};
