#include "check/checks.h"
#include "check/wording.h"

#include <map>

namespace plcctl::check {

namespace {

constexpr std::size_t PublicationRows = 300;
constexpr std::size_t BrokerRows = 30;
constexpr int ShortestPeriod = 5;          // ms that a timer keeps
constexpr int ShortestScriptPeriod = 1000; // ms
constexpr double MostPerSecond = 5000;     // messages of all publications; they share a thread
constexpr double MillisecondsPerSecond = 1000;

bool isPeriodic(const Caller& publication)
{
    return publication.entry.number("PeriodicInterval") != -1;
}

void checkPeriod(const Caller& publication, Findings& findings)
{
    const int period = publication.entry.number("PeriodicInterval");
    const Site site = publication.entry.site("PeriodicInterval");
    const bool isScript =
        publication.format == PayloadFormat::Protobuf || publication.format == PayloadFormat::TriggeredOperation;
    if (period == 0)
        findings.error(site, "period",
                       "the period is 0 ms: the service publishes as often as the processor can, and takes a whole "
                       "core for it; write milliseconds, or -1 for a publication on request only");
    else if (period > 0 && isScript && period < ShortestScriptPeriod)
        findings.warning(site, "period",
                         "each time a script is started, and all other timers wait for its end, up to 30 s; write 1000 "
                         "ms or more");
    else if (period > 0 && period < ShortestPeriod)
        findings.warning(site, "period",
                         "a period of " + std::to_string(period) +
                             " ms isn't kept: all publications share one thread, and what is missed is dropped; write "
                             "5 ms or more");
}

void checkPublications(const Configuration& configuration, Findings& findings)
{
    std::size_t rows = 0;
    double perSecond = 0;
    for (const Caller& publication : configuration.publications) {
        checkPeriod(publication, findings);
        if (!isPeriodic(publication))
            continue;
        if (const int period = publication.entry.number("PeriodicInterval"); period > 0)
            perSecond += MillisecondsPerSecond / period;
        if (++rows > PublicationRows)
            findings.error(publication.entry.site("PeriodicInterval"), "too-many-periods",
                           "this is the periodic publication number " + std::to_string(rows) +
                               ", and the scheduler has room for 300: it never goes out; publish several tags in one "
                               "struct, or on request");
    }
    if (perSecond > MostPerSecond && configuration.top(PublicationsFile) != nullptr)
        findings.warning({PublicationsFile, configuration.top(PublicationsFile)->place}, "publication-rate",
                         "all periods together make " + std::to_string(static_cast<std::int64_t>(perSecond)) +
                             " messages a second on one thread: they won't be kept; write longer periods, or publish "
                             "several tags in one struct");
}

void checkBrokers(const Configuration& configuration, Findings& findings)
{
    std::size_t rows = 0;
    for (const Broker& broker : configuration.brokers) {
        const bool isRetried =
            broker.entry.number("AutoConnect") != 0 && broker.entry.address("ConnectionInterval") != 0;
        if (isRetried && ++rows > BrokerRows)
            findings.error(broker.entry.site("AutoConnect"), "too-many-brokers",
                           "this is the broker number " + std::to_string(rows) +
                               " that is tried again when it can't be reached at the start, and the scheduler has "
                               "room for 30: one too many is never tried again; use fewer brokers, or connect it by "
                               "request (AutoConnect=\"0\")");
    }
}

void checkAcknowledgement(const Caller& publication, Findings& findings)
{
    const Attribute* address = publication.entry.element().attribute("BrokerReceivedAddr");
    if (address == nullptr || address->value.toInt() == -1 || publication.entry.number("QOS") != 0)
        return;
    findings.warning(publication.entry.site("BrokerReceivedAddr"), "never-acknowledged",
                     "nothing is acknowledged at QOS 0: the byte is never set; write QOS 1 or 2, or "
                     "BrokerReceivedAddr=\"-1\"");
}

// The controller keeps a tag in step as far as it was registered.
void checkRegistrations(const Configuration& configuration, Findings& findings)
{
    std::map<std::uint32_t, const Caller*> first;
    for (const Caller& publication : configuration.publications) {
        const auto [found, isFirst] = first.try_emplace(publication.entry.address("DataAddr"), &publication);
        if (isFirst || publication.size <= found->second->size)
            continue;
        findings.warning(publication.entry.site("DataAddr"), "registered-short",
                         "the publication in line " + std::to_string(found->second->entry.site().place.line) +
                             " has this address as well, and its " + counted(found->second->size, "byte") +
                             " are what the controller keeps in step, not these " + std::to_string(publication.size) +
                             "; let the longer one come first");
    }
}

} // namespace

void checkCapacity(const Configuration& configuration, Findings& findings)
{
    checkPublications(configuration, findings);
    checkBrokers(configuration, findings);
    for (const Caller& publication : configuration.publications)
        checkAcknowledgement(publication, findings);
    checkRegistrations(configuration, findings);
}

} // namespace plcctl::check
