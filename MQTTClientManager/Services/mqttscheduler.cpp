#include "Services/mqttscheduler.h"

#include "Entities/clientbroker.h"
#include "Entities/publisher.h"
#include "logging.h"

#include <algorithm>
#include <limits>
#include <QThread>
#include <thread>

namespace {

constexpr auto SettlingTime = std::chrono::seconds(1);

} // namespace

// As many elements as there are rows; each one beyond is named.
// Not in the namespace above: its log lines would lose their function name.
template<typename Entity, typename NameOf>
static int fittingRows(const QList<Entity*>& entities, int capacity, const char* kind, NameOf nameOf)
{
    for (int i = capacity; i < entities.size(); ++i) {
        PLOG_ERROR << QString("%1 '%2' is not scheduled: there is room for %3 only")
                          .arg(QString(kind), nameOf(*entities.at(i)), QString::number(capacity));
    }
    return std::min<int>(entities.size(), capacity);
}

void MQTTScheduler::SetPeriodicalPublications(QList<Publisher*>& publications)
{
    const int rows = fittingRows(publications, MAX_SCHEDULED_PUBLISHERS, "publication",
                                 [](const Publisher& publisher) { return publisher.m_Name; });
    for (int row = 0; row < rows; ++row)
        m_ScheduledPublishers[row].setPublisher(publications.at(row));
    m_ScheduledPublishersCounter = rows;
}

void MQTTScheduler::SetPeriodicConnectAttempt(QList<ClientBroker*>& brokers)
{
    const int rows = fittingRows(brokers, MAX_SCHEDULED_CLIENT_BROKERS, "broker",
                                 [](const ClientBroker& broker) { return broker.Name; });
    for (int row = 0; row < rows; ++row)
        setBrokerRow(row, brokers.at(row));
    m_ScheduledClientBrokersCounter = rows;
}

void MQTTScheduler::setBrokerRow(int row, ClientBroker* broker)
{
    m_ScheduledClientBrokers[row].setBroker(broker);
    connect(&m_ScheduledClientBrokers[row], &ScheduledClientBroker::SignalStopPeriodicConnectAttempt, this,
            &MQTTScheduler::SlotStopPeriodicConnectAttempt, Qt::UniqueConnection);
}

void MQTTScheduler::BindBrokersAnew(QList<ClientBroker*>& brokers)
{
    int rows = 0;
    for (int row = 0; row < m_ScheduledClientBrokersCounter; ++row) {
        const int id = m_ScheduledClientBrokers[row].m_UniqueID;
        const auto found = std::find_if(brokers.constBegin(), brokers.constEnd(),
                                        [id](const ClientBroker* broker) { return broker->UniqueID == id; });
        if (found != brokers.constEnd() && (*found)->ConnectionInterval != 0)
            setBrokerRow(rows++, *found);
    }
    m_ScheduledClientBrokersCounter = rows;
}

void MQTTScheduler::SetBufferdModeSubscriptions(QList<Subscriber*>& subscriptions)
{
    m_BufferedManager.m_Subscribers.append(subscriptions);
    m_BufferedManager.m_SubscribersCount = m_BufferedManager.m_Subscribers.size();
}

void MQTTScheduler::RunScheduler()
{
    if (!m_BufferedManager.m_Subscribers.isEmpty()) {
        connect(&m_BufferedTimer, &QTimer::timeout, &m_BufferedManager,
                &ScheduledBufferedSubscriptionsManager::ScheduledBufferedSubscriptionsCheck, Qt::UniqueConnection);
        m_BufferedTimer.start(BUFFERED_CHECK_PERIOD_MS);
    }
    std::this_thread::sleep_for(SettlingTime);
    if (ProcessEnding::hasBegun())
        return;
    for (int row = 0; row < m_ScheduledPublishersCounter; ++row)
        startPublisherRow(row);
    for (int row = 0; row < m_ScheduledClientBrokersCounter; ++row)
        startBrokerRow(row);
}

void MQTTScheduler::startPublisherRow(int row)
{
    const Publisher& publisher = *m_ScheduledPublishers[row].m_Publisher;
    if (publisher.m_PerInterval < 0) {
        PLOG_ERROR << QString("publication '%1' never goes out: its period is %2 ms")
                          .arg(publisher.m_Name, QString::number(publisher.m_PerInterval));
        return;
    }
    connect(&m_PublisherTimers[row], &QTimer::timeout, &m_ScheduledPublishers[row],
            &ScheduledPublisher::ScheduledPublish, Qt::UniqueConnection);
    m_PublisherTimers[row].start(publisher.m_PerInterval);
}

void MQTTScheduler::startBrokerRow(int row)
{
    ScheduledClientBroker& worker = m_ScheduledClientBrokers[row];
    worker.m_Idx = row;
    connect(&m_ConnectTimers[row], &QTimer::timeout, &worker, &ScheduledClientBroker::ScheduledConnect,
            Qt::UniqueConnection);
    // 64 bits: a long interval would come out negative, and its timer never fire.
    const qint64 milliseconds = qint64{worker.m_ClientBroker->ConnectionInterval} * 1000;
    m_ConnectTimers[row].start(static_cast<int>(std::min<qint64>(milliseconds, std::numeric_limits<int>::max())));
}

void MQTTScheduler::SlotStopPeriodicConnectAttempt(int _Idx)
{
    disconnect(&m_ConnectTimers[_Idx], &QTimer::timeout, &m_ScheduledClientBrokers[_Idx],
               &ScheduledClientBroker::ScheduledConnect);
    m_ConnectTimers[_Idx].stop();
}

void MQTTScheduler::StopScheduler()
{
    if (QThread::currentThread() == thread())
        stopTimers();
    else // a timer must be stopped by its own thread; when that one never gets to it, the process ends first
        QMetaObject::invokeMethod(this, &MQTTScheduler::stopTimers, Qt::QueuedConnection);
    // Also the grace for slots that are running: those that begin after the process began to end leave at once.
    std::this_thread::sleep_for(SettlingTime);
}

void MQTTScheduler::stopTimers()
{
    if (!m_BufferedManager.m_Subscribers.isEmpty()) {
        disconnect(&m_BufferedTimer, &QTimer::timeout, &m_BufferedManager,
                   &ScheduledBufferedSubscriptionsManager::ScheduledBufferedSubscriptionsCheck);
        m_BufferedTimer.stop();
    }
    m_BufferedManager.m_Subscribers.clear();
    m_BufferedManager.m_SubscribersCount = 0;
    for (int row = 0; row < m_ScheduledPublishersCounter; ++row) {
        disconnect(&m_PublisherTimers[row], &QTimer::timeout, &m_ScheduledPublishers[row],
                   &ScheduledPublisher::ScheduledPublish);
        m_PublisherTimers[row].stop();
    }
    for (int row = 0; row < m_ScheduledClientBrokersCounter; ++row) {
        ScheduledClientBroker& worker = m_ScheduledClientBrokers[row];
        if (worker.m_Idx == -1)
            continue;
        SlotStopPeriodicConnectAttempt(worker.m_Idx);
        disconnect(&worker, &ScheduledClientBroker::SignalStopPeriodicConnectAttempt, this,
                   &MQTTScheduler::SlotStopPeriodicConnectAttempt);
    }
}

bool MQTTScheduler::ChangePublicationPublishState(int id, bool enabled)
{
    bool isFound = false;
    for (int row = 0; row < m_ScheduledPublishersCounter; ++row) {
        if (m_ScheduledPublishers[row].m_UniqueID != id)
            continue;
        m_ScheduledPublishers[row].m_PublishEnabled = enabled;
        isFound = true;
    }
    return isFound;
}
