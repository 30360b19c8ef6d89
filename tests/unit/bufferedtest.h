#pragma once

#include "Entities/scheduledbufferedsubscriptionsmanager.h"
#include "subscribertest.h"

#include <cstring>
#include <functional>
#include <string>
#include <vector>

inline Bytes bytesOf(std::uint32_t number)
{
    Bytes bytes(sizeof number);
    std::memcpy(bytes.data(), &number, sizeof number);
    return bytes;
}

// A buffered subscription, subscribed, and the worker that serves it.
class BufferedTest : public SubscriberTest
{
protected:
    BufferedTest()
    {
        subscriber.m_BufferedFlag = true;
        serve(subscriber);
        subscribe();
    }
    ~BufferedTest() override { FakeSleep::duringWait() = nullptr; }

    void serve(Subscriber& another)
    {
        worker.m_Subscribers.append(&another);
        worker.m_SubscribersCount = worker.m_Subscribers.size();
    }

    void arriveNumber(std::uint32_t number, const std::string& topic = "line/set")
    {
        const Bytes bytes = bytesOf(number);
        arrive(topic, std::string(bytes.begin(), bytes.end()));
    }

    void fillQueue()
    {
        for (std::uint32_t number = 1; number <= 15; ++number)
            arriveNumber(number);
        FakeTagMemory::state().writes.clear();
    }

    // What the control application does when it is ready for the next message.
    static void clearBit() { FakeTagMemory::put(BitAddress, {0}); }
    static int bit() { return FakeTagMemory::bytesAt(BitAddress, 1)[0]; }
    static int status() { return FakeTagMemory::bytesAt(StatusAddress, 1)[0]; }
    static Bytes tag() { return FakeTagMemory::bytesAt(DataAddress, 4); }
    static unsigned received() { return MQTTStatusLogManager::instance()->m_MQTTStatisticsStruct.m_ReceivedSub; }

    void tick() { worker.ScheduledBufferedSubscriptionsCheck(); }
    // A tick that finds the application ready.
    void handOver()
    {
        clearBit();
        FakeTagMemory::state().writes.clear();
        FakeSleep::waits().clear();
        tick();
    }

    // Lets something happen in the pause with this number, counted from 1 and from now.
    static void inPause(int wanted, std::function<void()> happening)
    {
        FakeSleep::duringWait() = [wanted, happening] {
            if (FakeSleep::waits().size() == static_cast<std::size_t>(wanted))
                happening();
        };
    }

    static std::vector<FakeTagMemory::WriteRecord> writes() { return FakeTagMemory::state().writes; }

    ScheduledBufferedSubscriptionsManager worker;
    static constexpr unsigned BitAddress = RecordAddress + 2;
    static constexpr unsigned StatusAddress = RecordAddress + 520;
};
