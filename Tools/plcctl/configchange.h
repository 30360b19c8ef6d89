#pragma once

#include "configfile.h"
#include "fieldassignment.h"

#include <vector>

namespace plcctl {

// A record before and after some of its fields were set. All others stay as they stand in the configuration file.
class ConfigChange
{
public:
    // `reported` is the record as the service reported it; `attributes`, of the entity's file, may be null. Throws
    // Failure (failed) if a field that isn't set could not be sent back as it is.
    ConfigChange(const ConfigRecord& reported, const Attributes* attributes, std::vector<FieldAssignment> assignments);

    [[nodiscard]] const ConfigRecord& before() const { return m_before; }

    [[nodiscard]] const ConfigRecord& after() const { return m_after; }

    [[nodiscard]] const std::vector<FieldAssignment>& assignments() const { return m_assignments; }

    // Whether these attributes say what the changed record says.
    [[nodiscard]] bool isIn(const Attributes* attributes) const;

private:
    [[nodiscard]] bool isSet(const RecordField& field) const;

    std::vector<FieldAssignment> m_assignments;
    ConfigRecord m_before;
    ConfigRecord m_after;
};

} // namespace plcctl
