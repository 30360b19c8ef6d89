#include "convert/tagform.h"

#include "configuredvalue.h"
#include "failure.h"
#include "nearestname.h"
#include "output.h"

#include <charconv>
#include <limits>

namespace plcctl {

namespace {

constexpr int LastType = AT_STR16;

bool isText(int type)
{
    return type == AT_STR8 || type == AT_STR16 || type == AT_STR32;
}

[[noreturn]] void refuse(const std::string& form, const std::string& reason)
{
    throw Failure(ExitCode::Usage, inQuotes(form) + " is no type of a tag: " + reason +
                                       "; give for example REAL, 'INT32[4]' or STR16:20");
}

ArgType typeNamed(const std::string& form, std::string_view name)
{
    std::vector<std::string> names;
    for (int type = AT_BOOL; type <= LastType; ++type) {
        if (const char* known = typeNameOf(type)) {
            if (lowered(known) == lowered(name))
                return static_cast<ArgType>(type);
            names.emplace_back(known);
        }
    }
    const std::string nearest = nearestName(names, name);
    refuse(form, nearest.empty() ? "a struct needs --subscription or --publication" : "did you mean " + nearest + "?");
}

int numberIn(const std::string& form, std::string_view digits)
{
    int number = 0;
    const auto [stop, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
    if (error != std::errc{} || stop != digits.data() + digits.size() || number < 1 ||
        number > std::numeric_limits<unsigned short>::max())
        refuse(form, "a number from 1 to 65535 is expected");
    return number;
}

ValueLayout layoutOf(ArgType type, int length, int entries)
{
    return {type, length, entries};
}

} // namespace

ValueLayout parseTagForm(const std::string& form)
{
    const std::size_t end = form.find_first_of("[:");
    ValueLayout layout{typeNamed(form, std::string_view(form).substr(0, end)), NO_DATA_LEN, 0};
    if (end == std::string::npos) {
        if (isText(layout.type))
            refuse(form, "a text needs its length in characters");
        return layout;
    }
    const std::string_view rest = std::string_view(form).substr(end);
    if (rest.front() == ':' && isText(layout.type)) {
        layout.length = numberIn(form, rest.substr(1));
    } else if (rest.front() == '[' && rest.ends_with(']') && !isText(layout.type)) {
        layout.entries = numberIn(form, rest.substr(1, rest.size() - 2));
    } else {
        refuse(form, "texts have a length behind a colon, all others elements in brackets");
    }
    return layout;
}

std::string nameOf(const ValueLayout& layout)
{
    if (layout.type == AT_STRUCT)
        return "struct";
    const char* const known = typeNameOf(layout.type);
    if (!known)
        return "type " + std::to_string(layout.type);
    const std::string name = known;
    if (isText(layout.type))
        return name + ":" + std::to_string(layout.length);
    return layout.entries == 0 ? name : name + "[" + std::to_string(layout.entries) + "]";
}

std::vector<TagPart> partsOf(const MQTTCallerBase& entity)
{
    if (entity.m_DataType != AT_STRUCT)
        return {{"", 0, layoutOf(entity.m_DataType, entity.m_DataLen, entity.m_Entries)}};
    std::vector<TagPart> parts;
    for (const JsonDataMember& member : entity.m_DataMembers)
        parts.push_back({member.Name.toStdString(), member.Offset, layoutOf(member.Type, member.Len, member.Entry)});
    return parts;
}

void setForm(MQTTCallerBase& entity, const ValueLayout& layout, MQTTPayloadFormat format)
{
    entity.m_DataType = static_cast<ArgType>(layout.type);
    entity.m_DataLen = layout.length;
    entity.m_Entries = layout.entries;
    entity.m_PayloadFormat = format;
    entity.CalcDataSize();
}

} // namespace plcctl
