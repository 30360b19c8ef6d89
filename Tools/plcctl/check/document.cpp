#include "check/document.h"

#include "check/tagscanner.h"
#include "check/wording.h"
#include "Utils/xmldocumentreader.h"

#include <algorithm>
#include <QDomDocument>
#include <QRegularExpression>
#include <QSet>
#include <QXmlInputSource>

namespace plcctl::check {

namespace {

QT_WARNING_PUSH
QT_WARNING_DISABLE_DEPRECATED

// Decoded as the parser decodes it.
QString textOf(const QByteArray& content)
{
    QXmlInputSource source;
    source.setData(content);
    return source.data();
}

QT_WARNING_POP

bool isText(const QDomNode& node)
{
    return node.isText() && !node.nodeValue().trimmed().isEmpty();
}

// XML knows five, and others would have to be declared, which makes content invalid.
QString unknownEntityIn(const QString& text)
{
    static const QRegularExpression entity("&(?!(?:amp|lt|gt|quot|apos);|#)[^;]*;");
    return entity.match(text).captured();
}

// Takes what the parser has understood, and the places from the text: both have the elements in the same order.
class TreeBuilder
{
public:
    explicit TreeBuilder(const QString& text) : m_tags(text) {}

    Element build(const QDomElement& source)
    {
        Element element{source.tagName(), {}, {}, {}, false};
        takeTag(element, source);
        for (QDomNode child = source.firstChild(); !child.isNull(); child = child.nextSibling()) {
            element.hasText |= isText(child);
            if (child.isElement())
                element.children.push_back(build(child.toElement()));
        }
        return element;
    }

private:
    void takeTag(Element& element, const QDomElement& source)
    {
        const auto tag = m_tags.next();
        if (!tag || tag->name != element.name)
            return;
        element.place = tag->place;
        QSet<QString> names;
        for (const StartTag::Attribute& attribute : tag->attributes) {
            if (!source.hasAttribute(attribute.name))
                continue;
            const bool isRepeated = names.contains(attribute.name);
            names.insert(attribute.name);
            element.attributes.push_back({attribute.name, source.attribute(attribute.name), attribute.place, isRepeated,
                                          unknownEntityIn(attribute.text)});
        }
    }

    TagScanner m_tags;
};

} // namespace

const Attribute* Element::attribute(std::string_view wanted) const
{
    const QString wantedName = named(wanted);
    const auto found = std::find_if(attributes.begin(), attributes.end(),
                                    [&](const Attribute& attribute) { return attribute.name == wantedName; });
    return found == attributes.end() ? nullptr : &*found;
}

const Element* Element::firstChild(std::string_view wanted) const
{
    const QString wantedName = named(wanted);
    const auto found =
        std::find_if(children.begin(), children.end(), [&](const Element& child) { return child.name == wantedName; });
    return found == children.end() ? nullptr : &*found;
}

Document parseDocument(const QByteArray& content)
{
    Document result;
    QDomDocument document;
    if (const auto error = XmlDocumentReader::parse(content, document))
        result.problem = ContentProblem{{std::max(error->line, 1), std::max(error->column, 1)}, error->message};
    if (const QDomElement top = document.documentElement(); !top.isNull())
        result.top = TreeBuilder(textOf(content)).build(top);
    return result;
}

} // namespace plcctl::check
