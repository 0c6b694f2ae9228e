#pragma once

#include <QImage>
#include <QObject>
#include <QString>

#include <functional>

// Recording of round video notes with the camera and the microphone, as
// the media module provides it; VideoNoteRecorder (media) is its face to the
// rest of the client. It lives beside AvPlayer so that every program that
// can load the module also carries this interface for it.
class VideoNoteCapture : public QObject
{
    Q_OBJECT
public:
    // What a recorder needs from the client, as plain callbacks: the module
    // touches no other class of the program.
    struct Services
    {
        std::function<void(const QString &)> appendLog; // lines end with "\n"
        std::function<void(const QString &)> showToast;
        std::function<void(const QString &)> sendLine; // one backend command
        void log(const QString &line) const
        {
            if (appendLog)
                appendLog(line);
        }
        void toast(const QString &text) const
        {
            if (showToast)
                showToast(text);
        }
        void send(const QString &line) const
        {
            if (sendLine)
                sendLine(line);
        }
    };

    // The module's entry point "vexa_av_create_video_note_capture".
    using Factory = VideoNoteCapture *(*)(const QString &dataDir, const QString &cameraSource,
                                          const Services &services, QObject *parent);

    static constexpr int kSide = 384;
    static constexpr int kMaxSeconds = 60;
    static constexpr int kFrameRate = 30;
    // The service takes larger notes only as files.
    static constexpr qint64 kDefaultSizeLimit = 12 * 1024 * 1024;

    using QObject::QObject;
    ~VideoNoteCapture() override = default;

    virtual void setChatId(qint64 chatId) = 0;
    virtual void setReplyToMessageId(qint64 id) = 0;
    virtual void setSizeLimit(qint64 bytes) = 0;
    // Opens the camera and starts writing; false (with the reason, also
    // toasted) when nothing records.
    virtual bool startVideoNoteCapture(QString *error) = 0;
    // send: finish the file and hand it to the backend once the muxer has
    // written its end; otherwise discard it at once.
    virtual void stopVideoNoteCapture(bool send) = 0;
    // From start until the file is sent or discarded.
    virtual bool isRecording() const = 0;
    // The first picture reached the encoder.
    virtual bool captureStarted() const = 0;
    virtual bool isStopping() const = 0;
    // Milliseconds since the first picture; 0 before it.
    virtual qint64 elapsedMs() const = 0;
    virtual QString recordingPath() const = 0;
    virtual int side() const = 0;
    // Pictures that reached the video encoder.
    virtual qint64 framesEncoded() const = 0;

Q_SIGNALS:
    // The recording began or ended (sent, discarded or failed).
    void recordingChanged(bool recording);
    // The camera delivers and the encoder runs.
    void captureStartedChanged();
    // A preview picture (square, small), for the round view over the chat.
    void previewFrame(const QImage &frame);
    // Peak level (0..1) of the microphone over the last tenth of a second.
    void inputLevelChanged(qreal level);
    // One more picture was encoded (streaming thread time, for measurements).
    void frameEncoded(qint64 frames);
    // The note went to the backend (path of the file as sent).
    void sent(const QString &path, bool asFile);
    void gestureResetRequested();
    void replyTargetConsumed();
};
