#pragma once

#include <QByteArray>
#include <QString>

// A 16-bit PCM WAV file held in memory.
struct WavPcm16
{
    int sampleRate = 0;
    int channels = 0;
    QByteArray samples; // interleaved signed 16-bit little-endian
};

// Reads a RIFF/WAVE file with a PCM fmt chunk of 16 bits per sample. Chunks
// other than "fmt " and "data" are skipped. maxDataBytes bounds the samples
// kept in memory.
bool read_wav_pcm16(const QString &path, WavPcm16 &wav, QString *error,
                    qint64 maxDataBytes = qint64(1) << 31);
