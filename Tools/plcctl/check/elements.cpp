#include "check/checks.h"
#include "check/values.h"
#include "check/wording.h"
#include "schema/configurationfiles.h"

#include <algorithm>

namespace plcctl::check {

namespace {

constexpr std::uint32_t HighestLevel = 5;
// Of one element: looking for names that are near takes its time, and a hostile file may have a million.
constexpr int MostUnknown = 100;

template<typename Known>
std::vector<std::string> namesOf(std::span<const Known> known)
{
    std::vector<std::string> names;
    for (const Known& one : known)
        names.emplace_back(one.name);
    return names;
}

// What editors and schemas bring along.
bool isForEditors(const QString& attribute)
{
    return attribute == "xmlns" || attribute.startsWith("xmlns:") || attribute.startsWith("xsi:") ||
           attribute.startsWith("xml:");
}

bool isReadAt(const schema::Attribute& known, std::uint32_t level)
{
    return known.levels == 0 || (level <= HighestLevel && ((known.levels >> level) & 1U) != 0);
}

class ElementCheck
{
public:
    ElementCheck(int file, Findings& findings) : m_file(file), m_findings(findings) {}

    void check(const Element& element, const schema::Element& known)
    {
        checkAttributes(element, known);
        if (element.hasText) {
            m_findings.warning(site(element), "text",
                               nameOf(element) + " holds text: the service reads attributes alone and passes over it");
        }
        checkChildren(element, known);
    }

private:
    [[nodiscard]] Site site(const Element& element) const { return {m_file, element.place}; }
    [[nodiscard]] Site site(const Attribute& attribute) const { return {m_file, attribute.place}; }
    static std::string nameOf(const Element& element) { return quoted(element.name); }

    void checkAttributes(const Element& element, const schema::Element& known)
    {
        const Entry entry(m_file, element);
        const std::uint32_t level = entry.address("EncryptionType");
        int unknown = 0;
        for (const Attribute& attribute : element.attributes) {
            const schema::Attribute* found = schema::findAttribute(known, attribute.name.toStdString());
            if (!attribute.unknownEntity.isEmpty()) {
                m_findings.error(site(attribute), "unknown-entity",
                                 quoted(attribute.name) + " holds " + quoted(attribute.unknownEntity) +
                                     ", which stands for nothing: the service leaves it out; write '&amp;' for an "
                                     "ampersand");
            }
            if (attribute.isRepeated) {
                m_findings.error(site(attribute), "repeated-attribute",
                                 quoted(attribute.name) + " stands in this element already: the service takes the last "
                                                          "one; remove the others");
            } else if (found == nullptr) {
                if (++unknown <= MostUnknown)
                    reportUnknown(attribute, known);
            } else if (!isReadAt(*found, level)) {
                reportIgnored(attribute, *found, level);
            } else {
                checkValue(*found, attribute, m_file, m_findings);
            }
        }
        for (const schema::Attribute& wanted : known.attributes) {
            if (isReadAt(wanted, level) && element.attribute(wanted.name) == nullptr)
                reportMissing(element, wanted);
        }
    }

    void reportUnknown(const Attribute& attribute, const schema::Element& known)
    {
        if (isForEditors(attribute.name))
            return;
        const std::string near = suggestion(namesOf(known.attributes), attribute.name);
        m_findings.add(near.empty() ? Severity::Warning : Severity::Error, site(attribute), "unknown-attribute",
                       quoted(attribute.name) + " is no attribute of " + std::string(known.name) + near +
                           ": the service passes over it");
    }

    void reportIgnored(const Attribute& attribute, const schema::Attribute& known, std::uint32_t level)
    {
        if (attribute.value.isEmpty())
            return;
        std::string levels;
        for (std::uint32_t other = 0; other <= HighestLevel; ++other) {
            if (isReadAt(known, other))
                levels += (levels.empty() ? "" : ", ") + std::to_string(other);
        }
        m_findings.warning(site(attribute), "ignored-attribute",
                           std::string(known.name) + " is not read at EncryptionType " + std::to_string(level) +
                               ", only at " + levels + "; remove it, or mend EncryptionType");
    }

    void reportMissing(const Element& element, const schema::Attribute& wanted)
    {
        const bool isUsable = isInRange(wanted, named(wanted.whenMissing)) && !wanted.required;
        const std::string taken = wanted.whenMissing.empty() ? "an empty text" : std::string(wanted.whenMissing);
        // With names of their own, so that those who leave out what they don't need can ignore the harmless ones.
        m_findings.add(isUsable ? Severity::Warning : Severity::Error, site(element),
                       isUsable ? "default-taken" : "missing-attribute",
                       std::string(wanted.name) + " is missing: the service takes " + taken + "; write " +
                           std::string(wanted.name) + "=\"" +
                           (isUsable ? std::string(wanted.whenMissing) + "\" if that is meant" : "...\""));
    }

    void checkChildren(const Element& element, const schema::Element& known)
    {
        const auto repeated = std::find_if(known.children.begin(), known.children.end(),
                                           [](const schema::Element& child) { return child.repeated; });
        bool hasBegun = false;
        for (const Element& child : element.children) {
            const schema::Element* found = schema::findChild(known, child.name.toStdString());
            if (found != nullptr && (found->repeated || element.firstChild(found->name) == &child)) {
                hasBegun |= found->repeated;
                check(child, *found);
            } else if (found != nullptr) {
                m_findings.error(site(child), "repeated-element",
                                 nameOf(child) + " stands here a second time: the service takes the first alone; put "
                                                 "their contents into one");
            } else if (hasBegun) {
                m_findings.warning(site(child), "entry-name",
                                   nameOf(child) + " is read as a " + std::string(repeated->name) +
                                       ", as every element behind the first one; write '" +
                                       std::string(repeated->name) + "', or remove it");
                check(child, *repeated);
            } else {
                reportUnknown(child, known);
            }
        }
    }

    void reportUnknown(const Element& child, const schema::Element& known)
    {
        const std::string near = suggestion(namesOf(known.children), child.name);
        m_findings.add(near.empty() ? Severity::Warning : Severity::Error, site(child), "unknown-element",
                       nameOf(child) + " is no element of " + std::string(known.name) + near +
                           ": the service passes over it and all that it holds");
    }

    int m_file;
    Findings& m_findings;
};

// Without these there is nothing to read, so it is told at the top.
void checkRequired(const Configuration& configuration, FileIndex file, const schema::Element& known, Findings& findings)
{
    const Element& top = *configuration.top(file);
    for (const schema::Element& child : known.children) {
        if (child.required && top.firstChild(child.name) == nullptr) {
            findings.error({file, top.place}, "missing-element",
                           "'" + std::string(child.name) + "' is missing in '" + std::string(known.name) +
                               "': " + (file == GeneralFile ? "the service ends at its start" : "it has no entry"));
        }
    }
}

void checkFile(const Configuration& configuration, FileIndex file, Findings& findings)
{
    const Element* top = configuration.top(file);
    if (top == nullptr)
        return;
    const schema::Element& known = schema::configurationFiles()[file].top;
    if (top->name != named(known.name)) {
        return findings.error({file, top->place}, "top-element",
                              "the top element is " + quoted(top->name) + ", not '" + std::string(known.name) +
                                  "': the service finds nothing in this file" +
                                  (file <= BrokersFile ? " and ends at its start" : ""));
    }
    ElementCheck(file, findings).check(*top, known);
    // Of a broken file, what is missing may stand behind the break.
    if (!configuration.files.at(file).document.problem)
        checkRequired(configuration, file, known, findings);
}

} // namespace

void checkElements(const Configuration& configuration, Findings& findings)
{
    for (const FileIndex file : {GeneralFile, BrokersFile, SubscriptionsFile, PublicationsFile})
        checkFile(configuration, file, findings);
}

} // namespace plcctl::check
