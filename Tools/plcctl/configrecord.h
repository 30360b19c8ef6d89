#pragma once

#include "entities.h"
#include "output.h"

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace plcctl {

enum class FieldKind
{
    Text, // UTF-16 units up to a zero unit
    Number,
    Flag
};

// A field of a configuration record.
struct RecordField
{
    const char* name; // as the record calls it
    FieldKind kind;
    std::size_t offset;    // bytes
    std::size_t size;      // bytes
    std::uint32_t highest; // that the service takes, of a number
    const char* attribute; // its name in the configuration file; null for one that no request reads or changes
    bool isSecret = false;
};

// The record's size in bytes, and its fields in their order.
std::size_t configRecordSize(EntityKind kind);
std::span<const RecordField> configFields(EntityKind kind);

// The configuration of one entity, as it crosses tag memory and the request queue.
class ConfigRecord
{
public:
    // Throws std::invalid_argument unless these are as many bytes as the record has.
    ConfigRecord(EntityKind kind, std::vector<std::uint8_t> bytes);

    [[nodiscard]] EntityKind kind() const { return m_kind; }

    [[nodiscard]] std::span<const std::uint8_t> bytes() const { return m_bytes; }

    // In UTF-8, no further than to the end of the field.
    [[nodiscard]] std::string text(const RecordField& field) const;

    // False for a text that runs into the next field.
    [[nodiscard]] bool isTerminated(const RecordField& field) const;

    // Whether a text has no room for one character more: it may have been longer, and was cut.
    [[nodiscard]] bool isFull(const RecordField& field) const;

    [[nodiscard]] std::uint32_t number(const RecordField& field) const;

    // Whether the service would take the field as it is: its text has an end, and its number isn't too high.
    [[nodiscard]] bool isSound(const RecordField& field) const;

    // False, and nothing changed, for a text that doesn't fit with its terminator or is no UTF-8.
    [[nodiscard]] bool setText(const RecordField& field, const std::string& utf8);

    // False, and nothing changed, for a number that is too high.
    [[nodiscard]] bool setNumber(const RecordField& field, std::uint64_t value);

private:
    [[nodiscard]] std::u16string units(const RecordField& field) const;

    EntityKind m_kind;
    std::vector<std::uint8_t> m_bytes;
};

// The characters that a text field takes, counted in UTF-16 units, without its terminator.
constexpr std::size_t longestText(const RecordField& field)
{
    return field.size / sizeof(char16_t) - 1;
}

enum class Secrets
{
    Hidden,
    Shown
};

// The field for people: "'text'", "1883" or "true", with a remark where the value isn't what it seems.
std::string fieldText(const ConfigRecord& record, const RecordField& field, Secrets secrets);

// A text, a number or a truth value; null for what is hidden or not reported.
Json fieldJson(const ConfigRecord& record, const RecordField& field, Secrets secrets);

} // namespace plcctl
