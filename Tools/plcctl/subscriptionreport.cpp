#include "subscriptionreport.h"

#include "reporttext.h"
#include "utf.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <iterator>

namespace plcctl {

namespace {

constexpr std::size_t LongestTopic = 64; // characters in a line
constexpr std::size_t KeptBegin = 30;
constexpr std::size_t KeptEnd = 31;
constexpr char32_t Omission[] = U"...";

struct Topic
{
    std::u32string text;
    bool terminated;
};

// A record that no service wrote may hold anything, also a topic that never ends.
Topic topicOf(const SubscriberStatusStruct& record)
{
    // Copied out, since nothing aligns the units of a packed record.
    std::array<char16_t, std::size(SubscriberStatusStruct{}.m_LastMessageTopic)> units{};
    std::memcpy(units.data(), record.m_LastMessageTopic, sizeof units);
    const auto* const terminator = std::find(units.begin(), units.end(), u'\0');
    return {decodeUtf16Lossy({units.begin(), terminator}), terminator != units.end()};
}

// The middle goes, since topics that share a line tend to differ at their ends.
std::string shortened(const std::u32string& text)
{
    if (text.size() <= LongestTopic)
        return encodeUtf8(text);
    return encodeUtf8(text.substr(0, KeptBegin) + Omission + text.substr(text.size() - KeptEnd));
}

bool hadMessage(const SubscriberStatusStruct& record)
{
    return record.m_LastMessageUTC != 0 || record.m_LastMessageTopic[0] != 0;
}

std::string lastMessage(const SubscriberStatusStruct& record)
{
    if (!hadMessage(record))
        return "no message yet";
    const Topic topic = topicOf(record);
    return "last message " + utcSeconds(record.m_LastMessageUTC) + " on " + inQuotes(shortened(topic.text)) +
           (topic.terminated ? "" : " without a terminator");
}

std::string handOver(std::uint8_t state, bool buffered)
{
    switch (state) {
    case BDS_NONE:
        return buffered ? "; buffered, nothing waits" : "";
    case BDS_HANDING_OVER:
        return "; a message is being handed over";
    case BDS_WAITING:
        return "; messages wait";
    default:
        return "; unknown hand-over state " + std::to_string(state);
    }
}

std::string padding(const SubscriberStatusStruct& record)
{
    const bool clear =
        std::all_of(std::begin(record.Padding), std::end(record.Padding), [](std::uint8_t byte) { return byte == 0; });
    return clear ? "" : "; padding " + hexBytes(record.Padding);
}

} // namespace

std::string subscriptionLine(const SubscriptionStatus& status)
{
    const SubscriptionEntry& subscription = status.subscription;
    const std::string head = lineHead("subscription " + std::to_string(subscription.id), subscription.recordAddress) +
                             inQuotes(subscription.name) + ", ";
    if (!status.record)
        return head + absence(subscription.recordAddress);
    const SubscriberStatusStruct& record = *status.record;
    return head + flag(record.m_Subscribed, "subscribed", "not subscribed") + "; last result " +
           describe(CodeDomain::Subscription, record.m_SubscriptionStatus) + "; " + lastMessage(record) +
           ", received bit " + std::to_string(record.m_ReceivedBit) + flag(record.m_QueueFull, "; queue full", "") +
           handOver(record.m_BufferedDataStatus, subscription.buffered) + padding(record);
}

std::string lastTopic(const SubscriberStatusStruct& record)
{
    return encodeUtf8(topicOf(record).text);
}

Json subscriptionJson(const SubscriptionStatus& status)
{
    const SubscriptionEntry& subscription = status.subscription;
    Json result{{"id", subscription.id},
                {"name", subscription.name},
                {"buffered", subscription.buffered},
                {"address", subscription.recordAddress}};
    if (!status.record) {
        result["record"] = nullptr;
        return result;
    }
    const SubscriberStatusStruct& record = *status.record;
    result["record"] = {
        {"subscribed", record.m_Subscribed},
        {"subscriptionStatus", codeJson(CodeDomain::Subscription, record.m_SubscriptionStatus)},
        {"receivedBit", record.m_ReceivedBit},
        {"queueFull", record.m_QueueFull},
        {"lastMessageTopic", lastTopic(record)},
        {"lastMessageSeconds", std::uint32_t{record.m_LastMessageUTC}},
        {"lastMessageTime", hadMessage(record) ? Json(utcSeconds(record.m_LastMessageUTC)) : Json(nullptr)},
        {"bufferedDataStatus", record.m_BufferedDataStatus},
        {"padding", hexBytes(record.Padding, "")}};
    return result;
}

} // namespace plcctl
