#include "Communication/cominterface.h"

#include "logging.h"
#include "mqttclientmanager.h"
#include "processending.h"
#include "Services/mqttmanagerservices.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <mqueue.h>
#include <thread>
#include <unistd.h>

namespace {

using Handler = StatusCodes (MQTTClientManager::*)(const MQTTRequestMsg*);

// No request is taken up while the main thread begins to pause or start.
constexpr auto StateChangeWait = std::chrono::seconds(2);

// Null for an opcode that no handler of this thread has.
Handler handlerOf(std::uint16_t opcode)
{
    switch (opcode) {
    case MRO_SUBSCRIBE_TO_TOPIC:
        return &MQTTClientManager::HandleSubscribeToTopic;
    case MRO_SUBSCRIBE_ALL:
        return &MQTTClientManager::HandleSubscribeAll;
    case MRO_UNSUBSCRIBE_FROM_TOPIC:
        return &MQTTClientManager::HandleUnSubscribeToTopic;
    case MRO_UNSUBSCRIBE_ALL:
        return &MQTTClientManager::HandleUnSubscribeAll;
    case MRO_CONNECT_BROKER:
        return &MQTTClientManager::HandleConnectClientBroker;
    case MRO_DISCONNECT_BROKER:
        return &MQTTClientManager::HandleDisConnectClientBroker;
    case MRO_SEND_APERIODIC:
        return &MQTTClientManager::HandleSendAPeriodic;
    case MRO_GET_BROKER_CFG:
        return &MQTTClientManager::HandleGetClientBrokerCfg;
    case MRO_SET_BROKER_CFG:
        return &MQTTClientManager::HandleSetClientBrokerCfg;
    case MRO_GET_SUBSCRIPTION_CFG:
        return &MQTTClientManager::HandleGetSubscriptionCfg;
    case MRO_SET_SUBSCRIPTION_CFG:
        return &MQTTClientManager::HandleSetSubscriptionCfg;
    case MRO_GET_PUBLICATION_CFG:
        return &MQTTClientManager::HandleGetPublicationCfg;
    case MRO_SET_PUBLICATION_CFG:
        return &MQTTClientManager::HandleSetPublicationCfg;
    case MRO_SET_PUBLISH_STATE:
        return &MQTTClientManager::HandleSetPublicationPublishState;
    case MRO_SET_BROKER_CFG_SECOND_PACKET:
        return &MQTTClientManager::HandleSetClientBrokerCfgSecondPacket;
    default:
        return nullptr;
    }
}

quint32 statusAddressOfStateRequest(const char* message)
{
    MQTTStateRequestMsg request{};
    std::memcpy(&request, message, sizeof request);
    return request.statusAddress;
}

} // namespace

ComInterface::ComInterface() : m_manager(MQTTClientManager::instance()), m_services(MQTTManagerServices::instance()) {}

ComInterface::~ComInterface()
{
    Finalize();
}

void ComInterface::InitReceiver()
{
    initMsgQueue();
}

void ComInterface::initMsgQueue()
{
    m_queue = mq_open(RequestQueueName, O_RDONLY);
    const int error = errno;
    if (m_queue < 0) {
        PLOG_ERROR << QString("mq_open error %1").arg(std::strerror(error));
    }
}

void ComInterface::Finalize()
{
    // Once: the system gives a closed number to whatever is opened next. 0 is the standard input.
    const int queue = m_queue.exchange(-1);
    if (queue > 0)
        close(queue);
}

void ComInterface::run()
{
    StartRecieverloop();
}

void ComInterface::StartRecieverloop()
{
    PLOG_DEBUG << "######################### Start Forever reading loop of MQTT requstes #########################";
    while (true) {
        MQTTRequestMsg message{};
        const ssize_t length = mq_receive(m_queue, reinterpret_cast<char*>(&message), sizeof message, nullptr);
        const int error = errno;
        // A queue that is closed under a receive still hands one message over.
        while (ProcessEnding::hasBegun())
            ::pause();
        if (length < 0) {
            PLOG_ERROR << QString("mq_receive error %1").arg(std::strerror(error));
            continue;
        }
        handleRequestMsg(reinterpret_cast<const char*>(&message));
    }
}

void ComInterface::handleRequestMsg(const char* message)
{
    const auto* request = reinterpret_cast<const MQTTRequestMsg*>(message);
    PLOG_DEBUG << QString("reqId:%1").arg(request->reqId);
    if (request->reqId == MRO_PAUSE) {
        emit SignalPauseMQTT(statusAddressOfStateRequest(message));
        std::this_thread::sleep_for(StateChangeWait);
    } else if (request->reqId == MRO_START) {
        emit SignalStartMQTT(statusAddressOfStateRequest(message));
        std::this_thread::sleep_for(StateChangeWait);
    } else if (const Handler handler = handlerOf(request->reqId)) {
        (m_manager->*handler)(request);
    } else {
        // Intended: the text that the system has for an error of this number.
        PLOG_ERROR << QString("invalid sub opcode is: %1").arg(std::strerror(request->reqId));
    }
}
