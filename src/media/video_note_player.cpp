#include "media/video_note_player.h"

#include "media/media_downloads.h"
#include "platform/av_player.h"

#include <QFileInfo>
#include <QUrl>
#include <QVariant>

VideoNotePlayer::VideoNotePlayer(MediaDownloads *downloads, const MediaServices &services,
                                 QObject *listView, QObject *parent)
    : QObject(parent), m_downloads(downloads), m_services(services), m_listView(listView)
{
}

VideoNotePlayer::~VideoNotePlayer()
{
    if (m_player) {
        m_player->stop();
        m_player->setFrameHandler({});
    }
}

bool VideoNotePlayer::ensurePlayer()
{
    if (m_player)
        return true;
    QString error;
    m_player = AvPlayer::create(this, &error);
    if (!m_player) {
        m_services.log(QStringLiteral("video_note: cannot play: %1\n").arg(error));
        return false;
    }
    m_player->setFrameHandler([this](const QImage &frame) {
        if (m_playingFileId < 1)
            return;
        m_frame = frame;
        Q_EMIT frameReady(frame);
    });
    m_player->setNotifyInterval(100);
    connect(m_player, &AvPlayer::stateChanged, this, &VideoNotePlayer::onPlayerState);
    connect(m_player, &AvPlayer::durationChanged, this, [this](qint64 ms) {
        m_durationMs = ms;
        publishAll();
    });
    connect(m_player, &AvPlayer::positionChanged, this, [this](qint64 ms) {
        m_positionMs = ms;
        publish("video_note_play_pos_ms", ms);
    });
    connect(m_player, &AvPlayer::mediaStatusChanged, this, [this](int s) {
        if (s == AvPlayer::EndOfMedia)
            stopVideoNotePlayback();
    });
    connect(m_player, &AvPlayer::errorOccurred, this, [this] {
        m_services.log(QStringLiteral("video_note: play error: %1\n")
                           .arg(m_player->errorString().simplified()));
        stopVideoNotePlayback();
    });
    return true;
}

qint64 VideoNotePlayer::positionMs() const
{
    return m_player && m_playingFileId > 0 ? m_player->position() : 0;
}

qreal VideoNotePlayer::progress() const
{
    if (m_durationMs <= 0)
        return 0;
    return qBound<qreal>(0, qreal(positionMs()) / qreal(m_durationMs), 1);
}

void VideoNotePlayer::publish(const char *name, const QVariant &value)
{
    if (m_listView)
        m_listView->setProperty(name, value);
}

void VideoNotePlayer::publishAll()
{
    publish("video_note_playing_file_id", m_playingFileId);
    publish("video_note_playing_message_id", m_playingMessageId);
    publish("video_note_play_pos_ms", positionMs());
    publish("video_note_play_dur_ms", m_durationMs);
    publish("video_note_media_state", m_state);
}

void VideoNotePlayer::setPending(long long fileId, long long messageId)
{
    const long long old = m_pendingFileId;
    m_pendingFileId = fileId;
    m_pendingMessageId = messageId;
    if (old >= 1 && old != fileId)
        Q_EMIT mediaRowsNeedRefresh(old);
    if (fileId >= 1)
        Q_EMIT mediaRowsNeedRefresh(fileId);
}

void VideoNotePlayer::onVideoNoteTapped(const QString &path, long long fileId, long long messageId)
{
    if (fileId < 1)
        return;
    QString local = QFileInfo(path).isFile() ? path : QString();
    if (local.isEmpty() && m_lookup && QFileInfo(m_lookup(fileId)).isFile())
        local = m_lookup(fileId);
    if (!local.isEmpty()) {
        startVideoNotePlayback(fileId, local, messageId);
        return;
    }
    m_services.log(QStringLiteral("video_note: download file_id=%1\n").arg(fileId));
    setPending(fileId, messageId);
    if (m_downloads)
        m_downloads->enqueueMediaDownload(fileId, true);
}

void VideoNotePlayer::startVideoNotePlayback(long long fileId, const QString &path,
                                             long long messageId)
{
    if (fileId < 1 || !QFileInfo(path).isFile())
        return;
    if (m_pendingFileId == fileId)
        setPending(0, 0);
    if (!ensurePlayer())
        return;
    if (fileId == m_playingFileId && messageId == m_playingMessageId) {
        if (m_player->state() == AvPlayer::PlayingState) {
            m_player->pause();
        } else {
            Q_EMIT voicePlaybackStopRequested();
            m_player->play();
        }
        return;
    }
    stopVideoNotePlayback();
    Q_EMIT voicePlaybackStopRequested();
    m_services.log(
        QStringLiteral("video_note: play file_id=%1 message_id=%2\n").arg(fileId).arg(messageId));
    m_playingFileId = fileId;
    m_playingMessageId = messageId;
    m_frame = QImage();
    m_durationMs = 0;
    m_positionMs = 0;
    m_player->setSource(QUrl::fromLocalFile(path));
    m_player->play();
    publishAll();
    Q_EMIT mediaRowsNeedRefresh(fileId);
    Q_EMIT playingChanged(true);
}

void VideoNotePlayer::stopVideoNotePlayback()
{
    if (m_pendingFileId >= 1)
        setPending(0, 0);
    if (m_playingFileId < 1)
        return;
    const long long old = m_playingFileId;
    m_playingFileId = 0;
    m_playingMessageId = 0;
    m_state = Stopped;
    m_durationMs = 0;
    m_positionMs = 0;
    m_frame = QImage();
    if (m_player) {
        m_player->stop();
        m_player->setSource(QUrl());
    }
    publishAll();
    Q_EMIT mediaRowsNeedRefresh(old);
    Q_EMIT playingChanged(false);
}

void VideoNotePlayer::onPlayerState(int state)
{
    if (m_playingFileId < 1)
        return;
    const int published = state == AvPlayer::PlayingState  ? Started
                          : state == AvPlayer::PausedState ? Paused
                                                           : Stopped;
    if (published == m_state)
        return;
    m_state = published;
    publish("video_note_media_state", m_state);
    Q_EMIT mediaRowsNeedRefresh(m_playingFileId);
}
