#include "requesttest.h"
#include "Services/mqttscheduler.h"

#include <csignal>
#include <thread>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using namespace std::chrono_literals;

class PauseStart : public RequestTest
{
protected:
    PauseStart()
    {
        addBroker(1);
        addBroker(2);
        addSubscription(11, 1);
        createClients();
    }

    static std::int32_t processStatus() { return manager().m_statusLogManager->m_MQTTGeneralStruct.m_ProcessStatus; }
};

TEST_F(PauseStart, aPauseDisconnectsDestroysAndThenShowsThatItIsPaused)
{
    manager().m_clientBrokers[0].Connect();
    FakeMqttClient::state().calls.clear();
    FakeTagMemory::state().writes.clear();
    EXPECT_EQ(manager().HandlePauseMQTT(StatusOperand), SC_AC_OK);
    EXPECT_THAT(FakeMqttClient::state().calls, ElementsAre("unsubscribe", "disconnect", "destroy", "destroy"));
    EXPECT_EQ(manager().m_clientBrokers[0].m_State, PS_PAUSED);
    EXPECT_EQ(manager().m_clientBrokers[1].m_State, PS_PAUSED);
    EXPECT_EQ(processStatus(), PS_PAUSED);
    EXPECT_THAT(statusTag(), ElementsAre(Bytes{2}, Bytes{0}));
    // The status tag first, the blocks of the brokers, the general record, and the status tag again.
    const auto& writes = FakeTagMemory::state().writes;
    EXPECT_EQ(writes.front().address, StatusTag);
    EXPECT_EQ(writes[writes.size() - 2].address, 1000U);
    EXPECT_EQ(writes.back().address, StatusTag);
}

TEST_F(PauseStart, aBrokerThatIsNotConnectedOrFailsToDisconnectDoesNotStopAPause)
{
    manager().m_clientBrokers[0].Connect();
    FakeMqttClient::state().disconnectResults = {-1};
    EXPECT_EQ(manager().HandlePauseMQTT(StatusOperand), SC_AC_OK);
    EXPECT_EQ(processStatus(), PS_PAUSED);
    EXPECT_EQ(FakeTagMemory::bytesAt(108, 4), (Bytes{0, 0, 0xF4, 0}));
}

TEST_F(PauseStart, oneDisconnectThatFailsIsTheResultAndTheOthersFollow)
{
    manager().m_clientBrokers[0].Connect();
    manager().m_clientBrokers[1].Connect();
    FakeMqttClient::state().calls.clear();
    FakeMqttClient::state().disconnectResults = {-1};
    EXPECT_EQ(manager().disconnectWithAllBrokers(), SC_AC_ERROR_BROKER_FAILED);
    EXPECT_THAT(FakeMqttClient::state().calls, ElementsAre("unsubscribe", "disconnect", "disconnect"));
    FakeMqttClient::setConnected(manager().m_clientBrokers[0].m_MQTTClient, true);
    manager().m_clientBrokers[1].Connect();
    EXPECT_EQ(manager().disconnectWithAllBrokers(), SC_AC_OK);
}

TEST_F(PauseStart, aSecondPauseIsRefusedAndTouchesNothing)
{
    manager().HandlePauseMQTT(StatusOperand);
    FakeTagMemory::state().writes.clear();
    FakeMqttClient::state().calls.clear();
    EXPECT_EQ(manager().HandlePauseMQTT(StatusOperand), SC_AC_ERROR_ALREADY_PAUSED);
    EXPECT_THAT(statusTag(), ElementsAre(Bytes{2}, Bytes{0xFB}));
    EXPECT_EQ(FakeTagMemory::state().writes.size(), 2U);
    EXPECT_THAT(FakeMqttClient::state().calls, IsEmpty());
}

TEST_F(PauseStart, aStartWhileRunningIsRefusedAndTouchesNothing)
{
    const LogCapture log;
    EXPECT_EQ(manager().HandleStartMQTT(StatusOperand), SC_AC_ERROR_NOT_PAUSED);
    EXPECT_THAT(statusTag(), ElementsAre(Bytes{2}, Bytes{0xFC}));
    EXPECT_EQ(FakeTagMemory::state().writes.size(), 2U);
    EXPECT_THAT(log.lines(),
                ElementsAre("DEBUG Enter function", testing::StartsWith("DEBUG Wrote stauts (2)"),
                            testing::StartsWith("DEBUG Wrote stauts (-4)"), "DEBUG End function (rtnstatus is -4)"));
}

TEST_F(PauseStart, aStartWithoutFilesFailsAndStaysPaused)
{
    manager().HandlePauseMQTT(StatusOperand);
    FakeTagMemory::state().writes.clear();
    EXPECT_EQ(manager().HandleStartMQTT(StatusOperand), SC_AC_ERROR_PARSE_FAILED);
    EXPECT_EQ(FakeTagMemory::bytesAt(StatusTag, 1), (Bytes{0xF7}));
    EXPECT_EQ(processStatus(), PS_PAUSED);
}

TEST_F(PauseStart, aStartClearsTheRecordsOfSubscriptionsAndBrokersFirst)
{
    manager().HandlePauseMQTT(StatusOperand);
    FakeTagMemory::state().writes.clear();
    manager().HandleStartMQTT(StatusOperand);
    const auto& writes = FakeTagMemory::state().writes;
    ASSERT_EQ(writes.size(), 5U);
    EXPECT_EQ(writes[0].address, StatusTag);
    EXPECT_EQ(writes[1].address, 21'000U);
    EXPECT_EQ(writes[2].address, 104U);
    EXPECT_EQ(writes[3].address, 108U);
    EXPECT_EQ(writes[4].address, StatusTag);
}

TEST_F(PauseStart, waitsASecondForEachBusyBrokerInEveryPass)
{
    const LogCapture log;
    manager().m_clientBrokers[1].m_Busy = true;
    int written = 0;
    // Three passes: the third second ends the attempt.
    std::thread attempt([&] {
        while (written < 3) {
            written = log.count("DEBUG Broker 'broker 2' is busy, give it a sec");
            std::this_thread::yield();
        }
        manager().m_clientBrokers[1].m_Busy = false;
    });
    manager().waitForBusyBrokers();
    attempt.join();
    const int lines = log.count("DEBUG Broker 'broker 2' is busy, give it a sec");
    EXPECT_GE(lines, 3);
    EXPECT_EQ(FakeSleep::waits().size(), static_cast<std::size_t>(lines));
    EXPECT_EQ(FakeSleep::waits().front(), 1000ms);
    EXPECT_EQ(log.count("DEBUG Broker 'broker 1' is busy, give it a sec"), 0);
}

TEST_F(PauseStart, withoutABusyBrokerNothingIsWaitedFor)
{
    manager().waitForBusyBrokers();
    EXPECT_THAT(FakeSleep::waits(), IsEmpty());
}

TEST_F(PauseStart, aSlotForwardsTheAddress)
{
    manager().SlotStartMQTT(StatusOperand);
    EXPECT_THAT(statusTag(), ElementsAre(Bytes{2}, Bytes{0xFC}));
    manager().SlotPauseMQTT(StatusOperand);
    EXPECT_EQ(FakeTagMemory::bytesAt(StatusTag, 1), (Bytes{0}));
}

void ownHandler(int /*number*/) {}

TEST_F(PauseStart, theProcesssHandlerOfBrokenPipesOutlastsTheClients)
{
    struct sigaction before = {};
    struct sigaction own = {};
    own.sa_handler = ownHandler;
    sigaction(SIGPIPE, &own, &before);
    FakeMqttClient::state().duringCreate = [] { signal(SIGPIPE, SIG_IGN); }; // as the library does
    manager().createMQTTClients();
    struct sigaction after = {};
    sigaction(SIGPIPE, &before, &after);
    EXPECT_EQ(after.sa_handler, &ownHandler);
}

} // namespace
