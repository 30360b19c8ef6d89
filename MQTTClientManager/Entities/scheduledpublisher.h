#pragma once

#include "Utils/sharedscalar.h"

#include <QObject>

class MQTTStatusLogManager;
class Publisher;

// One row of the scheduler for a periodic publication. Its slot runs on the main thread.
class ScheduledPublisher : public QObject
{
    Q_OBJECT

public:
    ScheduledPublisher();

    void setPublisher(Publisher* publisher);

    MQTTStatusLogManager* m_StatusLogManager; // not owned
    Publisher* m_Publisher = nullptr;         // not owned
    Relaxed<bool> m_PublishEnabled{true};     // false suspends the row and leaves its timer alone; any thread
    Relaxed<int> m_UniqueID;                  // of the publication, for threads that must not follow m_Publisher

public slots:
    void ScheduledPublish();
};
