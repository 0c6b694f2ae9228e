#pragma once

#include "media/ogg_opus_writer.h"

#include <QByteArray>
#include <QString>
#include <QVector>

class OpusLib;
struct OpusDynApi;
struct OpusEncoder;

// The encoding half of a voice recording: 16-bit PCM (mono or stereo, at one
// of the Opus rates) in, mono 20 ms Opus packets out into an OggOpusWriter.
// The microphone recorder and the vexa-opus tool share it.
class VoiceEncoder
{
public:
    static constexpr int kPacketBufferBytes = 4096;
    static constexpr qint64 kMinSendSamples = 2400; // 50 ms at 48 kHz

    explicit VoiceEncoder(OpusLib &opus);
    ~VoiceEncoder();
    VoiceEncoder(const VoiceEncoder &) = delete;
    VoiceEncoder &operator=(const VoiceEncoder &) = delete;

    // The Opus table when the encoder functions are present, else null.
    const OpusDynApi *encoderApi();

    // Mono VoIP encoder at rate with the voice settings. On failure err is
    // the Opus error code and logLine the diagnostic text (no "\n").
    bool createEncoder(int rate, int &err, QString &logLine);
    void destroyEncoder();
    bool hasEncoder() const { return m_encoder != nullptr; }

    // Opens the output and writes OpusHead and OpusTags. openOutput's error
    // is "ogg: cannot open output"; writeHeaders' "ogg: not opened" or
    // "ogg: write failed".
    bool openOutput(const QString &path, int rate, quint32 serial, QString *error);
    bool writeHeaders(QString *error);

    // Capture format: channels 1 or 2; frame size becomes rate / 50.
    void setCaptureFormat(int rate, int channels);
    int captureRate() const { return m_rate; }
    int captureChannels() const { return m_channels; }

    void appendPcm(const char *data, int bytes);
    void clearPcm();
    // PCM buffer, read offset and recorded samples back to zero.
    void resetRecording();

    // Encodes every whole frame waiting in the PCM buffer. False when the
    // recording has to end: logLine (no "\n") says why and stderrLine, when
    // not empty, is the line for standard error.
    bool encodePcm(QString &logLine, QString &stderrLine);

    // Last page (type 4) when packets are pending, then closes the file.
    bool finish(QString *error);
    void closeOutput();
    bool outputOpened() const { return m_writer.isOpened(); }

    qint64 recordedSamples() const { return m_recordedSamples; }
    OggOpusWriter &writer() { return m_writer; }

private:
    OpusLib &m_opus;
    OpusEncoder *m_encoder = nullptr;
    OggOpusWriter m_writer;
    int m_rate = 48000;
    int m_channels = 1;
    int m_frameSize = 960;
    QByteArray m_pcm;
    int m_pcmOffset = 0;
    QVector<qint16> m_mono;
    QVector<qint16> m_stereo;
    QByteArray m_packet;
    qint64 m_recordedSamples = 0;
};
