#include "Services/mqttmanagerservices.h"
#include "unittest.h"

namespace {

// On a machine without the device's settings file and scripts: the name is empty, and so is what no cache holds.
class Identity : public ServiceTest
{
protected:
    MQTTManagerServices services;
};

TEST_F(Identity, cachesBeginAsElevenZeros)
{
    EXPECT_EQ(services.m_plcSerial, "00000000000");
    EXPECT_EQ(services.m_plcMac, "00000000000");
}

TEST_F(Identity, aKnownTextIsNotAskedForAgain)
{
    services.m_plcSerial = "SN-7";
    EXPECT_EQ(services.GetPLCSN(), "SN-7");
}

TEST_F(Identity, anEmptyAnswerIsKept)
{
    services.m_plcSerial = "";
    EXPECT_EQ(services.GetPLCSN(), "");
    EXPECT_EQ(services.m_plcSerial, "");
}

TEST_F(Identity, aScriptThatCannotBeStartedLeavesTheCacheUnknown)
{
    EXPECT_EQ(services.GetPLCMAC(), "");
    EXPECT_EQ(services.m_plcMac, "00000000000");
}

TEST_F(Identity, seesVariablesInTheirOwnCaseOnly)
{
    EXPECT_TRUE(services.isMQTTVarIsUsed("a/{PLC.NAME}/b"));
    EXPECT_TRUE(services.isMQTTVarIsUsed("{PLC.SN}"));
    EXPECT_TRUE(services.isMQTTVarIsUsed("x{PLC.MAC}"));
    EXPECT_FALSE(services.isMQTTVarIsUsed("{plc.sn}"));
    EXPECT_FALSE(services.isMQTTVarIsUsed("PLC.SN"));
}

TEST_F(Identity, leavesATextWithoutVariablesAlone)
{
    EXPECT_EQ(services.SetMQTTTopicVariable("line/{plc.sn}/state"), "line/{plc.sn}/state");
}

TEST_F(Identity, replacesEveryOccurrence)
{
    services.m_plcSerial = "42";
    EXPECT_EQ(services.SetMQTTTopicVariable("{PLC.SN}/a/{PLC.SN}"), "42/a/42");
}

TEST_F(Identity, nameFallsBackToSerialNumberAndThenToMac)
{
    services.m_plcSerial = "42";
    EXPECT_EQ(services.SetMQTTTopicVariable("{PLC.NAME}/x"), "42/x");
    services.m_plcSerial = "";
    services.m_plcMac = "AA";
    EXPECT_EQ(services.SetMQTTTopicVariable("{PLC.NAME}/x"), "AA/x");
}

TEST_F(Identity, serialNumberFallsBackToMac)
{
    services.m_plcSerial = "";
    services.m_plcMac = "AA";
    EXPECT_EQ(services.SetMQTTTopicVariable("{PLC.SN}/x"), "AA/x");
}

TEST_F(Identity, macMayBeEmpty)
{
    services.m_plcMac = "";
    EXPECT_EQ(services.SetMQTTTopicVariable("{PLC.MAC}/x"), "/x");
}

TEST_F(Identity, expandsValuesThatHoldVariables)
{
    services.m_plcSerial = "s-{PLC.MAC}";
    services.m_plcMac = "AA";
    EXPECT_EQ(services.SetMQTTTopicVariable("{PLC.SN}"), "s-AA");
}

TEST_F(Identity, givesUpOnAValueThatHoldsItself)
{
    const LogCapture log;
    services.m_plcSerial = "x{PLC.SN}";
    EXPECT_EQ(services.SetMQTTTopicVariable("{PLC.SN}"), QString(64, 'x') + "{PLC.SN}");
    EXPECT_TRUE(
        log.contains("ERROR the variables of '{PLC.SN}' can't be expanded: their values hold variables again, or "
                     "are too long for a topic"));
}

TEST_F(Identity, givesUpBeforeAValueThatDoublesItselfTakesAllMemory)
{
    services.m_plcSerial = "{PLC.SN}{PLC.SN}";
    EXPECT_LE(services.SetMQTTTopicVariable("{PLC.SN}").size(), 65535);
}

struct LinkCase
{
    std::uint8_t first;
    std::uint8_t second;
    bool isUp;
};

class LinkState : public ServiceTest, public testing::WithParamInterface<LinkCase>
{
};

TEST_P(LinkState, isUpWhenOnePortSaysOne)
{
    setLink(GetParam().first, GetParam().second);
    EXPECT_EQ(MQTTManagerServices::instance()->CheckEthPortLinkState(), GetParam().isUp);
}

INSTANTIATE_TEST_SUITE_P(Ports, LinkState,
                         testing::Values(LinkCase{0, 0, false}, LinkCase{1, 0, true}, LinkCase{0, 1, true},
                                         LinkCase{1, 1, true}, LinkCase{2, 0, false}, LinkCase{0, 255, false}));

TEST_F(Identity, logsTheLinkStates)
{
    setLink(2, 1);
    const LogCapture log;
    EXPECT_TRUE(services.CheckEthPortLinkState());
    EXPECT_THAT(log.lines(),
                testing::ElementsAre("DEBUG eth1PortLinkState: 2, eth2PortLinkState: 1", "DEBUG isConnected: 1"));
}

} // namespace
