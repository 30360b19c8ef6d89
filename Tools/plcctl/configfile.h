#pragma once

#include "configrecord.h"
#include "deviceconfig.h"

#include <vector>

namespace plcctl {

// An entity's attributes in its configuration file, the first entity's with this ID as for the service; null where the
// files have none.
const Attributes* attributesOf(const DeviceConfig& config, EntityKind kind, int id);

// "Brokers.xml"
const char* configFileName(EntityKind kind);

// Makes the record what the file says, as far as it says something. What the service reports of an entity is not always
// what stands in its file: variables are replaced, and a client identifier that is left out is made up. Returns the
// fields whose value in the file no record can hold.
std::vector<const RecordField*> takeFromFile(ConfigRecord& record, const Attributes& attributes);

} // namespace plcctl
