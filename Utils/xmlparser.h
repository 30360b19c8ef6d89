#pragma once

#include <QByteArray>
#include <QDomDocument>
#include <QDomElement>
#include <QString>
#include <QStringList>

// One XML file as a document in memory. Elements are addressed by a tag path: the names below the root element, whose
// own name is not part of it. The path is walked by the first element of each name; a search then looks at the elements
// that carry the last name and are siblings of one another. An empty path is the root element itself.
//
// What holds for all operations:
// - A search for an attribute's value takes the first element that has it; a null attribute name takes any element.
// - Lists come in pairs (names and values, tags and texts). What the second one lacks counts as an empty text.
// - Characters that XML can't hold are replaced by U+FFFD in every text that is set.
// - The document changes in memory; only writeToFile and the operations that call it touch the file. None leaves a file
//   that setXmlFile wouldn't load.
//
// For one thread; files are not locked.
//   xmlparser.cpp            the members and loading
//   xmlparser_saving.cpp     saving
//   xmlparser_reading.cpp    reading and searching
//   xmlparser_changing.cpp   changing
//   xmlparser_files.cpp      what works on a file without a document in memory
class XmlParser
{
public:
    XmlParser();
    ~XmlParser(); // nothing is written

    // Loads a file, within the limits of XmlDocumentReader. False, with an error line, when it can't be opened or is no
    // valid XML; then the document and root element of before stay, but the name is the new one. Never makes a file.
    bool setXmlFile(QString const& fileName);
    // Loads the file anew and drops what was changed since.
    bool refreshXml();
    // Writes the document in the place of the file's content: in UTF-8, and declared so, or in the encoding that the
    // document declares; an element's attributes by name, so that a file that was written stays the same in all lines
    // that weren't changed. False when there is no document, when it couldn't be loaded again, or when the file can't
    // be written; then the file keeps its content, also on a full disk. A file that was removed meanwhile is made anew.
    bool writeToFile(bool utf8) const;

    QString getXmlFile() const;
    QDomElement getRootElement() const;
    // What is written stays the document that was loaded.
    void setRootElement(QDomElement const& element);

    // Child elements of the root, whatever their names.
    int getNumOfChildTags() const;
    // The text of the first element at the path; empty when there is none.
    QString getXmlData(QStringList const& tagPath) const;
    QStringList getXmlDataList(QStringList const& tagPath) const;
    bool isTagExists(QStringList const& tagPath, QString const& attributeName, QString const& attributeValue) const;

    // The readers of attributes append to `values`: an empty text for an attribute that an element lacks. False, with
    // nothing appended, when there is no such element.
    bool getTagsAttributeValues(QStringList const& tagPath, QString const& attributeName, QStringList& values) const;
    bool getTagAttributesValues(QStringList const& tagPath, QString const& attributeName, QString const& attributeValue,
                                QStringList const& names, QStringList& values) const;
    bool getTagAttributesValues(QStringList const& tagPath, QStringList const& names, QStringList& values) const;
    // Element number `index` of the search, from 0; or, where `childTag` isn't empty, the first child of that name
    // whose attributes `childNames` all have the `childValues`.
    bool getTagAttributesIndexValues(QStringList const& tagPath, int index, QString const& childTag,
                                     QStringList const& childNames, QStringList const& childValues,
                                     QStringList const& names, QStringList& values) const;

    // Sets attributes of the element that the search finds and writes the file. False, with nothing written, when an
    // element of the path ahead of the last is missing. Intended: true also when no element has the value; the file is
    // then written unchanged.
    bool setTagAttributesValues(QStringList const& tagPath, QString const& attributeName, QString const& attributeValue,
                                QStringList const& names, QStringList const& values, bool utf8);
    // The same for the element that getTagAttributesIndexValues reads; false when there is none.
    bool setTagAttributesIndexValues(QStringList const& tagPath, int index, QString const& childTag,
                                     QStringList const& names, QStringList const& values, bool utf8, bool write);
    // The same for the root element; false when there is none.
    bool setMainTagAttributes(QStringList const& names, QStringList const& values, bool utf8, bool write);

    // True when one of the elements `tagName` in the element at the path has all the child elements with these texts.
    // With `remove` the first such element goes. Intended: only from the root element, deeper ones are found and stay.
    bool findTag(QStringList const& tagPath, QString const& tagName, QStringList const& childTags,
                 QStringList const& childTexts, bool remove);
    // Adds an element with one child element for each text: as the root's first child, or as the last in the element at
    // the path. False when that element is missing, or when the file should be written and couldn't.
    bool addTag(QStringList const& tagPath, QString const& tagName, QStringList const& childTags,
                QStringList const& childTexts, bool atRoot, bool write);
    // Removes the last element of the name among the siblings that the path leads to. Intended: the last name of the
    // path isn't walked, as in the searches, so the last broker goes with the path of all brokers. False when there is
    // none, or when the file should be written and couldn't.
    bool removeTag(QStringList const& tagPath, QString const& tagName, bool write);

    // Counts the lines of the file that begin with "<" and this text, blanks aside. Intended: "Broker" counts
    // "<Brokers" as well. 0 when the file can't be read or is larger than XmlDocumentReader takes.
    int getTotalNumOfTag(QString const& tag) const;
    // The attribute of element number `index`, from 0 and in the order of the file, of those with this name at any
    // depth. False, with `value` as it was, when there is no such element or attribute, or a mistake in the file ahead
    // of it.
    static bool ReadNodeAttributeByIdx(QString fileName, QString nodeName, QString attributeName, int index,
                                       QString& value);
    // Makes a file, or replaces one: the root, in it the main element, in that one element for each text. A document
    // type that is empty is left out. False when the file can't be written or couldn't be loaded.
    static bool createXmlfile(QString const& fileName, QString const& docType, QString const& rootTag,
                              QString const& mainTag, QStringList const& tags, QStringList const& texts);

    QString m_xmlFile;
    QDomDocument m_document;
    QDomElement m_rootElement;

private:
    // The document in memory is declared as UTF-8 as well.
    static bool writeDocument(const QDomDocument& document, const QString& fileName, bool utf8);
    static QString storable(QString text);

    // The first `names` names of the path, from the root; null where one is missing.
    [[nodiscard]] QDomElement walk(const QStringList& tagPath, int names) const;
    // The element in which a search looks; the root for an empty path.
    [[nodiscard]] QDomElement parentOf(const QStringList& tagPath) const;
    [[nodiscard]] QDomElement firstOf(const QStringList& tagPath) const;
    static QDomElement nextOf(const QStringList& tagPath, const QDomElement& element);
    [[nodiscard]] QDomElement find(const QStringList& tagPath, const QString& attributeName,
                                   const QString& attributeValue) const;
    [[nodiscard]] QDomElement elementAt(const QStringList& tagPath, int index, const QString& childTag,
                                        const QStringList& childNames, const QStringList& childValues) const;

    static bool appendAttributes(const QDomElement& element, const QStringList& names, QStringList& values);
    static void setAttributes(QDomElement element, const QStringList& names, const QStringList& values);
    static QDomElement makeElement(QDomDocument& document, const QString& tagName, const QStringList& childTags,
                                   const QStringList& childTexts);
};
