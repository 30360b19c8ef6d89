#pragma once

#include "Entities/scheduledbufferedsubscriptionsmanager.h"
#include "Entities/scheduledclientbroker.h"
#include "Entities/scheduledpublisher.h"

#include <array>
#include <atomic>
#include <QList>
#include <QObject>
#include <QTimer>

inline constexpr int MAX_SCHEDULED_PUBLISHERS = 300;
inline constexpr int MAX_SCHEDULED_CLIENT_BROKERS = 30;

// All that happens by the clock: a worker and a timer for each periodic publication, for each broker that the run-up
// could not connect, and for the buffered subscriptions together. Everything runs on the main thread, but for
// StopScheduler at the end of the process, which the clean-up thread calls, and ChangePublicationPublishState.
class MQTTScheduler : public QObject
{
    Q_OBJECT

public:
    // Fill the rows, before RunScheduler. Entities past the capacity get no row and an error line each.
    void SetPeriodicalPublications(QList<Publisher*>& publications);
    void SetPeriodicConnectAttempt(QList<ClientBroker*>& brokers);
    // Adds to the subscriptions that are served; StopScheduler forgets them all.
    void SetBufferdModeSubscriptions(QList<Subscriber*>& subscriptions);

    // After StopScheduler, when other entities have taken the place of the brokers: each row gets the one with its ID
    // from `brokers`. Rows for which there is none, or one that isn't to be retried, are dropped for good.
    void BindBrokersAnew(QList<ClientBroker*>& brokers);

    // Starts the timers after one second. Their first ticks come one interval later, and only while the event loop
    // runs.
    void RunScheduler();

    // Stops the timers and sleeps for one second. From another thread than its own, it lets that thread stop them.
    void StopScheduler();

    // Suspends or resumes the publication's row; false when it has none. Any thread.
    bool ChangePublicationPublishState(int id, bool enabled);

    std::array<ScheduledPublisher, MAX_SCHEDULED_PUBLISHERS> m_ScheduledPublishers;
    std::array<QTimer, MAX_SCHEDULED_PUBLISHERS> m_PublisherTimers;
    Relaxed<int> m_ScheduledPublishersCounter;
    ScheduledBufferedSubscriptionsManager m_BufferedManager;
    QTimer m_BufferedTimer;
    std::array<ScheduledClientBroker, MAX_SCHEDULED_CLIENT_BROKERS> m_ScheduledClientBrokers;
    std::array<QTimer, MAX_SCHEDULED_CLIENT_BROKERS> m_ConnectTimers;
    int m_ScheduledClientBrokersCounter = 0;

public slots:
    void SlotStopPeriodicConnectAttempt(int _Idx);

private:
    void setBrokerRow(int row, ClientBroker* broker);
    void startPublisherRow(int row);
    void startBrokerRow(int row);
    void stopTimers();
};
