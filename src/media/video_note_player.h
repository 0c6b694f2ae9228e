#pragma once

#include "media/media_services.h"

#include <QImage>
#include <QObject>
#include <QPointer>
#include <QString>

#include <functional>

class AvPlayer;
class MediaDownloads;

// Plays a video note inline, in its row, through QtMultimedia with sound.
// Frames arrive as images (software, no GL); the playing file and message,
// position, duration and state are published as the message list view's
// video_note_* properties, as voice playback publishes its own. A note that
// is not on the device yet is fetched first and plays when it arrives.
class VideoNotePlayer : public QObject
{
    Q_OBJECT
public:
    using LocalPathLookup = std::function<QString(long long fileId)>;
    // The published media state, numbered as the voice player's.
    enum State
    {
        Unprepared = 0,
        Started = 2,
        Paused = 3,
        Stopped = 4
    };

    VideoNotePlayer(MediaDownloads *downloads, const MediaServices &services, QObject *listView,
                    QObject *parent = nullptr);
    ~VideoNotePlayer() override;

    void setListView(QObject *listView) { m_listView = listView; }
    void setLocalPathLookup(const LocalPathLookup &lookup) { m_lookup = lookup; }

    // A tap on a note's circle: play, pause or resume it, or fetch it first.
    void onVideoNoteTapped(const QString &path, long long fileId, long long messageId);
    void startVideoNotePlayback(long long fileId, const QString &path, long long messageId);
    void stopVideoNotePlayback();

    long long playingFileId() const { return m_playingFileId; }
    long long playingMessageId() const { return m_playingMessageId; }
    long long pendingFileId() const { return m_pendingFileId; }
    long long pendingMessageId() const { return m_pendingMessageId; }
    int state() const { return m_state; }
    qint64 positionMs() const;
    qint64 durationMs() const { return m_durationMs; }
    // Played share of the note, 0..1.
    qreal progress() const;
    // The newest picture; null before the first.
    QImage currentFrame() const { return m_frame; }

Q_SIGNALS:
    // A new picture of the playing note.
    void frameReady(const QImage &frame);
    // The rows showing this file must redraw.
    void mediaRowsNeedRefresh(long long fileId);
    // Playback began: a voice note that plays stops.
    void voicePlaybackStopRequested();
    // Playing began or ended (the row's overlay follows it).
    void playingChanged(bool playing);

private:
    // False (logged) when there is no player.
    bool ensurePlayer();
    void publish(const char *name, const QVariant &value);
    void publishAll();
    void setPending(long long fileId, long long messageId);
    void onPlayerState(int state);

    QPointer<MediaDownloads> m_downloads;
    MediaServices m_services;
    QPointer<QObject> m_listView;
    LocalPathLookup m_lookup;
    AvPlayer *m_player = nullptr;
    QImage m_frame;
    long long m_playingFileId = 0;
    long long m_playingMessageId = 0;
    long long m_pendingFileId = 0;
    long long m_pendingMessageId = 0;
    int m_state = Unprepared;
    qint64 m_durationMs = 0;
    qint64 m_positionMs = 0;
};
