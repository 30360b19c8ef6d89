#include "markdowntables.h"

#include "wording.h"

#include <sstream>
#include <stdexcept>

namespace ConfigPages {

namespace {

constexpr std::string_view Begin = "<!-- ";
constexpr std::string_view End = "<!-- end -->";

std::string row(const std::vector<std::string>& cells)
{
    std::string text = "|";
    for (const std::string& cell : cells)
        text += " " + cell + " |";
    return text + "\n";
}

const Element* findBelow(const Element& element, std::string_view name)
{
    if (element.name == name)
        return &element;
    for (const Element& child : element.children) {
        if (const Element* const found = findBelow(child, name))
            return found;
    }
    return nullptr;
}

std::string code(std::string_view text)
{
    return "`" + std::string(text) + "`";
}

std::string choicesOf(const Attribute& attribute)
{
    std::string text = "\n" + row({code(attribute.name), "meaning"}) + row({"---", "---"});
    for (const Choice& choice : attribute.choices)
        text += row({code(choice.value), textOf(choice)});
    return text;
}

std::string attributeTable(const Element& element)
{
    std::string text = row({"attribute", "value", "needed", "when missing", "meaning", "a mistake"}) +
                       row({"---", "---", "---", "---", "---", "---"});
    for (const Attribute& attribute : element.attributes) {
        const std::string missing = attribute.whenMissing.empty() ? missingOf(attribute) : code(attribute.whenMissing);
        text += row({code(attribute.name), valueOf(attribute), neededOf(attribute), missing,
                     std::string(attribute.meaning), std::string(attribute.mistake)});
    }
    for (const Attribute& attribute : element.attributes) {
        if (hasListedChoices(attribute))
            text += choicesOf(attribute);
    }
    return text;
}

std::string generatedPart(const std::string& marker, const std::function<std::string(std::string_view)>& exampleOf)
{
    std::istringstream words(marker);
    std::string kind;
    std::string fileName;
    std::string elementName;
    words >> kind >> fileName >> elementName;
    const ConfigurationFile* const file = findFile(fileName);
    if (file && kind == "example")
        return "```xml\n" + exampleOf(fileName) + "```\n";
    const Element* const element = file && kind == "table" ? findBelow(file->top, elementName) : nullptr;
    if (!element)
        throw std::runtime_error("the marker '" + marker + "' names nothing");
    return attributeTable(*element);
}

} // namespace

std::string withGeneratedParts(std::string_view page, const std::function<std::string(std::string_view)>& exampleOf)
{
    std::string result;
    std::size_t position = 0;
    for (std::size_t begin; (begin = page.find(Begin, position)) != std::string_view::npos;) {
        const std::size_t markerEnd = page.find(" -->\n", begin);
        const std::size_t end = page.find(End, begin);
        if (markerEnd == std::string_view::npos || end == std::string_view::npos)
            throw std::runtime_error("a marker has no end");
        const std::string marker(page.substr(begin + Begin.size(), markerEnd - begin - Begin.size()));
        result += page.substr(position, markerEnd + 5 - position);
        result += "\n" + generatedPart(marker, exampleOf) + "\n";
        result += End;
        position = end + End.size();
    }
    return result + std::string(page.substr(position));
}

} // namespace ConfigPages
