#include "media/voice_recorder.h"

#include "media/audio_libs.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cstdio>

namespace {

void print_err(const QString &line)
{
    std::fprintf(stderr, "%s\n", line.toLocal8Bit().constData());
}

} // namespace

VoiceRecorder::VoiceRecorder(OpusLib &opus, OpenAlLib &openal, const QString &dataDir,
                             const MediaServices &services, QObject *parent)
    : QObject(parent), m_opus(opus), m_openal(openal), m_dataDir(dataDir), m_services(services),
      m_encoder(opus)
{
    m_pollTimer.setInterval(50);
    connect(&m_pollTimer, &QTimer::timeout, this, &VoiceRecorder::onVoiceOpenAlPoll);
}

VoiceRecorder::~VoiceRecorder()
{
    m_pollTimer.stop();
    releaseDevice();
    m_encoder.closeOutput();
    m_encoder.destroyEncoder();
    // A recording cut by the quit was never sent: it goes like a cancelled one.
    if (m_voiceRecording && !m_recordingPath.isEmpty())
        QFile::remove(m_recordingPath);
}

int VoiceRecorder::voiceDurationSeconds(qint64 recordedSamples)
{
    const qint64 s = (recordedSamples + 24000) / 48000;
    return int(qMax<qint64>(1, s));
}

void VoiceRecorder::releaseDevice()
{
    if (!m_device)
        return;
    const OpenAlDynApi *al = m_openal.ensure_openal_dyn_api_loaded();
    if (al)
        al->alcCaptureCloseDevice(m_device);
    m_device = nullptr;
}

void VoiceRecorder::startVoiceRecording()
{
    if (m_voiceRecording)
        return;
    if (m_chatId == 0) {
        m_services.log(QStringLiteral("ui: select chat first\n"));
        m_services.toast(QStringLiteral("Select a chat first"));
        return;
    }
    std::fprintf(stderr, "voice_rec: start chat_id=%lld\n", static_cast<long long>(m_chatId));

    if (!m_encoder.encoderApi()) {
        m_services.log(QStringLiteral("voice_rec: opus encoder unavailable\n"));
        print_err(QStringLiteral("voice_rec: opus encoder unavailable"));
        m_services.toast(QStringLiteral("Error: Opus encoder unavailable"));
        return;
    }
    const OpenAlDynApi *al = m_openal.ensure_openal_dyn_api_loaded();
    if (!al || !al->alcCaptureOpenDevice) {
        m_services.log(QStringLiteral("voice_rec: OpenAL capture unavailable\n"));
        m_services.toast(QStringLiteral("Microphone: OpenAL unavailable"));
        return;
    }

    static const int rates[] = {48000, 24000, 16000, 12000, 8000};
    static const ALCenum formats[] = {AL_FORMAT_MONO16, AL_FORMAT_STEREO16};
    ALCdevice *device = nullptr;
    int rate = 0;
    int channels = 1;
    for (int r : rates) {
        for (ALCenum f : formats) {
            device = al->alcCaptureOpenDevice(nullptr, ALCuint(r), f, ALCsizei(r / 5));
            if (device) {
                rate = r;
                channels = f == AL_FORMAT_STEREO16 ? 2 : 1;
                break;
            }
        }
        if (device)
            break;
    }
    if (!device) {
        m_services.log(QStringLiteral("voice_rec: OpenAL capture device not present\n"));
        m_services.toast(QStringLiteral("Microphone: OpenAL capture not supported"));
        return;
    }

    int err = 0;
    QString line;
    if (!m_encoder.createEncoder(rate, err, line)) {
        m_services.log(line + QStringLiteral("\n"));
        std::fprintf(stderr, "voice_rec: encoder_create failed err=%d\n", err);
        al->alcCaptureCloseDevice(device);
        m_services.toast(QStringLiteral("Error: opus_encoder_create"));
        return;
    }

    const QString folder = QDir(m_dataDir).absoluteFilePath(QStringLiteral("cache/voice-out"));
    if (!QDir().mkpath(folder)) {
        m_services.log(QStringLiteral("voice_rec: mkpath failed\n"));
        m_services.toast(QStringLiteral("Error: failed to create folder"));
        al->alcCaptureCloseDevice(device);
        m_encoder.destroyEncoder();
        return;
    }
    const qint64 nowMs = QDateTime::currentMSecsSinceEpoch();
    const QString path = folder + QStringLiteral("/voice_%1.ogg").arg(nowMs);

    QString error;
    if (!m_encoder.openOutput(path, rate, ogg_serial_from_ms(nowMs), &error)) {
        m_services.log(error.isEmpty()
                           ? QStringLiteral("voice_rec: ogg open failed\n")
                           : QStringLiteral("voice_rec: ogg open failed: %1\n").arg(error));
        m_services.toast(QStringLiteral("Error: failed to create file"));
        al->alcCaptureCloseDevice(device);
        m_encoder.destroyEncoder();
        return;
    }
    if (!m_encoder.writeHeaders(&error)) {
        m_services.log(error.isEmpty()
                           ? QStringLiteral("voice_rec: ogg headers failed\n")
                           : QStringLiteral("voice_rec: ogg headers failed: %1\n").arg(error));
        m_services.toast(QStringLiteral("Error: failed to write OGG headers"));
        m_encoder.closeOutput();
        QFile::remove(path);
        al->alcCaptureCloseDevice(device);
        m_encoder.destroyEncoder();
        return;
    }

    m_captureChannels = channels;
    m_captureRate = rate;
    m_frameSize = rate / 50;
    m_encoder.setCaptureFormat(rate, channels);
    m_device = device;
    if (al->alcGetError)
        al->alcGetError(m_device);
    al->alcCaptureStart(m_device);
    if (al->alcGetError && al->alcGetError(m_device) != ALC_NO_ERROR) {
        m_services.log(QStringLiteral("voice_rec: OpenAL capture_start failed\n"));
        m_encoder.closeOutput();
        releaseDevice();
        m_encoder.destroyEncoder();
        QFile::remove(path);
        m_services.toast(QStringLiteral("Microphone: failed to start recording"));
        return;
    }

    m_pollTimer.start(50);
    m_encoder.resetRecording();
    m_recordingStartedAt = nowMs;
    m_recordingClock.start();
    m_encodeFailed = false;
    m_recordingPath = path;
    m_voiceRecording = true;

    Q_EMIT voiceRecordingChanged(true);
    std::fprintf(stderr, "voice_rec: started openal=%dHz in_ch=%d\n", rate, channels);
    m_services.toast(QStringLiteral("Recording voice…"));
}

void VoiceRecorder::pollCapture()
{
    const OpenAlDynApi *al = m_openal.ensure_openal_dyn_api_loaded();
    if (!al || !m_device)
        return;
    ALCint n = 0;
    al->alcGetIntegerv(m_device, ALC_CAPTURE_SAMPLES, 1, &n);
    if (n <= 0) {
        // Silence so far: the panel's clock still moves.
        Q_EMIT inputLevelChanged(0);
        return;
    }
    const int rate = m_captureRate > 0 ? m_captureRate : 48000;
    n = qMin<ALCint>(n, rate);
    const int bytes = n * m_captureChannels * 2;
    if (m_captureScratch.size() < bytes)
        m_captureScratch.resize(bytes);
    al->alcCaptureSamples(m_device, m_captureScratch.data(), n);
    m_encoder.appendPcm(m_captureScratch.constData(), bytes);
    int peak = 0;
    const auto *samples = reinterpret_cast<const qint16 *>(m_captureScratch.constData());
    for (int i = 0, count = bytes / 2; i < count; ++i)
        peak = qMax(peak, qAbs(int(samples[i])));
    Q_EMIT inputLevelChanged(qreal(peak) / 32768.0);
}

void VoiceRecorder::onVoiceOpenAlPoll()
{
    if (!m_voiceRecording || m_voiceStopping || !m_device || !m_encoder.hasEncoder())
        return;
    pollCapture();
    encodeVoicePcmFromBuffer(false);
}

void VoiceRecorder::encodeVoicePcmFromBuffer(bool force)
{
    if (!m_encoder.hasEncoder())
        return;
    if (m_voiceStopping && !force)
        return;
    QString line;
    QString errLine;
    if (m_encoder.encodePcm(line, errLine))
        return;
    m_services.log(line + QStringLiteral("\n"));
    if (!errLine.isEmpty())
        print_err(errLine);
    m_encodeFailed = true;
    if (!m_voiceStopping) {
        // The user is still holding the button: say why the recording ended.
        m_services.toast(QStringLiteral("Voice message: recording error"));
        stopVoiceRecording(false);
    }
}

void VoiceRecorder::stopVoiceRecording(bool send)
{
    Q_EMIT gestureResetRequested();
    if (!m_voiceRecording) {
        Q_EMIT voiceRecordingChanged(false);
        return;
    }
    if (m_voiceStopping)
        return;
    m_voiceStopping = true;
    m_pollTimer.stop();
    if (m_device) {
        pollCapture();
        const OpenAlDynApi *al = m_openal.ensure_openal_dyn_api_loaded();
        if (al)
            al->alcCaptureStop(m_device);
        releaseDevice();
    }

    encodeVoicePcmFromBuffer(true);
    m_voiceRecording = false;

    bool failed = m_encodeFailed;
    m_encodeFailed = false;
    if (m_encoder.outputOpened()) {
        QString error;
        if (!m_encoder.finish(&error)) {
            m_services.log(QStringLiteral("voice_rec: ogg finish failed: %1\n").arg(error));
            failed = true;
        }
    }
    m_encoder.destroyEncoder();
    Q_EMIT voiceRecordingChanged(false);

    const qint64 samples = m_encoder.recordedSamples();
    const int seconds = voiceDurationSeconds(samples);
    if (send && !failed && samples >= VoiceEncoder::kMinSendSamples) {
        QFileInfo fi(m_recordingPath);
        if (!fi.exists() || !fi.isFile()) {
            m_services.log(QStringLiteral("voice_rec: recorded file missing\n"));
            m_recordingPath.clear();
            m_voiceStopping = false;
            return;
        }
        QByteArray b64 = m_recordingPath.toUtf8().toBase64();
        b64.replace('\r', QByteArray()).replace('\n', QByteArray());
        const QString path64 = QString::fromLatin1(b64);
        m_services.log(QStringLiteral("ui: send voice chat=%1 dur=%2s path=%3\n")
                           .arg(m_chatId)
                           .arg(seconds)
                           .arg(m_recordingPath));
        if (m_replyToMessageId == 0) {
            m_services.send(
                QStringLiteral("sendvoice64 %1 %2 %3").arg(m_chatId).arg(path64).arg(seconds));
        } else {
            m_services.send(QStringLiteral("sendvoice64 %1 %2 %3 %4")
                                .arg(m_chatId)
                                .arg(m_replyToMessageId)
                                .arg(path64)
                                .arg(seconds));
        }
        m_replyToMessageId = 0;
        Q_EMIT replyTargetConsumed();
    } else {
        if (send) {
            m_services.toast(samples < VoiceEncoder::kMinSendSamples
                                 ? QStringLiteral("Voice message: too short")
                                 : QStringLiteral("Voice message: recording error"));
        }
        if (!m_recordingPath.isEmpty())
            QFile::remove(m_recordingPath);
        m_recordingPath.clear();
    }
    m_encoder.clearPcm();
    m_voiceStopping = false;
}
