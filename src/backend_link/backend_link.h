#pragma once

#include "platform/folders.h"

#include <QObject>
#include <QPointer>
#include <QProcess>
#include <QString>
#include <QStringList>

#include <memory>

#include "backend_link/event_intake.h"

class AppLog;
class CommandChannel;
class Invoker;
class QTimer;

// Starts and supervises the backend, and carries command lines to it.
//
// Local mode (the default): td_backend, beside the UI executable, runs as a child process with a
// prepared environment; commands go to its standard input, one per line. Service mode: a headless
// backend already runs; commands go as UDP datagrams to 127.0.0.1:47010. Events come back through
// the events file in both modes (EventIntake).
//
// A missing executable is retried five times (250 ms, growing by 250 ms); a child that exits
// with code 9 (database locked by another instance) is restarted up to ten times. Both retry
// kinds share one counter.
//
// Also keeps the UI-is-running marker "ui_running.txt", refreshed every 5 s while the app is in
// the foreground.
//
// Typical wiring by the controller:
//   AppLog log; EventIntake intake(&log);
//   BackendLink link(folders, &log, &intake, &invoker, QProcess::systemEnvironment());
//   link.startRunningMarker();              // early, right after the folders are known
//   ... connect statusTextChanged of link and intake to the status label,
//   ... intake.eventReceived to the event dispatcher,
//   ... link.phoneNumberFromEnvironment to the sign-in form (fill only when empty)
//   link.startBackendAttempt(); intake.startPolling();
//   QTimer::singleShot(500, &link, &BackendLink::onInitNotifications);
class BackendLink : public QObject
{
    Q_OBJECT
public:
    static constexpr quint16 kServiceCommandPort = 47010;
    static constexpr int kMaxMissingRetries = 5;
    static constexpr int kMaxLockRetries = 10;
    static constexpr int kLockedExitCode = 9;
    static constexpr int kRunningMarkerIntervalMs = 5000;
    static constexpr int kRequestStateDelayMs = 800;

    // uiEnvironment is the UI's own environment as "KEY=VALUE" entries
    // (QProcess::systemEnvironment() in the application): it chooses the transport and is the
    // base of the child's environment. commands, when given, carries the command lines instead of
    // the transport's own channel (the child's standard input or the UDP port); the link does not
    // own it.
    BackendLink(const AppFolders &folders, AppLog *log, EventIntake *intake, Invoker *invoker,
                const QStringList &uiEnvironment, CommandChannel *commands = nullptr,
                QObject *parent = nullptr);
    ~BackendLink() override;

    bool useServiceBackend() const { return m_useServiceBackend; }

    QString appDir() const { return m_appDir; }
    QString dataDir() const { return m_dataDir; }
    QString miscDir() const { return m_miscDir; }
    QString backendProgram() const;
    QString filesDir() const;
    QString tdlibLogPath() const;
    QString uiDebugLogPath() const;
    QString eventsFilePath() const;
    QString runningMarkerPath() const;

    // Read from the child environment at each local start attempt.
    bool autoOpenFirstChat() const { return m_autoOpenFirstChat; }
    qint64 autoOpenChatId() const { return m_autoOpenChatId; }
    // The environment given to the child at the last local start attempt.
    QStringList childEnvironment() const { return m_childEnvironment; }

    int retryCount() const { return m_retryCount; }
    bool isRetryPending() const;
    QString statusText() const { return m_statusText; }
    QProcess::ProcessState backendState() const { return m_process.state(); }

    // App in the foreground: the running marker is refreshed only then.
    bool isAppActive() const { return m_appActive; }

    // Writes the marker and starts its 5 s refresh timer (if not running yet).
    void startRunningMarker();
    // Stops the refresh timer and deletes the marker (quit).
    void removeUiRunningMarker();

public Q_SLOTS:
    void startBackendAttempt();
    void onBackendRetryTimeout();
    void onBackendError(QProcess::ProcessError error);
    void onBackendStateChanged(QProcess::ProcessState state);
    void onBackendFinished(int exitCode, QProcess::ExitStatus exitStatus);

    bool writeUiRunningMarker();
    void onUiRunningMarkerTick();

    // Asks the headless service to start; in service mode "state" follows 800 ms later.
    void onInitNotifications();
    void onRequestBackendState();

    // Sends one command line, trimmed: a line to the child's standard input (local mode) or one
    // datagram (service mode). Fire and forget; failures are logged. A line that still holds a
    // line break after trimming is refused.
    void sendLine(const QString &line);

    // Lifecycle: thumbnailed stops the marker refresh; fullscreen rewrites the marker and
    // restarts it; about-to-quit removes the marker.
    void onAppThumbnailed();
    void onAppFullscreen();
    void onAppAboutToQuit();

Q_SIGNALS:
    void statusTextChanged(const QString &text);
    // TG_PHONE_NUMBER from the child environment; the sign-in form takes it only when its phone
    // field is empty.
    void phoneNumberFromEnvironment(const QString &phone);

private:
    void setStatus(const QString &text);
    void scheduleRetry(int delayMs);
    QStringList buildChildEnvironment() const;

    QString m_appDir;
    QString m_dataDir;
    QString m_miscDir;
    AppLog *m_log;
    QPointer<EventIntake> m_intake;
    Invoker *m_invoker;
    QStringList m_uiEnvironment;
    QStringList m_childEnvironment;

    bool m_useServiceBackend = false;
    QProcess m_process;
    CommandChannel *m_commands;
    std::unique_ptr<CommandChannel> m_ownCommands;
    bool m_signalsConnected = false;
    QTimer *m_retryTimer = nullptr;
    int m_retryCount = 0;
    // Set while the pending or running attempt is a restart after a lock exit: such a start has
    // not proved the database free, so it does not reset the retry count.
    bool m_lockRetryInProgress = false;
    bool m_autoOpenFirstChat = false;
    qint64 m_autoOpenChatId = 0;

    QTimer *m_markerTimer = nullptr;
    bool m_appActive = true;

    QString m_statusText;
};
