#include "convert/surprises.h"

#include "configuredvalue.h"

#include <algorithm>
#include <cmath>

namespace plcctl {

namespace {

constexpr std::size_t MostNotes = 5; // of one part

constexpr double RealPrecision = 1e-6; // what a REAL keeps, as a part of the value

bool isText(const ValueLayout& layout)
{
    return layout.type == AT_STR8 || layout.type == AT_STR16 || layout.type == AT_STR32;
}

std::ptrdiff_t charactersOf(std::string_view utf8)
{
    return std::count_if(utf8.begin(), utf8.end(), [](unsigned char byte) { return (byte & 0xC0U) != 0x80U; });
}

bool isUnsigned(int type)
{
    return type == AT_UINT8 || type == AT_UINT16 || type == AT_UINT32;
}

Json valueIn(const ValueLayout& layout, std::span<const std::uint8_t> bytes)
{
    SubscriptionEntry entry;
    entry.value = layout;
    return jsonOfData(entry, bytes);
}

bool isNear(double wanted, double got)
{
    return wanted == got || std::abs(wanted - got) <= std::abs(wanted) * RealPrecision;
}

bool isSame(const Json& wanted, const Json& got)
{
    return wanted.is_number() && got.is_number() ? isNear(wanted.get<double>(), got.get<double>()) : wanted == got;
}

std::string numberReason(const ValueLayout& layout, bool isMember, const Json& wanted, const Json& got)
{
    const std::string type = nameOf({layout.type, layout.length, 0});
    if (!wanted.is_number())
        return "it is no number";
    if (layout.type == AT_REAL)
        return "a REAL holds some seven digits, up to 3.4e38";
    const bool isZero = got.is_number() && got.get<double>() == 0;
    if (wanted.is_number_float() && isMember && isUnsigned(layout.type) && !isZero)
        return "numbers for unsigned members are rounded, then cut to the type's width";
    if (wanted.is_number_float())
        return "it is not written as a whole number";
    if (isZero && isUnsigned(layout.type) && wanted.get<double>() < 0)
        return "an unsigned type takes no negative number";
    if (isZero)
        return "it is outside " + type + ", and what 32 bits don't hold becomes 0";
    return "it is outside " + type + ", and numbers are cut to the type's width";
}

std::string reasonFor(const ValueLayout& layout, bool isMember, const Json& wanted, const Json& got)
{
    if (layout.type == AT_BOOL)
        return "only true, in exactly these letters, is 1";
    return numberReason(layout, isMember, wanted, got);
}

std::string difference(const std::string& place, const ValueLayout& layout, bool isMember, const Json& wanted,
                       const Json& got)
{
    return place + wanted.dump(-1, ' ', false, Json::error_handler_t::replace) + " became " + got.dump() + ": " +
           reasonFor(layout, isMember, wanted, got);
}

std::vector<std::string> listSurprises(const ValueLayout& layout, bool isMember, const Json& wanted, const Json& got)
{
    std::vector<std::string> notes;
    const std::size_t both = std::min(wanted.size(), got.size());
    for (std::size_t i = 0; i < both; ++i) {
        if (isMember && wanted[i].is_null()) {
            notes.push_back("element " + std::to_string(i + 1) + ": null takes no element, so those behind it move up");
            return notes;
        }
        if (wanted[i].is_array()) {
            notes.emplace_back(isMember ? "a list within the list is no value: 0"
                                        : "lists within lists are taken as one long list");
            return notes;
        }
        if (!isSame(wanted[i], got[i]) && notes.size() < MostNotes)
            notes.push_back(difference("element " + std::to_string(i + 1) + ": ", layout, isMember, wanted[i], got[i]));
    }
    if (wanted.size() < got.size())
        notes.push_back("the list has " + std::to_string(wanted.size()) + " of " + std::to_string(got.size()) +
                        " elements: the rest is 0");
    if (wanted.size() > got.size())
        notes.push_back("the list has " + std::to_string(wanted.size()) + " elements, the tag " +
                        std::to_string(got.size()) + ": the rest is ignored");
    return notes;
}

std::vector<std::string> textSurprises(const ValueLayout& layout, bool isMember, std::string_view payload,
                                       const std::optional<Json>& wanted, const Json& got)
{
    if (isMember && !wanted->is_string())
        return {wanted->dump() + " is no text: the member is empty"};
    std::vector<std::string> notes;
    const std::string text = isMember ? wanted->get<std::string>() : std::string(payload);
    if (!isMember && wanted && wanted->is_string())
        notes.emplace_back("quotes and escapes stay in the text: a tag of its own takes the payload as it is");
    const std::string held = got.is_string() ? got.get<std::string>() : std::string();
    // A member's last place is for its terminator: a text that fills it too looks whole here and isn't.
    if (held == text && charactersOf(text) <= layout.length)
        return notes;
    const bool isAscii = std::all_of(text.begin(), text.end(), [](unsigned char c) { return c < 0x80; });
    if (layout.type == AT_STR8 && !isAscii)
        notes.emplace_back("an STR8 gets as many bytes as the text has characters: one with letters beyond ASCII "
                           "loses its end; use STR16");
    else if (isMember)
        notes.emplace_back("the text is longer than its member and runs on into what lies behind it");
    else
        notes.push_back("the text is cut to " + std::to_string(layout.length) + " characters");
    return notes;
}

} // namespace

std::vector<std::string> surprisesOf(const TagPart& part, bool isMember, std::string_view payload,
                                     const std::optional<Json>& wanted, std::span<const std::uint8_t> bytes)
{
    if (isMember && !wanted)
        return {"the message has no key " + inQuotes(part.name) + ": 0, false or the empty text"};
    const Json got = valueIn(part.layout, bytes);
    if (isText(part.layout))
        return textSurprises(part.layout, isMember, payload, wanted, got);
    if (part.layout.entries != 0) {
        if (wanted && wanted->is_array())
            return listSurprises(part.layout, isMember, *wanted, got);
        return {isMember ? "it is no list: all elements are 0" : "the payload is no list: all elements are 0"};
    }
    const Json asked = wanted ? *wanted : Json(std::string(payload));
    return isSame(asked, got) ? std::vector<std::string>()
                              : std::vector{difference("", part.layout, isMember, asked, got)};
}

} // namespace plcctl
