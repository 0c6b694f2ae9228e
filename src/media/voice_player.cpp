#include "media/voice_player.h"

#include "media/media_downloads.h"
#include "media/ogg_opus_decoder.h"
#include "platform/av_player.h"
#include "platform/media_player.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTimer>
#include <QUrl>
#include <QVariant>

namespace {

bool is_regular_file(const QString &path)
{
    if (path.isEmpty())
        return false;
    const QFileInfo fi(path);
    return fi.exists() && fi.isFile();
}

} // namespace

VoicePlayer::VoicePlayer(OpusLib &opus, MediaDownloads *downloads, const QString &mediaCacheDir,
                         const MediaServices &services, QObject *listView, QObject *parent)
    : QObject(parent), m_opus(opus), m_downloads(downloads), m_mediaCacheDir(mediaCacheDir),
      m_services(services), m_listView(listView)
{
    m_factory = [](QObject *p) -> MediaPlayer * { return new QtMediaPlayer(p); };
}

// What plays first while the rest of a long note is decoded: a second is a
// few milliseconds of decoding.
constexpr qint64 kHeadBytes = 2 * 96000;
// Ogg pages per turn of the event loop (about a second of a voice note).
constexpr int kPagesPerSlice = 8;

struct VoicePlayer::Conversion
{
    explicit Conversion(OpusLib &opus) : decoder(opus) {}
    OggOpusToWav decoder;
    long long fileId = 0;
    int generation = 0;
    QString part;
    QString wav;
};

VoicePlayer::~VoicePlayer()
{
    // A conversion cut short by the quit leaves no partial file behind.
    if (m_conversion)
        QFile::remove(m_conversion->part);
}

QString VoicePlayer::wavFolder() const
{
    return QDir(m_mediaCacheDir).absoluteFilePath(QStringLiteral("voice-wav"));
}

void VoicePlayer::publish(const char *name, const QVariant &value)
{
    if (m_listView)
        m_listView->setProperty(name, value);
}

void VoicePlayer::publishPosition()
{
    publish("voice_play_pos_ms", m_positionMs);
    publish("voice_play_dur_ms", m_durationMs);
}

void VoicePlayer::touchPlaying()
{
    if (m_playingFileId >= 1)
        Q_EMIT mediaRowsNeedRefresh(m_playingFileId);
}

void VoicePlayer::setPlayingFileId(long long fileId)
{
    replaceFileId(m_playingFileId, fileId, "voice_playing_file_id");
}

void VoicePlayer::setPendingFileId(long long fileId)
{
    replaceFileId(m_pendingFileId, fileId, "voice_pending_file_id");
}

void VoicePlayer::replaceFileId(long long &slot, long long fileId, const char *property)
{
    if (fileId == slot)
        return;
    const long long old = slot;
    slot = fileId;
    publish(property, fileId);
    // Both rows change their look: the one left and the one taken.
    if (old >= 1)
        Q_EMIT mediaRowsNeedRefresh(old);
    if (fileId >= 1)
        Q_EMIT mediaRowsNeedRefresh(fileId);
}

QString VoicePlayer::ensureWavForVoiceFile(long long fileId, const QString &path)
{
    const QString wav = startWavForVoiceFile(fileId, path);
    if (!m_conversion || m_conversion->fileId != fileId)
        return wav;
    const QString cached = m_conversion->wav;
    while (m_conversion && !stepConversion()) {
    }
    return QFileInfo::exists(cached) ? cached : QString();
}

QString VoicePlayer::startWavForVoiceFile(long long fileId, const QString &path)
{
    const QString folder = wavFolder();
    QDir().mkpath(folder);
    const QString wav =
        folder + QLatin1Char('/') + QString::number(fileId) + QStringLiteral(".wav");
    const QFileInfo fi(wav);
    if (fi.exists() && fi.isFile() && fi.size() >= 45)
        return wav;
    // One conversion at a time; an earlier one is finished first (it has
    // at most a second left).
    if (m_conversion) {
        if (m_conversion->fileId == fileId)
            return m_conversion->part;
        while (m_conversion && !stepConversion()) {
        }
    }
    // A partial file is never trusted later: only the finished one is
    // renamed to the cached name.
    auto c = std::make_unique<Conversion>(m_opus);
    c->fileId = fileId;
    c->wav = wav;
    c->part = wav + QStringLiteral(".part");
    m_services.log(QStringLiteral("voice: decoding opus->wav file_id=%1\n").arg(fileId));
    QString error;
    bool ok = c->decoder.open(path, c->part, oggOpusEstimatedPcmBytes(path), &error);
    while (ok && !c->decoder.atEnd() && c->decoder.decodedBytes() < kHeadBytes)
        ok = c->decoder.step(1, &error);
    if (!ok) {
        m_services.log(QStringLiteral("voice: decode failed: %1\n").arg(error));
        QFile::remove(c->part);
        return QString();
    }
    m_conversion = std::move(c);
    if (m_conversion->decoder.atEnd()) {
        finishConversion();
        return QFileInfo::exists(wav) ? wav : QString();
    }
    const int generation = ++m_conversionGeneration;
    m_conversion->generation = generation;
    QTimer::singleShot(0, this, [this, generation] { continueConversion(generation); });
    return m_conversion->part;
}

bool VoicePlayer::stepConversion()
{
    QString error;
    if (!m_conversion->decoder.step(kPagesPerSlice, &error))
        m_services.log(QStringLiteral("voice: decode failed: %1\n").arg(error));
    if (!m_conversion->decoder.atEnd())
        return false;
    finishConversion();
    return true;
}

void VoicePlayer::continueConversion(int generation)
{
    // One chain of turns per conversion: a turn left over from a conversion
    // that was finished early does nothing.
    if (!m_conversion || m_conversion->generation != generation)
        return;
    if (!stepConversion())
        QTimer::singleShot(0, this, [this, generation] { continueConversion(generation); });
}

void VoicePlayer::finishConversion()
{
    std::unique_ptr<Conversion> c = std::move(m_conversion);
    QString error;
    // A note that breaks off midway plays up to there but is not cached.
    if (!c->decoder.finish(&error)) {
        m_services.log(QStringLiteral("voice: decode failed: %1\n").arg(error));
        QFile::remove(c->part);
        return;
    }
    QFile::remove(c->wav);
    if (!QFile::rename(c->part, c->wav)) {
        m_services.log(QStringLiteral("voice: rename wav tmp failed\n"));
        QFile::remove(c->part);
        return;
    }
    if (m_playingPaths.contains(c->part))
        m_playingPaths.replace(m_playingPaths.indexOf(c->part), c->wav);
}

void VoicePlayer::prepare()
{
    if (m_prepared)
        return;
    m_prepared = true;
    QString error;
    if (!AvPlayer::startFramework(&error))
        m_services.log(QStringLiteral("voice: media framework did not start: %1\n").arg(error));
}

void VoicePlayer::ensurePlayer()
{
    if (m_player)
        return;
    m_player = m_factory(this);
    m_player->setAudioOutput(true);
    m_player->setVideoOutput(false);
    m_player->setStatusInterval(200);
    m_player->setVolume(1.0);
    connect(m_player, &MediaPlayer::mediaStateChanged, this,
            &VoicePlayer::onVoiceMediaStateChanged);
    connect(m_player, &MediaPlayer::durationChanged, this, &VoicePlayer::onVoiceDurationChanged);
    connect(m_player, &MediaPlayer::positionChanged, this, &VoicePlayer::onVoicePositionChanged);
    connect(m_player, &MediaPlayer::error, this, &VoicePlayer::onVoiceError);
}

void VoicePlayer::startVoicePlayback(long long fileId, const QString &path)
{
    if (fileId < 1 || !is_regular_file(path))
        return;
    ensurePlayer();

    if (fileId == m_playingFileId) {
        if (m_player->mediaState() == MediaPlayer::Started)
            m_player->pause();
        else
            m_player->play();
        if (m_pendingFileId == fileId)
            setPendingFileId(0);
        return;
    }

    Q_EMIT videoNotePlaybackStopRequested();
    setPlayingFileId(0);
    publish("voice_media_state", int(MediaPlayer::Stopped));
    m_player->stop();
    m_player->reset();
    m_positionMs = 0;
    m_durationMs = 0;
    publishPosition();

    QString playPath = path;
    const QString lower = path.toLower();
    if (lower.endsWith(QLatin1String(".oga")) || lower.endsWith(QLatin1String(".ogg")) ||
        lower.endsWith(QLatin1String(".opus"))) {
        playPath = startWavForVoiceFile(fileId, path);
        if (playPath.isEmpty()) {
            m_services.log(
                QStringLiteral("voice: opus decode unavailable; cannot play this file\n"));
            if (m_pendingFileId == fileId)
                setPendingFileId(0);
            return;
        }
    }

    m_player->setSourceUrl(QUrl::fromLocalFile(playPath));
    const int rc = m_player->play();
    if (rc != 0) {
        m_services.log(QStringLiteral("voice: play error=%1\n").arg(rc));
        setPlayingFileId(0);
    } else {
        m_playingPaths = QStringList{path, playPath};
        if (fileId != m_playingFileId)
            setPlayingFileId(fileId);
    }
    if (m_pendingFileId == fileId)
        setPendingFileId(0);
}

void VoicePlayer::onVoiceTapped(const QString &path, long long fileId)
{
    if (fileId < 1)
        return;
    if (is_regular_file(path)) {
        startVoicePlayback(fileId, path);
        return;
    }
    const QString known = m_lookup ? m_lookup(fileId) : QString();
    if (is_regular_file(known)) {
        startVoicePlayback(fileId, known);
        return;
    }
    m_services.log(QStringLiteral("ui: voice download file_id=%1\n").arg(fileId));
    setPendingFileId(fileId);
    if (m_downloads)
        m_downloads->enqueueMediaDownload(fileId, false);
}

void VoicePlayer::onVoicePositionChanged(unsigned int ms)
{
    m_positionMs = ms;
    publishPosition();
    touchPlaying();
}

void VoicePlayer::onVoiceDurationChanged(unsigned int ms)
{
    m_durationMs = ms;
    publishPosition();
    touchPlaying();
}

void VoicePlayer::onVoiceMediaStateChanged(int state)
{
    m_services.log(QStringLiteral("voice: state=%1 (%2)\n")
                       .arg(state)
                       .arg(MediaPlayer::mediaStateName(state)));
    publish("voice_media_state", state);
    touchPlaying();
    if (state == MediaPlayer::Stopped && m_playingFileId >= 1) {
        setPlayingFileId(0);
        m_positionMs = 0;
        m_durationMs = 0;
        publishPosition();
    }
}

void VoicePlayer::onVoiceError(int error, unsigned int position)
{
    m_services.log(QStringLiteral("voice: error=%1 pos=%2\n").arg(error).arg(position));
    setPendingFileId(0);
    setPlayingFileId(0);
    m_positionMs = 0;
    m_durationMs = 0;
    publishPosition();
    publish("voice_media_state", int(MediaPlayer::Stopped));
}

void VoicePlayer::stopVoicePlayback()
{
    setPendingFileId(0);
    setPlayingFileId(0);
    publish("voice_media_state", int(MediaPlayer::Stopped));
    m_positionMs = 0;
    m_durationMs = 0;
    publishPosition();
    if (m_player) {
        m_player->stop();
        m_player->reset();
    }
}
