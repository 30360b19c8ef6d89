#include "page.h"
#include "reporttext.h"
#include "tables.h"
#include "views.h"

#include "Records/statuscodes.h"

#include <array>

namespace plcctl::live {

namespace {

constexpr int LabelWidth = 22;

// Builds lines of a label and a text that may go on over several lines.
class Facts
{
public:
    Facts(int width, Charset charset) : m_width(width), m_charset(charset) {}

    void title(const std::string& text)
    {
        for (const std::string& line : wrapped(safe(text, m_charset), m_width))
            m_lines.push_back({{line, Style::Strong}});
    }

    void add(const std::string& label, const std::string& text, Style style = Style::Plain)
    {
        std::string head = fitted(safe(label, m_charset), LabelWidth - 1, Align::Left, m_charset) + " ";
        for (const std::string& line : wrapped(safe(text, m_charset), m_width - LabelWidth)) {
            m_lines.push_back({{head, Style::Dim}, {line, style}});
            head.assign(LabelWidth, ' ');
        }
    }

    // What stands in the file. Passwords are nothing for a screen.
    void add(const Attributes& attributes)
    {
        m_lines.emplace_back();
        title("in the configuration file");
        for (const auto& [name, value] : attributes)
            add(name, name == "Password" && !value.empty() ? "(hidden)" : value);
    }

    [[nodiscard]] std::vector<Line> lines() && { return std::move(m_lines); }

private:
    int m_width;
    Charset m_charset;
    std::vector<Line> m_lines;
};

void addBroker(Facts& facts, const BrokerData& broker, bool hasProcessEnded)
{
    facts.title("broker " + std::to_string(broker.entry.id) + " '" + broker.entry.name + "'");
    const Cell state = brokerState(broker, hasProcessEnded);
    facts.add("state", state.text, state.style);
    if (broker.block) {
        facts.add("session", broker.block->m_SessionPresent != 0 ? "the broker had kept one" : "a new one");
        facts.add("last result", plcctl::describe(CodeDomain::Broker, broker.block->m_ReturnCode));
    }
    facts.add("status written", broker.sinceSeconds ? ageText(broker.sinceSeconds) + " ago" : "-");
    facts.add("losses in the journal", std::to_string(broker.losses));
    facts.add("subscriptions",
              std::to_string(broker.subscribed) + " of " + std::to_string(broker.subscriptions) + " in force");
    facts.add("publications", std::to_string(broker.publications));
    facts.add(broker.entry.attributes);
}

void addPublication(Facts& facts, const PublicationData& publication)
{
    facts.title("publication " + std::to_string(publication.entry.id) + " '" + publication.entry.name + "'");
    facts.add("broker", publication.broker + (publication.connected ? ", connected" : ", not connected"));
    facts.add("period", publication.periodMilliseconds ? periodText(*publication.periodMilliseconds) : "on request");
    facts.add("value of the tag now", publication.value);
    facts.add("sent per second", publication.sentRate ? rateText(publication.sentRate)
                                                      : "- (only the log of a service with -verbose true tells)");
    facts.add("last sent", publication.sentSeconds ? ageText(publication.sentSeconds) + " ago" : "-");
    facts.add("acknowledged per s", publication.acknowledgementRate ? rateText(publication.acknowledgementRate)
                                                                    : "- (needs QOS 1 or 2 and BrokerReceivedAddr)");
    facts.add("last acknowledgement",
              publication.acknowledgementSeconds ? ageText(publication.acknowledgementSeconds) + " ago" : "-");
    facts.add("acknowledgement byte", publication.acknowledgement ? std::to_string(*publication.acknowledgement) : "-");
    facts.add(publication.entry.attributes);
}

void addSubscription(Facts& facts, const SubscriptionData& subscription)
{
    facts.title("subscription " + std::to_string(subscription.entry.id) + " '" + subscription.entry.name + "'");
    facts.add("broker", subscription.broker);
    if (subscription.record) {
        const SubscriberStatusStruct& record = *subscription.record;
        facts.add("state", record.m_Subscribed != 0 ? "in force" : "not subscribed");
        facts.add("last result", plcctl::describe(CodeDomain::Subscription, record.m_SubscriptionStatus));
        facts.add("received bit", std::to_string(record.m_ReceivedBit));
        facts.add("hand-over", handOverState(subscription).text);
    }
    facts.add("last topic", subscription.topic);
    facts.add("last message", subscription.ageSeconds ? ageText(subscription.ageSeconds) + " ago" : "none yet");
    facts.add("messages per second", rateText(subscription.rate));
    facts.add("value of the tag now", subscription.value);
    facts.add(subscription.entry.attributes);
}

void addLogRow(Facts& facts, const LiveData& data, std::uint64_t number)
{
    for (const NumberedLogRow& each : data.log) {
        if (each.number != number)
            continue;
        const LogRow& row = each.row;
        facts.title("line of the log");
        facts.add("time", row.date + " " + row.time);
        facts.add("severity", nameOf(row.severity), styleOf(row.severity));
        facts.add("function", row.function);
        facts.add("place", row.place);
        facts.add("message", row.message);
    }
}

constexpr std::array HelpTexts{
    "1 to 5, Tab    the views: overview, brokers, publications, subscriptions, log",
    "Up, Down       select a row; PgUp, PgDn, Home and End go further",
    "Enter          all that is known of the selected row; Esc goes back",
    "/              show only rows that have a text in them; Esc shows all again",
    "s, r           sort by the next column; turn the order around",
    "v              log: which severities are shown",
    "p              hold the screen; what happens meanwhile is still counted",
    "q              quit; Ctrl-C does as well",
    "",
    "Requests to the service. Those that stop something ask first; the answer",
    "comes in the line above the keys.",
    "c, d           brokers: connect, disconnect",
    "u, U           brokers: subscribe, unsubscribe all; subscriptions: one",
    "n              publications: send now (one without a period)",
    "t, T           publications: timed publishing on, off",
    "P, S           pause the service, start it again",
    "",
    "since, lost    time since the broker's status was written; losses in the journal",
    "sent/s         only from a service that runs with -verbose true",
    "acks/s, ack    with QOS 1 or 2 and BrokerReceivedAddr: rate, and the byte itself",
    "value now      the tag as it is, not as it was when it was sent or received",
    "-              not known",
};

} // namespace

std::vector<Line> helpLines()
{
    std::vector<Line> lines;
    lines.reserve(std::size(HelpTexts));
    for (const char* const text : HelpTexts)
        lines.push_back({{text, Style::Plain}});
    return lines;
}

std::vector<Line> detailLines(const LiveData& data, const UiState& state, int width)
{
    const Table table = shownTable(data, state);
    const auto selected = selectedRow(table, state.current());
    if (!selected)
        return {{{"this row is gone", Style::Dim}}};
    const std::uint64_t key = table.rows[*selected].key;
    Facts facts(width, state.charset);
    switch (state.view) {
    case View::Overview:
        break;
    case View::Brokers:
        addBroker(facts, data.brokers[key], data.hasProcessEnded);
        break;
    case View::Publications:
        addPublication(facts, data.publications[key]);
        break;
    case View::Subscriptions:
        addSubscription(facts, data.subscriptions[key]);
        break;
    case View::Log:
        addLogRow(facts, data, key);
        break;
    }
    return std::move(facts).lines();
}

} // namespace plcctl::live
