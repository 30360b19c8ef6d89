#include "handshakeprinter.h"

#include "configuredvalue.h"
#include "reporttext.h"
#include "subscriptionreport.h"
#include "tagtypes.h"
#include "utf.h"

#include <algorithm>

namespace plcctl {

namespace {

constexpr std::size_t LongestValue = 200; // characters in a line

std::string shortened(const std::string& text)
{
    const std::u32string characters = decodeUtf8Lossy(text);
    return characters.size() <= LongestValue ? text : encodeUtf8(characters.substr(0, LongestValue)) + " ...";
}

} // namespace

void HandshakePrinter::print(HandshakeEvent event, const SubscriberStatusStruct& record) const
{
    switch (event) {
    case HandshakeEvent::Waiting:
        return printWaiting(record);
    case HandshakeEvent::Asked:
        return printState("asked", "asked for: something else cleared the received bit", {{"fromHere", false}});
    case HandshakeEvent::HandingOver:
        return printState("handingOver", "handing over: the tag is being written");
    case HandshakeEvent::HandedOver:
        return printHandedOver(record);
    case HandshakeEvent::QueueFull:
        return printState("queueFull", "queue full: what arrives now is lost");
    case HandshakeEvent::QueueHasRoom:
        return printState("queueHasRoom", "queue has room again");
    }
}

void HandshakePrinter::printAsked() const
{
    printState("asked", "asked for: received bit cleared", {{"fromHere", true}});
}

void HandshakePrinter::printWaiting(const SubscriberStatusStruct& record) const
{
    const std::string topic = lastTopic(record);
    printState("waiting", "waiting: a message is queued, the last one came on " + inQuotes(topic), {{"topic", topic}});
}

void HandshakePrinter::printHandedOver(const SubscriberStatusStruct& record) const
{
    const std::size_t size =
        std::min<std::uint64_t>({m_subscription.dataSize, MaxTagBytes, bytesFrom(m_subscription.dataAddress)});
    const auto bytes = size == 0 ? std::vector<std::uint8_t>{} : m_reader.read(m_subscription.dataAddress, size);
    const std::int8_t result = record.m_SubscriptionStatus;
    if (m_json) {
        return printState("handedOver", "",
                          {{"value", jsonOfData(m_subscription, bytes)},
                           {"subscriptionStatus", codeJson(CodeDomain::Subscription, result)}});
    }
    const std::string trouble = result == SSC_OK ? "" : "; last result " + describe(CodeDomain::Subscription, result);
    printState("handedOver", "handed over: " + shortened(textOfData(m_subscription, bytes)) + trouble);
}

void HandshakePrinter::printState(const char* state, const std::string& text, const Json& details) const
{
    const std::int64_t now = nowNanoseconds();
    if (!m_json)
        return printLine(localTime(now) + "  " + inQuotes(m_subscription.name) + " " + text);
    Json line{{"time", utcTime(now)}, {"id", m_subscription.id}, {"name", m_subscription.name}, {"state", state}};
    line.update(details);
    printJson(line);
}

} // namespace plcctl
