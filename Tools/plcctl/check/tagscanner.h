#pragma once

#include "check/finding.h"

#include <optional>
#include <QString>
#include <vector>

namespace plcctl::check {

// A start tag as it stands in the text of a document.
struct StartTag
{
    struct Attribute
    {
        QString name;
        Place place;
        QString text = {}; // of its value, as it is written
    };

    QString name;
    Place place; // of its "<"
    std::vector<Attribute> attributes;
};

// Finds the start tags of an XML text, one after the other, with the places of their attributes: a parser tells of an
// element only where its start tag ends. Of a text that is no XML it finds something, and comes to an end.
class TagScanner
{
public:
    explicit TagScanner(const QString& text) : m_text(text) {}

    std::optional<StartTag> next();

private:
    [[nodiscard]] bool atEnd() const { return m_at >= m_text.size(); }
    [[nodiscard]] QChar current() const { return m_text.at(m_at); }
    [[nodiscard]] bool startsWith(const char* text) const;
    void advance();
    void skipBehind(const char* end);
    void skipDeclaration();
    void skipSpaces();
    QString takeQuoted();
    QString takeName();
    StartTag takeTag();

    const QString m_text;
    int m_at = 0;
    Place m_place;
};

} // namespace plcctl::check
