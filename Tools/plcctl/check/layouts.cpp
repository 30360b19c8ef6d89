#include "check/checks.h"
#include "check/wording.h"
#include "Records/argtype.h"

#include <algorithm>
#include <map>

namespace plcctl::check {

namespace {

void checkArray(const Entry& entry, const ValueLayout& value, Findings& findings)
{
    if (value.entries == 0)
        return;
    if (isTextType(value.type))
        findings.warning(entry.site("Ent"), "ignored-entries",
                         "Ent plays no part for a text: there are no arrays of texts; write 0");
    else if (value.type == AT_STRUCT)
        findings.warning(entry.site("Ent"), "ignored-entries",
                         "Ent plays no part for a struct: there are no arrays of structs; write 0");
}

class StructCheck
{
public:
    StructCheck(const Caller& caller, Findings& findings) : m_caller(caller), m_findings(findings) {}

    void check()
    {
        if (m_caller.members.empty()) {
            return m_findings.error(m_caller.entry.site("DataType"), "struct-without-members",
                                    "DataType 10 is a struct, and it has no members: its size is 0; add DataMembers "
                                    "with a DataMember for each");
        }
        for (const Member& member : m_caller.members) {
            checkMember(member);
            checkPlace(member);
            m_previous = &member;
        }
    }

private:
    void checkMember(const Member& member)
    {
        checkArray(member.entry, member.value, m_findings);
        if (member.value.type == AT_STRUCT)
            m_findings.error(member.entry.site("DataType"), "struct-in-struct",
                             "a struct can't be the member of another: it has no data; write its members here, with "
                             "their offsets in the whole");
        if (m_caller.format != PayloadFormat::Json)
            return;
        checkName(member);
    }

    void checkName(const Member& member)
    {
        const Site site = member.entry.site("DName");
        if (member.name.isEmpty()) {
            if (member.entry.element().attribute("DName") != nullptr)
                m_findings.error(site, "member-without-name",
                                 "DName is empty: the member's JSON key is the empty text; write a name");
            return;
        }
        const auto [found, isFirst] = m_names.try_emplace(member.name, &member);
        if (!isFirst)
            m_findings.error(site, "duplicate-member",
                             "the member in line " + std::to_string(found->second->entry.site().place.line) +
                                 " is called " + quoted(member.name) +
                                 " as well: whoever reads the JSON sees one of them; write another name");
        if (m_caller.isPublication && isUnescapable(member.name))
            m_findings.error(site, "member-name",
                             "DName " + quoted(member.name) +
                                 " holds a quote, a backslash or a control character: nothing is escaped, and the "
                                 "message is no valid JSON; write a name without");
    }

    static bool isUnescapable(const QString& name)
    {
        return std::any_of(name.begin(), name.end(),
                           [](QChar c) { return c == '"' || c == '\\' || c.unicode() < ' '; });
    }

    void checkPlace(const Member& member)
    {
        if (m_previous == nullptr)
            return;
        const Site site = member.entry.site("Off");
        const std::string other = "line " + std::to_string(m_previous->entry.site().place.line);
        const std::int64_t end = m_previous->offset + m_previous->size;
        if (member.offset < m_previous->offset)
            m_findings.error(site, "member-order",
                             "this member lies ahead of the one in " + other +
                                 ": the last member alone decides on the struct's size; list members by rising offset");
        else if (member.offset < end)
            m_findings.add(m_caller.isPublication ? Severity::Warning : Severity::Error, site, "member-overlap",
                           "this member overlaps the one in " + other + ", which takes bytes " +
                               std::to_string(m_previous->offset) + " to " + std::to_string(end - 1) +
                               (m_caller.isPublication ? "" : ": each message writes one over the other") +
                               "; write the offset 0x" + QString::number(end, 16).toStdString() + " or more");
    }

    const Caller& m_caller;
    Findings& m_findings;
    const Member* m_previous = nullptr;
    std::map<QString, const Member*> m_names;
};

// What the format makes of the tag.
void checkFormat(const Caller& caller, Findings& findings)
{
    const bool isScript =
        caller.format == PayloadFormat::Protobuf || caller.format == PayloadFormat::TriggeredOperation;
    if (!isScript)
        return;
    if (!caller.isPublication)
        findings.error(caller.entry.site("PayloadFormat"), "format-without-data",
                       "PayloadFormat " + std::to_string(caller.format) +
                           " writes nothing to the tag of a subscription: the arrival is recorded, and the message "
                           "lost; write 0 (raw) or 1 (JSON)");
    else if (caller.value.type != AT_STR8)
        findings.warning(
            caller.entry.site("DataType"), "script-tag",
            std::string("the tag holds ") +
                (caller.format == PayloadFormat::Protobuf ? "the name of a file" : "the argument of a script") +
                ", as text up to the first zero byte; write the type of an STR8, such as 11_63");
}

void checkCaller(const Caller& caller, Findings& findings)
{
    checkFormat(caller, findings);
    checkArray(caller.entry, caller.value, findings);
    if (caller.value.type == AT_STRUCT)
        return StructCheck(caller, findings).check();
    if (const Element* members = caller.entry.element().firstChild("DataMembers"))
        findings.warning({caller.entry.site().file, members->place}, "ignored-members",
                         "DataMembers is not looked at: DataType is " + std::to_string(caller.value.type) +
                             ", and only a struct (10) has members");
}

} // namespace

void checkLayouts(const Configuration& configuration, Findings& findings)
{
    forEachCaller(configuration, [&](const Caller& caller) { checkCaller(caller, findings); });
}

} // namespace plcctl::check
