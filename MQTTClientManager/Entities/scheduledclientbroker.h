#pragma once

#include <QObject>

class ClientBroker;

// One row of the scheduler for a broker that could not be reached during the run-up. Its slot runs on the main thread.
class ScheduledClientBroker : public QObject
{
    Q_OBJECT

public:
    void setBroker(ClientBroker* broker);

    ClientBroker* m_ClientBroker = nullptr; // not owned; gone after a pause, until the scheduler binds it anew
    int m_UniqueID = 0;                     // of the broker, for when m_ClientBroker must not be followed
    int m_Idx = -1;                         // its row; -1 when it never ran

signals:
    void SignalStopPeriodicConnectAttempt(int _Idx);

public slots:
    // One attempt; asks for the row's end once the broker is connected, by whichever path.
    void ScheduledConnect();
};
