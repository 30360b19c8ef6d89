#include "unittest.h"

#include <atomic>
#include <memory>
#include <QRunnable>
#include <QThreadPool>
#include <thread>

namespace {

// Keeps the pool's only thread, so that tasks wait in its queue.
class Occupation : public QRunnable
{
public:
    explicit Occupation(std::shared_ptr<std::atomic<bool>> isOver) : m_isOver(std::move(isOver)) {}
    void run() override
    {
        while (!*m_isOver)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }

private:
    std::shared_ptr<std::atomic<bool>> m_isOver;
};

// There is no script here, so a check ends at once and changes nothing. The system tests have the rest.
class CaRotation : public BrokerTest
{
protected:
    CaRotation()
    {
        broker.Encryption = ENC_SELF_SIGNED_CERTIFICATE;
        pool().setMaxThreadCount(1);
        pool().start(new Occupation(m_isFree));
    }
    ~CaRotation() override
    {
        finishChecks();
        pool().setMaxThreadCount(m_threadsBefore);
    }

    void failToConnect(int result = -1)
    {
        FakeMqttClient::state().connectResults = {result};
        EXPECT_EQ(broker.Connect(), result);
    }

    void finishChecks()
    {
        *m_isFree = true;
        pool().waitForDone();
    }

    static QThreadPool& pool() { return *QThreadPool::globalInstance(); }

    LogCapture log;

private:
    int m_threadsBefore = pool().maxThreadCount();
    std::shared_ptr<std::atomic<bool>> m_isFree = std::make_shared<std::atomic<bool>>(false);
};

TEST_F(CaRotation, aFailedAttemptAtLevel4StartsOneCheck)
{
    failToConnect();
    EXPECT_TRUE(broker.m_caFileChangeRunning);
    finishChecks();
    EXPECT_FALSE(broker.m_caFileChangeRunning);
    EXPECT_EQ(log.count("DEBUG START"), 1);
    EXPECT_EQ(log.count("DEBUG No connection to internet leave without taking any action"), 1);
    EXPECT_EQ(broker.m_caFileNextIndex, 0);
}

TEST_F(CaRotation, furtherFailuresStartNoneWhileOneIsThere)
{
    failToConnect();
    failToConnect();
    failToConnect();
    finishChecks();
    EXPECT_EQ(log.count("DEBUG START"), 1);
    failToConnect();
    finishChecks();
    EXPECT_EQ(log.count("DEBUG START"), 2);
}

TEST_F(CaRotation, theBrokersRefusalCountsAsFailure)
{
    failToConnect(5);
    finishChecks();
    EXPECT_EQ(log.count("DEBUG START"), 1);
}

TEST_F(CaRotation, noOtherLevelStartsACheck)
{
    for (const int level : {0, 1, 2, 3, 5, 6, 255}) {
        broker.Encryption = level;
        failToConnect();
        EXPECT_FALSE(broker.m_caFileChangeRunning) << level;
    }
}

TEST_F(CaRotation, anAttemptThatDoesNotReachTheLibraryStartsNoCheck)
{
    setLink(0, 0);
    EXPECT_EQ(broker.Connect(), CB_CONNECT_REFUSED);
    setLink(1, 0);
    FakeMqttClient::state().setCallbacksResult = -1;
    EXPECT_EQ(broker.Connect(), -1);
    EXPECT_FALSE(broker.m_caFileChangeRunning);
}

TEST_F(CaRotation, aSuccessStartsNoCheck)
{
    EXPECT_EQ(broker.Connect(), CB_OK);
    EXPECT_EQ(broker.Connect(), CB_CONNECT_REFUSED);
    EXPECT_FALSE(broker.m_caFileChangeRunning);
}

TEST_F(CaRotation, theEndOfTheProcessStartsNoCheck)
{
    const ProcessEndingUndone ending;
    EXPECT_EQ(broker.Connect(), CB_CONNECT_REFUSED);
    EXPECT_FALSE(broker.m_caFileChangeRunning);
}

TEST_F(CaRotation, aCheckKeepsTheGenerationOfItsBroker)
{
    auto generation = std::make_shared<int>();
    const std::weak_ptr<int> watch = generation;
    broker.m_Generation = generation;
    failToConnect();
    generation.reset();
    EXPECT_FALSE(watch.expired());
    finishChecks();
    EXPECT_TRUE(watch.expired());
}

} // namespace
