#pragma once

#include "media/media_services.h"
#include "media/voice_encoder.h"

#include <QElapsedTimer>
#include <QObject>
#include <QString>
#include <QTimer>

#include <AL/alc.h>

class OpenAlLib;
class OpusLib;

// Records a voice note from the default OpenAL capture device into an Ogg
// Opus file under <data>/cache/voice-out and hands it to the backend with
// "sendvoice64". Capture is polled every 50 ms on the calling thread.
class VoiceRecorder : public QObject
{
    Q_OBJECT
public:
    VoiceRecorder(OpusLib &opus, OpenAlLib &openal, const QString &dataDir,
                  const MediaServices &services, QObject *parent = nullptr);
    ~VoiceRecorder() override;

    // The open chat (0 for none) and the message being answered (0 for none).
    void setChatId(qint64 chatId) { m_chatId = chatId; }
    qint64 chatId() const { return m_chatId; }
    void setReplyToMessageId(qint64 id) { m_replyToMessageId = id; }
    qint64 replyToMessageId() const { return m_replyToMessageId; }

    void startVoiceRecording();
    void stopVoiceRecording(bool send);
    void encodeVoicePcmFromBuffer(bool force);

    bool voiceRecording() const { return m_voiceRecording; }
    bool voiceStopping() const { return m_voiceStopping; }
    QString recordingPath() const { return m_recordingPath; }
    int captureRate() const { return m_captureRate; }
    int captureChannels() const { return m_captureChannels; }
    qint64 recordedSamples() const { return m_encoder.recordedSamples(); }
    qint64 recordingStartedAt() const { return m_recordingStartedAt; }
    // Time since the start on the monotonic clock: the wall clock may jump meanwhile.
    qint64 recordingElapsedMs() const { return m_recordingClock.elapsed(); }

    // Whole seconds for the recorded samples, rounded, at least 1.
    static int voiceDurationSeconds(qint64 recordedSamples);

public Q_SLOTS:
    void onVoiceOpenAlPoll();

Q_SIGNALS:
    // Stopping began: the composer drops its hold and lock gesture state.
    void gestureResetRequested();
    // Recording started or ended: the composer becomes read-only or editable
    // again and redraws its action icon and record panel.
    void voiceRecordingChanged(bool recording);
    // The voice note was sent as an answer: the reply panel closes.
    void replyTargetConsumed();
    // Peak level (0..1) of the samples of the last capture poll.
    void inputLevelChanged(qreal level);

private:
    void pollCapture();
    void releaseDevice();

    OpusLib &m_opus;
    OpenAlLib &m_openal;
    QString m_dataDir;
    MediaServices m_services;
    VoiceEncoder m_encoder;
    QTimer m_pollTimer;

    qint64 m_chatId = 0;
    qint64 m_replyToMessageId = 0;
    bool m_voiceRecording = false;
    bool m_voiceStopping = false;
    int m_captureChannels = 1;
    int m_captureRate = 48000;
    int m_frameSize = 960;
    ALCdevice *m_device = nullptr;
    QByteArray m_captureScratch;
    qint64 m_recordingStartedAt = 0;
    QElapsedTimer m_recordingClock;
    bool m_encodeFailed = false; // a page was lost: the file is not whole
    QString m_recordingPath;
};
