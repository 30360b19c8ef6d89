#include "configuredvalue.h"

#include "tagtypes.h"

#include "Records/argtype.h"

#include <algorithm>
#include <array>

namespace plcctl {

namespace {

using ByteSpan = std::span<const std::uint8_t>;

struct TypeName
{
    int type; // ArgType
    const char* name;
};

constexpr std::array TypeNames{
    TypeName{AT_BOOL, "BOOL"},     TypeName{AT_INT8, "INT8"},     TypeName{AT_UINT8, "UINT8"},
    TypeName{AT_INT16, "INT16"},   TypeName{AT_UINT16, "UINT16"}, TypeName{AT_INT32, "INT32"},
    TypeName{AT_UINT32, "UINT32"}, TypeName{AT_REAL, "REAL"},     TypeName{AT_STR8, "STR8"},
    TypeName{AT_STR16, "STR16"},   TypeName{AT_STR32, "STR32"},
};

const TagType& tagTypeOf(int type)
{
    const char* const name = typeNameOf(type);
    return *findTagType(name ? name : "BYTES");
}

std::string textOf(const ValueLayout& value, ByteSpan bytes)
{
    const TagType& type = tagTypeOf(value.type);
    const std::string text = textFromBytes(type, bytes);
    return type.kind == TagKind::Text ? "'" + text + "'" : text;
}

Json jsonOf(const ValueLayout& value, ByteSpan bytes)
{
    const TagType& type = tagTypeOf(value.type);
    if (bytes.size() < type.unitSize)
        return nullptr;
    return jsonFromBytes(type, bytes, value.entries > 0);
}

// The bytes of a member, as far as they are there.
ByteSpan bytesOf(const MemberEntry& member, ByteSpan bytes)
{
    const std::size_t begin = std::min<std::size_t>(member.offset, bytes.size());
    return bytes.subspan(begin, std::min<std::size_t>(sizeOf(member.value), bytes.size() - begin));
}

} // namespace

const char* typeNameOf(int type)
{
    const auto* const found =
        std::find_if(TypeNames.begin(), TypeNames.end(), [type](const TypeName& each) { return each.type == type; });
    return found == TypeNames.end() ? nullptr : found->name;
}

std::string textOfData(const ValueLayout& value, const std::vector<MemberEntry>& members, ByteSpan bytes)
{
    if (value.type != AT_STRUCT)
        return textOf(value, bytes);
    std::string text;
    for (const MemberEntry& member : members)
        text +=
            (text.empty() ? "" : ", ") + printable(member.name) + " " + textOf(member.value, bytesOf(member, bytes));
    return text;
}

std::string textOfData(const SubscriptionEntry& subscription, ByteSpan bytes)
{
    return textOfData(subscription.value, subscription.members, bytes);
}

Json jsonOfData(const ValueLayout& value, const std::vector<MemberEntry>& members, ByteSpan bytes)
{
    if (value.type != AT_STRUCT)
        return jsonOf(value, bytes);
    Json object = Json::object();
    for (const MemberEntry& member : members)
        object[member.name] = jsonOf(member.value, bytesOf(member, bytes));
    return object;
}

Json jsonOfData(const SubscriptionEntry& subscription, ByteSpan bytes)
{
    return jsonOfData(subscription.value, subscription.members, bytes);
}

} // namespace plcctl
