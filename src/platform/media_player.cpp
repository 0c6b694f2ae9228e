#include "platform/media_player.h"

#include <QMediaPlayer>

#include <gst/gst.h>

bool start_media_framework(QString *error)
{
    GError *gerror = nullptr;
    if (gst_init_check(nullptr, nullptr, &gerror))
        return true;
    if (error)
        *error = gerror ? QString::fromUtf8(gerror->message) : QStringLiteral("unknown error");
    if (gerror)
        g_error_free(gerror);
    return false;
}

QString MediaPlayer::mediaStateName(int state)
{
    switch (state) {
    case Unprepared:
        return QStringLiteral("Unprepared");
    case Prepared:
        return QStringLiteral("Prepared");
    case Started:
        return QStringLiteral("Started");
    case Paused:
        return QStringLiteral("Paused");
    case Stopped:
        return QStringLiteral("Stopped");
    default:
        return QStringLiteral("unknown");
    }
}

QtMediaPlayer::QtMediaPlayer(QObject *parent) : MediaPlayer(parent)
{
    m_player = new QMediaPlayer(this);
    m_player->setNotifyInterval(200);
    connect(m_player, &QMediaPlayer::stateChanged, this, [this](QMediaPlayer::State s) {
        switch (s) {
        case QMediaPlayer::PlayingState:
            moveTo(Started);
            break;
        case QMediaPlayer::PausedState:
            moveTo(Paused);
            break;
        case QMediaPlayer::StoppedState:
            // Stopping before anything played leaves a loaded source prepared.
            if (m_state == Started || m_state == Paused)
                moveTo(Stopped);
            break;
        }
    });
    connect(m_player, &QMediaPlayer::mediaStatusChanged, this,
            [this](QMediaPlayer::MediaStatus st) {
                if (st == QMediaPlayer::LoadedMedia && m_state == Unprepared)
                    moveTo(Prepared);
                else if (st == QMediaPlayer::EndOfMedia && m_state != Stopped)
                    moveTo(Stopped);
            });
    connect(m_player, &QMediaPlayer::durationChanged, this,
            [this](qint64 ms) { Q_EMIT durationChanged(unsigned(qMax<qint64>(0, ms))); });
    connect(m_player, &QMediaPlayer::positionChanged, this,
            [this](qint64 ms) { Q_EMIT positionChanged(unsigned(qMax<qint64>(0, ms))); });
    connect(m_player, QOverload<QMediaPlayer::Error>::of(&QMediaPlayer::error), this,
            [this](QMediaPlayer::Error e) {
                if (e != QMediaPlayer::NoError)
                    Q_EMIT error(int(e), unsigned(qMax<qint64>(0, m_player->position())));
            });
}

QtMediaPlayer::~QtMediaPlayer() = default;

void QtMediaPlayer::moveTo(MediaState state)
{
    if (m_state == state)
        return;
    m_state = state;
    Q_EMIT mediaStateChanged(int(state));
}

int QtMediaPlayer::setSourceUrl(const QUrl &url)
{
    if (!url.isValid())
        return 1;
    m_player->setMedia(url);
    m_state = Unprepared;
    return 0;
}

int QtMediaPlayer::play()
{
    if (m_player->media().isNull())
        return 1;
    m_player->play();
    return m_player->error() == QMediaPlayer::NoError ? 0 : int(m_player->error());
}

int QtMediaPlayer::pause()
{
    m_player->pause();
    return 0;
}

int QtMediaPlayer::stop()
{
    m_player->stop();
    moveTo(Stopped);
    return 0;
}

int QtMediaPlayer::reset()
{
    m_player->stop();
    m_player->setMedia(QMediaContent());
    moveTo(Unprepared);
    return 0;
}

void QtMediaPlayer::setStatusInterval(int ms)
{
    m_player->setNotifyInterval(ms);
}

void QtMediaPlayer::setVolume(double volume)
{
    m_volume = volume;
    m_player->setVolume(m_audioOn ? int(volume * 100.0 + 0.5) : 0);
}

void QtMediaPlayer::setAudioOutput(bool on)
{
    m_audioOn = on;
    m_player->setMuted(!on);
}
