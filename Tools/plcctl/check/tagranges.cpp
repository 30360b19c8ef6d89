#include "check/checks.h"
#include "check/wording.h"
#include "Records/brokerrecords.h"
#include "Records/generalrecords.h"
#include "Records/linkstates.h"
#include "Records/subscriptionrecords.h"

#include <algorithm>

namespace plcctl::check {

namespace {

// Bytes that the service writes.
struct Range
{
    std::int64_t begin;
    std::int64_t end;
    std::string what; // "the status record"
    Site site;
    bool isController; // written by the controller, not by the service
    bool isData;       // of a message, not a record of the service's own
};

class RangeCollector
{
public:
    explicit RangeCollector(const Configuration& configuration) : m_configuration(configuration)
    {
        for (const unsigned address : LinkStatePositions)
            m_ranges.push_back({address, std::int64_t{address} + 1, "the controller's link state", {}, true, false});
        collectGeneral();
        for (const Broker& broker : configuration.brokers)
            add(broker.entry, "BrokerAddr", sizeof(BrokerStatusBlock), "the broker's status block");
        for (const Caller& subscription : configuration.subscriptions) {
            add(subscription.entry, "SubAddr", sizeof(SubscriberStatusStruct), "the subscription's status record");
            add(subscription.entry, "DataAddr", subscription.size, "the subscription's tag", true);
        }
        for (const Caller& publication : configuration.publications)
            collectPublication(publication);
    }

    [[nodiscard]] std::vector<Range> take() { return std::move(m_ranges); }

private:
    void collectGeneral()
    {
        const Element* top = m_configuration.top(GeneralFile);
        if (top == nullptr)
            return;
        if (const Element* general = top->firstChild("General"))
            add({GeneralFile, *general}, "Addr", sizeof(MQTTGeneralStruct), "the general record");
        if (const Element* statistics = top->firstChild("Statistics"))
            add({GeneralFile, *statistics}, "Addr", sizeof(MQTTStatisticsStruct), "the statistics record");
    }

    void collectPublication(const Caller& publication)
    {
        if (publication.entry.number("QOS") != 0 && publication.entry.number("BrokerReceivedAddr") != -1)
            add(publication.entry, "BrokerReceivedAddr", 1, "the publication's acknowledgement byte");
        if (publication.format == PayloadFormat::TriggeredOperation)
            add(publication.entry, "DataAddr", publication.size, "the tag that the script's result goes to", true);
    }

    void add(const Entry& entry, const char* attribute, std::int64_t size, const char* what, bool isData = false)
    {
        // One that is missing or no address has a finding of its own, and others at 0 would only repeat it.
        const Attribute* address = entry.element().attribute(attribute);
        bool isNumber = false;
        const std::int64_t begin = address == nullptr ? 0 : address->value.toUInt(&isNumber);
        if (isNumber && size > 0)
            m_ranges.push_back({begin, begin + size, what, entry.site(attribute), false, isData});
    }

    const Configuration& m_configuration;
    std::vector<Range> m_ranges;
};

std::string placeOf(const Range& range, const Configuration& configuration, int nearFile)
{
    if (range.isController)
        return "";
    const std::string line = "line " + std::to_string(range.site.place.line);
    if (range.site.file == nearFile)
        return " in " + line;
    const std::string& path = configuration.files.at(range.site.file).path;
    return " in " + path.substr(path.rfind('/') + 1) + ", " + line;
}

// At the one that comes later in the files.
void report(const Range& one, const Range& other, const Configuration& configuration, Findings& findings)
{
    const bool isOtherLater = one.isController || (!other.isController && one.site < other.site);
    const Range& later = isOtherLater ? other : one;
    const Range& earlier = isOtherLater ? one : other;
    // Two subscriptions of one tag may be meant: whoever came last counts.
    const bool isSameTag = one.isData && other.isData && one.begin == other.begin && one.end == other.end;
    findings.add(isSameTag ? Severity::Warning : Severity::Error, later.site, "tag-overlap",
                 later.what + " takes bytes " + std::to_string(later.begin) + " to " + std::to_string(later.end - 1) +
                     ", and " + earlier.what + placeOf(earlier, configuration, later.site.file) + " takes " +
                     std::to_string(earlier.begin) + " to " + std::to_string(earlier.end - 1) +
                     ": each overwrites the other; move one of them");
}

} // namespace

void checkTagRanges(const Configuration& configuration, Findings& findings)
{
    std::vector<Range> ranges = RangeCollector(configuration).take();
    std::stable_sort(ranges.begin(), ranges.end(),
                     [](const Range& left, const Range& right) { return left.begin < right.begin; });
    // Of all that lie ahead, the one that reaches farthest: each range is reported against one other.
    std::size_t farthest = 0;
    for (std::size_t at = 1; at < ranges.size(); ++at) {
        if (ranges[at].begin < ranges[farthest].end)
            report(ranges[farthest], ranges[at], configuration, findings);
        if (ranges[at].end > ranges[farthest].end)
            farthest = at;
    }
}

} // namespace plcctl::check
