#include "media/voice_encoder.h"

#include "media/audio_libs.h"

#include <cstring>

VoiceEncoder::VoiceEncoder(OpusLib &opus) : m_opus(opus) {}

VoiceEncoder::~VoiceEncoder()
{
    destroyEncoder();
}

const OpusDynApi *VoiceEncoder::encoderApi()
{
    const OpusDynApi *api = m_opus.ensure_opus_dyn_api_loaded();
    if (!api || !api->hasEncoder())
        return nullptr;
    return api;
}

bool VoiceEncoder::createEncoder(int rate, int &err, QString &logLine)
{
    destroyEncoder();
    err = 0;
    const OpusDynApi *api = encoderApi();
    if (!api) {
        logLine = QStringLiteral("voice_rec: opus encoder unavailable");
        return false;
    }
    m_encoder = api->opus_encoder_create(rate, 1, OPUS_APPLICATION_VOIP, &err);
    if (!m_encoder || err != 0) {
        logLine = QStringLiteral("voice_rec: encoder_create failed err=%1%2")
                      .arg(err)
                      .arg(api->errorSuffix(err));
        if (m_encoder)
            api->opus_encoder_destroy(m_encoder);
        m_encoder = nullptr;
        return false;
    }
    if (api->opus_encoder_ctl) {
        api->opus_encoder_ctl(m_encoder, OPUS_SET_SIGNAL_REQUEST, OPUS_SIGNAL_VOICE);
        api->opus_encoder_ctl(m_encoder, OPUS_SET_VBR_REQUEST, 1);
        api->opus_encoder_ctl(m_encoder, OPUS_SET_COMPLEXITY_REQUEST, 5);
        api->opus_encoder_ctl(m_encoder, OPUS_SET_BITRATE_REQUEST, 20000);
    }
    return true;
}

void VoiceEncoder::destroyEncoder()
{
    if (!m_encoder)
        return;
    const OpusDynApi *api = m_opus.ensure_opus_dyn_api_loaded();
    if (api && api->opus_encoder_destroy)
        api->opus_encoder_destroy(m_encoder);
    m_encoder = nullptr;
}

bool VoiceEncoder::openOutput(const QString &path, int rate, quint32 serial, QString *error)
{
    m_writer.inputSampleRate = quint32(rate);
    if (!m_writer.openForWrite(path, error))
        return false;
    m_writer.serial = serial;
    m_writer.pageSequence = 0;
    m_writer.granuleTotal = 0;
    return true;
}

bool VoiceEncoder::writeHeaders(QString *error)
{
    return m_writer.writeHeaders(1, error);
}

void VoiceEncoder::setCaptureFormat(int rate, int channels)
{
    m_rate = rate;
    m_channels = channels == 2 ? 2 : 1;
    m_frameSize = rate / 50;
}

void VoiceEncoder::appendPcm(const char *data, int bytes)
{
    if (bytes > 0)
        m_pcm.append(data, bytes);
}

void VoiceEncoder::clearPcm()
{
    m_pcm.clear();
    m_pcmOffset = 0;
}

void VoiceEncoder::resetRecording()
{
    clearPcm();
    m_recordedSamples = 0;
}

bool VoiceEncoder::encodePcm(QString &logLine, QString &stderrLine)
{
    logLine.clear();
    stderrLine.clear();
    if (!m_encoder)
        return true;
    const OpusDynApi *api = m_opus.ensure_opus_dyn_api_loaded();
    if (!api || !api->opus_encode) {
        logLine = QStringLiteral("voice_rec: opus encoder unavailable");
        return false;
    }
    const int frame = m_frameSize > 0 ? m_frameSize : 960;
    const int channels = m_channels == 2 ? 2 : 1;
    const int bytesPerFrame = channels * frame * 2;
    if (m_mono.size() != frame)
        m_mono.resize(frame);
    if (m_stereo.size() != 2 * frame)
        m_stereo.resize(2 * frame);
    if (m_packet.size() < kPacketBufferBytes)
        m_packet.resize(kPacketBufferBytes);

    while (m_pcm.size() - m_pcmOffset >= bytesPerFrame) {
        const char *src = m_pcm.constData() + m_pcmOffset;
        if (channels == 2) {
            std::memcpy(m_stereo.data(), src, size_t(bytesPerFrame));
            const qint16 *s = m_stereo.constData();
            qint16 *m = m_mono.data();
            for (int i = 0; i < frame; ++i)
                m[i] = qint16((int(s[2 * i]) + int(s[2 * i + 1])) / 2);
        } else {
            std::memcpy(m_mono.data(), src, size_t(bytesPerFrame));
        }
        m_pcmOffset += bytesPerFrame;
        const opus_int32 n = api->opus_encode(m_encoder, m_mono.constData(), frame,
                                              reinterpret_cast<unsigned char *>(m_packet.data()),
                                              kPacketBufferBytes);
        if (n < 0) {
            logLine = QStringLiteral("voice_rec: opus_encode failed err=%1%2")
                          .arg(n)
                          .arg(api->errorSuffix(n));
            stderrLine = QStringLiteral("voice_rec: opus_encode failed err=%1").arg(n);
            return false;
        }
        if (!m_writer.isOpened()) {
            logLine = QStringLiteral("voice_rec: ogg write failed: ogg: not opened");
            return false;
        }
        if (n > 0) {
            QString error;
            if (!m_writer.appendAudioPacket(QByteArray::fromRawData(m_packet.constData(), n),
                                            &error)) {
                logLine = QStringLiteral("voice_rec: ogg write failed: %1").arg(error);
                return false;
            }
        }
        m_recordedSamples += 960;
    }
    if (m_pcmOffset > 8192) {
        m_pcm.remove(0, m_pcmOffset);
        m_pcmOffset = 0;
    }
    return true;
}

bool VoiceEncoder::finish(QString *error)
{
    return m_writer.finish(error);
}

void VoiceEncoder::closeOutput()
{
    m_writer.close();
}
