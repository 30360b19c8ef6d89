#pragma once

#include "unittest.h"

#include <algorithm>

// A publication of the tag at 700 on a connected broker.
class PublisherTest : public BrokerTest
{
protected:
    PublisherTest()
    {
        connectBroker();
        publisher.m_cBroker = &broker;
        publisher.m_CallerType = CT_PUBLISHER;
        publisher.m_Name = "speed";
        publisher.m_Topic = QString::fromUtf8("line/größe");
        publisher.m_DataAddress = 700;
        broker.m_Callers.append(&publisher);
    }

    [[nodiscard]] bool isBufferZero() const
    {
        return std::all_of(publisher.m_PublishBuffer.begin(), publisher.m_PublishBuffer.end(),
                           [](char c) { return c == 0; });
    }

    Publisher publisher;
};
