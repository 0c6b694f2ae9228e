#include "demo_scheduler.h"

#include <QElapsedTimer>
#include <QTimer>

namespace {

qint64 monotonicMs()
{
    static QElapsedTimer t;
    if (!t.isValid())
        t.start();
    return t.elapsed();
}

} // namespace

DemoScheduler::DemoScheduler(double speed, QObject *parent) : QObject(parent), m_speed(speed)
{
    m_timer = new QTimer(this);
    m_timer->setSingleShot(true);
    connect(m_timer, &QTimer::timeout, this, &DemoScheduler::onTimeout);
}

void DemoScheduler::later(int ms, std::function<void()> fn)
{
    const qint64 scaled = qint64(double(ms) * m_speed);
    if (scaled <= 0) {
        fn();
        return;
    }
    m_tasks.insert(TaskKey(monotonicMs() + scaled, m_sequence++), std::move(fn));
    arm();
}

void DemoScheduler::arm()
{
    if (m_tasks.isEmpty()) {
        m_timer->stop();
        return;
    }
    const qint64 wait = qMax<qint64>(0, m_tasks.firstKey().first - monotonicMs());
    m_timer->start(int(qMin<qint64>(wait, 3600000)));
}

void DemoScheduler::onTimeout()
{
    const qint64 now = monotonicMs();
    while (!m_tasks.isEmpty() && m_tasks.firstKey().first <= now) {
        const std::function<void()> fn = m_tasks.take(m_tasks.firstKey());
        fn();
    }
    arm();
}

void DemoScheduler::drain()
{
    int guard = 100000;
    while (!m_tasks.isEmpty() && guard-- > 0) {
        const std::function<void()> fn = m_tasks.take(m_tasks.firstKey());
        fn();
    }
    m_timer->stop();
}
