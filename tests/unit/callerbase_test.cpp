#include "unittest.h"

namespace {

class CallerBase : public ServiceTest
{
protected:
    int sizeOf(ArgType type, int length, int entries)
    {
        caller.m_DataType = type;
        caller.m_DataLen = length;
        caller.m_Entries = entries;
        caller.CalcDataSize();
        return caller.m_DataSize;
    }

    CallerBase() { caller.m_PayloadFormat = PF_BUFFER; }

    MQTTCallerBase caller;
};

TEST_F(CallerBase, beginsWithoutFormatAndSize)
{
    const MQTTCallerBase fresh;
    EXPECT_EQ(fresh.m_PayloadFormat, 255);
    EXPECT_EQ(fresh.m_DataSize, -1);
    EXPECT_EQ(fresh.m_DataLen, -1);
    EXPECT_EQ(fresh.m_cBroker, nullptr);
    EXPECT_FALSE(fresh.m_Special);
}

TEST_F(CallerBase, withoutAFormatHasNoSizeWhateverItsType)
{
    caller.m_PayloadFormat = PF_NOT_CONFIGURED;
    EXPECT_EQ(sizeOf(AT_UINT32, -1, 4), -1);
}

TEST_F(CallerBase, sizesFollowFromTheType)
{
    EXPECT_EQ(sizeOf(AT_STR16, 10, 0), 22);
    EXPECT_EQ(sizeOf(AT_UINT32, -1, 4), 16);
    EXPECT_EQ(sizeOf(AT_UINT32, -1, 0), 4);
    EXPECT_EQ(sizeOf(AT_STR8, -1, 0), 0);
    EXPECT_EQ(sizeOf(AT_NOTYPE, -1, 0), -1);
    EXPECT_EQ(sizeOf(static_cast<ArgType>(13), -1, 0), -1);
    EXPECT_EQ(sizeOf(static_cast<ArgType>(-1), -1, 0), -1);
}

TEST_F(CallerBase, theLastMemberOfAStructDecides)
{
    caller.m_DataMembers = {{"a", AT_INT32, 0, -1, 0}, {"b", AT_INT16, 3, -1, 8}};
    EXPECT_EQ(sizeOf(AT_STRUCT, -1, 0), 14);
    caller.m_DataMembers = {{"b", AT_INT16, 3, -1, 8}, {"a", AT_INT32, 0, -1, 0}};
    EXPECT_EQ(sizeOf(AT_STRUCT, -1, 0), 4); // intended: members out of order come out too short
}

TEST_F(CallerBase, aStructWithoutMembersHasNoSize)
{
    EXPECT_EQ(sizeOf(AT_STRUCT, -1, 0), -1);
}

TEST_F(CallerBase, aStructThatEndsPastAllBoundsHasNoSize)
{
    caller.m_DataMembers = {{"a", AT_INT32, 0, -1, 0xFFFFFFFF}};
    EXPECT_EQ(sizeOf(AT_STRUCT, -1, 0), -1);
}

TEST_F(CallerBase, doesNothingWithWhatItsBrokerTells)
{
    caller.ConnectionLost();
    caller.DeliveryComplete(1);
    caller.ClearCfgStruct();
    caller.Disconnect();
    caller.PresentSessionEstablished();
    EXPECT_TRUE(caller.MessageArrived(nullptr, 0, nullptr));
    EXPECT_TRUE(caller.UpdateCfgStruct());
    EXPECT_FALSE(caller.IsSubscribed());
    EXPECT_TRUE(FakeTagMemory::state().writes.empty());
}

TEST_F(CallerBase, aPublicationHasNoStatusRecord)
{
    Publisher publisher;
    EXPECT_TRUE(publisher.UpdateCfgStruct());
    EXPECT_FALSE(publisher.IsSubscribed());
    EXPECT_TRUE(FakeTagMemory::state().writes.empty());
}

} // namespace
