#include "wording.h"

namespace ConfigPages {

namespace {

constexpr int BytesOfUnit = 2; // of the UTF-16 of the configuration records

std::string valuesOf(std::span<const Choice> choices)
{
    std::vector<std::string> values;
    for (const Choice& choice : choices)
        values.emplace_back(choice.value);
    return listed(values, "or");
}

std::string rangeOf(const Attribute& attribute)
{
    return std::to_string(attribute.least) + " to " + std::to_string(attribute.most);
}

std::string textValueOf(const Attribute& attribute)
{
    if (attribute.onlyChoices)
        return valuesOf(attribute.choices);
    std::string text = attribute.form == Form::Topic ? "text with variables" : "text";
    if (attribute.fieldSize != 0)
        text += " of up to " + std::to_string(longestText(attribute)) + " characters";
    return text;
}

std::string numberValueOf(const Attribute& attribute)
{
    if (attribute.onlyChoices && attribute.choices.size() < 5)
        return valuesOf(attribute.choices);
    return attribute.unit.empty() ? rangeOf(attribute) : rangeOf(attribute) + ", in " + std::string(attribute.unit);
}

} // namespace

std::string valueOf(const Attribute& attribute)
{
    switch (attribute.form) {
    case Form::Text:
    case Form::Topic:
        return textValueOf(attribute);
    case Form::FileName:
        return "name of a file in the same directory";
    case Form::Address:
        return attribute.least == -1 ? "position, or -1" : "position";
    case Form::DataType:
        return rangeOf(attribute) + ", and a length for texts";
    case Form::Offset:
        return "0x and hexadecimal digits";
    default:
        return numberValueOf(attribute);
    }
}

std::string neededOf(const Attribute& attribute)
{
    if (!attribute.required)
        return "no";
    std::vector<std::string> levels;
    for (int level = 0; level < 8; ++level) {
        if ((attribute.levels >> level & 1) != 0)
            levels.push_back(std::to_string(level));
    }
    if (levels.empty())
        return "yes";
    return (levels.size() == 1 ? "at level " : "at levels ") + listed(levels, "and");
}

std::string missingOf(const Attribute& attribute)
{
    return attribute.whenMissing.empty() ? "empty" : std::string(attribute.whenMissing);
}

std::string textOf(const Choice& choice)
{
    return choice.name.empty() ? std::string(choice.meaning)
                               : std::string(choice.name) + ": " + std::string(choice.meaning);
}

bool hasListedChoices(const Attribute& attribute)
{
    return attribute.onlyChoices && attribute.form != Form::Flag && attribute.form != Form::DataType;
}

bool isTextType(const Choice& choice)
{
    return choice.name.starts_with("STR") && choice.name != "STRUCT";
}

int longestText(const Attribute& attribute)
{
    return attribute.fieldSize / BytesOfUnit - 1;
}

std::string listed(const std::vector<std::string>& words, std::string_view last)
{
    std::string text;
    for (std::size_t i = 0; i < words.size(); ++i) {
        if (i > 0)
            text += i + 1 < words.size() ? ", " : " " + std::string(last) + " ";
        text += words[i];
    }
    return text;
}

} // namespace ConfigPages
