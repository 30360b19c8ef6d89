#include "entities.h"

#include "failure.h"
#include "output.h"

#include <charconv>
#include <limits>
#include <optional>
#include <vector>

namespace plcctl {

namespace {

struct NamedId
{
    int id;
    std::string name;
};

template<typename Entry>
std::vector<NamedId> namedIds(const std::vector<Entry>& entries)
{
    std::vector<NamedId> result;
    result.reserve(entries.size());
    for (const Entry& entry : entries)
        result.push_back({entry.id, entry.name});
    return result;
}

std::vector<NamedId> entitiesOf(const DeviceConfig& config, EntityKind kind)
{
    switch (kind) {
    case EntityKind::Broker:
        return namedIds(config.brokers);
    case EntityKind::Subscription:
        return namedIds(config.subscriptions);
    case EntityKind::Publication:
        break;
    }
    return namedIds(config.publications);
}

std::optional<long long> wholeNumber(const std::string& text)
{
    long long value = 0;
    const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    const bool whole = error == std::errc{} && stop == text.data() + text.size();
    return whole ? std::optional(value) : std::nullopt;
}

EntityReference addressable(EntityKind kind, long long id, const std::string& name)
{
    if (id < 0 || id > std::numeric_limits<std::uint16_t>::max()) {
        throw Failure(ExitCode::Usage, std::string("a request can name the IDs 0 to 65535, and not the ") +
                                           nameOf(kind) + " " + std::to_string(id));
    }
    return {kind, static_cast<std::uint16_t>(id), name};
}

std::string list(const std::vector<NamedId>& entities)
{
    std::string text;
    for (const NamedId& entity : entities)
        text += (text.empty() ? "" : ", ") + std::to_string(entity.id) + " " + inQuotes(entity.name);
    return text;
}

} // namespace

const char* nameOf(EntityKind kind)
{
    switch (kind) {
    case EntityKind::Broker:
        return "broker";
    case EntityKind::Subscription:
        return "subscription";
    case EntityKind::Publication:
        break;
    }
    return "publication";
}

EntityReference findEntity(const DeviceConfig& config, EntityKind kind, const std::string& text)
{
    const std::vector<NamedId> entities = entitiesOf(config, kind);
    if (const auto id = wholeNumber(text)) {
        for (const NamedId& entity : entities) {
            if (entity.id == *id)
                return addressable(kind, *id, entity.name);
        }
        return addressable(kind, *id, "");
    }

    std::vector<NamedId> found;
    for (const NamedId& entity : entities) {
        if (entity.name == text)
            found.push_back(entity);
    }
    if (found.size() == 1)
        return addressable(kind, found.front().id, found.front().name);
    if (!found.empty()) {
        throw Failure(ExitCode::Usage, inQuotes(text) + " is the name of more than one " + nameOf(kind) + ": " +
                                           list(found) + "; say which one by its ID");
    }
    throw Failure(ExitCode::Usage,
                  std::string("there is no ") + nameOf(kind) + " " + inQuotes(text) +
                      (entities.empty() ? ", the configuration files name none" : "; there are " + list(entities)));
}

std::string describe(const EntityReference& entity)
{
    return std::string(nameOf(entity.kind)) + " " + std::to_string(entity.id) +
           (entity.name.empty() ? "" : " " + inQuotes(entity.name));
}

} // namespace plcctl
