#include "media/video_note_recorder.h"

#include "platform/av_module.h"

#include <QDir>

VideoNoteRecorder::VideoNoteRecorder(const QString &dataDir, const QString &cameraSource,
                                     const MediaServices &services, QObject *parent)
    : VideoNoteCapture(parent), m_dataDir(dataDir), m_cameraSource(cameraSource.trimmed()),
      m_services(services)
{
}

QString VideoNoteRecorder::cameraSourceFromEnvironment(const QStringList &environment)
{
    for (const QString &entry : environment) {
        if (entry.startsWith(QLatin1String("VEXA_CAMERA_SOURCE=")))
            return entry.mid(int(qstrlen("VEXA_CAMERA_SOURCE="))).trimmed();
    }
    const QStringList devices =
        QDir(QStringLiteral("/dev")).entryList({QStringLiteral("video*")}, QDir::System);
    if (devices.isEmpty())
        return QString();
    return QStringLiteral("v4l2src device=/dev/%1").arg(devices.first());
}

void VideoNoteRecorder::setChatId(qint64 chatId)
{
    m_chatId = chatId;
    if (m_capture)
        m_capture->setChatId(chatId);
}

void VideoNoteRecorder::setReplyToMessageId(qint64 id)
{
    m_replyToMessageId = id;
    if (m_capture)
        m_capture->setReplyToMessageId(id);
}

void VideoNoteRecorder::setSizeLimit(qint64 bytes)
{
    m_sizeLimit = bytes;
    if (m_capture)
        m_capture->setSizeLimit(bytes);
}

bool VideoNoteRecorder::ensureCapture(QString *error)
{
    if (m_capture)
        return true;
    QString why;
    auto create =
        reinterpret_cast<Factory>(av_module_function("vexa_av_create_video_note_capture", &why));
    if (!create) {
        m_services.log(QStringLiteral("video_note: %1\n").arg(why));
        m_services.toast(QStringLiteral("Camera: cannot start recording"));
        if (error)
            *error = why;
        return false;
    }
    const MediaServices media = m_services;
    Services services;
    services.appendLog = [media](const QString &line) { media.log(line); };
    services.showToast = [media](const QString &text) { media.toast(text); };
    services.sendLine = [media](const QString &line) { media.send(line); };
    m_capture = create(m_dataDir, m_cameraSource, services, this);
    m_capture->setChatId(m_chatId);
    m_capture->setReplyToMessageId(m_replyToMessageId);
    m_capture->setSizeLimit(m_sizeLimit);
    // The reply target is used up by the recording that sends it.
    connect(m_capture, &VideoNoteCapture::replyTargetConsumed, this, [this] {
        m_replyToMessageId = 0;
        Q_EMIT replyTargetConsumed();
    });
    connect(m_capture, &VideoNoteCapture::recordingChanged, this,
            &VideoNoteCapture::recordingChanged);
    connect(m_capture, &VideoNoteCapture::captureStartedChanged, this,
            &VideoNoteCapture::captureStartedChanged);
    connect(m_capture, &VideoNoteCapture::previewFrame, this, &VideoNoteCapture::previewFrame);
    connect(m_capture, &VideoNoteCapture::inputLevelChanged, this,
            &VideoNoteCapture::inputLevelChanged);
    connect(m_capture, &VideoNoteCapture::frameEncoded, this, &VideoNoteCapture::frameEncoded,
            Qt::DirectConnection);
    connect(m_capture, &VideoNoteCapture::sent, this, &VideoNoteCapture::sent);
    connect(m_capture, &VideoNoteCapture::gestureResetRequested, this,
            &VideoNoteCapture::gestureResetRequested);
    return true;
}

bool VideoNoteRecorder::startVideoNoteCapture(QString *error)
{
    if (isRecording())
        return true;
    // Nothing to load for a recording that cannot start.
    if (m_chatId == 0) {
        m_services.log(QStringLiteral("ui: select chat first\n"));
        m_services.toast(QStringLiteral("Select a chat first"));
        if (error)
            *error = QStringLiteral("no chat");
        return false;
    }
    if (m_cameraSource.isEmpty()) {
        m_services.log(QStringLiteral("video_note: no camera\n"));
        m_services.toast(QStringLiteral("No camera found"));
        if (error)
            *error = QStringLiteral("no camera");
        return false;
    }
    return ensureCapture(error) && m_capture->startVideoNoteCapture(error);
}

void VideoNoteRecorder::stopVideoNoteCapture(bool send)
{
    if (m_capture)
        m_capture->stopVideoNoteCapture(send);
}
