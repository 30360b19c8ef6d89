#include "Utils/xmlparser.h"

#include <algorithm>

namespace {

bool hasAttributes(const QDomElement& element, const QStringList& names, const QStringList& values)
{
    for (int i = 0; i < names.size(); ++i) {
        if (element.attribute(names.at(i)) != values.value(i))
            return false;
    }
    return true;
}

} // namespace

QDomElement XmlParser::walk(const QStringList& tagPath, int names) const
{
    QDomElement element = m_rootElement;
    for (int i = 0; i < names; ++i)
        element = element.firstChildElement(tagPath.at(i));
    return element;
}

QDomElement XmlParser::parentOf(const QStringList& tagPath) const
{
    return walk(tagPath, std::max(tagPath.size() - 1, 0));
}

QDomElement XmlParser::firstOf(const QStringList& tagPath) const
{
    return walk(tagPath, tagPath.size());
}

QDomElement XmlParser::nextOf(const QStringList& tagPath, const QDomElement& element)
{
    return tagPath.isEmpty() ? QDomElement() : element.nextSiblingElement(tagPath.constLast());
}

QDomElement XmlParser::find(const QStringList& tagPath, const QString& attributeName,
                            const QString& attributeValue) const
{
    QDomElement element = firstOf(tagPath);
    while (!element.isNull() && !attributeName.isNull() && element.attribute(attributeName) != attributeValue)
        element = nextOf(tagPath, element);
    return element;
}

QDomElement XmlParser::elementAt(const QStringList& tagPath, int index, const QString& childTag,
                                 const QStringList& childNames, const QStringList& childValues) const
{
    if (index < 0)
        return {};
    QDomElement element = firstOf(tagPath);
    for (int i = 0; i < index && !element.isNull(); ++i)
        element = nextOf(tagPath, element);
    if (childTag.isEmpty())
        return element;
    QDomElement child = element.firstChildElement(childTag);
    while (!child.isNull() && !hasAttributes(child, childNames, childValues))
        child = child.nextSiblingElement(childTag);
    return child;
}

bool XmlParser::appendAttributes(const QDomElement& element, const QStringList& names, QStringList& values)
{
    if (element.isNull())
        return false;
    for (const QString& name : names)
        values.append(element.attribute(name));
    return true;
}

int XmlParser::getNumOfChildTags() const
{
    int count = 0;
    for (QDomElement child = m_rootElement.firstChildElement(); !child.isNull(); child = child.nextSiblingElement())
        ++count;
    return count;
}

QString XmlParser::getXmlData(QStringList const& tagPath) const
{
    return firstOf(tagPath).text();
}

QStringList XmlParser::getXmlDataList(QStringList const& tagPath) const
{
    QStringList texts;
    for (QDomElement element = firstOf(tagPath); !element.isNull(); element = nextOf(tagPath, element))
        texts.append(element.text());
    return texts;
}

bool XmlParser::isTagExists(QStringList const& tagPath, QString const& attributeName,
                            QString const& attributeValue) const
{
    return !find(tagPath, attributeName, attributeValue).isNull();
}

bool XmlParser::getTagsAttributeValues(QStringList const& tagPath, QString const& attributeName,
                                       QStringList& values) const
{
    const QDomElement first = firstOf(tagPath);
    for (QDomElement element = first; !element.isNull(); element = nextOf(tagPath, element))
        values.append(element.attribute(attributeName));
    return !first.isNull();
}

bool XmlParser::getTagAttributesValues(QStringList const& tagPath, QString const& attributeName,
                                       QString const& attributeValue, QStringList const& names,
                                       QStringList& values) const
{
    return appendAttributes(find(tagPath, attributeName, attributeValue), names, values);
}

bool XmlParser::getTagAttributesValues(QStringList const& tagPath, QStringList const& names, QStringList& values) const
{
    return appendAttributes(firstOf(tagPath), names, values);
}

bool XmlParser::getTagAttributesIndexValues(QStringList const& tagPath, int index, QString const& childTag,
                                            QStringList const& childNames, QStringList const& childValues,
                                            QStringList const& names, QStringList& values) const
{
    return appendAttributes(elementAt(tagPath, index, childTag, childNames, childValues), names, values);
}
