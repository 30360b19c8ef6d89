#include "check/checks.h"
#include "check/wording.h"

#include <map>

namespace plcctl::check {

namespace {

std::string lineOf(const Entry& entry)
{
    return "line " + std::to_string(entry.site().place.line);
}

// Tells of every entry that has what an earlier one has.
template<typename Key>
class Doubles
{
public:
    // The entry that had it first; null where this is the one.
    const Entry* firstOf(const Key& key, const Entry& entry)
    {
        const auto [found, isFirst] = m_entries.try_emplace(key, entry);
        return isFirst ? nullptr : &found->second;
    }

private:
    std::map<Key, Entry> m_entries;
};

class ListCheck
{
public:
    ListCheck(const char* kind, Findings& findings) : m_kind(kind), m_findings(findings) {}

    void check(const Entry& entry)
    {
        checkId(entry);
        const QString name = entry.text("Name");
        if (name.isEmpty())
            return;
        if (const Entry* first = m_names.firstOf(name, entry)) {
            m_findings.warning(entry.site("Name"), "duplicate-name",
                               "another " + m_kind + ", at " + lineOf(*first) + ", is called " + quoted(name) +
                                   " as well: log lines don't tell the two apart, and plcctl doesn't take the name; "
                                   "give one of them another");
        }
    }

private:
    void checkId(const Entry& entry)
    {
        const int id = entry.number("ID");
        if (const Entry* first = m_ids.firstOf(id, entry)) {
            m_findings.error(entry.site("ID"), "duplicate-id",
                             "the ID " + std::to_string(id) + " has the " + m_kind + " at " + lineOf(*first) +
                                 " already: whoever names it reaches that one alone; give this one another ID");
        }
    }

    std::string m_kind;
    Findings& m_findings;
    Doubles<int> m_ids;
    Doubles<QString> m_names;
};

std::string idsOf(const std::vector<Broker>& brokers)
{
    constexpr std::size_t MostShown = 10;
    std::string ids;
    for (std::size_t at = 0; at < brokers.size() && at < MostShown; ++at)
        ids += (at == 0 ? "" : ", ") + std::to_string(brokers[at].id);
    return brokers.size() > MostShown ? ids + ", ..." : ids;
}

void checkBrokerOf(const Caller& caller, const Configuration& configuration, Findings& findings)
{
    const Site site = caller.entry.site("CBrokerID");
    const Broker* broker = configuration.broker(caller.brokerId);
    if (broker == nullptr) {
        const std::string choice = configuration.brokers.empty() ? "there is none" : idsOf(configuration.brokers);
        return findings.error(site, "unknown-broker",
                              "CBrokerID " + std::to_string(caller.brokerId) +
                                  " names no broker: the service counts it as not connected for ever; write the ID of "
                                  "a broker in Brokers.xml (" +
                                  choice + ")");
    }
    const bool isSubscribedAtBoot = !caller.isPublication && caller.entry.number("SubscribeAtBoot") != 0;
    if (isSubscribedAtBoot && broker->entry.number("AutoConnect") == 0) {
        findings.warning(caller.entry.site("SubscribeAtBoot"), "subscribed-unconnected",
                         "SubscribeAtBoot has no effect: broker " + std::to_string(broker->id) +
                             " isn't connected at the start (AutoConnect 0), and nothing subscribes later but a "
                             "request; write AutoConnect=\"1\" there, or SubscribeAtBoot=\"0\" here");
    }
}

} // namespace

void checkIdentities(const Configuration& configuration, Findings& findings)
{
    ListCheck brokers("broker", findings);
    for (const Broker& broker : configuration.brokers)
        brokers.check(broker.entry);
    ListCheck subscriptions("subscription", findings);
    ListCheck publications("publication", findings);
    // Where the brokers can't be read to the end, nobody knows who is missing.
    const bool areBrokersKnown =
        configuration.top(BrokersFile) != nullptr && !configuration.files[BrokersFile].document.problem;
    forEachCaller(configuration, [&](const Caller& caller) {
        (caller.isPublication ? publications : subscriptions).check(caller.entry);
        if (areBrokersKnown)
            checkBrokerOf(caller, configuration, findings);
    });
    const Element* top = configuration.top(BrokersFile);
    if (areBrokersKnown && configuration.brokers.empty())
        findings.error({BrokersFile, top->place}, "no-broker",
                       "no broker is configured: the service ends at its start; add a BrokerConf to Brokers");
}

} // namespace plcctl::check
