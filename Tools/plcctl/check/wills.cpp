#include "check/checks.h"
#include "Records/argtype.h"

namespace plcctl::check {

namespace {

void checkWillTopic(const Broker& broker, Findings& findings)
{
    const Site site = broker.entry.site("LastWillTopic");
    const QString topic = broker.entry.text("LastWillTopic");
    if (topic.isEmpty())
        findings.error(site, "will-topic",
                       "the will has no LastWillTopic: every attempt to connect fails; write a topic, or "
                       "LastWillAddr=\"-1\" for no will");
    else if (topic.contains('+') || topic.contains('#'))
        findings.error(site, "will-topic",
                       "LastWillTopic holds a wildcard: brokers refuse the connection; write a topic without '+' and "
                       "'#'");
}

void checkWillType(const Broker& broker, Findings& findings)
{
    const Site site = broker.entry.site("DataType");
    const ValueLayout value = broker.entry.layout();
    // Other types than these, and texts without a length, have findings of their own.
    if (value.type == AT_NOTYPE || value.type == AT_STRUCT)
        findings.error(site, "will-without-type",
                       "the will has the DataType " + std::to_string(value.type) +
                           ", which has no size: its message is empty; write a text's type such as 11_31, or "
                           "LastWillAddr=\"-1\" for no will");
    else if (value.type == AT_STR16 || value.type == AT_STR32)
        findings.warning(site, "will-type",
                         "a will is the tag's bytes up to the first zero byte: of a text of this type, the first "
                         "character alone; write 11_" +
                             std::to_string(value.length) + " (STR8)");
    else if (value.type > AT_NOTYPE && value.type < AT_STR32)
        findings.warning(site, "will-type",
                         "a will is the tag's bytes up to the first zero byte, not the digits of a number; write a "
                         "text's type such as 11_31");
}

} // namespace

void checkWills(const Configuration& configuration, Findings& findings)
{
    for (const Broker& broker : configuration.brokers) {
        if (broker.hasWill()) {
            checkWillTopic(broker, findings);
            checkWillType(broker, findings);
        } else if (!broker.entry.text("LastWillTopic").isEmpty()) {
            findings.warning(broker.entry.site("LastWillTopic"), "will-without-address",
                             "LastWillTopic plays no part, since LastWillAddr is -1: there is no will; write the "
                             "address of the will's tag, or leave the topic empty");
        }
    }
}

} // namespace plcctl::check
