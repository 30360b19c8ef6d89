#include "Utils/xmlparser.h"

namespace {

bool hasChildTexts(const QDomElement& element, const QStringList& childTags, const QStringList& childTexts)
{
    for (int i = 0; i < childTags.size(); ++i) {
        const QDomElement child = element.firstChildElement(childTags.at(i));
        if (child.isNull() || child.text() != childTexts.value(i))
            return false;
    }
    return true;
}

} // namespace

void XmlParser::setAttributes(QDomElement element, const QStringList& names, const QStringList& values)
{
    for (int i = 0; i < names.size(); ++i)
        element.setAttribute(names.at(i), storable(values.value(i)));
}

QDomElement XmlParser::makeElement(QDomDocument& document, const QString& tagName, const QStringList& childTags,
                                   const QStringList& childTexts)
{
    QDomElement element = document.createElement(tagName);
    for (int i = 0; i < childTags.size(); ++i) {
        QDomElement child = document.createElement(childTags.at(i));
        child.appendChild(document.createTextNode(storable(childTexts.value(i))));
        element.appendChild(child);
    }
    return element;
}

bool XmlParser::setTagAttributesValues(QStringList const& tagPath, QString const& attributeName,
                                       QString const& attributeValue, QStringList const& names,
                                       QStringList const& values, bool utf8)
{
    if (parentOf(tagPath).isNull())
        return false;
    setAttributes(find(tagPath, attributeName, attributeValue), names, values);
    return writeToFile(utf8);
}

bool XmlParser::setTagAttributesIndexValues(QStringList const& tagPath, int index, QString const& childTag,
                                            QStringList const& names, QStringList const& values, bool utf8, bool write)
{
    const QDomElement element = elementAt(tagPath, index, childTag, {}, {});
    if (element.isNull())
        return false;
    setAttributes(element, names, values);
    return !write || writeToFile(utf8);
}

bool XmlParser::setMainTagAttributes(QStringList const& names, QStringList const& values, bool utf8, bool write)
{
    return setTagAttributesIndexValues({}, 0, {}, names, values, utf8, write);
}

bool XmlParser::findTag(QStringList const& tagPath, QString const& tagName, QStringList const& childTags,
                        QStringList const& childTexts, bool remove)
{
    QDomElement element = firstOf(tagPath).firstChildElement(tagName);
    while (!element.isNull() && !hasChildTexts(element, childTags, childTexts))
        element = element.nextSiblingElement(tagName);
    if (element.isNull())
        return false;
    if (remove)
        m_rootElement.removeChild(element);
    return true;
}

bool XmlParser::addTag(QStringList const& tagPath, QString const& tagName, QStringList const& childTags,
                       QStringList const& childTexts, bool atRoot, bool write)
{
    QDomElement parent = atRoot ? m_rootElement : firstOf(tagPath);
    if (parent.isNull())
        return false;
    const QDomElement element = makeElement(m_document, tagName, childTags, childTexts);
    if (atRoot)
        parent.insertBefore(element, {});
    else
        parent.appendChild(element);
    return !write || writeToFile(false);
}

bool XmlParser::removeTag(QStringList const& tagPath, QString const& tagName, bool write)
{
    QDomElement parent = parentOf(tagPath);
    if (parent.removeChild(parent.lastChildElement(tagName)).isNull())
        return false;
    return !write || writeToFile(false);
}
