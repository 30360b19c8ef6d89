#include "xsdschema.h"

#include "wording.h"

#include <algorithm>
#include <QByteArray>
#include <QString>
#include <QXmlStreamWriter>

namespace ConfigPages {

namespace {

constexpr char SchemaNamespace[] = "http://www.w3.org/2001/XMLSchema";

QString qText(std::string_view text)
{
    return QString::fromUtf8(text.data(), static_cast<int>(text.size()));
}

bool isAlwaysNeeded(const Attribute& attribute)
{
    return attribute.required && attribute.levels == 0;
}

class Schema
{
public:
    explicit Schema(QByteArray& target) : m_xml(&target) { m_xml.setAutoFormatting(true); }

    void write(const ConfigurationFile& file)
    {
        m_xml.setAutoFormattingIndent(2);
        m_xml.writeStartDocument();
        m_xml.writeNamespace(SchemaNamespace, "xs");
        begin("schema");
        document(std::string(file.name) + ": " + std::string(file.meaning) +
                 ". Written by configpages from the table of attributes; don't edit.");
        writeElement(file.top, {});
        m_xml.writeEndDocument();
    }

private:
    using Attributes = std::initializer_list<std::pair<const char*, std::string>>;

    void begin(const char* name, const Attributes& attributes = {})
    {
        m_xml.writeStartElement(SchemaNamespace, name);
        for (const auto& [attribute, value] : attributes)
            m_xml.writeAttribute(attribute, qText(value));
    }
    void end() { m_xml.writeEndElement(); }
    void whole(const char* name, const Attributes& attributes)
    {
        begin(name, attributes);
        end();
    }

    void document(std::string_view text)
    {
        begin("annotation");
        m_xml.writeTextElement(SchemaNamespace, "documentation", qText(text));
        end();
    }

    void writeElement(const Element& element, const Attributes& occurrence)
    {
        begin("element", {{"name", std::string(element.name)}});
        for (const auto& [attribute, value] : occurrence)
            m_xml.writeAttribute(attribute, qText(value));
        document(std::string(element.meaning) + ".");
        begin("complexType");
        writeChildren(element);
        for (const Attribute& attribute : element.attributes)
            writeAttribute(attribute);
        end();
        writeUniqueAttributes(element);
        end();
    }

    // Entries stand in the order of the file, all else in any order.
    void writeChildren(const Element& element)
    {
        if (element.children.empty())
            return;
        const bool isList = element.children.front().repeated;
        begin(isList ? "sequence" : "all");
        for (const Element& child : element.children)
            writeElement(child, {{"minOccurs", child.required ? "1" : "0"}, {"maxOccurs", isList ? "unbounded" : "1"}});
        end();
    }

    void writeUniqueAttributes(const Element& list)
    {
        for (const Element& child : list.children) {
            for (const Attribute& attribute : child.attributes) {
                if (!attribute.unique)
                    continue;
                begin("unique", {{"name", std::string(child.name) + "." + std::string(attribute.name)}});
                whole("selector", {{"xpath", std::string(child.name)}});
                whole("field", {{"xpath", "@" + std::string(attribute.name)}});
                end();
            }
        }
    }

    void writeAttribute(const Attribute& attribute)
    {
        begin("attribute",
              {{"name", std::string(attribute.name)}, {"use", isAlwaysNeeded(attribute) ? "required" : "optional"}});
        if (!attribute.required)
            m_xml.writeAttribute("default", qText(attribute.whenMissing));
        document(documentationOf(attribute));
        begin("simpleType");
        writeType(attribute);
        end();
        end();
    }

    static std::string documentationOf(const Attribute& attribute)
    {
        std::string text = std::string(attribute.meaning) + ". Value: " + valueOf(attribute) + ". ";
        if (attribute.levels != 0)
            text += "Needed " + neededOf(attribute) + " of EncryptionType, and not read at any other. ";
        return text + "When missing: " + missingOf(attribute) + ". " + std::string(attribute.mistake) + ".";
    }

    void writeType(const Attribute& attribute)
    {
        switch (attribute.form) {
        case Form::Text:
        case Form::Topic:
        case Form::FileName:
            return writeTextType(attribute);
        case Form::DataType:
            return writeDataType(attribute);
        case Form::Offset:
            return writeOffsetType(attribute);
        default:
            return writeNumberType(attribute);
        }
    }

    void writeTextType(const Attribute& attribute)
    {
        begin("restriction", {{"base", "xs:string"}});
        if (attribute.onlyChoices) {
            // Where it isn't read, it may stand empty.
            if (attribute.levels != 0)
                whole("enumeration", {{"value", ""}});
            writeChoices(attribute.choices);
        } else if (isAlwaysNeeded(attribute)) {
            whole("minLength", {{"value", "1"}});
        }
        if (attribute.fieldSize != 0)
            whole("maxLength", {{"value", std::to_string(longestText(attribute))}});
        if (!attribute.pattern.empty())
            whole("pattern", {{"value", std::string(attribute.pattern)}});
        end();
    }

    void writeNumberType(const Attribute& attribute)
    {
        begin("restriction", {{"base", "xs:integer"}});
        if (attribute.onlyChoices) {
            writeChoices(attribute.choices);
        } else {
            whole("minInclusive", {{"value", std::to_string(attribute.least)}});
            whole("maxInclusive", {{"value", std::to_string(attribute.most)}});
        }
        end();
    }

    // Numbers are listed, so that editors can offer them; a text's number comes with its length.
    void writeDataType(const Attribute& attribute)
    {
        begin("union");
        begin("simpleType");
        begin("restriction", {{"base", "xs:token"}});
        for (const Choice& choice : attribute.choices) {
            if (!isTextType(choice))
                writeChoice(choice);
        }
        end();
        end();
        for (const Choice& choice : attribute.choices) {
            if (isTextType(choice))
                writeTextTypeWithLength(choice);
        }
        end();
    }

    void writeTextTypeWithLength(const Choice& choice)
    {
        begin("simpleType");
        document(textOf(choice) + "; behind the _ stands its length in characters.");
        begin("restriction", {{"base", "xs:token"}});
        whole("pattern", {{"value", std::string(choice.value) + "_[0-9]*[1-9][0-9]*"}});
        end();
        end();
    }

    void writeOffsetType(const Attribute& attribute)
    {
        const int digits = QString::number(attribute.most, 16).size();
        begin("restriction", {{"base", "xs:token"}});
        whole("pattern", {{"value", "0[xX]0*[0-9A-Fa-f]{1," + std::to_string(digits) + "}"}});
        end();
    }

    void writeChoices(std::span<const Choice> choices)
    {
        for (const Choice& choice : choices)
            writeChoice(choice);
    }

    void writeChoice(const Choice& choice)
    {
        begin("enumeration", {{"value", std::string(choice.value)}});
        document(textOf(choice) + ".");
        end();
    }

    QXmlStreamWriter m_xml;
};

} // namespace

std::string xsdSchema(const ConfigurationFile& file)
{
    QByteArray text;
    Schema(text).write(file);
    return text.toStdString();
}

} // namespace ConfigPages
