#include "media/av/qt_av_player.h"

#include "media/av/software_video_surface.h"

#include <QMediaContent>
#include <QMediaPlayer>

QtAvPlayer::QtAvPlayer(QObject *parent) : AvPlayer(parent)
{
    m_player = new QMediaPlayer(this);
    connect(m_player, &QMediaPlayer::stateChanged, this,
            [this](QMediaPlayer::State s) { Q_EMIT stateChanged(int(s)); });
    connect(m_player, &QMediaPlayer::mediaStatusChanged, this, [this](QMediaPlayer::MediaStatus s) {
        Q_EMIT mediaStatusChanged(s == QMediaPlayer::LoadedMedia  ? LoadedMedia
                                  : s == QMediaPlayer::EndOfMedia ? EndOfMedia
                                                                  : OtherStatus);
    });
    connect(m_player, &QMediaPlayer::durationChanged, this, &AvPlayer::durationChanged);
    connect(m_player, &QMediaPlayer::positionChanged, this, &AvPlayer::positionChanged);
    connect(m_player, qOverload<QMediaPlayer::Error>(&QMediaPlayer::error), this,
            [this](QMediaPlayer::Error e) {
                if (e != QMediaPlayer::NoError)
                    Q_EMIT errorOccurred(int(e));
            });
}

void QtAvPlayer::setSource(const QUrl &url)
{
    m_player->setMedia(url.isEmpty() ? QMediaContent() : QMediaContent(url));
}

bool QtAvPlayer::hasSource() const
{
    return !m_player->media().isNull();
}

void QtAvPlayer::play()
{
    m_player->play();
}

void QtAvPlayer::pause()
{
    m_player->pause();
}

void QtAvPlayer::stop()
{
    m_player->stop();
}

void QtAvPlayer::setPosition(qint64 ms)
{
    m_player->setPosition(ms);
}

qint64 QtAvPlayer::position() const
{
    return m_player->position();
}

qint64 QtAvPlayer::duration() const
{
    return m_player->duration();
}

AvPlayer::State QtAvPlayer::state() const
{
    switch (m_player->state()) {
    case QMediaPlayer::PlayingState:
        return PlayingState;
    case QMediaPlayer::PausedState:
        return PausedState;
    default:
        return StoppedState;
    }
}

int QtAvPlayer::error() const
{
    return int(m_player->error());
}

QString QtAvPlayer::errorString() const
{
    return m_player->errorString();
}

void QtAvPlayer::setNotifyInterval(int ms)
{
    m_player->setNotifyInterval(ms);
}

void QtAvPlayer::setVolume(int percent)
{
    m_player->setVolume(percent);
}

void QtAvPlayer::setMuted(bool muted)
{
    m_player->setMuted(muted);
}

void QtAvPlayer::setFrameHandler(FrameHandler handler)
{
    m_onFrame = std::move(handler);
    if (!m_onFrame) {
        m_player->setVideoOutput(static_cast<QAbstractVideoSurface *>(nullptr));
        return;
    }
    if (!m_surface)
        m_surface = new SoftwareVideoSurface(
            [this](const QImage &frame) {
                if (m_onFrame)
                    m_onFrame(frame);
            },
            this);
    m_player->setVideoOutput(m_surface);
}
