#pragma once

#include "mqttclientmanager.h"
#include "Services/mqttStatusLogManager.h"
#include "unittest.h"

// The manager with entities that the test adds, running.
class RequestTest : public ServiceTest
{
protected:
    RequestTest()
    {
        resetSingletons();
        manager().m_statusLogManager->UpdateMQTTStructsAddress(1000, 2000);
    }
    ~RequestTest() override { resetSingletons(); }

    static MQTTClientManager& manager() { return *MQTTClientManager::instance(); }

    static void addBroker(int id)
    {
        ClientBroker broker;
        broker.UniqueID = id;
        broker.Name = QString("broker %1").arg(id);
        broker.BrokerAddr = 100 + 4 * static_cast<unsigned>(id);
        manager().m_clientBrokers.append(broker);
    }

    static void addSubscription(int id, int brokerId)
    {
        Subscriber subscriber;
        subscriber.m_CallerType = CT_SUBSCRIBER;
        subscriber.m_UniqueID = id;
        subscriber.m_CBrokerID = brokerId;
        subscriber.m_Name = QString("subscription %1").arg(id);
        subscriber.m_Topic = QString("s/%1").arg(id);
        subscriber.m_SubAddr = 10'000 + 1000 * static_cast<unsigned>(id);
        manager().m_subscriptions.append(subscriber);
    }

    // Two raw bytes at 700.
    static void addPublication(int id, int brokerId, int period)
    {
        Publisher publisher;
        publisher.m_CallerType = CT_PUBLISHER;
        publisher.m_UniqueID = id;
        publisher.m_CBrokerID = brokerId;
        publisher.m_Topic = QString("p/%1").arg(id);
        publisher.m_PerInterval = period;
        publisher.m_PayloadFormat = PF_BUFFER;
        publisher.m_DataAddress = 700;
        publisher.m_DataSize = 2;
        manager().m_publications.append(publisher);
    }

    static void createClients()
    {
        ASSERT_EQ(manager().createMQTTClients(), SC_AC_OK);
        manager().UpdateProcessStatus(PS_RUNNING);
        FakeMqttClient::state().calls.clear();
        FakeTagMemory::state().writes.clear();
    }

    // What was written to the request's status tag, in order.
    static std::vector<Bytes> statusTag() { return FakeTagMemory::writesAt(StatusTag); }

    static constexpr std::uint32_t StatusOperand = 8208;
    static constexpr unsigned long StatusTag = 0x7F400000UL + StatusOperand;
};
