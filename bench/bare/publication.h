#pragma once

#include "bench/bare/client.h"
#include "bench/bare/workload.h"

#include <QTimer>

#include <string>

// One topic: a tag's bytes, or the JSON text of the ten members, whenever its timer fires.
class Publication
{
public:
    Publication(int number, const Workload& workload, Client& client);
    Publication(const Publication&) = delete;
    Publication& operator=(const Publication&) = delete;

    void startTimer();
    void publish();

private:
    void publishBytes();
    void publishSample();

    const Workload& m_workload;
    Client& m_client;
    std::string m_topic;
    unsigned m_address;
    QTimer m_timer;
};
