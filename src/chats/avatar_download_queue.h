#pragma once

#include <QList>
#include <QObject>
#include <QSet>
#include <QTimer>

#include <functional>

// Paces avatar downloads: every photo file id is asked for at most once
// (until clear()), one "download %1" per 400 ms tick, oldest first, so a
// long chat list does not flood the backend.
class AvatarDownloadQueue : public QObject
{
    Q_OBJECT
public:
    using LineSink = std::function<void(const QString &)>;

    static constexpr int kIntervalMs = 400;

    AvatarDownloadQueue(LineSink sendLine, LineSink appendLog, QObject *parent = nullptr);

    void enqueueAvatarDownload(qint64 fileId);
    // Forgets every requested id and stops the timer ("chats_begin").
    void clear();

    bool wasRequested(qint64 fileId) const { return m_requested.contains(fileId); }
    int pendingCount() const { return m_queue.size(); }
    bool isTimerActive() const { return m_timer.isActive(); }

public Q_SLOTS:
    void onAvatarDownloadTimeout();

private:
    LineSink m_sendLine;
    LineSink m_appendLog;
    QSet<qint64> m_requested;
    QList<qint64> m_queue;
    QTimer m_timer;
};
