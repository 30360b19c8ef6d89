#include "publishertest.h"

namespace {

class JsonPublishing : public PublisherTest
{
protected:
    JsonPublishing() { publisher.m_PayloadFormat = PF_JSON; }

    void setType(ArgType type, int length = NO_DATA_LEN, int entries = 0)
    {
        publisher.m_DataType = type;
        publisher.m_DataLen = length;
        publisher.m_Entries = entries;
        publisher.CalcDataSize();
    }

    void setStruct(const QList<JsonDataMember>& members)
    {
        publisher.m_DataType = AT_STRUCT;
        publisher.m_DataMembers = members;
        publisher.CalcDataSize();
    }

    std::string publish()
    {
        FakeMqttClient::state().publishes.clear();
        EXPECT_EQ(publisher.Publish(), PSC_OK);
        EXPECT_EQ(FakeMqttClient::state().publishes.size(), 1U);
        return FakeMqttClient::state().publishes.empty() ? "" : FakeMqttClient::state().publishes.at(0).payload;
    }
};

TEST_F(JsonPublishing, aSingleValueIsBare)
{
    setType(AT_INT32);
    FakeTagMemory::put(700, {0xFB, 0xFF, 0xFF, 0xFF});
    EXPECT_EQ(publish(), "-5");
}

TEST_F(JsonPublishing, anArrayIsBare)
{
    setType(AT_UINT8, NO_DATA_LEN, 3);
    FakeTagMemory::put(700, {1, 2, 255});
    EXPECT_EQ(publish(), "[1,2,255]");
}

TEST_F(JsonPublishing, aTextIsQuotedAndNotEscaped)
{
    setType(AT_STR8, 6);
    FakeTagMemory::put(700, {'a', '"', '\\', 0xC3, 0xA4, 0, 'x'});
    EXPECT_EQ(publish(), "\"a\"\\ä\"");
}

TEST_F(JsonPublishing, aStructHasItsMembersInFileOrder)
{
    setStruct({{"b", AT_BOOL, 0, NO_DATA_LEN, 2},
               {"grö\"ße", AT_UINT16, 0, NO_DATA_LEN, 0},
               {"list", AT_INT8, 2, NO_DATA_LEN, 3},
               {"text", AT_STR8, 0, 2, 5}});
    FakeTagMemory::put(700, {12, 0, 1, 0xFF, 2, 'h', 'i', 0});
    EXPECT_EQ(publish(), "{\"b\":true,\"grö\"ße\":12,\"list\":[-1,2],\"text\":\"hi\"}");
    EXPECT_EQ(publish(), "{\"b\":true,\"grö\"ße\":12,\"list\":[-1,2],\"text\":\"hi\"}"); // and every time
}

TEST_F(JsonPublishing, aStructWithoutMembersLosesItsOpeningBrace)
{
    setStruct({});
    EXPECT_EQ(publish(), "}");
}

TEST_F(JsonPublishing, anythingElseIsZero)
{
    for (const int type : {0, 13, 99, -1}) {
        setType(static_cast<ArgType>(type));
        EXPECT_EQ(publish(), "0");
    }
}

TEST_F(JsonPublishing, membersThatAreNoValueAreZero)
{
    setStruct({{"s", AT_STRUCT, 0, NO_DATA_LEN, 0}, {"n", AT_NOTYPE, 0, NO_DATA_LEN, 0}});
    EXPECT_EQ(publish(), "{\"s\":0,\"n\":0}");
}

// The last member alone decides what is read.
TEST_F(JsonPublishing, membersOutsideTheTagAreZero)
{
    setStruct({{"far", AT_UINT32, 0, NO_DATA_LEN, 0xFFFFFFFF},
               {"edge", AT_UINT16, 0, NO_DATA_LEN, 1},
               {"text", AT_STR8, 0, 20, 1},
               {"first", AT_UINT8, 2, NO_DATA_LEN, 0}});
    FakeTagMemory::put(700, {'a', 'b', 'c', 'd'});
    EXPECT_EQ(publish(), "{\"far\":0,\"edge\":98,\"text\":\"b\",\"first\":[97,98]}");
}

TEST_F(JsonPublishing, readsTheLow16BitsOfTheSize)
{
    setType(AT_UINT8, NO_DATA_LEN, 65'536 + 2);
    FakeTagMemory::put(700, {7, 8, 9});
    EXPECT_EQ(publisher.Publish(), PSC_ERROR_DATA_BIG_THAN_BUFF);
    setStruct({{"a", AT_UINT8, 0, NO_DATA_LEN, 0},
               {"c", AT_UINT8, 0, NO_DATA_LEN, 2},
               {"end", AT_UINT8, 0, NO_DATA_LEN, 65'536 + 1}});
    EXPECT_EQ(publish(), "{\"a\":7,\"c\":0,\"end\":0}");
}

TEST_F(JsonPublishing, takesATextOf5000BytesWithoutATerminator)
{
    setType(AT_STR8, 4998);
    FakeTagMemory::put(700, Bytes(4998, 'x'));
    EXPECT_EQ(publish(), '"' + std::string(4998, 'x') + '"');
    EXPECT_TRUE(
        std::all_of(publisher.m_PublishBuffer.begin(), publisher.m_PublishBuffer.end(), [](char c) { return c == 0; }));
}

TEST_F(JsonPublishing, refuses5001BytesOfText)
{
    setType(AT_STR8, 4999);
    FakeTagMemory::put(700, Bytes(4999, 'x'));
    EXPECT_EQ(publisher.Publish(), PSC_ERROR_DATA_BIG_THAN_BUFF);
    EXPECT_TRUE(FakeMqttClient::state().publishes.empty());
}

TEST_F(JsonPublishing, countsBytesAndNotCharacters)
{
    setType(AT_STR16, 2499);
    Bytes text;
    for (int i = 0; i < 2499; ++i)
        text.insert(text.end(), {0xE4, 0}); // two bytes in UTF-8
    FakeTagMemory::put(700, text);
    EXPECT_EQ(publish().size(), 5000U);
    setType(AT_STR16, 2500);
    text.insert(text.end(), {0xE4, 0});
    FakeTagMemory::put(700, text);
    EXPECT_EQ(publisher.Publish(), PSC_ERROR_DATA_BIG_THAN_BUFF);
}

TEST_F(JsonPublishing, aStructThatIsTooLongIsRefused)
{
    QList<JsonDataMember> members;
    for (int i = 0; i < 1000; ++i)
        members.append({QString("member%1").arg(i), AT_UINT8, 0, NO_DATA_LEN, static_cast<unsigned>(i)});
    setStruct(members);
    EXPECT_EQ(publisher.Publish(), PSC_ERROR_DATA_BIG_THAN_BUFF);
    EXPECT_TRUE(FakeMqttClient::state().publishes.empty());
}

TEST_F(JsonPublishing, leavesABufferOfZerosBehindATextThatIsTooLong)
{
    setType(AT_UINT8, NO_DATA_LEN, 5000);
    EXPECT_EQ(publisher.Publish(), PSC_ERROR_DATA_BIG_THAN_BUFF);
    EXPECT_TRUE(isBufferZero());
}

TEST_F(JsonPublishing, followsMembersThatChange)
{
    setStruct({{"a", AT_UINT8, 0, NO_DATA_LEN, 0}});
    EXPECT_EQ(publish(), "{\"a\":0}");
    publisher.m_DataMembers[0].Name = "b";
    EXPECT_EQ(publish(), "{\"b\":0}");
}

TEST_F(JsonPublishing, sizesFromABrokenConfigurationEndAtOnce)
{
    setType(AT_UINT8, NO_DATA_LEN, 2'000'000'000);
    EXPECT_EQ(publisher.Publish(), PSC_ERROR_DATA_BIG_THAN_BUFF);
    setType(AT_UINT32, NO_DATA_LEN, -3);
    EXPECT_EQ(publish(), "]");
    setType(AT_STR8, -5);
    EXPECT_EQ(publish(), "\"\"");
}

TEST_F(JsonPublishing, readsFreshEachTime)
{
    setType(AT_UINT8);
    FakeTagMemory::put(700, {1});
    EXPECT_EQ(publish(), "1");
    FakeTagMemory::put(700, {2});
    EXPECT_EQ(publish(), "2");
}

TEST_F(JsonPublishing, aTagThatCannotBeReadGoesOutAsZero)
{
    setType(AT_UINT8);
    FakeTagMemory::put(700, {1});
    FakeTagMemory::state().unreadable = {700};
    EXPECT_EQ(publish(), "0");
}

TEST_F(JsonPublishing, whileDisconnectedReadsNothing)
{
    setType(AT_UINT8);
    FakeMqttClient::setConnected(broker.m_MQTTClient, false);
    FakeTagMemory::state().reads.clear();
    EXPECT_EQ(publisher.Publish(), PSC_ERROR_NOT_PUBLISHED);
    EXPECT_TRUE(FakeTagMemory::state().reads.empty());
}

} // namespace
