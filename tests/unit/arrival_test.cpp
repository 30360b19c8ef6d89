#include "subscribertest.h"

#include "Entities/subscriptionrequest.h"

#include <QDateTime>
#include <thread>

namespace {

using testing::ElementsAre;

class Arrival : public SubscriberTest
{
protected:
    Arrival() { subscribe(); }

    static Bytes tag(std::size_t size = 4) { return FakeTagMemory::bytesAt(DataAddress, size); }

    // Members a (UINT16 at 0), b (BOOL at 2) and c (STR8 of 3 characters at 3), as JSON.
    void makeStruct()
    {
        subscriber.m_PayloadFormat = PF_JSON;
        subscriber.m_DataType = AT_STRUCT;
        subscriber.m_DataMembers = {
            {"a", AT_UINT16, 0, NO_DATA_LEN, 0}, {"b", AT_BOOL, 0, NO_DATA_LEN, 2}, {"c", AT_STR8, 0, 3, 3}};
        subscriber.CalcDataSize();
        ASSERT_EQ(subscriber.m_DataSize, 7);
    }

    void fillTag(std::size_t size) { FakeTagMemory::put(DataAddress, Bytes(size, 0xEE)); }
};

TEST_F(Arrival, writesTheRecordThenTheCountThenTheData)
{
    const auto before = static_cast<std::uint32_t>(QDateTime::currentSecsSinceEpoch());
    EXPECT_EQ(arrive("line/set", "\x01\x02\x03\x04"), 1);
    const auto after = static_cast<std::uint32_t>(QDateTime::currentSecsSinceEpoch());
    EXPECT_THAT(writeOrder(), ElementsAre(RecordAddress, StatisticsAddress, DataAddress));
    EXPECT_EQ(tag(), (Bytes{1, 2, 3, 4}));
    EXPECT_EQ(record().m_Subscribed, 1);
    EXPECT_EQ(record().m_SubscriptionStatus, 0);
    EXPECT_EQ(record().m_ReceivedBit, 1);
    EXPECT_EQ(record().m_QueueFull, 0);
    EXPECT_EQ(record().m_BufferedDataStatus, 0);
    EXPECT_EQ(topicIn(record()), u"line/set");
    EXPECT_GE(record().m_LastMessageUTC, before);
    EXPECT_LE(record().m_LastMessageUTC, after);
    EXPECT_EQ(FakeTagMemory::bytesAt(StatisticsAddress + 8, 4), (Bytes{1, 0, 0, 0}));
}

TEST_F(Arrival, logsWhatItWrites)
{
    subscriber.m_DataLen = 9;
    const LogCapture log;
    arrive("line/set", "12345");
    EXPECT_THAT(log.lines(), ElementsAre("DEBUG Size=4  Address=700  Name=setpoint  PayloadLen=5  DataLen=9",
                                         "DEBUG 1) wrote '4' bytes to address '700'. Result is '0'"));
}

TEST_F(Arrival, ofAnotherTopicChangesNothing)
{
    const LogCapture log;
    EXPECT_EQ(arrive("line/other", "\x01\x02\x03\x04"), 1);
    EXPECT_TRUE(FakeTagMemory::state().writes.empty());
    EXPECT_TRUE(log.contains("DEBUG Accepted message does not belong to any topic"));
}

TEST_F(Arrival, needsTheSpecialFlagForWildcards)
{
    subscriber.m_Topic = "line/#";
    arrive("line/set", "abcd");
    EXPECT_TRUE(FakeTagMemory::state().writes.empty());
    arrive("line/#", "abcd"); // the filter's own text
    EXPECT_EQ(tag(), (Bytes{'a', 'b', 'c', 'd'}));
    subscriber.m_Special = true;
    arrive("line/set", "efgh");
    EXPECT_EQ(tag(), (Bytes{'e', 'f', 'g', 'h'}));
    subscriber.m_Topic = "+/set";
    arrive("line/set", "ijkl");
    EXPECT_EQ(tag(), (Bytes{'i', 'j', 'k', 'l'}));
}

TEST_F(Arrival, twoMatchingSubscribersEachTakeTheMessage)
{
    Subscriber second = subscriber;
    second.m_Topic = "line/+";
    second.m_Special = true;
    second.m_DataAddress = 800;
    second.m_SubAddr = 6000;
    broker.m_Callers.append(&second);
    arrive("line/set", "abcd");
    EXPECT_THAT(writeOrder(), ElementsAre(RecordAddress, StatisticsAddress, DataAddress, 6000, StatisticsAddress, 800));
    EXPECT_EQ(FakeTagMemory::bytesAt(StatisticsAddress + 8, 4), (Bytes{2, 0, 0, 0}));
    EXPECT_EQ(FakeMqttClient::state().freedMessages, 1);
}

TEST_F(Arrival, everyLaterRecordStillCarriesTheReceivedBit)
{
    arrive("line/set", "abcd");
    FakeTagMemory::put(RecordAddress + 2, {0}); // the control application has taken the data
    EXPECT_EQ(subscriber.UnSubscribe(), SSC_OK);
    EXPECT_EQ(record().m_ReceivedBit, 1);
}

TEST_F(Arrival, provesTheSubscription)
{
    subscriber.m_Status.m_Subscribed = 0;
    MQTTClient_message message = MQTTClient_message_initializer;
    char topic[] = "line/set";
    EXPECT_TRUE(subscriber.MessageArrived(topic, 0, &message));
    EXPECT_EQ(record().m_Subscribed, 1);
}

struct TopicCase
{
    std::string received;
    std::u16string stored;
    bool isCut;
};

class ArrivalTopic : public Arrival, public testing::WithParamInterface<TopicCase>
{
};

TEST_P(ArrivalTopic, standsInTheRecord)
{
    subscriber.m_Topic = "#";
    subscriber.m_Special = true;
    const LogCapture log;
    EXPECT_EQ(arrive(GetParam().received, "abcd"), 1);
    EXPECT_EQ(topicIn(record()), GetParam().stored);
    EXPECT_EQ(record().m_LastMessageTopic[255], u'\0');
    EXPECT_EQ(log.contains("WARN subscription 'setpoint': the topic of its last message is cut in its status record"),
              GetParam().isCut);
    EXPECT_EQ(tag(), (Bytes{'a', 'b', 'c', 'd'}));
}

std::string repeated(const std::string& text, int times)
{
    std::string result;
    for (int i = 0; i < times; ++i)
        result += text;
    return result;
}

INSTANTIATE_TEST_SUITE_P(Topics, ArrivalTopic,
                         testing::Values(TopicCase{"", u"", false}, TopicCase{"a/é/€/😀", u"a/é/€/😀", false},
                                         TopicCase{std::string(255, 'x'), std::u16string(255, u'x'), false},
                                         TopicCase{std::string(256, 'x'), std::u16string(255, u'x'), true},
                                         TopicCase{std::string(65'535, 'x'), std::u16string(255, u'x'), true},
                                         TopicCase{repeated("€", 255), std::u16string(255, u'€'), false},
                                         TopicCase{repeated("€", 256), std::u16string(255, u'€'), true},
                                         TopicCase{"a\xFF/b", u"a\uFFFD/b", false},
                                         TopicCase{std::string("ab\0cd", 5), u"ab", false}));

TEST_F(Arrival, aShorterTopicEndsAheadOfTheOldOne)
{
    subscriber.m_Topic = "#";
    subscriber.m_Special = true;
    arrive("a/long/topic", "abcd");
    arrive("b", "abcd");
    EXPECT_EQ(topicIn(record()), u"b");
}

struct RawCase
{
    int size;
    std::string payload;
    Bytes written; // every write to the data, one after the other
};

class RawArrival : public Arrival, public testing::WithParamInterface<RawCase>
{
};

TEST_P(RawArrival, copiesWhatThereIsAndFillsUpWithZeros)
{
    fillTag(12);
    subscriber.m_DataSize = GetParam().size;
    arrive("line/set", GetParam().payload);
    EXPECT_EQ(FakeTagMemory::writesAt(DataAddress), std::vector<Bytes>{GetParam().written});
}

INSTANTIATE_TEST_SUITE_P(Payloads, RawArrival,
                         testing::Values(RawCase{4, "0123456789", {'0', '1', '2', '3'}},
                                         RawCase{4, "0123", {'0', '1', '2', '3'}}, RawCase{4, "01", {'0', '1', 0, 0}},
                                         RawCase{4, "", {0, 0, 0, 0}}, RawCase{0, "01", {}}, RawCase{-1, "01", {}},
                                         RawCase{3, std::string("a\0b", 3), {'a', 0, 'b'}}));

TEST_F(Arrival, anEmptyPayloadMayComeWithoutAPointer)
{
    fillTag(4);
    EXPECT_TRUE(subscriber.SetDataInSubscription(nullptr, 0));
    EXPECT_EQ(tag(), (Bytes{0, 0, 0, 0}));
    subscriber.m_PayloadFormat = PF_JSON;
    subscriber.m_DataType = AT_UINT32;
    EXPECT_TRUE(subscriber.SetDataInSubscription(nullptr, 0));
}

TEST_F(Arrival, otherFormatsLeaveTheTagAsItWas)
{
    for (const int format : {2, 3, 4, 255, -1}) {
        FakeTagMemory::state().writes.clear();
        subscriber.m_PayloadFormat = format;
        arrive("line/set", "abcd");
        EXPECT_THAT(writeOrder(), ElementsAre(RecordAddress, StatisticsAddress));
    }
}

TEST_F(Arrival, aRefusedWriteIsReported)
{
    char payload[] = "abcd";
    EXPECT_TRUE(subscriber.SetDataInSubscription(payload, 4));
    FakeTagMemory::state().writeResults = {7};
    EXPECT_FALSE(subscriber.SetDataInSubscription(payload, 4));
}

TEST_F(Arrival, aTagOfMoreThan16MiBIsRefusedWithAnErrorLine)
{
    subscriber.m_DataSize = MAX_TAG_BYTES + 1;
    char payload[] = "abcd";
    const LogCapture log;
    EXPECT_FALSE(subscriber.SetDataInSubscription(payload, 4));
    EXPECT_TRUE(FakeTagMemory::state().writes.empty());
    EXPECT_TRUE(log.contains("ERROR subscription 'setpoint': its tag of 16777217 bytes is too large to be written"));
}

using JsonArrival = Arrival;

TEST_F(JsonArrival, aSingleValueIsConverted)
{
    subscriber.m_PayloadFormat = PF_JSON;
    subscriber.m_DataType = AT_UINT16;
    subscriber.m_DataSize = 2;
    arrive("line/set", "513");
    EXPECT_EQ(FakeTagMemory::writesAt(DataAddress), std::vector<Bytes>{(Bytes{1, 2})});
}

TEST_F(JsonArrival, anArrayLeavesZeroWhatItDoesNotHave)
{
    fillTag(4);
    subscriber.m_PayloadFormat = PF_JSON;
    subscriber.m_DataType = AT_UINT8;
    subscriber.m_Entries = 4;
    arrive("line/set", "[1,2]");
    EXPECT_EQ(tag(), (Bytes{1, 2, 0, 0}));
}

TEST_F(JsonArrival, aTextFillsItsSlotAndTheRestIsZero)
{
    fillTag(6);
    subscriber.m_PayloadFormat = PF_JSON;
    subscriber.m_DataType = AT_STR8;
    subscriber.m_DataLen = 5;
    subscriber.m_DataSize = 6;
    arrive("line/set", "abc");
    EXPECT_EQ(tag(6), (Bytes{'a', 'b', 'c', 0, 0, 0}));
    arrive("line/set", "abcdefgh");
    EXPECT_EQ(tag(6), (Bytes{'a', 'b', 'c', 'd', 'e', 0}));
}

TEST_F(JsonArrival, aTextWithoutALengthWritesNothing)
{
    subscriber.m_PayloadFormat = PF_JSON;
    subscriber.m_DataType = AT_STR8;
    subscriber.m_DataSize = 0;
    arrive("line/set", "abc");
    EXPECT_EQ(FakeTagMemory::writesAt(DataAddress), std::vector<Bytes>{Bytes{}});
}

TEST_F(JsonArrival, aStructTakesItsKeysInAnyOrder)
{
    makeStruct();
    fillTag(8);
    arrive("line/set", R"({"c":"xy","unknown":[1],"b":true,"a":258})");
    EXPECT_EQ(tag(8), (Bytes{2, 1, 1, 'x', 'y', 0, 0, 0xEE}));
}

TEST_F(JsonArrival, aMissingKeyLeavesNoOldValue)
{
    makeStruct();
    fillTag(8);
    arrive("line/set", R"({"a":1})");
    EXPECT_EQ(tag(8), (Bytes{1, 0, 0, 0, 0, 0, 0, 0xEE}));
}

TEST_F(JsonArrival, aDocumentThatIsNoObjectCountsAsOneWithoutKeys)
{
    makeStruct();
    fillTag(8);
    arrive("line/set", "[1,2,3]");
    EXPECT_EQ(tag(8), (Bytes{0, 0, 0, 0, 0, 0, 0, 0xEE}));
    EXPECT_EQ(record().m_SubscriptionStatus, 0);
}

TEST_F(JsonArrival, aZeroByteEndsTheText)
{
    makeStruct();
    arrive("line/set", std::string("{\"a\":1}\0\0\0", 10));
    EXPECT_EQ(tag(2), (Bytes{1, 0}));
    arrive("line/set", std::string("{\"a\":2}\0garbage", 15));
    EXPECT_EQ(tag(2), (Bytes{2, 0}));
}

TEST_F(JsonArrival, bytesThatAreNoUtf8BecomeReplacementCharacters)
{
    makeStruct();
    subscriber.m_DataMembers[2].Len = 10;
    subscriber.CalcDataSize();
    arrive("line/set", "{\"a\":5,\"c\":\"\xFF\"}");
    EXPECT_EQ(tag(3), (Bytes{5, 0, 0}));
    EXPECT_EQ(record().m_SubscriptionStatus, 0);
}

TEST_F(JsonArrival, badJsonIsRecordedAsAnArrivalAndRefusedAsData)
{
    makeStruct();
    fillTag(8);
    const LogCapture log;
    EXPECT_EQ(arrive("line/set", R"({"a":)"), 1);
    EXPECT_EQ(tag(8), Bytes(8, 0xEE));
    EXPECT_THAT(writeOrder(), ElementsAre(RecordAddress, StatisticsAddress, RecordAddress));
    EXPECT_EQ(record().m_SubscriptionStatus, -12);
    EXPECT_EQ(record().m_ReceivedBit, 1);
    EXPECT_EQ(topicIn(record()), u"line/set");
    EXPECT_TRUE(log.contains(R"(DEBUG Invalid JSON for 'setpoint'. Json ({"a":) error is (unterminated object))"));
    EXPECT_FALSE(log.contains("DEBUG Accepted message does not belong to any topic"));
}

TEST_F(JsonArrival, aGoodMessageDoesNotClearTheStatusOfABadOne)
{
    makeStruct();
    arrive("line/set", "");
    EXPECT_EQ(record().m_SubscriptionStatus, -12);
    arrive("line/set", R"({"a":1})");
    EXPECT_EQ(record().m_SubscriptionStatus, -12);
    EXPECT_EQ(subscriber.UnSubscribe(), SSC_OK);
    EXPECT_EQ(record().m_SubscriptionStatus, 0);
}

TEST_F(JsonArrival, aLongTextSpillsIntoTheNextMemberThatThenTakesItsOwnValue)
{
    makeStruct();
    subscriber.m_DataMembers = {{"c", AT_STR8, 0, 3, 0}, {"a", AT_UINT16, 0, NO_DATA_LEN, 4}};
    subscriber.CalcDataSize();
    fillTag(10);
    arrive("line/set", R"({"c":"0123456789012345678901234567890","a":1})");
    EXPECT_EQ(tag(8), (Bytes{'0', '1', '2', '3', 1, 0, 0xEE, 0xEE}));
}

TEST_F(JsonArrival, membersOutsideTheTagReachNothing)
{
    makeStruct();
    subscriber.m_DataMembers = {{"far", AT_UINT32, 0, NO_DATA_LEN, 0xFFFFFFFF},
                                {"edge", AT_UINT32, 0, NO_DATA_LEN, 2},
                                {"many", AT_UINT8, 2'000'000'000, NO_DATA_LEN, 0},
                                {"odd", static_cast<ArgType>(99), 0, NO_DATA_LEN, 0},
                                {"struct", AT_STRUCT, 0, NO_DATA_LEN, 0},
                                {"none", AT_NOTYPE, 0, NO_DATA_LEN, 0},
                                {"last", AT_UINT8, 0, NO_DATA_LEN, 3}};
    subscriber.CalcDataSize();
    ASSERT_EQ(subscriber.m_DataSize, 4);
    fillTag(6);
    arrive("line/set", R"({"far":1,"edge":4294967295,"many":[7,8],"odd":1,"struct":{"a":1},"none":5,"last":9})");
    EXPECT_EQ(tag(6), (Bytes{7, 8, 0, 9, 0xEE, 0xEE}));
}

TEST_F(JsonArrival, aStructWithoutMembersWritesNoByte)
{
    makeStruct();
    subscriber.m_DataMembers.clear();
    subscriber.CalcDataSize();
    arrive("line/set", R"({"a":1})");
    EXPECT_EQ(FakeTagMemory::writesAt(DataAddress), std::vector<Bytes>{Bytes{}});
}

TEST_F(JsonArrival, deepNestingIsBadJson)
{
    makeStruct();
    arrive("line/set", R"({"a":)" + std::string(100'000, '[') + std::string(100'000, ']') + "}");
    EXPECT_EQ(record().m_SubscriptionStatus, -12);
}

TEST_F(JsonArrival, sixteenMiBAreTaken)
{
    subscriber.m_PayloadFormat = PF_JSON;
    subscriber.m_DataType = AT_STR8;
    subscriber.m_DataLen = 3;
    arrive("line/set", std::string(16 * 1024 * 1024, '1'));
    EXPECT_EQ(tag(), (Bytes{'1', '1', '1', 0}));
}

TEST_F(JsonArrival, moreThan16MiBAreRefusedWithAWarning)
{
    fillTag(4);
    subscriber.m_PayloadFormat = PF_JSON;
    subscriber.m_DataType = AT_UINT32;
    const LogCapture log;
    arrive("line/set", std::string(16 * 1024 * 1024 + 1, '1'));
    EXPECT_EQ(tag(), Bytes(4, 0xEE));
    EXPECT_EQ(record().m_SubscriptionStatus, -12);
    EXPECT_TRUE(log.contains("WARN subscription 'setpoint': a message of 16777217 bytes is too large for JSON"));
}

// A message of the session that a subscribe or unsubscribe request may close.
class ArrivalDuringRequest : public SubscriberTest
{
protected:
    // Raises a message on a thread of its own, as the library would; its answer is in `consumed` after the join.
    void arriveBeside(const std::string& topic)
    {
        library = std::thread([this, topic] { consumed = arrive(topic, "abcd"); });
    }

    using IsQuick = std::function<bool()>;

    // While a request is written, for which it has 5 ms, no message is touched. Only a try that the machine let through
    // in less proves that: `attempt` asks at its decisive moment and answers what it was told.
    static void retryUntilQuick(const std::function<bool(const IsQuick&)>& attempt)
    {
        using Clock = std::chrono::steady_clock;
        for (int tries = 0; tries < 200; ++tries) {
            const auto begin = Clock::now();
            if (attempt([begin] { return Clock::now() - begin < std::chrono::milliseconds(4); }))
                return;
        }
        ADD_FAILURE() << "no try was quick enough";
    }

    ~ArrivalDuringRequest() override
    {
        if (library.joinable())
            library.join();
    }

    std::thread library;
    std::atomic<int> consumed{-1};
};

TEST_F(ArrivalDuringRequest, aMessageAheadOfTheAnswerReachesTheTag)
{
    int consumedInside = -1;
    FakeMqttClient::state().duringSubscribe = [&](MQTTClient) {
        arriveBeside("line/set");
        library.join(); // the answer comes behind the message, on the same thread of the library
        consumedInside = consumed;
    };
    EXPECT_EQ(subscriber.Subscribe(), SSC_OK);
    EXPECT_EQ(consumedInside, 1);
    EXPECT_EQ(FakeTagMemory::bytesAt(DataAddress, 4), (Bytes{'a', 'b', 'c', 'd'}));
    EXPECT_EQ(record().m_ReceivedBit, 1);
    EXPECT_EQ(record().m_Subscribed, 1);
}

TEST_F(ArrivalDuringRequest, theSameWithASessionThatIsKept)
{
    broker.CleanSessionFlag = false;
    FakeMqttClient::state().duringSubscribe = [this](MQTTClient) { arrive("line/set", "abcd"); };
    EXPECT_EQ(subscriber.Subscribe(), SSC_OK);
    EXPECT_EQ(FakeTagMemory::bytesAt(DataAddress, 4), (Bytes{'a', 'b', 'c', 'd'}));
}

TEST_F(ArrivalDuringRequest, aRefusalThatFollowsStands)
{
    broker.CleanSessionFlag = false;
    FakeMqttClient::state().subscribeResult = 128;
    FakeMqttClient::state().duringSubscribe = [this](MQTTClient) { arrive("line/set", "abcd"); };
    EXPECT_EQ(static_cast<int>(subscriber.Subscribe()), 128);
    EXPECT_EQ(record().m_Subscribed, 0);
    EXPECT_FALSE(subscriber.IsSubscribed());
}

TEST_F(ArrivalDuringRequest, nobodyElseIsOfferedWhatItHasNotSubscribed)
{
    broker.CleanSessionFlag = false;
    Subscriber other = subscriber;
    other.m_DataAddress = 800;
    other.m_SubAddr = 6000;
    broker.m_Callers.append(&other);
    FakeMqttClient::state().duringSubscribe = [this](MQTTClient) { arrive("line/set", "abcd"); };
    EXPECT_EQ(subscriber.Subscribe(), SSC_OK);
    EXPECT_TRUE(FakeTagMemory::writesAt(6000).empty());
    arrive("line/set", "efgh");
    EXPECT_TRUE(FakeTagMemory::writesAt(6000).empty());
}

TEST_F(ArrivalDuringRequest, anotherTopicGoesOnWhileTheAnswerIsAwaited)
{
    Subscriber other = subscriber;
    other.m_Topic = "line/other";
    other.m_Status.m_Subscribed = 1;
    other.m_DataAddress = 800;
    broker.m_Callers.append(&other);
    int consumedInside = -1;
    FakeMqttClient::state().duringSubscribe = [&](MQTTClient) {
        arriveBeside("line/other");
        library.join();
        consumedInside = consumed;
    };
    EXPECT_EQ(subscriber.Subscribe(), SSC_OK);
    EXPECT_EQ(consumedInside, 1);
    EXPECT_EQ(FakeTagMemory::bytesAt(800, 4), (Bytes{'a', 'b', 'c', 'd'}));
}

TEST_F(ArrivalDuringRequest, noMessageIsTouchedWhileTheRequestIsWritten)
{
    retryUntilQuick([this](const IsQuick& isQuick) {
        bool isProven = false;
        subscriber.m_Status.m_Subscribed = 1;
        FakeTagMemory::state().writes.clear();
        FakeMqttClient::state().duringSubscribe = [&](MQTTClient) {
            arriveBeside("line/set");
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
            const std::size_t writesInside = FakeTagMemory::writeCount();
            isProven = isQuick();
            EXPECT_TRUE(!isProven || writesInside == 0);
        };
        EXPECT_EQ(subscriber.UnSubscribe(), SSC_OK);
        library.join();
        EXPECT_EQ(consumed, 1);
        return isProven;
    });
}

// The library frees the messages of a clean session when it closes it.
TEST_F(ArrivalDuringRequest, aMessageWhoseSessionARequestHasClosedIsNotTouched)
{
    FakeMqttClient::state().subscribeResult = -1;
    retryUntilQuick([this](const IsQuick& isQuick) {
        bool isProven = false;
        MQTTClient session = nullptr;
        subscriber.m_Status.m_Subscribed = 1;
        FakeMqttClient::state().freedMessages = 0;
        FakeMqttClient::state().duringSubscribe = [&](MQTTClient handle) {
            arriveBeside("line/set");
            FakeMqttClient::setConnected(handle, false);
            isProven = isQuick();
            session = handle;
        };
        EXPECT_EQ(static_cast<int>(subscriber.UnSubscribe()), -1);
        library.join();
        EXPECT_TRUE(!isProven || consumed == 0);
        EXPECT_TRUE(!isProven || FakeMqttClient::state().freedMessages == 0);
        FakeMqttClient::setConnected(session, true);
        return isProven;
    });
}

// From 9 s on the library may close the session for want of an answer.
TEST_F(ArrivalDuringRequest, noMessageIsTouchedWhenTheAnswerIsLongOverdue)
{
    using Clock = std::chrono::steady_clock;
    const auto overdue = Clock::now() + std::chrono::milliseconds(9'200);
    subscriber.m_Status.m_Subscribed = 1;
    std::size_t writesInside = 99;
    int consumedInside = 99;
    FakeMqttClient::state().subscribeResult = -1;
    FakeMqttClient::state().duringSubscribe = [&](MQTTClient handle) {
        while (Clock::now() < overdue)
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        arriveBeside("line/set");
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        writesInside = FakeTagMemory::writeCount();
        consumedInside = consumed;
        FakeMqttClient::setConnected(handle, false);
    };
    EXPECT_EQ(static_cast<int>(subscriber.UnSubscribe()), -1);
    library.join();
    EXPECT_EQ(writesInside, 0U);
    EXPECT_EQ(consumedInside, -1); // the callback waits for the end of the request
    EXPECT_EQ(consumed, 0);
    EXPECT_EQ(FakeMqttClient::state().freedMessages, 0);
}

TEST_F(ArrivalDuringRequest, aMessageWhoseSessionAPublicationHasClosedIsNotTouched)
{
    subscribe();
    FakeMqttClient::state().duringPublish = [&](MQTTClient handle, int) {
        arriveBeside("line/set");
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        FakeMqttClient::setConnected(handle, false);
    };
    MQTTClient_deliveryToken token = 0;
    EXPECT_EQ(broker.Publish("t", "p", 1, 1, false, token), 0); // kept by the library to be sent again
    library.join();
    EXPECT_EQ(consumed, 0);
    EXPECT_EQ(FakeMqttClient::state().freedMessages, 0);
}

TEST_F(ArrivalDuringRequest, aNewConnectionBringsMessagesAgain)
{
    subscribe();
    FakeMqttClient::state().publishResult = -1;
    FakeMqttClient::state().duringPublish = [](MQTTClient handle, int) { FakeMqttClient::setConnected(handle, false); };
    MQTTClient_deliveryToken token = 0;
    EXPECT_EQ(broker.Publish("t", "p", 1, 0, false, token), -1);
    EXPECT_EQ(arrive("line/set", "abcd"), 0);
    EXPECT_EQ(broker.Connect(), CB_OK);
    EXPECT_EQ(arrive("line/set", "abcd"), 1);
}

TEST_F(ArrivalDuringRequest, aRequestWaitsForTheMessageThatIsBeingTaken)
{
    subscribe();
    std::atomic<bool> isTaking{false};
    std::size_t requestsMeanwhile = 99;
    FakeTagMemory::state().duringWrite = [&] {
        isTaking = true;
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        requestsMeanwhile = FakeMqttClient::state().subscribes.size();
    };
    FakeMqttClient::state().subscribes.clear();
    arriveBeside("line/set");
    while (!isTaking)
        std::this_thread::yield();
    EXPECT_EQ(SubscriptionRequest(broker).unsubscribe("line/set"), 0);
    library.join();
    EXPECT_EQ(requestsMeanwhile, 0U);
}

TEST_F(ArrivalDuringRequest, requestsToOneBrokerTakeTurns)
{
    int inside = 0;
    int most = 0;
    FakeMqttClient::state().duringSubscribe = [&](MQTTClient) {
        most = std::max(most, ++inside);
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        --inside;
    };
    std::thread second([this] { EXPECT_EQ(SubscriptionRequest(broker).unsubscribe("a"), 0); });
    EXPECT_EQ(SubscriptionRequest(broker).unsubscribe("b"), 0);
    second.join();
    EXPECT_EQ(most, 1);
    EXPECT_EQ(FakeMqttClient::state().subscribes.size(), 2U);
}

TEST_F(Arrival, ofAnUnbufferedSubscriptionEndsAnOldHandOverState)
{
    subscriber.m_Status.m_BufferedDataStatus = BDS_WAITING;
    arrive("line/set", "abcd");
    EXPECT_EQ(record().m_BufferedDataStatus, 0);
}

} // namespace
