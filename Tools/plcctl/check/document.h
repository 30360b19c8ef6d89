#pragma once

#include "check/finding.h"

#include <optional>
#include <QByteArray>
#include <QString>
#include <string_view>
#include <vector>

namespace plcctl::check {

struct Attribute
{
    QString name;
    QString value; // as the service takes it
    Place place;
    bool isRepeated = false;    // stands in its tag already
    QString unknownEntity = {}; // "&name;" that stands for nothing, and that the value lacks
};

struct Element
{
    QString name;
    Place place;
    std::vector<Attribute> attributes = {}; // in the order in which they stand there
    std::vector<Element> children = {};
    bool hasText = false; // other than white space

    // Null where there is none.
    [[nodiscard]] const Attribute* attribute(std::string_view wanted) const;
    [[nodiscard]] const Element* firstChild(std::string_view wanted) const;
};

// What makes a document unusable, in the service's words.
struct ContentProblem
{
    Place place;
    QString message;
};

struct Document
{
    std::optional<Element> top;
    std::optional<ContentProblem> problem;
};

// Reads it with the service's own parser and limits; of a broken one, what stands ahead of the break.
Document parseDocument(const QByteArray& content);

} // namespace plcctl::check
