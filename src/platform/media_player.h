#pragma once

#include <QObject>
#include <QUrl>

class AvPlayer;

// The phone's media player as the voice notes use it: a source URL, play,
// pause, stop, reset, and the state numbers 0 Unprepared, 1 Prepared,
// 2 Started, 3 Paused, 4 Stopped.
class MediaPlayer : public QObject
{
    Q_OBJECT
public:
    enum MediaState
    {
        Unprepared = 0,
        Prepared = 1,
        Started = 2,
        Paused = 3,
        Stopped = 4
    };

    using QObject::QObject;
    ~MediaPlayer() override = default;

    static QString mediaStateName(int state);

    // The int results are 0 on success, else an error number.
    virtual int setSourceUrl(const QUrl &url) = 0;
    virtual int play() = 0;
    virtual int pause() = 0;
    virtual int stop() = 0;
    virtual int reset() = 0;
    virtual MediaState mediaState() const = 0;
    virtual void setStatusInterval(int ms) = 0;
    virtual void setVolume(double volume) = 0;
    virtual void setAudioOutput(bool on) = 0;
    virtual void setVideoOutput(bool on) = 0;

Q_SIGNALS:
    void mediaStateChanged(int state);
    void durationChanged(unsigned int ms);
    void positionChanged(unsigned int ms);
    void error(int error, unsigned int position);
};

// MediaPlayer over the media framework's player (QMediaPlayer, GStreamer on
// Linux). When the media module cannot be loaded every source fails.
class QtMediaPlayer : public MediaPlayer
{
    Q_OBJECT
public:
    explicit QtMediaPlayer(QObject *parent = nullptr);
    ~QtMediaPlayer() override;

    int setSourceUrl(const QUrl &url) override;
    int play() override;
    int pause() override;
    int stop() override;
    int reset() override;
    MediaState mediaState() const override { return m_state; }
    void setStatusInterval(int ms) override;
    void setVolume(double volume) override;
    void setAudioOutput(bool on) override;
    void setVideoOutput(bool) override {}

private:
    void moveTo(MediaState state);

    AvPlayer *m_player = nullptr;
    MediaState m_state = Unprepared;
    bool m_audioOn = true;
    double m_volume = 1.0;
};
