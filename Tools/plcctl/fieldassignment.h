#pragma once

#include "configrecord.h"

#include <string>
#include <vector>

namespace plcctl {

// A field and the value that people give it, as FIELD=VALUE.
struct FieldAssignment
{
    const RecordField* field;
    std::string value;
};

// Field names count in any case. Throws Failure (usage) for a text that is no assignment, for an unknown field, for one
// that no request changes, for a field that comes twice, and for a value that its field can't take.
std::vector<FieldAssignment> parseAssignments(EntityKind kind, const std::vector<std::string>& texts);

// Into the record; the assignments have to be of its kind.
void assign(ConfigRecord& record, const std::vector<FieldAssignment>& assignments);

} // namespace plcctl
