#include "configchange.h"

#include "failure.h"

#include <algorithm>

namespace plcctl {

ConfigChange::ConfigChange(const ConfigRecord& reported, const Attributes* attributes,
                           std::vector<FieldAssignment> assignments)
    : m_assignments(std::move(assignments)), m_before(reported), m_after(reported)
{
    std::vector<const RecordField*> refused;
    if (attributes)
        refused = takeFromFile(m_before, *attributes);
    for (const RecordField& field : configFields(reported.kind())) {
        if (isSet(field) || field.attribute == nullptr)
            continue;
        const bool isInFile = attributes && attributes->contains(field.attribute);
        const bool isRefused = std::find(refused.begin(), refused.end(), &field) != refused.end();
        const bool mayBeCut = field.kind == FieldKind::Text && !isInFile && m_before.isFull(field);
        if (m_before.isSound(field) && !isRefused && !mayBeCut)
            continue;
        throw Failure(ExitCode::Failed, std::string(field.name) +
                                            " has a value that the request can't carry, so that setting another "
                                            "field would change it: set it as well, or edit " +
                                            configFileName(reported.kind()) + "; nothing was changed");
    }
    m_after = m_before;
    assign(m_after, m_assignments);
}

bool ConfigChange::isIn(const Attributes* attributes) const
{
    if (!attributes)
        return false;
    ConfigRecord written = m_after;
    return takeFromFile(written, *attributes).empty() && std::ranges::equal(written.bytes(), m_after.bytes());
}

bool ConfigChange::isSet(const RecordField& field) const
{
    return std::any_of(m_assignments.begin(), m_assignments.end(),
                       [&field](const FieldAssignment& each) { return each.field == &field; });
}

} // namespace plcctl
