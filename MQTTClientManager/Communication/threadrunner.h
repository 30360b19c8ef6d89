#pragma once

#include <QObject>

class QThread;

// Gives an object a thread of its own: run() is called on it once it is started.
class ThreadRunner : public QObject
{
    Q_OBJECT

public:
    ThreadRunner();
    // Not while the thread runs.
    ~ThreadRunner() override;

    virtual void run() = 0;

    void startThread();
    [[nodiscard]] bool isRunning() const;

    QThread* m_thread; // deletes itself once it has finished

public slots:
    void exec();
};
