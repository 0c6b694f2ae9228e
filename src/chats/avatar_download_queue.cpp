#include "chats/avatar_download_queue.h"

#include <utility>

AvatarDownloadQueue::AvatarDownloadQueue(LineSink sendLine, LineSink appendLog, QObject *parent)
    : QObject(parent), m_sendLine(std::move(sendLine)), m_appendLog(std::move(appendLog))
{
    m_timer.setSingleShot(true);
    connect(&m_timer, &QTimer::timeout, this, &AvatarDownloadQueue::onAvatarDownloadTimeout);
}

void AvatarDownloadQueue::enqueueAvatarDownload(qint64 fileId)
{
    if (fileId < 1 || m_requested.contains(fileId)) {
        return;
    }
    m_requested.insert(fileId);
    m_queue.append(fileId);
    if (!m_timer.isActive()) {
        m_timer.start(kIntervalMs);
    }
}

void AvatarDownloadQueue::clear()
{
    m_timer.stop();
    m_queue.clear();
    m_requested.clear();
}

void AvatarDownloadQueue::onAvatarDownloadTimeout()
{
    if (m_queue.isEmpty()) {
        return;
    }
    const qint64 fileId = m_queue.takeFirst();
    if (m_appendLog) {
        m_appendLog(QStringLiteral("ui: download avatar file_id=%1\n").arg(fileId));
    }
    if (m_sendLine) {
        m_sendLine(QStringLiteral("download %1").arg(fileId));
    }
    if (!m_queue.isEmpty()) {
        m_timer.start(kIntervalMs);
    }
}
