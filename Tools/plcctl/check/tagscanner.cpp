#include "check/tagscanner.h"

namespace plcctl::check {

namespace {

bool isQuote(QChar character)
{
    return character == '"' || character == '\'';
}

bool isPartOfName(QChar character)
{
    return !character.isSpace() && !isQuote(character) && character != '=' && character != '>' && character != '/' &&
           character != '<';
}

} // namespace

bool TagScanner::startsWith(const char* text) const
{
    return m_text.midRef(m_at).startsWith(QLatin1String(text));
}

void TagScanner::advance()
{
    const QChar passed = current();
    ++m_at;
    if (passed == '\n')
        m_place = {m_place.line + 1, 1};
    else if (!passed.isLowSurrogate() && passed != QChar::ByteOrderMark) // the former is the rest of a character
        ++m_place.column;
}

void TagScanner::skipBehind(const char* end)
{
    while (!atEnd() && !startsWith(end))
        advance();
    for (const char* rest = end; *rest != '\0' && !atEnd(); ++rest)
        advance();
}

// A document type; one with declarations of its own is no valid content.
void TagScanner::skipDeclaration()
{
    while (!atEnd() && current() != '>') {
        if (isQuote(current()))
            takeQuoted();
        else
            advance();
    }
}

void TagScanner::skipSpaces()
{
    while (!atEnd() && current().isSpace())
        advance();
}

QString TagScanner::takeQuoted()
{
    const QChar quote = current();
    advance();
    const int start = m_at;
    while (!atEnd() && current() != quote)
        advance();
    QString text = m_text.mid(start, m_at - start);
    if (!atEnd())
        advance();
    return text;
}

QString TagScanner::takeName()
{
    const int start = m_at;
    while (!atEnd() && isPartOfName(current()))
        advance();
    return m_text.mid(start, m_at - start);
}

StartTag TagScanner::takeTag()
{
    StartTag tag{{}, m_place, {}};
    advance();
    tag.name = takeName();
    while (!atEnd() && current() != '>' && current() != '<') {
        const Place place = m_place;
        if (isQuote(current())) {
            const QString text = takeQuoted();
            if (!tag.attributes.empty())
                tag.attributes.back().text = text;
        } else if (const QString name = takeName(); !name.isEmpty()) {
            tag.attributes.push_back({name, place});
        } else {
            advance();
        }
    }
    return tag;
}

std::optional<StartTag> TagScanner::next()
{
    while (!atEnd()) {
        if (current() != '<' || startsWith("</"))
            advance();
        else if (startsWith("<!--"))
            skipBehind("-->");
        else if (startsWith("<![CDATA["))
            skipBehind("]]>");
        else if (startsWith("<?"))
            skipBehind("?>");
        else if (startsWith("<!"))
            skipDeclaration();
        else
            return takeTag();
    }
    return std::nullopt;
}

} // namespace plcctl::check
