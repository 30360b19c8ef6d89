#include "configfile.h"

#include "devicepaths.h"

#include <algorithm>
#include <QString>

namespace plcctl {

namespace {

template<typename Entry>
const Attributes* attributesIn(const std::vector<Entry>& entries, int id)
{
    const auto found =
        std::find_if(entries.begin(), entries.end(), [id](const Entry& entry) { return entry.id == id; });
    return found == entries.end() ? nullptr : &found->attributes;
}

bool takeField(ConfigRecord& record, const RecordField& field, const std::string& value)
{
    if (field.kind == FieldKind::Text)
        return record.setText(field, value);
    // As the service reads it: what is no number is 0, and every other one is true.
    const qlonglong number = QString::fromStdString(value).toLongLong();
    if (field.kind == FieldKind::Flag)
        return record.setNumber(field, number != 0 ? 1 : 0);
    return number >= 0 && record.setNumber(field, static_cast<std::uint64_t>(number));
}

} // namespace

const Attributes* attributesOf(const DeviceConfig& config, EntityKind kind, int id)
{
    switch (kind) {
    case EntityKind::Broker:
        return attributesIn(config.brokers, id);
    case EntityKind::Subscription:
        return attributesIn(config.subscriptions, id);
    case EntityKind::Publication:
        break;
    }
    return attributesIn(config.publications, id);
}

const char* configFileName(EntityKind kind)
{
    switch (kind) {
    case EntityKind::Broker:
        return DevicePaths::BrokersFile;
    case EntityKind::Subscription:
        return DevicePaths::SubscriptionsFile;
    case EntityKind::Publication:
        break;
    }
    return DevicePaths::PublicationsFile;
}

std::vector<const RecordField*> takeFromFile(ConfigRecord& record, const Attributes& attributes)
{
    std::vector<const RecordField*> refused;
    for (const RecordField& field : configFields(record.kind())) {
        if (field.attribute == nullptr)
            continue;
        const auto found = attributes.find(field.attribute);
        if (found != attributes.end() && !takeField(record, field, found->second))
            refused.push_back(&field);
    }
    return refused;
}

} // namespace plcctl
