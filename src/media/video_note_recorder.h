#pragma once

#include "media/media_services.h"

#include <QElapsedTimer>
#include <QImage>
#include <QObject>
#include <QString>
#include <QTimer>

#include <atomic>

class QCamera;
class QMediaRecorder;
class SoftwareVideoSurface;
typedef struct _GstElement GstElement;
typedef struct _GstMessage GstMessage;

// Records a round video note: a GStreamer pipeline takes the camera (any
// source description, "v4l2src" for a real one), crops its picture to a
// square, scales it to kSide (or the camera's largest square below that),
// encodes H.264 and AAC from the default microphone and muxes them into an
// MP4 under <data>/cache/video-note-out. The finished note goes to the
// backend with "sendvideonote64", or as a file when it is over the size
// limit. The pipeline's bus messages and its preview frames arrive on the
// recorder's thread as signals.
class VideoNoteRecorder : public QObject
{
    Q_OBJECT
public:
    static constexpr int kSide = 384;
    static constexpr int kMaxSeconds = 60;
    static constexpr int kFrameRate = 30;
    // The service takes larger notes only as files.
    static constexpr qint64 kDefaultSizeLimit = 12 * 1024 * 1024;

    // cameraSource: a GStreamer source description; empty when the device
    // has no camera.
    VideoNoteRecorder(const QString &dataDir, const QString &cameraSource,
                      const MediaServices &services, QObject *parent = nullptr);
    ~VideoNoteRecorder() override;

    // The camera source from the environment: VEXA_CAMERA_SOURCE, else the
    // first video device, else none.
    static QString cameraSourceFromEnvironment(const QStringList &environment);

    void setChatId(qint64 chatId) { m_chatId = chatId; }
    void setReplyToMessageId(qint64 id) { m_replyToMessageId = id; }
    void setSizeLimit(qint64 bytes) { m_sizeLimit = bytes; }
    QString cameraSource() const { return m_cameraSource; }

    // Opens the camera and starts writing; false (with the reason, also
    // toasted) when nothing records.
    bool startVideoNoteCapture(QString *error = nullptr);
    // send: finish the file and hand it to the backend once the muxer has
    // written its end; otherwise discard it at once.
    void stopVideoNoteCapture(bool send);

    // From start until the file is sent or discarded.
    bool isRecording() const { return m_pipeline != nullptr || m_qtRecorder != nullptr; }
    // The first picture reached the encoder.
    bool captureStarted() const { return m_captureStarted; }
    bool isStopping() const { return m_stopping; }
    // Milliseconds since the first picture; 0 before it.
    qint64 elapsedMs() const { return m_captureStarted ? m_clock.elapsed() : 0; }
    QString recordingPath() const { return m_path; }
    int side() const { return m_side; }
    // Pictures that reached the video encoder.
    qint64 framesEncoded() const { return m_frames.load(); }

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

private:
    bool buildPipeline(QString *error);
    // Qt's camera and recorder, when the pipeline cannot be built or run.
    bool startQtCamera(QString *error);
    void onQtFrame(const QImage &frame);
    void onBusMessage(GstMessage *message);
    void onFirstFrame();
    void finish(bool send);
    void teardown();
    void fail(const QString &userText, const QString &detail, QString *error);

    QString m_dataDir;
    QString m_cameraSource;
    MediaServices m_services;
    qint64 m_chatId = 0;
    qint64 m_replyToMessageId = 0;
    qint64 m_sizeLimit = kDefaultSizeLimit;
    GstElement *m_pipeline = nullptr;
    QCamera *m_qtCamera = nullptr;
    QMediaRecorder *m_qtRecorder = nullptr;
    SoftwareVideoSurface *m_qtSurface = nullptr;
    QString m_path;
    int m_side = kSide;
    bool m_captureStarted = false;
    bool m_stopping = false;
    QElapsedTimer m_clock;
    QTimer m_limitTimer;
    // Guards the wait for the muxer's end (a stuck device must not hang).
    QTimer m_eosTimer;
    std::atomic<qint64> m_frames{0};
    std::atomic<bool> m_previewBusy{false};
};
