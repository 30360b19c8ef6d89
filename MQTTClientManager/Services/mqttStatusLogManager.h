#pragma once

#include "Records/generalrecords.h"
#include "Records/statuscodes.h"
#include "Utils/sharedscalar.h"

class MQTTManagerServices;

// Writes the state of the process into tag memory: the general record, the statistics record, and the one-byte status
// tag of each request. A singleton, made on the main thread before any other thread exists and never deleted. The
// counters and status tags may be written from any thread; two writes of a record at once leave the older of both at
// times, which the next write mends.
class MQTTStatusLogManager
{
public:
    // The singleton; made by the first call.
    static MQTTStatusLogManager* instance();

    MQTTStatusLogManager();

    // Where the two records lie from the next write on. Writes nothing.
    void UpdateMQTTStructsAddress(unsigned int general, unsigned int statistics);

    // Write the records as they stand. The counters below write the statistics themselves.
    void UpdateMQTTGeneralStruct();
    void UpdateMQTTStatisticsStruct();

    void UpdatePublicationSent();
    void UpdatePublicationAckReceived();
    void UpdateReceivedSubscriptions();
    void UpdateDroppedSubscriptions();

    // Writes the low byte of `status` at position `address`.
    void UpdateStatusTag(unsigned int address, StatusCodes status);

    static MQTTStatusLogManager* m_instance;

    // The fields of the general record; callers set them and then call UpdateMQTTGeneralStruct.
    struct GeneralFields
    {
        Ordered<std::int32_t> m_ProcessStatus; // who finds the process not paused finds its entities complete
        Relaxed<std::uint16_t> m_BrokersNumber;
        Relaxed<std::uint16_t> m_PublicationsNumber;
        Relaxed<std::uint16_t> m_SubscriptionsNumber;
    };

    // The fields of the statistics record. Kept for the life of the process; each wraps at 32 bits.
    struct StatisticsFields
    {
        Relaxed<std::uint32_t> m_SentPubs;
        Relaxed<std::uint32_t> m_AckPubs;
        Relaxed<std::uint32_t> m_ReceivedSub;
        Relaxed<std::uint32_t> m_DroppedSubs;
    };

    GeneralFields m_MQTTGeneralStruct;
    Relaxed<unsigned int> m_GeneralAddress;
    StatisticsFields m_MQTTStatisticsStruct;
    Relaxed<unsigned int> m_StatisticsAddress;
    MQTTManagerServices* m_services;

private:
    void countUp(Relaxed<std::uint32_t>& counter);
};
