#include "check/configuration.h"

#include "check/wording.h"
#include "Records/argtype.h"

#include <algorithm>
#include <QFile>
#include <QStringList>

namespace plcctl::check {

namespace {

constexpr int OffsetPrefixLength = 2; // of "0x"

// The elements that the service reads as entries: the first one of that name, and all that follow it.
std::vector<Entry> entriesOf(FileIndex file, const Element* list, const char* name)
{
    std::vector<Entry> entries;
    if (list == nullptr)
        return entries;
    for (const Element& child : list->children) {
        if (!entries.empty() || child.name == QLatin1String(name))
            entries.emplace_back(file, child);
    }
    return entries;
}

Member memberOf(const Entry& entry)
{
    const ValueLayout value = entry.layout();
    const std::int64_t offset = entry.text("Off").mid(OffsetPrefixLength).toUInt(nullptr, 16);
    return {entry, entry.text("DName"), value, offset, sizeOf(value)};
}

std::vector<Member> membersOf(FileIndex file, const Element& element)
{
    std::vector<Member> members;
    for (const Entry& entry : entriesOf(file, element.firstChild("DataMembers"), "DataMember"))
        members.push_back(memberOf(entry));
    return members;
}

Caller callerOf(FileIndex file, const Entry& entry)
{
    Caller caller{entry,
                  file == PublicationsFile,
                  entry.number("ID"),
                  entry.number("CBrokerID"),
                  entry.number("PayloadFormat"),
                  entry.layout(),
                  {},
                  0};
    if (caller.value.type == AT_STRUCT)
        caller.members = membersOf(file, entry.element());
    if (!caller.members.empty())
        caller.size = caller.members.back().offset + caller.members.back().size;
    else
        caller.size = sizeOf(caller.value);
    return caller;
}

// The list of a file whose top element is the right one.
const Element* listOf(const Configuration& configuration, FileIndex file, const char* top, const char* list)
{
    const Element* element = configuration.top(file);
    return element == nullptr || element->name != QLatin1String(top) ? nullptr : element->firstChild(list);
}

std::vector<Caller> callersOf(FileIndex file, const Element* list, const char* name)
{
    std::vector<Caller> callers;
    for (const Entry& entry : entriesOf(file, list, name))
        callers.push_back(callerOf(file, entry));
    return callers;
}

} // namespace

void collectEntries(Configuration& configuration)
{
    const Element* brokers = listOf(configuration, BrokersFile, "BrokersConf", "Brokers");
    for (const Entry& entry : entriesOf(BrokersFile, brokers, "BrokerConf"))
        configuration.brokers.push_back({entry, entry.number("ID"), entry.address("EncryptionType")});
    configuration.subscriptions =
        callersOf(SubscriptionsFile, listOf(configuration, SubscriptionsFile, "SubscriptionsConf", "Subscriptions"),
                  "SubscriptionConf");
    configuration.publications =
        callersOf(PublicationsFile, listOf(configuration, PublicationsFile, "PublicationsConf", "Publications"),
                  "PublicationConf");
}

bool isTextType(int argType)
{
    return argType == AT_STR8 || argType == AT_STR16 || argType == AT_STR32;
}

std::optional<std::string> Surroundings::inTree(const std::string& devicePath) const
{
    return root ? std::optional(*root + devicePath) : std::nullopt;
}

std::string Surroundings::inDirectory(const QString& fileName) const
{
    return directory + "/" + fileName.toStdString();
}

QString Entry::text(std::string_view attribute) const
{
    const Attribute* found = m_element->attribute(attribute);
    return found == nullptr ? QString() : found->value;
}

int Entry::number(std::string_view attribute) const
{
    return text(attribute).toInt();
}

std::uint32_t Entry::address(std::string_view attribute) const
{
    return text(attribute).toUInt();
}

ValueLayout Entry::layout() const
{
    const QStringList parts = text("DataType").split('_');
    ValueLayout result{parts.value(0).toInt(), NO_DATA_LEN, number("Ent")};
    if (parts.size() > 1)
        result.length = parts.at(1).toInt();
    return result;
}

Site Entry::site(std::string_view attribute) const
{
    const Attribute* found = m_element->attribute(attribute);
    return found == nullptr ? site() : Site{m_file, found->place};
}

const Element* Configuration::top(FileIndex file) const
{
    const auto& top = files.at(file).document.top;
    return top ? &*top : nullptr;
}

const Broker* Configuration::broker(int id) const
{
    const auto found =
        std::find_if(brokers.begin(), brokers.end(), [id](const Broker& broker) { return broker.id == id; });
    return found == brokers.end() ? nullptr : &*found;
}

} // namespace plcctl::check
