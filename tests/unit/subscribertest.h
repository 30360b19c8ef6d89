#pragma once

#include "Entities/subscriber.h"
#include "Records/subscriptionrecords.h"
#include "Services/mqttStatusLogManager.h"
#include "unittest.h"

#include <cstring>

// A raw subscription of four bytes at 700, record at 5000, on a connected broker; not subscribed.
class SubscriberTest : public BrokerTest
{
protected:
    SubscriberTest()
    {
        connectBroker();
        MQTTStatusLogManager::instance()->UpdateMQTTStructsAddress(1000, StatisticsAddress);
        MQTTStatusLogManager::instance()->m_MQTTStatisticsStruct = {};
        subscriber.m_CallerType = CT_SUBSCRIBER;
        subscriber.m_cBroker = &broker;
        subscriber.m_Name = "setpoint";
        subscriber.m_Topic = "line/set";
        subscriber.m_PayloadFormat = PF_BUFFER;
        subscriber.m_DataType = AT_REAL;
        subscriber.m_DataAddress = DataAddress;
        subscriber.m_DataSize = 4;
        subscriber.m_SubAddr = RecordAddress;
        broker.m_Callers.append(&subscriber);
    }

    void subscribe()
    {
        ASSERT_EQ(subscriber.Subscribe(), SSC_OK);
        FakeMqttClient::state().calls.clear();
        FakeTagMemory::state().writes.clear();
    }

    int arrive(const std::string& topic, const std::string& payload)
    {
        return FakeMqttClient::arrive(broker.m_MQTTClient, topic, payload);
    }

    static SubscriberStatusStruct recordOf(const Bytes& bytes)
    {
        SubscriberStatusStruct record{};
        EXPECT_EQ(bytes.size(), sizeof record);
        std::memcpy(&record, bytes.data(), std::min(bytes.size(), sizeof record));
        return record;
    }

    // As it stands in tag memory.
    static SubscriberStatusStruct record() { return recordOf(FakeTagMemory::bytesAt(RecordAddress, 524)); }

    static std::u16string topicIn(const SubscriberStatusStruct& record)
    {
        std::u16string topic(256, u'\0');
        std::memcpy(topic.data(), record.m_LastMessageTopic, sizeof record.m_LastMessageTopic);
        return topic.substr(0, topic.find(u'\0'));
    }

    // Addresses of the writes, in order.
    static std::vector<unsigned long> writeOrder()
    {
        std::vector<unsigned long> addresses;
        for (const auto& write : FakeTagMemory::state().writes)
            addresses.push_back(write.address);
        return addresses;
    }

    Subscriber subscriber;
    static constexpr unsigned StatisticsAddress = 2000;
    static constexpr unsigned DataAddress = 700;
    static constexpr unsigned RecordAddress = 5000;
};
