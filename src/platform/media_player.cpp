#include "platform/media_player.h"

#include "platform/av_player.h"

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
    m_player = AvPlayer::create(this, nullptr);
    if (!m_player)
        return;
    m_player->setNotifyInterval(200);
    connect(m_player, &AvPlayer::stateChanged, this, [this](int s) {
        switch (s) {
        case AvPlayer::PlayingState:
            moveTo(Started);
            break;
        case AvPlayer::PausedState:
            moveTo(Paused);
            break;
        case AvPlayer::StoppedState:
            // Stopping before anything played leaves a loaded source prepared.
            if (m_state == Started || m_state == Paused)
                moveTo(Stopped);
            break;
        }
    });
    connect(m_player, &AvPlayer::mediaStatusChanged, this, [this](int st) {
        if (st == AvPlayer::LoadedMedia && m_state == Unprepared)
            moveTo(Prepared);
        else if (st == AvPlayer::EndOfMedia && m_state != Stopped)
            moveTo(Stopped);
    });
    connect(m_player, &AvPlayer::durationChanged, this,
            [this](qint64 ms) { Q_EMIT durationChanged(unsigned(qMax<qint64>(0, ms))); });
    connect(m_player, &AvPlayer::positionChanged, this,
            [this](qint64 ms) { Q_EMIT positionChanged(unsigned(qMax<qint64>(0, ms))); });
    connect(m_player, &AvPlayer::errorOccurred, this,
            [this](int e) { Q_EMIT error(e, unsigned(qMax<qint64>(0, m_player->position()))); });
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
    if (!url.isValid() || !m_player)
        return 1;
    m_player->setSource(url);
    m_state = Unprepared;
    return 0;
}

int QtMediaPlayer::play()
{
    if (!m_player || !m_player->hasSource())
        return 1;
    m_player->play();
    return m_player->error();
}

int QtMediaPlayer::pause()
{
    if (m_player)
        m_player->pause();
    return 0;
}

int QtMediaPlayer::stop()
{
    if (m_player)
        m_player->stop();
    moveTo(Stopped);
    return 0;
}

int QtMediaPlayer::reset()
{
    if (m_player) {
        m_player->stop();
        m_player->setSource(QUrl());
    }
    moveTo(Unprepared);
    return 0;
}

void QtMediaPlayer::setStatusInterval(int ms)
{
    if (m_player)
        m_player->setNotifyInterval(ms);
}

void QtMediaPlayer::setVolume(double volume)
{
    m_volume = volume;
    if (m_player)
        m_player->setVolume(m_audioOn ? int(volume * 100.0 + 0.5) : 0);
}

void QtMediaPlayer::setAudioOutput(bool on)
{
    m_audioOn = on;
    if (m_player)
        m_player->setMuted(!on);
}
