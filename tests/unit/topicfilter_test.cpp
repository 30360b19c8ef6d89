#include "Entities/subscriber.h"
#include "unittest.h"

#include <QStringList>
#include <random>

namespace {

// Filter, topic, and what each of the three rules says of them.
struct FilterCase
{
    const char* filter;
    const char* topic;
    bool equals;
    bool levels;
    bool prefix;
};

class Filters : public testing::TestWithParam<FilterCase>
{
};

TEST_P(Filters, compareWithATopic)
{
    const FilterCase& expected = GetParam();
    const TopicFilter filter(QString::fromUtf8(expected.filter));
    EXPECT_EQ(filter.equals(expected.topic), expected.equals);
    EXPECT_EQ(filter.matchesLevels(expected.topic), expected.levels);
    EXPECT_EQ(filter.matchesPrefix(expected.topic), expected.prefix);
}

INSTANTIATE_TEST_SUITE_P(
    MultiLevel, Filters,
    testing::Values(FilterCase{"a/#", "a/b/c", false, false, true}, FilterCase{"a/#", "a/", false, false, true},
                    FilterCase{"a/#", "a", false, false, false}, // the parent is not matched
                    FilterCase{"a/#", "A/b", false, false, false}, FilterCase{"a/#", "a/#", true, true, true},
                    FilterCase{"a/b#", "a/bc", false, false, true}, // "#" need not stand alone
                    FilterCase{"a/b#", "a/b", false, false, true},
                    FilterCase{"a/#/c", "a/x/y", false, false, true},  // what follows is not looked at
                    FilterCase{"+/b/#", "x/b/c", false, false, false}, // "+" is literal ahead of "#"
                    FilterCase{"+/b/#", "+/b/c", false, false, true}, FilterCase{"+/b/#", "x/b/#", false, true, false},
                    FilterCase{"#", "", false, false, true}, FilterCase{"#", "any/topic", false, false, true},
                    FilterCase{"#", "$SYS/uptime", false, false, true},
                    FilterCase{"a#b#", "ac", false, false, true})); // the first "#" counts

INSTANTIATE_TEST_SUITE_P(
    SingleLevel, Filters,
    testing::Values(FilterCase{"a/+/c", "a/b/c", false, true, false},
                    FilterCase{"a/+/c", "a//c", false, true, false}, // an empty level is one
                    FilterCase{"a/+/c", "a/c", false, false, false},
                    FilterCase{"a/+/c", "a/b/c/d", false, false, false}, FilterCase{"a/+", "a/b", false, true, false},
                    FilterCase{"a/+", "a/", false, true, false}, FilterCase{"a/+", "a", false, false, false},
                    FilterCase{"a/+", "a/b/c", false, false, false},
                    FilterCase{"a+/b", "ax/b", false, false, false}, // no wildcard
                    FilterCase{"a+/b", "a+/b", true, true, true}, FilterCase{"++/b", "xx/b", false, false, false},
                    FilterCase{"+", "", false, true, false}, FilterCase{"+", "a", false, true, false},
                    FilterCase{"+", "/", false, false, false}, FilterCase{"+/+", "/", false, true, false},
                    FilterCase{"+/x", "$SYS/x", false, true, false}, FilterCase{"+/x", "ab/X", false, false, false}));

INSTANTIATE_TEST_SUITE_P(
    WithoutWildcards, Filters,
    testing::Values(FilterCase{"", "", true, true, true}, FilterCase{"", "a", false, false, false},
                    FilterCase{"a/b", "a/b", true, true, true}, FilterCase{"a/b", "a/bc", false, false, false},
                    FilterCase{"a/b", "a/b/", false, false, false}, FilterCase{"a/b", "a", false, false, false},
                    FilterCase{"ü/€", "ü/€", true, true, true}, FilterCase{"ü/€", "u/€", false, false, false}));

// The rules once more, as they are told and without a thought for speed.
bool naiveLevels(const QString& filter, const QString& topic)
{
    const QStringList filterLevels = filter.split('/');
    const QStringList topicLevels = topic.split('/');
    if (filterLevels.size() != topicLevels.size())
        return false;
    for (int i = 0; i < filterLevels.size(); ++i) {
        const bool isPlus = filterLevels[i].contains('+') && filterLevels[i].size() == 1;
        if (filterLevels[i] != topicLevels[i] && !isPlus)
            return false;
    }
    return true;
}

bool naivePrefix(const QString& filter, const QString& topic)
{
    const int n = filter.indexOf('#');
    return n == -1 ? filter == topic : topic.left(n) == filter.left(n);
}

TEST(RandomFilters, agreeWithTheRulesAsTold)
{
    const QStringList pieces{"a", "b", "ä", "/", "/", "/", "+", "#", "$"};
    std::mt19937 random(20261121);
    const auto text = [&] {
        QString result;
        for (auto length = random() % 8; length > 0; --length)
            result += pieces.at(static_cast<int>(random() % static_cast<unsigned>(pieces.size())));
        return result;
    };
    int matches = 0;
    for (int i = 0; i < 200'000; ++i) {
        Subscriber subscriber;
        subscriber.m_Topic = text();
        const QString topic = text();
        QByteArray bytes = topic.toUtf8();
        const bool levels = naiveLevels(subscriber.m_Topic, topic);
        const bool prefix = naivePrefix(subscriber.m_Topic, topic);
        const std::string pair = (subscriber.m_Topic + " <- " + topic).toStdString();
        ASSERT_EQ(subscriber.isContinedInSingleLevelTopic(bytes.data(), 0), levels) << pair;
        ASSERT_EQ(subscriber.isContinedInInMultiLevelTopic(bytes.data(), 0), prefix) << pair;
        matches += levels || prefix ? 1 : 0;
    }
    EXPECT_GT(matches, 10'000); // both answers are tried often
}

TEST(PreparedFilter, knowsTheTextThatItWasMadeFrom)
{
    QString text = "a/b";
    const TopicFilter filter(text);
    EXPECT_TRUE(filter.isOf(text));
    text.append('c');
    EXPECT_FALSE(filter.isOf(text));
}

TEST(PreparedFilter, outlivesTheOneThatItWasCopiedFrom)
{
    TopicFilter copy;
    {
        const TopicFilter original(QString("a/+/%1").arg(5));
        copy = original;
    }
    EXPECT_TRUE(copy.matchesLevels("a/b/5"));
    EXPECT_FALSE(copy.matchesLevels("a/b/6"));
}

TEST(PreparedFilter, ofNothingMatchesNothingButNothing)
{
    const TopicFilter none;
    EXPECT_TRUE(none.equals(""));
    EXPECT_FALSE(none.equals("a"));
    EXPECT_FALSE(none.matchesLevels("a"));
    EXPECT_FALSE(none.matchesPrefix("a"));
}

TEST(PreparedFilter, isMadeAnewWhenTheTopicChanges)
{
    Subscriber subscriber;
    QByteArray topic = "x/y";
    subscriber.m_Topic = "x/+";
    EXPECT_TRUE(subscriber.isContinedInSingleLevelTopic(topic.data(), 0));
    subscriber.m_Topic = "z/+";
    EXPECT_FALSE(subscriber.isContinedInSingleLevelTopic(topic.data(), 0));
}

TEST(LongTopics, areCompared)
{
    const std::string topic(65'535, 'x');
    EXPECT_TRUE(TopicFilter("#").matchesPrefix(topic.c_str()));
    EXPECT_TRUE(TopicFilter("+").matchesLevels(topic.c_str()));
    EXPECT_TRUE(TopicFilter(QString(65'535, 'x')).equals(topic.c_str()));
    const std::string levels(65'535, '/');
    EXPECT_FALSE(TopicFilter("+/+").matchesLevels(levels.c_str()));
}

} // namespace
