#pragma once

#include "Communication/threadrunner.h"
#include "Records/requestrecords.h"
#include "Utils/sharedscalar.h"

class MQTTClientManager;
class MQTTManagerServices;

// Takes the controller's requests from its queue, one at a time, and has the manager carry them out: pause and start on
// the main thread, everything else on the thread of this object. Nothing is sent back; each handler answers in the
// request's status tag.
class ComInterface : public ThreadRunner
{
    Q_OBJECT

public:
    ComInterface();
    ~ComInterface() override;

    // Opens the queue. Without one the process works on, with an error line, and takes no requests.
    void InitReceiver();
    // Closes the queue. From another thread at the end of the process: the next request is not carried out any more.
    void Finalize();

    void run() override;
    void initMsgQueue();
    // Never returns. A receive that fails is logged and tried again at once.
    void StartRecieverloop();
    // Carries out one record of RequestRecordSize bytes; one with an unknown opcode is logged and changes nothing.
    void handleRequestMsg(const char* message);

    MQTTClientManager* m_manager;    // not owned
    MQTTManagerServices* m_services; // not owned
    Ordered<int> m_queue;            // its descriptor: 0 until opened, -1 after a failed open and once closed

signals:
    // The status tag's operand address.
    void SignalStartMQTT(quint32 statusAddress);
    void SignalPauseMQTT(quint32 statusAddress);
};
