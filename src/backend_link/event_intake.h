#pragma once

#include "backend_link/file_tail.h"

#include <QObject>
#include <QPointer>
#include <QString>
#include <QVariantMap>

#include <memory>

class AppLog;
class QFileSystemWatcher;
class QProcess;
class QTextDecoder;
class QTimer;

// Reads what the backend reports: JSON event lines appended to "backend_events.jsonl" (polled
// with an interval that adapts to activity and to the foreground/background state, and in the
// foreground also at once when the file changes), the short
// status lines on the child's standard output and error, and, while the log view is open, the
// "[backend]" lines of "tdlib.log".
//
// Each event object is handed on through eventReceived(), in file order, synchronously inside
// onPoll(). Status lines end up in statusTextChanged().
class EventIntake : public QObject
{
    Q_OBJECT
public:
    static constexpr int kIdlePollMs = 1000;
    static constexpr int kActivePollMs = 200;
    static constexpr int kActiveTicks = 10;
    static constexpr int kBackgroundActiveMinMs = 800;
    static constexpr int kBackgroundIdleMinMs = 2500;
    static constexpr int kLowMemoryPollMs = 2000;
    static constexpr int kMaxOutputLineChars = 16 * 1024 * 1024;

    explicit EventIntake(AppLog *log, QObject *parent = nullptr);
    ~EventIntake() override;

    void setEventsFilePath(const QString &path);
    QString eventsFilePath() const { return m_events.path(); }
    void setTdlibLogPath(const QString &path) { m_tdlibLog.setPath(path); }
    QString tdlibLogPath() const { return m_tdlibLog.path(); }

    // The local-mode child whose output onPoll() also drains; null in service mode.
    void setProcess(QProcess *process);

    // Skips everything already in the events file and the TDLib log (each backend start
    // attempt): lines written before this call are never delivered.
    void resetOffsets();

    // Creates the poll timer and starts it at the current interval (1000 ms at first), and
    // starts watching the events file: in the foreground a change polls at once, so an event
    // is acted on within milliseconds; the timer stays as the fallback.
    void startPolling();

    // The adaptive timer's idle and active intervals (1000 and 200 ms). Tests stretch them so
    // that only the file watch can deliver.
    void setPollIntervals(int idleMs, int activeMs);

    // Lifecycle regimes. Thumbnailed: background, 2500 ms. Fullscreen: foreground, ten fast
    // polls. Low memory: 2000 ms with no fast polls, unless polling is suspended.
    void onAppThumbnailed();
    void onAppFullscreen();
    void onLowMemory();

    // While suspended, onPoll() returns at once. Cleared by onAppThumbnailed/onAppFullscreen.
    void setPollingSuspended(bool suspended) { m_pollingSuspended = suspended; }
    bool isPollingSuspended() const { return m_pollingSuspended; }
    bool isAppInBackground() const { return m_appInBackground; }

    int currentPollInterval() const { return m_currentPollInterval; }
    int activeTicksLeft() const { return m_activeTicksLeft; }
    bool isPollTimerActive() const;

    qint64 eventsFileOffset() const { return m_events.offset(); }
    qint64 tdlibLogOffset() const { return m_tdlibLog.offset(); }
    QString outputLineBuffer() const { return m_outputLineBuffer; }
    // The unterminated rest of the events file kept for the next read.
    qint64 eventsPartialLineBytes() const { return m_events.partialLine().size(); }

public Q_SLOTS:
    void onStdout();
    void onStderr();
    // Line assembly of child output; both streams share one buffer.
    void handleOutput(const QString &chunk);
    void onPoll();
    // True when new bytes were read from the TDLib log.
    bool tailTdlibLog();
    // Shows or hides the log view; showing it tails the TDLib log from now on and polls fast.
    void onToggleDebugLog();

Q_SIGNALS:
    void eventReceived(const QVariantMap &event);
    void statusTextChanged(const QString &text);

private:
    void handleEventLine(const QByteArray &line);
    void handleTdlibLogLine(const QByteArray &line);
    bool drainProcessOutput();
    bool readChannel(int channel);
    void setPollInterval(int ms, bool forceRestart);
    // Watches the events file, or its folder until the file exists.
    void watchEventsFile();
    void onEventsFileChanged();

    AppLog *m_log;
    QPointer<QProcess> m_process;
    QTimer *m_pollTimer = nullptr;
    QFileSystemWatcher *m_watcher = nullptr;
    // Folds a burst of change notifications into one poll.
    QTimer *m_changePoll = nullptr;

    FileTail m_events;
    FileTail m_tdlibLog;
    QString m_outputLineBuffer;
    // One decoder per stream, so that a character split between two reads survives.
    std::unique_ptr<QTextDecoder> m_stdoutDecoder;
    std::unique_ptr<QTextDecoder> m_stderrDecoder;
    bool m_discardingOutputLine = false;

    int m_currentPollInterval = kIdlePollMs;
    int m_idlePollInterval = kIdlePollMs;
    int m_activePollInterval = kActivePollMs;
    int m_activeTicksLeft = 0;
    bool m_appInBackground = false;
    bool m_pollingSuspended = false;
};
