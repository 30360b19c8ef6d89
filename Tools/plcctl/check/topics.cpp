#include "check/checks.h"
#include "check/wording.h"

#include <array>
#include <map>
#include <QRegularExpression>
#include <set>

namespace plcctl::check {

namespace {

constexpr int LongestInRecord = 255;    // UTF-16 units
constexpr int LongestTopic = 65535;     // bytes
constexpr std::size_t MostUnknown = 10; // variables of one topic that are told of

const std::array<std::string, 3> Variables{"{PLC.NAME}", "{PLC.SN}", "{PLC.MAC}"};

// Checks a topic of any kind: of a publication, a subscription or a will.
class TopicCheck
{
public:
    TopicCheck(const Entry& entry, const char* attribute, Findings& findings)
        : m_topic(entry.text(attribute)), m_site(entry.site(attribute)), m_attribute(attribute), m_findings(findings),
          m_isThere(entry.element().attribute(attribute) != nullptr)
    {
    }

    void checkAny()
    {
        checkVariables();
        checkLength();
        if (m_topic != m_topic.trimmed())
            warning("topic-blanks", "begins or ends with a blank, which is part of the topic; remove it");
        static const QRegularExpression control(R"([\x{0}-\x{1f}\x{7f}-\x{9f}])");
        if (control.match(m_topic).hasMatch())
            warning("topic-control", "holds a control character: brokers may end the connection for it; remove it");
    }

    void checkPublication()
    {
        checkAny();
        if (m_topic.isEmpty() && m_isThere)
            error("empty-topic", "is empty: brokers end the connection at each message; write a topic");
        if (m_topic.contains('+') || m_topic.contains('#'))
            error("wildcard",
                  "holds a wildcard, and a publication goes to one topic: brokers end the connection at each message; "
                  "write it without '+' and '#'");
        if (m_topic.startsWith('$'))
            error("system-topic",
                  "begins with '$', which is the broker's own: it drops the message or ends the connection; write "
                  "another topic");
    }

    void checkSubscription()
    {
        checkAny();
        if (m_topic.isEmpty() && m_isThere)
            error("empty-topic", "is empty: brokers refuse the subscription, some end the connection; write a filter");
        if (m_topic.startsWith("$share/"))
            error("shared-subscription",
                  "asks for a shared subscription: what the broker sends for it matches nothing here, since the "
                  "messages' topics don't begin with '$share'; write the filter alone");
        if (!checkWildcards())
            return;
        const int hash = m_topic.indexOf('#');
        if (hash == -1)
            return;
        if (m_topic.contains('+'))
            error("filter-differs",
                  "has a '+' ahead of '#', where it is no wildcard here: the broker sends the messages, and the "
                  "service drops all whose topic has no '+' there; write one subscription for each, or '#' earlier");
        else if (hash > 0)
            warning("filter-differs",
                    "doesn't match " + quoted(m_topic.left(hash - 1)) +
                        " itself here, though it does by the MQTT standard; if that is wanted, subscribe to it as "
                        "well");
    }

private:
    void error(const char* rule, const std::string& text)
    {
        m_findings.error(m_site, rule, m_attribute + " " + quoted(m_topic) + " " + text);
    }
    void warning(const char* rule, const std::string& text)
    {
        m_findings.warning(m_site, rule, m_attribute + " " + quoted(m_topic) + " " + text);
    }

    // False when the filter breaks the standard's rules.
    bool checkWildcards()
    {
        const QStringList levels = m_topic.split('/');
        for (int at = 0; at < levels.size(); ++at) {
            const QString& level = levels.at(at);
            const bool isPlain = !level.contains('#') && !level.contains('+');
            const bool isLastHash = level == "#" && at == levels.size() - 1;
            if (isPlain || isLastHash || level == "+")
                continue;
            if (level == "#")
                error("filter-refused",
                      "has levels behind '#': the service wouldn't look at them, and brokers refuse the filter, some "
                      "end the connection; let '#' be the last");
            else
                error("filter-refused",
                      "has a wildcard that doesn't stand alone in its level, " + quoted(level) +
                          ": brokers refuse the filter, some end the connection; write the wildcard alone between "
                          "slashes");
            return false;
        }
        return true;
    }

    void checkVariables()
    {
        static const QRegularExpression braced(R"(\{[^{}/]*\})");
        std::set<QString> told;
        for (auto match = braced.globalMatch(m_topic); match.hasNext() && told.size() < MostUnknown;) {
            const QString name = match.next().captured();
            const bool isKnown = std::find(Variables.begin(), Variables.end(), name.toStdString()) != Variables.end();
            if (isKnown || !told.insert(name).second)
                continue;
            const std::string near = suggestion(Variables, name);
            const std::string text = "holds " + quoted(name) + ", which is no variable" + near +
                                     ": it goes out as it stands; there are {PLC.NAME}, {PLC.SN} and {PLC.MAC}";
            if (near.empty())
                warning("unknown-variable", text);
            else
                error("unknown-variable", text);
        }
    }

    // Variables count nothing: their values aren't known here.
    void checkLength()
    {
        QString plain = m_topic;
        for (const std::string& variable : Variables)
            plain.remove(QString::fromStdString(variable));
        const bool hasVariables = plain.size() != m_topic.size();
        const std::string length =
            std::to_string(plain.size()) + " characters" + (hasVariables ? " without its variables" : "");
        if (plain.toUtf8().size() > LongestTopic)
            error("topic-too-long", "has " + length + ": no topic has more than 65535 bytes; write a shorter one");
        else if (plain.size() > LongestInRecord)
            warning("topic-too-long", "has " + length +
                                          ", and the records in tag memory take 255: they show it cut; write a shorter "
                                          "one");
    }

    QString m_topic;
    Site m_site;
    std::string m_attribute;
    Findings& m_findings;
    bool m_isThere;
};

// Messages that both take are written twice, and some brokers send them twice.
void checkFiltersDiffer(const std::vector<Caller>& subscriptions, Findings& findings)
{
    std::map<std::pair<int, QString>, const Caller*> seen;
    for (const Caller& subscription : subscriptions) {
        const QString topic = subscription.entry.text("Topic");
        const auto [found, isFirst] = seen.try_emplace({subscription.brokerId, topic}, &subscription);
        if (isFirst || topic.isEmpty())
            continue;
        findings.warning(subscription.entry.site("Topic"), "duplicate-filter",
                         "the same filter at the same broker as in line " +
                             std::to_string(found->second->entry.site().place.line) +
                             ": both take each message, and unsubscribing one ends both at the broker; keep one, or "
                             "write another filter");
    }
}

} // namespace

void checkTopics(const Configuration& configuration, Findings& findings)
{
    for (const Broker& broker : configuration.brokers)
        TopicCheck(broker.entry, "LastWillTopic", findings).checkAny();
    forEachCaller(configuration, [&](const Caller& caller) {
        TopicCheck check(caller.entry, "Topic", findings);
        if (caller.isPublication)
            check.checkPublication();
        else
            check.checkSubscription();
    });
    checkFiltersDiffer(configuration.subscriptions, findings);
}

} // namespace plcctl::check
