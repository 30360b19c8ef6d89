#include "Entities/subscriber.h"
#include "Entities/topicsieve.h"
#include "unittest.h"

#include <random>
#include <string>

namespace {

bool passes(const QString& filter, const std::string& topic, bool isSpecial = true)
{
    TopicSieve sieve;
    sieve.addFilter(TopicFilter(filter), isSpecial);
    return sieve.mayMatch(0, topic.c_str(), topic.size());
}

TEST(Sieve, holdsBackWhatCanNotMatch)
{
    EXPECT_TRUE(passes("plant/line/speed", "plant/line/speed"));
    EXPECT_FALSE(passes("plant/line/speed", "plant/line/level"));
    EXPECT_FALSE(passes("plant/line/1/#", "plant/line/2/speed"));
    EXPECT_FALSE(passes("plant/line/1/#", "plant/line"));
    EXPECT_FALSE(passes("plant/+/speed", "plant/line/level"));
    EXPECT_FALSE(passes("plant/+/1", "plant/line/2"));
}

TEST(Sieve, takesWildcardsLiterallyWhereTheyAreNone)
{
    EXPECT_FALSE(passes("plant/line/#", "plant/line/speed", false));
    EXPECT_TRUE(passes("plant/line/#", "plant/line/#", false));
}

TEST(Sieve, holdsEverythingBackForACallerThatIsNoSubscriber)
{
    TopicSieve sieve;
    sieve.addNone();
    sieve.addFilter(TopicFilter("#"), true);
    for (const std::string& topic : {std::string(), std::string("a"), std::string(65'535, 'x')}) {
        EXPECT_FALSE(sieve.mayMatch(0, topic.c_str(), topic.size()));
        EXPECT_TRUE(sieve.mayMatch(1, topic.c_str(), topic.size()));
    }
}

TEST(Sieve, neverHoldsBackWhatMatches)
{
    const QStringList pieces{"a", "b", "line", "ä", "speed", "/", "/", "/", "+", "#", "$"};
    std::mt19937 random(31);
    const auto text = [&] {
        QString result;
        for (auto length = random() % 7; length > 0; --length)
            result += pieces.at(static_cast<int>(random() % static_cast<unsigned>(pieces.size())));
        return result;
    };
    int matches = 0;
    int heldBack = 0;
    for (int i = 0; i < 200'000; ++i) {
        const QString filterText = text();
        const TopicFilter filter(filterText);
        const QByteArray topic = text().toUtf8();
        const bool isSpecial = filterText.contains('+') || filterText.contains('#');
        const bool isMatch =
            filter.equals(topic) || (isSpecial && (filter.matchesLevels(topic) || filter.matchesPrefix(topic)));
        const bool mayMatch = passes(filterText, topic.toStdString(), isSpecial);
        ASSERT_TRUE(mayMatch || !isMatch) << filterText.toStdString() << " <- " << topic.toStdString();
        matches += isMatch ? 1 : 0;
        heldBack += mayMatch ? 0 : 1;
    }
    EXPECT_GT(matches, 5'000);
    EXPECT_GT(heldBack, 20'000);
}

class SiftedBroker : public BrokerTest
{
protected:
    SiftedBroker() { connectBroker(); }

    void addSubscriber(Subscriber& subscriber, const QString& topic, unsigned recordAddress)
    {
        subscriber.m_CallerType = CT_SUBSCRIBER;
        subscriber.m_Topic = topic;
        subscriber.m_Special = topic.contains('+') || topic.contains('#');
        subscriber.m_SubAddr = recordAddress;
        subscriber.m_Status.m_Subscribed = 1;
        broker.m_Callers.append(&subscriber);
    }

    // Whether a message on this topic writes the record there.
    bool reaches(unsigned recordAddress, const std::string& topic)
    {
        FakeTagMemory::state().writes.clear();
        FakeMqttClient::arrive(broker.m_MQTTClient, topic, "x");
        return !FakeTagMemory::writesAt(recordAddress).empty();
    }
};

TEST_F(SiftedBroker, offersMessagesAsItDoesWithout)
{
    Subscriber exact;
    Publisher publisher;
    publisher.m_CallerType = CT_PUBLISHER;
    Subscriber level;
    Subscriber prefix;
    addSubscriber(exact, "plant/line/speed", 1000);
    broker.m_Callers.append(&publisher);
    addSubscriber(level, "plant/+/speed", 2000);
    addSubscriber(prefix, "plant/line/#", 3000);
    for (const bool isPrepared : {false, true}) {
        if (isPrepared)
            broker.PrepareCallers();
        for (const unsigned record : {1000U, 2000U, 3000U})
            EXPECT_TRUE(reaches(record, "plant/line/speed"));
        EXPECT_FALSE(reaches(1000, "plant/hall/speed"));
        EXPECT_TRUE(reaches(2000, "plant/hall/speed"));
        EXPECT_FALSE(reaches(3000, "plant/hall/speed"));
        EXPECT_TRUE(reaches(3000, "plant/line/level"));
    }
}

TEST_F(SiftedBroker, asksCallersThatCameLater)
{
    broker.PrepareCallers();
    Subscriber late;
    addSubscriber(late, "plant/line/speed", 1000);
    EXPECT_TRUE(reaches(1000, "plant/line/speed"));
}

} // namespace
