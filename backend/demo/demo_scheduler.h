#pragma once

#include <QMap>
#include <QObject>
#include <QPair>

#include <functional>

class QTimer;

// Delayed answers, scaled by the demo's speed; at speed 0 they run at once.
// Tasks due at the same time run first in, first out.
class DemoScheduler : public QObject
{
    Q_OBJECT
public:
    explicit DemoScheduler(double speed, QObject *parent = nullptr);

    void later(int ms, std::function<void()> fn);
    // Runs every pending task at once.
    void drain();

private:
    using TaskKey = QPair<qint64, quint64>; // due time, sequence number
    void arm();
    void onTimeout();

    double m_speed;
    QTimer *m_timer = nullptr;
    QMap<TaskKey, std::function<void()>> m_tasks;
    quint64 m_sequence = 0;
};
