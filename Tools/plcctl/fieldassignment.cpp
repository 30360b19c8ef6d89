#include "fieldassignment.h"

#include "failure.h"
#include "nearestname.h"
#include "utf.h"

#include <algorithm>
#include <charconv>
#include <optional>

namespace plcctl {

namespace {

[[noreturn]] void refuse(const RecordField& field, const std::string& value, const std::string& reason)
{
    throw Failure(ExitCode::Usage, std::string(field.name) + " can't be " +
                                       (field.isSecret ? "that text" : inQuotes(value)) + ": " + reason +
                                       "; nothing was changed");
}

std::optional<std::uint64_t> wholeNumber(const std::string& text)
{
    std::uint64_t value = 0;
    const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    const bool whole = error == std::errc{} && stop == text.data() + text.size();
    return whole ? std::optional(value) : std::nullopt;
}

std::optional<bool> truthValue(const std::string& text)
{
    const std::string word = lowered(text);
    if (word == "1" || word == "true")
        return true;
    if (word == "0" || word == "false")
        return false;
    return std::nullopt;
}

// The configuration file is XML, and these characters have no form in it.
bool hasPlaceInFile(char32_t character)
{
    const bool isBlank = character == U'\t' || character == U'\n' || character == U'\r';
    return isBlank || (character >= 0x20 && character != 0xFFFE && character != 0xFFFF);
}

void storeText(ConfigRecord& record, const RecordField& field, const std::string& value)
{
    const auto characters = decodeUtf8(value);
    if (!characters)
        refuse(field, value, "it is no UTF-8");
    if (!std::all_of(characters->begin(), characters->end(), hasPlaceInFile))
        refuse(field, value, "it has a character that can't stand in a configuration file");
    if (!record.setText(field, value)) {
        refuse(field, value,
               "it has " + std::to_string(encodeUtf16(*characters).size()) + " UTF-16 units, and the field takes " +
                   std::to_string(longestText(field)));
    }
}

void store(ConfigRecord& record, const RecordField& field, const std::string& value)
{
    switch (field.kind) {
    case FieldKind::Text:
        storeText(record, field, value);
        return;
    case FieldKind::Flag: {
        const auto truth = truthValue(value);
        if (!truth || !record.setNumber(field, *truth ? 1 : 0))
            refuse(field, value, "it is one of 0, 1, true, false");
        return;
    }
    case FieldKind::Number:
        break;
    }
    const auto number = wholeNumber(value);
    if (!number || !record.setNumber(field, *number))
        refuse(field, value, "it is a number from 0 to " + std::to_string(field.highest));
}

const RecordField& findField(EntityKind kind, const std::string& name)
{
    const auto fields = configFields(kind);
    const auto found = std::find_if(fields.begin(), fields.end(),
                                    [&name](const RecordField& field) { return lowered(field.name) == lowered(name); });
    if (found != fields.end())
        return *found;

    std::vector<std::string> names;
    std::string list;
    for (const RecordField& field : fields) {
        names.emplace_back(field.name);
        list += (list.empty() ? "" : ", ") + names.back();
    }
    const std::string nearest = nearestName(names, name);
    throw Failure(ExitCode::Usage, std::string("a ") + nameOf(kind) + " has no field " + inQuotes(name) +
                                       (nearest.empty() ? "" : ", did you mean " + nearest + "?") + "; there are " +
                                       list);
}

FieldAssignment parseAssignment(EntityKind kind, const std::string& text)
{
    const std::size_t sign = text.find('=');
    if (sign == std::string::npos)
        throw Failure(ExitCode::Usage, inQuotes(text) + " is no FIELD=VALUE");
    const RecordField& field = findField(kind, text.substr(0, sign));
    if (field.attribute == nullptr) {
        throw Failure(ExitCode::Usage, std::string(field.name) +
                                           " can't be set by a request: the service reads it from its configuration "
                                           "file only and never writes it; edit the file (EncryptionType), then "
                                           "`plcctl request start`");
    }
    return {&field, text.substr(sign + 1)};
}

} // namespace

std::vector<FieldAssignment> parseAssignments(EntityKind kind, const std::vector<std::string>& texts)
{
    std::vector<FieldAssignment> result;
    for (const std::string& text : texts) {
        const FieldAssignment assignment = parseAssignment(kind, text);
        for (const FieldAssignment& earlier : result) {
            if (earlier.field == assignment.field)
                throw Failure(ExitCode::Usage, std::string(assignment.field->name) + " is given twice");
        }
        result.push_back(assignment);
    }
    // Every value is tried ahead of the first request.
    ConfigRecord trial(kind, std::vector<std::uint8_t>(configRecordSize(kind)));
    assign(trial, result);
    return result;
}

void assign(ConfigRecord& record, const std::vector<FieldAssignment>& assignments)
{
    for (const FieldAssignment& assignment : assignments)
        store(record, *assignment.field, assignment.value);
}

} // namespace plcctl
