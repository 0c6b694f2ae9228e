#include "media/voice_file_encoder.h"

#include "media/voice_encoder.h"
#include "media/wav_file.h"

#include <QDateTime>
#include <QFile>

bool encode_wav_to_voice_ogg(OpusLib &opus, const QString &wavPath, const QString &oggPath,
                             QString *error, bool standardGranules, qint64 *recordedSamples)
{
    if (error)
        error->clear();
    WavPcm16 wav;
    if (!read_wav_pcm16(wavPath, wav, error))
        return false;
    static const int rates[] = {48000, 24000, 16000, 12000, 8000};
    if (std::find(std::begin(rates), std::end(rates), wav.sampleRate) == std::end(rates)) {
        if (error)
            *error = QStringLiteral("wav: unsupported sample rate %1").arg(wav.sampleRate);
        return false;
    }
    if (wav.channels != 1 && wav.channels != 2) {
        if (error)
            *error = QStringLiteral("wav: unsupported channel count %1").arg(wav.channels);
        return false;
    }

    VoiceEncoder enc(opus);
    int err = 0;
    QString line;
    if (!enc.createEncoder(wav.sampleRate, err, line)) {
        if (error)
            *error = line;
        return false;
    }
    if (!enc.openOutput(oggPath, wav.sampleRate,
                        ogg_serial_from_ms(QDateTime::currentMSecsSinceEpoch()), error))
        return false;
    enc.writer().standardGranules = standardGranules;
    if (!enc.writeHeaders(error)) {
        enc.closeOutput();
        return false;
    }
    enc.setCaptureFormat(wav.sampleRate, wav.channels);
    enc.resetRecording();

    // Fed one second at a time, as the capture poll does at most.
    const int chunk = wav.sampleRate * wav.channels * 2;
    QString stderrLine;
    for (int pos = 0; pos < wav.samples.size(); pos += chunk) {
        enc.appendPcm(wav.samples.constData() + pos, qMin(chunk, wav.samples.size() - pos));
        if (!enc.encodePcm(line, stderrLine)) {
            if (error)
                *error = line;
            enc.closeOutput();
            return false;
        }
    }
    if (!enc.finish(error))
        return false;
    if (recordedSamples)
        *recordedSamples = enc.recordedSamples();
    return true;
}
