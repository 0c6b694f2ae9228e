#pragma once

#include "platform/video_note_capture.h"

#include <QElapsedTimer>
#include <QImage>
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
class GstVideoNoteCapture final : public VideoNoteCapture
{
    Q_OBJECT
public:
    // cameraSource: a GStreamer source description; empty when the device
    // has no camera.
    GstVideoNoteCapture(const QString &dataDir, const QString &cameraSource,
                        const Services &services, QObject *parent = nullptr);
    ~GstVideoNoteCapture() override;

    void setChatId(qint64 chatId) override { m_chatId = chatId; }
    void setReplyToMessageId(qint64 id) override { m_replyToMessageId = id; }
    void setSizeLimit(qint64 bytes) override { m_sizeLimit = bytes; }
    bool startVideoNoteCapture(QString *error) override;
    void stopVideoNoteCapture(bool send) override;
    bool isRecording() const override { return m_pipeline != nullptr || m_qtRecorder != nullptr; }
    bool captureStarted() const override { return m_captureStarted; }
    bool isStopping() const override { return m_stopping; }
    qint64 elapsedMs() const override { return m_captureStarted ? m_clock.elapsed() : 0; }
    QString recordingPath() const override { return m_path; }
    int side() const override { return m_side; }
    qint64 framesEncoded() const override { return m_frames.load(); }

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
    Services m_services;
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
