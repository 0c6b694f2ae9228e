#pragma once

#include "media/media_services.h"
#include "platform/video_note_capture.h"

#include <QString>
#include <QStringList>

// Records a round video note: the camera's picture cropped to a square of
// kSide (or the camera's largest square below that), H.264 and AAC from the
// default microphone, muxed into an MP4 under <data>/cache/video-note-out.
// The finished note goes to the backend with "sendvideonote64", or as a file
// when it is over the size limit. The recording itself is done by the media
// module, loaded on the first recording.
class VideoNoteRecorder final : public VideoNoteCapture
{
    Q_OBJECT
public:
    // cameraSource: a GStreamer source description ("v4l2src" for a real
    // camera); empty when the device has none.
    VideoNoteRecorder(const QString &dataDir, const QString &cameraSource,
                      const MediaServices &services, QObject *parent = nullptr);

    // The camera source from the environment: VEXA_CAMERA_SOURCE, else the
    // first video device, else none.
    static QString cameraSourceFromEnvironment(const QStringList &environment);
    QString cameraSource() const { return m_cameraSource; }

    void setChatId(qint64 chatId) override;
    void setReplyToMessageId(qint64 id) override;
    void setSizeLimit(qint64 bytes) override;
    bool startVideoNoteCapture(QString *error = nullptr) override;
    void stopVideoNoteCapture(bool send) override;
    bool isRecording() const override { return m_capture && m_capture->isRecording(); }
    bool captureStarted() const override { return m_capture && m_capture->captureStarted(); }
    bool isStopping() const override { return m_capture && m_capture->isStopping(); }
    qint64 elapsedMs() const override { return m_capture ? m_capture->elapsedMs() : 0; }
    QString recordingPath() const override
    {
        return m_capture ? m_capture->recordingPath() : QString();
    }
    int side() const override { return m_capture ? m_capture->side() : kSide; }
    qint64 framesEncoded() const override { return m_capture ? m_capture->framesEncoded() : 0; }

private:
    // The module's recorder, made on the first recording; false (told and
    // logged) when the module cannot be loaded.
    bool ensureCapture(QString *error);

    QString m_dataDir;
    QString m_cameraSource;
    MediaServices m_services;
    qint64 m_chatId = 0;
    qint64 m_replyToMessageId = 0;
    qint64 m_sizeLimit = kDefaultSizeLimit;
    VideoNoteCapture *m_capture = nullptr;
};
