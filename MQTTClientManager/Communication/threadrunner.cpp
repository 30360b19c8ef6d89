#include "Communication/threadrunner.h"

#include <QThread>

ThreadRunner::ThreadRunner() : m_thread(new QThread)
{
    moveToThread(m_thread);
    connect(m_thread, &QThread::started, this, &ThreadRunner::exec);
    connect(m_thread, &QThread::finished, m_thread, &QThread::deleteLater);
}

ThreadRunner::~ThreadRunner()
{
    m_thread->quit();
    const bool hasNeverRun = !m_thread->isRunning() && !m_thread->isFinished();
    if (hasNeverRun)
        delete m_thread;
}

void ThreadRunner::startThread()
{
    m_thread->start();
}

bool ThreadRunner::isRunning() const
{
    return m_thread->isRunning();
}

void ThreadRunner::exec()
{
    run();
}
