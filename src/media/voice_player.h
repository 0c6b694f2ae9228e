#pragma once

#include "media/media_services.h"

#include <QObject>
#include <QPointer>
#include <QString>
#include <QStringList>

#include <functional>
#include <memory>

class MediaDownloads;
class OggOpusToWav;
class MediaPlayer;
class OpusLib;

// Plays voice notes: Ogg Opus files are converted once into a cached WAV
// ("voice-wav/<file id>.wav" under the media cache folder) that the platform
// player can play; other files play as they are. The playing and pending
// file ids, position, duration and state are published as properties of the
// message list view.
class VoicePlayer : public QObject
{
    Q_OBJECT
public:
    using PlayerFactory = std::function<MediaPlayer *(QObject *parent)>;
    using LocalPathLookup = std::function<QString(long long fileId)>;

    VoicePlayer(OpusLib &opus, MediaDownloads *downloads, const QString &mediaCacheDir,
                const MediaServices &services, QObject *listView, QObject *parent = nullptr);

    ~VoicePlayer() override;
    void setListView(QObject *listView) { m_listView = listView; }
    // The player is created on first use; the default is QtMediaPlayer.
    void setPlayerFactory(const PlayerFactory &factory) { m_factory = factory; }
    // Known local media paths by file id (filled from "file" events).
    void setLocalPathLookup(const LocalPathLookup &lookup) { m_lookup = lookup; }

    // Starts the media framework ahead of the first tap (its first start
    // holds up the first play by over a second); the player itself is still
    // made on first use.
    void prepare();
    bool isPrepared() const { return m_prepared; }
    void startVoicePlayback(long long fileId, const QString &path);
    void onVoiceTapped(const QString &path, long long fileId);
    void stopVoicePlayback();

    // The cached WAV for an Ogg Opus voice file, decoding it when needed;
    // empty when it cannot be made.
    QString ensureWavForVoiceFile(long long fileId, const QString &path);
    // The WAV to play at once: the cached one, or a partial file whose first
    // seconds are decoded and whose rest is decoded on later turns of the
    // event loop (then it becomes the cached one). Empty when the file
    // cannot be decoded.
    QString startWavForVoiceFile(long long fileId, const QString &path);
    bool isConverting() const { return m_conversion != nullptr; }

    long long playingFileId() const { return m_playingFileId; }
    // The voice file playing (or paused) and the WAV made of it; empty when
    // nothing plays.
    QStringList playingFiles() const
    {
        return m_playingFileId > 0 ? m_playingPaths : QStringList();
    }
    long long pendingFileId() const { return m_pendingFileId; }
    void setPendingFileId(long long fileId);
    QString wavFolder() const;

public Q_SLOTS:
    void onVoiceMediaStateChanged(int state);
    void onVoiceDurationChanged(unsigned int ms);
    void onVoicePositionChanged(unsigned int ms);
    void onVoiceError(int error, unsigned int position);

Q_SIGNALS:
    void mediaRowsNeedRefresh(long long fileId);
    // Playing a voice note stops a running video-note playback.
    void videoNotePlaybackStopRequested();

private:
    void ensurePlayer();
    void setPlayingFileId(long long fileId);
    // Stores a file id, publishes it and refreshes the old and the new row.
    void replaceFileId(long long &slot, long long fileId, const char *property);
    void publish(const char *name, const QVariant &value);
    void publishPosition();
    void touchPlaying();

    OpusLib &m_opus;
    QPointer<MediaDownloads> m_downloads;
    QString m_mediaCacheDir;
    MediaServices m_services;
    QPointer<QObject> m_listView;
    PlayerFactory m_factory;
    LocalPathLookup m_lookup;
    MediaPlayer *m_player = nullptr;
    bool m_prepared = false;
    long long m_playingFileId = 0;
    QStringList m_playingPaths;
    // The conversion that runs while its note plays.
    struct Conversion;
    std::unique_ptr<Conversion> m_conversion;
    int m_conversionGeneration = 0;
    // One slice of decoding; true when the conversion ended with it.
    bool stepConversion();
    void continueConversion(int generation);
    void finishConversion();
    long long m_pendingFileId = 0;
    unsigned int m_positionMs = 0;
    unsigned int m_durationMs = 0;
};
