#pragma once

#include <QList>
#include <QObject>

class MQTTManagerServices;
class Subscriber;

inline constexpr int BUFFERED_CHECK_PERIOD_MS = 400;

// Hands the waiting messages of buffered subscriptions to the control application, one by one, each when the
// application has cleared the received bit. The slot runs on the main thread and keeps it for 2 or 3 s per message: the
// pauses give the application's scan time to see each state.
class ScheduledBufferedSubscriptionsManager : public QObject
{
    Q_OBJECT

public:
    ScheduledBufferedSubscriptionsManager();

    MQTTManagerServices* m_Services;  // not owned
    QList<Subscriber*> m_Subscribers; // not owned
    int m_SubscribersCount = 0;       // how many of them are served

public slots:
    void ScheduledBufferedSubscriptionsCheck();

private:
    void serve(Subscriber& subscriber);
    void handOverFirst(Subscriber& subscriber);
};
