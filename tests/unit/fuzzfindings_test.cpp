#include "Entities/topicsieve.h"
#include "Services/mqttmanagerservices.h"
#include "subscribertest.h"

#include <limits>
#include <malloc.h>

// What the fuzz targets in tests/fuzz have found, one test each.

namespace {

// The second chunk of a tag that begins just below 4 GiB went to address 1019, into somebody else's tag.
TEST_F(ServiceTest, aTagAtTheLastAddressesDoesNotGoOnAtTheFirst)
{
    const QByteArray data(1021, 'x');
    const auto lastAddress = static_cast<int>(std::numeric_limits<quint32>::max());
    ASSERT_EQ(MQTTManagerServices().WriteBufferToMemory(data.size(), lastAddress, data.constData()), 0);
    const auto& writes = FakeTagMemory::state().writes;
    ASSERT_EQ(writes.size(), 2U);
    EXPECT_EQ(writes[0].address, 0xFFFFFFFFUL);
    EXPECT_EQ(writes[1].address, 0xFFFFFFFFUL + 1020);
}

// Messages that find their memory given back, as far as the allocator knows. AddressSanitizer has an allocator of its
// own; there, the leak is reported when the process ends.
class RepeatedKeys : public SubscriberTest, public testing::WithParamInterface<const char*>
{
protected:
    static std::size_t bytesInUse() { return mallinfo2().uordblks; }

    void deliverOften(QByteArray payload)
    {
        for (int i = 0; i < Messages; ++i) {
            subscriber.SetDataInSubscription(payload.data(), payload.size());
            FakeTagMemory::state().writes.clear();
        }
    }

    static constexpr int Messages = 1000;
};

// The JSON parser of Qt 5.15 forgets the array or object of a key that comes a second time in the same object, so that
// a publisher could take all of the service's memory, message by message.
TEST_P(RepeatedKeys, costNoMemory)
{
    subscriber.m_PayloadFormat = PF_JSON;
    subscriber.m_DataType = GetParam()[0] == '{' ? AT_STRUCT : AT_INT32;
    subscriber.m_Entries = 1;
    subscriber.m_DataMembers = {{"a", AT_INT32, 1, NO_DATA_LEN, 0}};
    deliverOften(GetParam());
    const std::size_t before = bytesInUse();
    deliverOften(GetParam());
    EXPECT_LT(bytesInUse(), before + Messages * 10);
}

INSTANTIATE_TEST_SUITE_P(Payloads, RepeatedKeys,
                         testing::Values(R"({"a":[1],"a":[2]})", R"({"a":{"b":1},"a":[2]})", R"({"a":[1],"\u0061":2})",
                                         R"({"b":{"a":[1],"a":[2]},"a":[1]})", R"([{"a":[1],"a":[2]}])"));

// A null pointer was copied from, if only for no byte at all: an error for UndefinedBehaviorSanitizer.
TEST(SieveOfBothWildcards, letsEveryTopicPass)
{
    TopicSieve sieve;
    sieve.addFilter(TopicFilter("+/#"), true);
    EXPECT_TRUE(sieve.mayMatch(0, "", 0));
    EXPECT_TRUE(sieve.mayMatch(0, "plant/line/speed", 16));
}

} // namespace
