#include "Services/mqttStatusLogManager.h"
#include "unittest.h"

namespace {

class StatusLogManager : public ServiceTest
{
protected:
    StatusLogManager()
    {
        manager.UpdateMQTTStructsAddress(1000, 2000);
        FakeTagMemory::state().writes.clear();
    }

    MQTTStatusLogManager manager;
};

TEST_F(StatusLogManager, writesTheGeneralRecordLittleEndian)
{
    manager.m_MQTTGeneralStruct.m_ProcessStatus = PS_TIME_NOT_SET;
    manager.m_MQTTGeneralStruct.m_BrokersNumber = 0x0102;
    manager.m_MQTTGeneralStruct.m_PublicationsNumber = 300;
    manager.m_MQTTGeneralStruct.m_SubscriptionsNumber = 7;
    manager.UpdateMQTTGeneralStruct();
    EXPECT_THAT(FakeTagMemory::state().writes,
                testing::ElementsAre(FakeTagMemory::WriteRecord{1000, {4, 0, 0, 0, 2, 1, 44, 1, 7, 0, 0, 0}}));
}

TEST_F(StatusLogManager, logsTheGeneralRecord)
{
    manager.m_MQTTGeneralStruct.m_ProcessStatus = PS_PAUSED;
    const LogCapture log;
    manager.UpdateMQTTGeneralStruct();
    EXPECT_THAT(log.lines(),
                testing::ElementsAre("DEBUG Wrote data to address (1000) sizeof (12). Process status is (2)"));
}

TEST_F(StatusLogManager, aStatusTagIsOneSignedByte)
{
    const LogCapture log;
    manager.UpdateStatusTag(77, SC_AC_ERROR_SYSTEM_TIME);
    manager.UpdateStatusTag(77, SC_AC_IN_PROGRESS);
    manager.UpdateStatusTag(77, SC_AC_ERROR_INVALID_ID);
    EXPECT_EQ(FakeTagMemory::writesAt(77), (std::vector<Bytes>{{0xF0}, {2}, {0xFE}}));
    EXPECT_TRUE(log.contains("DEBUG Wrote stauts (-16) to address (77) sizeof (1)"));
}

TEST_F(StatusLogManager, settingAddressesWritesNothing)
{
    manager.UpdateMQTTStructsAddress(1, 2);
    EXPECT_TRUE(FakeTagMemory::state().writes.empty());
}

TEST_F(StatusLogManager, eachCounterWritesTheWholeRecordWithoutALogLine)
{
    const LogCapture log;
    manager.UpdatePublicationSent();
    manager.UpdatePublicationAckReceived();
    manager.UpdateReceivedSubscriptions();
    manager.UpdateDroppedSubscriptions();
    manager.UpdatePublicationSent();
    EXPECT_EQ(FakeTagMemory::writesAt(2000), (std::vector<Bytes>{{1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0},
                                                                 {1, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0},
                                                                 {1, 0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0},
                                                                 {1, 0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0},
                                                                 {2, 0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0}}));
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(StatusLogManager, countersWrap)
{
    manager.m_MQTTStatisticsStruct.m_SentPubs = 0xFFFFFFFFU;
    manager.UpdatePublicationSent();
    EXPECT_EQ(FakeTagMemory::bytesAt(2000, 4), (Bytes{0, 0, 0, 0}));
}

TEST_F(StatusLogManager, aNewStatisticsAddressHoldsFromTheNextWriteOnAndKeepsTheCounters)
{
    manager.UpdatePublicationSent();
    manager.UpdateMQTTStructsAddress(1000, 3000);
    manager.UpdatePublicationSent();
    EXPECT_EQ(FakeTagMemory::bytesAt(2000, 1), Bytes{1});
    EXPECT_EQ(FakeTagMemory::bytesAt(3000, 1), Bytes{2});
}

TEST_F(StatusLogManager, aFailedWriteIsNotLookedAt)
{
    FakeTagMemory::state().writeResults = {-1};
    manager.UpdatePublicationSent();
    manager.UpdatePublicationSent();
    EXPECT_EQ(FakeTagMemory::bytesAt(2000, 1), Bytes{2});
}

TEST_F(StatusLogManager, opensTagMemoryWhenItIsMade)
{
    FakeTagMemory::reset();
    const MQTTStatusLogManager another;
    EXPECT_EQ(FakeTagMemory::state().opens, 1);
    EXPECT_TRUE(FakeTagMemory::state().writes.empty());
}

} // namespace
