#include "manualpage.h"

#include "devicepaths.h"
#include "wording.h"

#include <cctype>

namespace ConfigPages {

namespace {

// As roff takes it: a backslash, a minus and what would be a request at the beginning of a line.
std::string escaped(std::string_view text)
{
    std::string result;
    for (const char c : text) {
        const bool isLineStart = result.empty() || result.back() == '\n';
        if (isLineStart && (c == '.' || c == '\''))
            result += "\\&";
        if (c == '\\')
            result += "\\e";
        else if (c == '-')
            result += "\\-";
        else
            result += c;
    }
    return result;
}

std::string quoted(std::string_view text)
{
    return "\"" + escaped(text) + "\"";
}

std::string firstLetterSmall(std::string_view text)
{
    std::string result(text);
    // An abbreviation keeps its letters.
    if (result.size() > 1 && std::islower(static_cast<unsigned char>(result[1])))
        result[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(result[0])));
    return result;
}

class Page
{
public:
    std::string write(const ConfigurationFile& file, std::string_view example)
    {
        line(".\\\" Written by configpages from the table of attributes; don't edit.");
        line(".TH " + quoted(file.name) + " 5 \"\" MQTTClientManager \"File formats\"");
        writeName(file);
        writeDescription(file);
        line(".SH ELEMENTS AND ATTRIBUTES");
        writeElement(file.top);
        writeExample(example);
        writeFiles(file);
        writeSeeAlso(file);
        return std::move(m_text);
    }

private:
    void line(const std::string& text) { m_text += text + "\n"; }
    void sentence(std::string_view text) { line(escaped(text) + "."); }

    void writeName(const ConfigurationFile& file)
    {
        line(".SH NAME");
        line(escaped(file.name) + " \\- " + escaped(firstLetterSmall(file.meaning)));
        line(".SH SYNOPSIS");
        line(".I " + escaped(DevicePaths::ConfigurationDirectory + std::string(file.name)));
    }

    void writeDescription(const ConfigurationFile& file)
    {
        line(".SH DESCRIPTION");
        sentence(file.meaning);
        line("The file is XML.");
        line("The service reads it when it starts and at each start request after a pause.");
        line("All data is in attributes, which stand in any order.");
        line("Unknown attributes are ignored, and names are case\\-sensitive.");
        line(".PP");
        line("The service doesn't check what it reads.");
        line("Numbers are decimal unless said otherwise; a text that is no number reads as 0, and so does one that is");
        line("missing.");
        line(".B plcctl check");
        line("and the XML schema tell of mistakes ahead of a start.");
        line(".PP");
        line("A position is the place of a tag in tag memory, in bytes.");
        line(".PP");
        if (file.name == DevicePaths::GeneralFile)
            line("Without this file the service doesn't start.");
        else
            line("Requests that change a configuration write into this file.");
    }

    void writeElement(const Element& element)
    {
        line(".SS " + quoted(element.name));
        sentence(element.meaning);
        for (const Attribute& attribute : element.attributes)
            writeAttribute(attribute);
        for (const Element& child : element.children)
            writeElement(child);
    }

    void writeAttribute(const Attribute& attribute)
    {
        line(".TP");
        line(".BR " + quoted(attribute.name) + " " + quoted(" (" + valueOf(attribute) + ")"));
        sentence(attribute.meaning);
        if (attribute.form == Form::DataType || hasListedChoices(attribute))
            writeChoices(attribute.choices);
        if (attribute.levels != 0)
            sentence("Needed " + neededOf(attribute) + " of EncryptionType, and not read at any other");
        else if (attribute.required)
            sentence("Needed");
        sentence("When missing: " + missingOf(attribute));
        sentence(attribute.mistake);
    }

    void writeChoices(std::span<const Choice> choices)
    {
        line(".RS");
        for (const Choice& choice : choices) {
            line(".IP " + quoted(choice.value) + " 4");
            line(escaped(textOf(choice)));
        }
        line(".RE");
        line(".IP");
    }

    void writeExample(std::string_view example)
    {
        line(".SH EXAMPLE");
        line(".EX");
        m_text += escaped(example);
        line(".EE");
    }

    void writeFiles(const ConfigurationFile& file)
    {
        const std::string stem(file.name.substr(0, file.name.rfind('.')));
        line(".SH FILES");
        line(".TP");
        line(".I " + escaped("/usr/share/mqttclientmanager/schemas/" + stem + ".xsd"));
        line("XML schema of this file, for editors and validating parsers.");
    }

    void writeSeeAlso(const ConfigurationFile& file)
    {
        line(".SH SEE ALSO");
        line(".BR MQTTClientManager (8),");
        line(".BR plcctl (1),");
        std::string others;
        for (const ConfigurationFile& other : configurationFiles()) {
            if (other.name != file.name)
                others += (others.empty() ? "" : ",\n") + std::string(".BR ") + escaped(other.name) + " (5)";
        }
        line(others);
    }

    std::string m_text;
};

} // namespace

std::string manualPage(const ConfigurationFile& file, std::string_view example)
{
    return Page().write(file, example);
}

} // namespace ConfigPages
