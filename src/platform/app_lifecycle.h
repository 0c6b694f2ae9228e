#pragma once

#include <QObject>
#include <QVector>

class QSocketNotifier;

// The application's life as the phone reports it: thumbnailed when the
// window loses focus or is hidden, fullscreen when it is active again,
// about to quit before the event loop ends, and low memory under pressure.
class AppLifecycle : public QObject
{
    Q_OBJECT
public:
    // Connects to the running QCoreApplication (and QGuiApplication state
    // changes when there is one).
    explicit AppLifecycle(QObject *parent = nullptr);
    ~AppLifecycle() override;

    // Routes SIGINT and SIGTERM into the event loop, which then quits in
    // order so that aboutToQuit work runs. One AppLifecycle per process
    // may do this; false (with *error) when another already did or the
    // pipe cannot be made.
    bool installSignalHandlers(QString *error);

    // Watches /proc/pressure/memory with PSI triggers where the kernel
    // offers them. false (with *error) when it does not; lowMemory() then
    // never fires.
    bool watchMemoryPressure(QString *error);
    bool watchingMemoryPressure() const { return !m_psiFds.isEmpty(); }

    // Thumbnailed or fullscreen, as last reported; starts fullscreen.
    bool isThumbnailed() const { return m_thumbnailed; }

public Q_SLOTS:
    void onApplicationStateChanged(Qt::ApplicationState state);

Q_SIGNALS:
    void thumbnailed();
    void fullscreen();
    void aboutToQuit();
    // 1: some tasks stalled on memory; 2: all tasks stalled.
    void lowMemory(int level);
    // A termination signal arrived (its number); quitting follows.
    void terminationRequested(int signalNumber);

private:
    void onSignalPipe();

    bool m_thumbnailed = false;
    bool m_ownsSignals = false;
    QSocketNotifier *m_signalNotifier = nullptr;
    struct Psi
    {
        int fd;
        int level;
        QSocketNotifier *notifier;
    };
    QVector<Psi> m_psiFds;
};
