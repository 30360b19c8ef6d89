#pragma once

#include "deviceconfig.h"

#include "Entities/mqttcallerbase.h"

#include <string>
#include <vector>

namespace plcctl {

// One value of a tag: the tag itself, or a member of a struct.
struct TagPart
{
    std::string name; // of a member; empty for the tag itself
    std::uint32_t offset = 0;
    ValueLayout layout;
};

// "INT32", "INT32[4]", "STR16:20" as type, elements and characters. Throws Failure (usage) for anything else; a text
// without its length is refused, since it would have no room.
ValueLayout parseTagForm(const std::string& form);

// "INT32[4]", as above; "type 13" for a number that is none.
std::string nameOf(const ValueLayout& layout);

// The values that an entity's tag is made of, in the order of the file.
std::vector<TagPart> partsOf(const MQTTCallerBase& entity);

// Gives an entity the type of a tag, and its payload format.
void setForm(MQTTCallerBase& entity, const ValueLayout& layout, MQTTPayloadFormat format);

} // namespace plcctl
