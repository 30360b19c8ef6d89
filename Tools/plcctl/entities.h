#pragma once

#include "deviceconfig.h"

#include <cstdint>
#include <string>

namespace plcctl {

enum class EntityKind
{
    Broker,
    Subscription,
    Publication
};

// "broker"
const char* nameOf(EntityKind kind);

// An entity as a request addresses it.
struct EntityReference
{
    EntityKind kind;
    std::uint16_t id = 0;
    std::string name; // empty where the configuration knows no such ID
};

// The entity that people mean by `text`: its unique ID, which may be one that no entity has, or else its name from the
// configuration. Throws Failure (usage) for a name that none or several entities have.
EntityReference findEntity(const DeviceConfig& config, EntityKind kind, const std::string& text);

// "broker 1 'plant'"
std::string describe(const EntityReference& entity);

} // namespace plcctl
