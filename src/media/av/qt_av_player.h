#pragma once

#include "platform/av_player.h"

class QMediaPlayer;
class SoftwareVideoSurface;

// AvPlayer over QMediaPlayer, video frames through a software surface.
class QtAvPlayer final : public AvPlayer
{
    Q_OBJECT
public:
    explicit QtAvPlayer(QObject *parent = nullptr);

    void setSource(const QUrl &url) override;
    bool hasSource() const override;
    void play() override;
    void pause() override;
    void stop() override;
    void setPosition(qint64 ms) override;
    qint64 position() const override;
    qint64 duration() const override;
    State state() const override;
    int error() const override;
    QString errorString() const override;
    void setNotifyInterval(int ms) override;
    void setVolume(int percent) override;
    void setMuted(bool muted) override;
    void setFrameHandler(FrameHandler handler) override;

private:
    QMediaPlayer *m_player = nullptr;
    SoftwareVideoSurface *m_surface = nullptr;
    FrameHandler m_onFrame;
};
