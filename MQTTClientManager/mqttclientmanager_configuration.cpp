#include "logging.h"
#include "requestserving.h"
#include "Services/mqttmanagerservices.h"
#include "Services/mqttStatusLogManager.h"
#include "Services/mqttXmlParser.h"

#include <cstring>

namespace {

constexpr std::chrono::milliseconds TurnPause(1);

// A message's records lie wherever they fall.
template<typename Record>
Record copyOf(const std::uint8_t* bytes)
{
    Record record{};
    std::memcpy(&record, bytes, sizeof record);
    return record;
}

CBrokerConfigurationStruct firstPacketOf(const MQTTRequestMsg& request)
{
    CBrokerConfigurationStruct record{};
    std::memcpy(&record, request.payload, FirstBrokerPacketSize);
    return record;
}

CBrokerConfigurationStruct secondPacketOf(const MQTTSecondPacketMsg& message)
{
    CBrokerConfigurationStruct record{};
    std::memcpy(reinterpret_cast<std::uint8_t*>(&record) + FirstBrokerPacketSize, message.record,
                sizeof message.record);
    return record;
}

} // namespace

template<typename Entity, typename Write>
StatusCodes MQTTClientManager::readBack(const MQTTRequestMsg& request, const EntityList<Entity>& list, Write write)
{
    const auto entities = list.current();
    return answer(request.statusAddress, [&] {
        return workOnEntity(*entities, request.uniqueID, [&](Entity& entity) {
            const unsigned int record = positionOf(copyOf<std::uint32_t>(request.payload));
            return (entity.*write)(record) ? SC_AC_OK : SC_AC_ERROR_GET_CFG_FAILED;
        });
    });
}

StatusCodes MQTTClientManager::HandleGetClientBrokerCfg(const MQTTRequestMsg* request)
{
    PLOG_DEBUG << beginText(*request);
    const StatusCodes result =
        readBack(*request, m_clientBrokers, &ClientBroker::UpdateClientBrokerConfigurationStruct);
    PLOG_DEBUG << endText(result);
    return result;
}

StatusCodes MQTTClientManager::HandleGetSubscriptionCfg(const MQTTRequestMsg* request)
{
    PLOG_DEBUG << beginText(*request);
    const StatusCodes result = readBack(*request, m_subscriptions, &Subscriber::UpdateSubscriberConfigurationStruct);
    PLOG_DEBUG << endText(result);
    return result;
}

StatusCodes MQTTClientManager::HandleGetPublicationCfg(const MQTTRequestMsg* request)
{
    PLOG_DEBUG << beginText(*request);
    const StatusCodes result = readBack(*request, m_publications, &Publisher::UpdatePublisherConfigurationStruct);
    PLOG_DEBUG << endText(result);
    return result;
}

template<typename Entity, typename Change>
StatusCodes MQTTClientManager::change(const MQTTRequestMsg& request, const EntityList<Entity>& list, Change change)
{
    return answer(request.statusAddress, [&] {
        // A start on the main thread reads the file that this writes, and makes the entities anew: one after the other.
        const Turn turn(m_ConfigurationInUse, TurnPause);
        if (!isPaused())
            return SC_AC_ERROR_NOT_PAUSED;
        return workOnEntity(*list.current(), request.uniqueID, change);
    });
}

template<typename Entity, typename Record>
StatusCodes MQTTClientManager::changeByRecord(const MQTTRequestMsg& request, const EntityList<Entity>& list,
                                              bool (MQTTXmlParser::*write)(int, Record*),
                                              void (MQTTManagerServices::*print)(Record))
{
    MQTTXmlParser& parser = *m_xmlParser;
    MQTTManagerServices& services = *m_services;
    return change(request, list, [&](Entity& entity) {
        auto record = copyOf<Record>(request.payload);
        const bool isWritten = (parser.*write)(request.uniqueID, &record);
        (services.*print)(record);
        if (!isWritten)
            return SC_AC_ERROR_WRITE_BACK_FAILED;
        entity.TakeConfiguration(record);
        return SC_AC_OK;
    });
}

StatusCodes MQTTClientManager::HandleSetSubscriptionCfg(const MQTTRequestMsg* request)
{
    PLOG_DEBUG << beginText(*request);
    const StatusCodes result = changeByRecord(*request, m_subscriptions, &MQTTXmlParser::SetSubscriberCfgFileUniqueID,
                                              &MQTTManagerServices::PrintSubscriptionStructDebug);
    PLOG_DEBUG << endText(result);
    return result;
}

StatusCodes MQTTClientManager::HandleSetPublicationCfg(const MQTTRequestMsg* request)
{
    PLOG_DEBUG << beginText(*request);
    const StatusCodes result = changeByRecord(*request, m_publications, &MQTTXmlParser::SetPublisherCfgFileUniqueID,
                                              &MQTTManagerServices::PrintPublicationStructDebug);
    PLOG_DEBUG << endText(result);
    return result;
}

StatusCodes MQTTClientManager::HandleSetClientBrokerCfg(const MQTTRequestMsg* request)
{
    PLOG_DEBUG << beginText(*request);
    const StatusCodes result = change(*request, m_clientBrokers, [&](ClientBroker& broker) {
        CBrokerConfigurationStruct record = firstPacketOf(*request);
        const bool isWritten = m_xmlParser->SetClientBrokerCfgFileUniqueID(true, request->uniqueID, &record);
        m_services->PrintClientBrokerStructDebug(record);
        if (!isWritten)
            return SC_AC_ERROR_WRITE_BACK_FAILED;
        broker.m_secondPacketPending = true;
        broker.m_cfgStatusTag = positionOf(request->statusAddress);
        broker.TakeFirstPacket(record);
        return SC_AC_IN_PROGRESS; // the second packet brings the answer
    });
    PLOG_DEBUG << endText(result);
    return result;
}

StatusCodes MQTTClientManager::HandleSetClientBrokerCfgSecondPacket(const MQTTRequestMsg* request)
{
    PLOG_DEBUG << "Enter function";
    const auto message = copyOf<MQTTSecondPacketMsg>(reinterpret_cast<const std::uint8_t*>(request));
    // Intended: the state of the process isn't looked at. A start makes brokers anew, which wait for nothing.
    const Turn turn(m_ConfigurationInUse, TurnPause);
    const auto brokers = m_clientBrokers.current();
    int result = 1; // what nobody was waiting for ends with; it isn't shown anywhere
    for (int index = 0; index < brokers->size(); ++index) {
        ClientBroker& broker = (*brokers)[index];
        if (!broker.m_secondPacketPending)
            continue;
        PLOG_DEBUG << QString("ID is %1").arg(index); // intended: the index in the list, not the unique ID
        result = takeSecondPacket(broker, secondPacketOf(message));
    }
    PLOG_DEBUG << endText(static_cast<StatusCodes>(result));
    return static_cast<StatusCodes>(result);
}

StatusCodes MQTTClientManager::takeSecondPacket(ClientBroker& broker, CBrokerConfigurationStruct record)
{
    broker.m_secondPacketPending = false;
    const bool isWritten = m_xmlParser->SetClientBrokerCfgFileUniqueID(false, broker.UniqueID, &record);
    m_services->PrintClientBrokerStructDebug(record);
    const StatusCodes result = isWritten ? SC_AC_OK : SC_AC_ERROR_WRITE_BACK_FAILED;
    m_statusLogManager->UpdateStatusTag(broker.m_cfgStatusTag, result);
    // Intended: also when the file could not be written, other than all the requests above.
    broker.TakeSecondPacket(record);
    return result;
}
