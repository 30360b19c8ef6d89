#include "Entities/tokenhandover.h"
#include "unittest.h"

#include <atomic>
#include <thread>

namespace {

TEST(TokenHandover, keepsTheOrder)
{
    TokenHandover handover;
    for (const int token : {3, 1, 2})
        handover.put(token);
    QList<int> tokens{9};
    handover.takeInto(tokens);
    EXPECT_EQ(tokens, (QList<int>{9, 3, 1, 2}));
}

TEST(TokenHandover, losesNothingWhenNobodyTakes)
{
    TokenHandover handover;
    QList<int> expected;
    for (int token = 0; token < 5000; ++token) {
        handover.put(token);
        expected.append(token);
    }
    QList<int> tokens;
    handover.takeInto(tokens);
    handover.put(5000); // brings what had found the queue full
    expected.append(5000);
    for (int round = 0; round < 5; ++round) {
        handover.takeInto(tokens);
        handover.put(5001 + round);
        expected.append(5001 + round);
    }
    handover.takeInto(tokens);
    EXPECT_EQ(tokens, expected);
}

TEST(TokenHandover, aCopyIsEmpty)
{
    TokenHandover handover;
    handover.put(1);
    TokenHandover copy(handover);
    QList<int> tokens;
    copy.takeInto(tokens);
    EXPECT_TRUE(tokens.isEmpty());
}

TEST(TokenHandover, passesBetweenTwoThreads)
{
    constexpr int Count = 200'000;
    TokenHandover handover;
    std::atomic<bool> isDone{false};
    std::thread publishing([&] {
        for (int token = 0; token < Count; ++token)
            handover.put(token);
        isDone = true;
    });
    QList<int> tokens;
    while (!isDone)
        handover.takeInto(tokens);
    publishing.join();
    // Whatever still waits on the publishing side comes with later tokens.
    int last = Count;
    while (tokens.isEmpty() || tokens.constLast() < Count) {
        handover.put(last++);
        handover.takeInto(tokens);
    }
    for (int i = 0; i < tokens.size(); ++i)
        ASSERT_EQ(tokens.at(i), i);
}

} // namespace
