#include "mqttclientmanager.h"
#include "Services/mqttscheduler.h"
#include "unittest.h"

namespace {

using testing::ElementsAre;

class Registration : public ServiceTest
{
protected:
    Registration() { resetSingletons(); }
    ~Registration() override { resetSingletons(); }

    MQTTClientManager& manager() { return *MQTTClientManager::instance(); }

    void addTag(unsigned address, int size)
    {
        Publisher publisher;
        publisher.m_DataAddress = address;
        publisher.m_DataSize = size;
        publisher.m_PerInterval = NO_PERIOD; // a publication on request counts as well
        manager().m_publications.append(publisher);
    }

    void addSubscription(unsigned recordAddress, bool buffered)
    {
        Subscriber subscriber;
        subscriber.m_SubAddr = recordAddress;
        subscriber.m_BufferedFlag = buffered;
        manager().m_subscriptions.append(subscriber);
    }

    void addWill(int address, int size)
    {
        ClientBroker broker;
        broker.LastWillAddr = address;
        broker.LastWillDataSize = size;
        manager().m_clientBrokers.append(broker);
    }

    // Entries of each packet, as "address:length".
    std::vector<std::vector<std::string>> registerAll()
    {
        EXPECT_TRUE(manager().ManageTagsRegistration());
        std::vector<std::vector<std::string>> packets;
        for (const auto& registration : FakeTagMemory::state().registrations) {
            EXPECT_EQ(registration.kind, 300U);
            EXPECT_EQ(registration.argument, 10);
            auto& packet = packets.emplace_back();
            for (const HdrOperandData_t& entry : registration.entries) {
                EXPECT_EQ(entry.reserved, 0);
                packet.push_back(std::to_string(entry.Address) + ":" + std::to_string(entry.length));
            }
        }
        return packets;
    }

    std::vector<std::size_t> packetSizes()
    {
        std::vector<std::size_t> sizes;
        for (const auto& packet : registerAll())
            sizes.push_back(packet.size());
        return sizes;
    }
};

TEST_F(Registration, holdsTheReceivedBitsOfBufferedSubscriptionsBehindThePublications)
{
    addWill(300, 4);
    addSubscription(1000, true);
    addSubscription(2000, false);
    addSubscription(98, true); // its received bit lies where a publication's tag begins
    addTag(100, 8);
    EXPECT_THAT(registerAll(), ElementsAre(ElementsAre("100:8", "1002:1", "300:4", "44:1", "47:1")));
}

TEST_F(Registration, withoutTagsHoldsTheTwoLinkStates)
{
    EXPECT_THAT(registerAll(), ElementsAre(ElementsAre("44:1", "47:1")));
    EXPECT_EQ(manager().m_numOfRegistrations, 1);
    EXPECT_EQ(manager().m_regIDs, (QVector<unsigned>{1}));
}

TEST_F(Registration, listsPublicationsThenWills)
{
    addWill(500, 21);
    addWill(-1, 9);
    addTag(300, 8);
    addTag(200, 2);
    EXPECT_THAT(registerAll(), ElementsAre(ElementsAre("300:8", "200:2", "500:21", "44:1", "47:1")));
}

TEST_F(Registration, theFirstLengthForAnAddressHolds)
{
    addTag(300, 8);
    addTag(300, 16);
    addWill(300, 21);
    EXPECT_THAT(registerAll(), ElementsAre(ElementsAre("300:8", "44:1", "47:1")));
}

TEST_F(Registration, theLinkStatesAreListedAlsoWhenAPublicationHasThem)
{
    addTag(44, 4);
    EXPECT_THAT(registerAll(), ElementsAre(ElementsAre("44:4", "44:1", "47:1")));
}

TEST_F(Registration, lengthsAreCutTo16Bits)
{
    addTag(300, 70'000);
    addTag(400, -1);
    EXPECT_THAT(registerAll().at(0), testing::Contains("300:4464"));
    EXPECT_EQ(FakeTagMemory::state().registrations.at(0).entries.at(1).length, 65535);
}

TEST_F(Registration, aPacketHolds150Entries)
{
    for (unsigned i = 0; i < 149; ++i) // 151 with the link states
        addTag(1000 + i, 4);
    EXPECT_THAT(packetSizes(), ElementsAre(150, 1));
    EXPECT_EQ(manager().m_numOfRegistrations, 2);
    EXPECT_EQ(manager().m_regIDs, (QVector<unsigned>{1, 2}));
}

TEST_F(Registration, aPacketOfExactly150EntriesIsTheOnlyOne)
{
    for (unsigned i = 0; i < 148; ++i)
        addTag(1000 + i, 4);
    EXPECT_THAT(packetSizes(), ElementsAre(150));
}

TEST_F(Registration, aTagOfTwoAndAHalfThousandBytesTakesTwoFurtherEntries)
{
    addTag(1, 2500);
    for (unsigned i = 0; i < 200; ++i)
        addTag(1000 + i, 4);
    const LogCapture log;
    EXPECT_THAT(packetSizes(), ElementsAre(148, 55));
    EXPECT_TRUE(log.contains("DEBUG add:2 destSection:0, MAX_REG_PER_PACKET:150"));
}

TEST_F(Registration, onlyTagsAboveAThousandBytesTakeFurtherEntries)
{
    addTag(1, 1000);
    for (unsigned i = 0; i < 200; ++i)
        addTag(1000 + i, 4);
    EXPECT_THAT(packetSizes(), ElementsAre(150, 53));
}

TEST_F(Registration, aTagOf1001BytesTakesOneFurtherEntry)
{
    addTag(1, 1001);
    for (unsigned i = 0; i < 200; ++i)
        addTag(1000 + i, 4);
    EXPECT_THAT(packetSizes(), ElementsAre(149, 54));
}

TEST_F(Registration, theLargestTagClosesAPacketThatIsNearlyFull)
{
    for (unsigned i = 0; i < 149; ++i)
        addTag(1000 + i, 4);
    addTag(1, 65'535); // takes the 150th entry and 65 further ones, but there is one packet entry only
    EXPECT_THAT(packetSizes(), ElementsAre(150, 2));
}

TEST_F(Registration, aFailureCostsALineAndNothingElse)
{
    FakeTagMemory::state().nextRegistrationId = 0;
    const LogCapture log;
    EXPECT_TRUE(manager().ManageTagsRegistration());
    EXPECT_TRUE(manager().m_regIDs.isEmpty());
    EXPECT_EQ(manager().m_numOfRegistrations, 1);
    EXPECT_TRUE(log.contains("DEBUG TagMemory::RegSync Error RegID: 0"));
}

TEST_F(Registration, isLogged)
{
    addTag(300, 65'000);
    addTag(400, 1000);
    const LogCapture log;
    manager().ManageTagsRegistration();
    EXPECT_THAT(log.lines(), ElementsAre("DEBUG FIRED", "DEBUG add:65 destSection:0, MAX_REG_PER_PACKET:150",
                                         "DEBUG RegSync  destSection: 4",
                                         "DEBUG iOperand:4, Size:466, RegID:1 END", // 66,002 bytes in 16 bits
                                         "DEBUG m_numOfRegistrations:1, END"));
}

} // namespace
