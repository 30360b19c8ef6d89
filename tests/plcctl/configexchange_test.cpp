#include "configexchange.h"

#include <gtest/gtest.h>

using namespace plcctl;

namespace {

using Bytes = std::vector<std::uint8_t>;

// Bytes that differ from their neighbours.
ConfigRecord countingRecord(EntityKind kind)
{
    Bytes bytes(configRecordSize(kind));
    for (std::size_t at = 0; at < bytes.size(); ++at)
        bytes[at] = static_cast<std::uint8_t>(at % 251);
    return {kind, bytes};
}

Bytes countingBytes(std::size_t first, std::size_t size)
{
    Bytes bytes(size);
    for (std::size_t at = 0; at < size; ++at)
        bytes[at] = static_cast<std::uint8_t>((first + at) % 251);
    return bytes;
}

std::vector<Bytes> encodedMessages(EntityKind kind)
{
    std::vector<Bytes> result;
    for (const RequestMessage& message : messagesToSet({kind, 0x0102, ""}, countingRecord(kind), 0x00A1B2C3))
        result.push_back(encode(message));
    return result;
}

Bytes joined(Bytes head, const Bytes& rest)
{
    head.insert(head.end(), rest.begin(), rest.end());
    return head;
}

} // namespace

TEST(ConfigExchange, APublicationOrSubscriptionGoesWholeInOneMessage)
{
    const auto publication = encodedMessages(EntityKind::Publication);
    ASSERT_EQ(publication.size(), 1U);
    EXPECT_EQ(publication[0], joined({0, 0, 12, 0, 0x02, 0x01, 0, 0, 0xC3, 0xB2, 0xA1, 0x00}, countingBytes(0, 516)));
    const auto subscription = encodedMessages(EntityKind::Subscription);
    ASSERT_EQ(subscription.size(), 1U);
    EXPECT_EQ(subscription[0], joined({0, 0, 10, 0, 0x02, 0x01, 0, 0, 0xC3, 0xB2, 0xA1, 0x00}, countingBytes(0, 516)));
}

TEST(ConfigExchange, ABrokerGoesInTwoMessagesAndTheSecondNamesNothing)
{
    const auto messages = encodedMessages(EntityKind::Broker);
    ASSERT_EQ(messages.size(), 2U);
    EXPECT_EQ(messages[0], joined({0, 0, 8, 0, 0x02, 0x01, 0, 0, 0xC3, 0xB2, 0xA1, 0x00}, countingBytes(0, 980)));
    EXPECT_EQ(messages[1], joined({0, 0, 16, 0}, countingBytes(980, 1032)));
}
