#pragma once

#include "Entities/clientbroker.h"
#include "Entities/publisher.h"
#include "fakemqttclient.h"
#include "fakesleep.h"
#include "faketagmemory.h"
#include "logcapture.h"
#include "processending.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <QString>
#include <QTemporaryDir>
#include <vector>

using Bytes = std::vector<std::uint8_t>;

// Gives each test fakes in their first state, and the Ethernet link up.
class ServiceTest : public testing::Test
{
protected:
    ServiceTest();

    // What stands on an Ethernet port; 1 is a link.
    static void setLink(std::uint8_t first, std::uint8_t second);
};

// A broker with a client, at BrokerAddr 100, plain, with a clean session.
class BrokerTest : public ServiceTest
{
protected:
    BrokerTest();
    // What the test has hooked in is gone when the broker goes.
    ~BrokerTest() override;

    void connectBroker();
    [[nodiscard]] Bytes statusBlock() const;
    // The loss as the library reports it, and the end of the reconnect loop that follows.
    void loseConnection();
    void awaitEndOfReconnecting() const;

    ClientBroker broker;
    static constexpr unsigned BlockAddress = 100;
};

// Deletes the service's singletons, for tests that look at what their construction does.
void resetSingletons();

// Lets the process end while it lives, as the clean-up thread would, and go on after that.
class ProcessEndingUndone
{
public:
    ProcessEndingUndone() { ProcessEnding::begin(); }
    ~ProcessEndingUndone() { ProcessEnding::s_hasBegun = false; }
    ProcessEndingUndone(const ProcessEndingUndone&) = delete;
    ProcessEndingUndone& operator=(const ProcessEndingUndone&) = delete;
};

// Writes a file into a directory that lives as long as the object, and returns its path.
class TestFile
{
public:
    explicit TestFile(const QByteArray& content, const QString& name = "file.xml");
    [[nodiscard]] const QString& path() const { return m_path; }

private:
    QTemporaryDir m_directory;
    QString m_path;
};
