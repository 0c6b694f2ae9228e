#include "td_voice_waveform.h"

#include "media/audio_libs.h"
#include "media/ogg_opus_decoder.h"
#include "media/wav_file.h"

#include <QList>
#include <QTemporaryDir>

#include <cstdlib>

namespace {

// An hour of mono 48 kHz audio; longer notes are not sent as voice.
constexpr qint64 kMaxPcmBytes = qint64(3600) * 48000 * 2;
// About -30 dBFS: a quieter recording is drawn flat instead of blowing its
// hiss up to full height.
constexpr int kQuietPeak = 1000;

} // namespace

QByteArray td_voice_waveform(const QString &oggPath)
{
    OpusLib opus;
    QTemporaryDir dir;
    if (!dir.isValid())
        return QByteArray();
    const QString wavPath = dir.filePath(QStringLiteral("voice.wav"));
    QString error;
    if (!decodeOgaOpusToWav(opus, oggPath, wavPath, &error))
        return QByteArray();
    WavPcm16 wav;
    if (!read_wav_pcm16(wavPath, wav, &error, kMaxPcmBytes) || wav.channels < 1)
        return QByteArray();
    const qint64 frames = wav.samples.size() / 2 / wav.channels;
    if (frames < kTdWaveformValues)
        return QByteArray();
    const auto *pcm = reinterpret_cast<const qint16 *>(wav.samples.constData());
    QList<int> peaks;
    int loudest = kQuietPeak;
    for (int slice = 0; slice < kTdWaveformValues; ++slice) {
        const qint64 first = frames * slice / kTdWaveformValues;
        const qint64 last = frames * (slice + 1) / kTdWaveformValues;
        int peak = 0;
        for (qint64 i = first * wav.channels; i < last * wav.channels; ++i)
            peak = qMax(peak, std::abs(int(pcm[i])));
        peaks << peak;
        loudest = qMax(loudest, peak);
    }
    QByteArray packed((kTdWaveformValues * 5 + 7) / 8, '\0');
    for (int i = 0; i < kTdWaveformValues; ++i) {
        const int value = int(qint64(peaks.at(i)) * 31 / loudest);
        for (int bit = 0; bit < 5; ++bit) {
            if (value & (1 << bit)) {
                const int at = i * 5 + bit;
                packed[at / 8] = char(quint8(packed.at(at / 8)) | (1 << (at % 8)));
            }
        }
    }
    return packed;
}

QList<int> td_unpack_waveform(const QByteArray &packed)
{
    QList<int> values;
    const int n = packed.size() * 8 / 5;
    for (int i = 0; i < n; ++i) {
        int value = 0;
        for (int bit = 0; bit < 5; ++bit) {
            const int at = i * 5 + bit;
            if (quint8(packed.at(at / 8)) & (1 << (at % 8)))
                value |= 1 << bit;
        }
        values << value;
    }
    return values;
}
