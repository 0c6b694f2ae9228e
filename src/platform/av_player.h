#pragma once

#include <QImage>
#include <QObject>
#include <QString>
#include <QUrl>

#include <functional>

// A player of the media framework (QtMultimedia over GStreamer). The
// framework and its sound and codec libraries live in the media module,
// loaded with the first player, so that a session that plays nothing never
// maps them. Video frames are handed over as images and painted in
// software: no GL is needed.
class AvPlayer : public QObject
{
    Q_OBJECT
public:
    enum State
    {
        StoppedState = 0,
        PlayingState = 1,
        PausedState = 2
    };
    enum Status
    {
        OtherStatus = 0,
        LoadedMedia = 1,
        EndOfMedia = 2
    };
    using FrameHandler = std::function<void(const QImage &frame)>;
    // The module's entry point "vexa_av_create_player".
    using Factory = AvPlayer *(*)(QObject *parent);

    using QObject::QObject;
    ~AvPlayer() override = default;

    // A player from the media module; null, with the reason, when the
    // module cannot be loaded.
    static AvPlayer *create(QObject *parent, QString *error);
    // Starts the media framework (GStreamer) without making a player or
    // loading the module. In a fresh process the first play waits well over
    // a second unless GStreamer was started about a second before; a player
    // made after that plays at once. False, with the reason, when it cannot
    // start.
    static bool startFramework(QString *error);

    // An empty URL unloads the source.
    virtual void setSource(const QUrl &url) = 0;
    virtual bool hasSource() const = 0;
    virtual void play() = 0;
    virtual void pause() = 0;
    virtual void stop() = 0;
    virtual void setPosition(qint64 ms) = 0;
    virtual qint64 position() const = 0;
    virtual qint64 duration() const = 0;
    virtual State state() const = 0;
    // 0 when there is none.
    virtual int error() const = 0;
    virtual QString errorString() const = 0;
    virtual void setNotifyInterval(int ms) = 0;
    virtual void setVolume(int percent) = 0;
    virtual void setMuted(bool muted) = 0;
    // Video frames go to handler; an empty handler turns video output off.
    virtual void setFrameHandler(FrameHandler handler) = 0;

Q_SIGNALS:
    void stateChanged(int state);
    void mediaStatusChanged(int status);
    void durationChanged(qint64 ms);
    void positionChanged(qint64 ms);
    // A new error (never 0).
    void errorOccurred(int error);
};
