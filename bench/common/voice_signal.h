#pragma once

// A speech-like test signal for the voice benchmarks: a gliding voiced
// fundamental with harmonics, syllable-rate loudness changes, pauses and a
// little noise, as 16-bit mono 48 kHz WAV.

#include <QByteArray>
#include <QFile>
#include <QRandomGenerator>
#include <QString>
#include <QVector>

#include <algorithm>
#include <cmath>

namespace {

void put_le(QByteArray &a, quint32 v, int bytes)
{
    for (int i = 0; i < bytes; ++i)
        a.append(char((v >> (8 * i)) & 0xff));
}

bool write_voice_wav(const QString &path, int seconds)
{
    const int rate = 48000;
    const qint64 n = qint64(seconds) * rate;
    QFile f(path);
    if (!f.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return false;
    QByteArray h("RIFF");
    put_le(h, quint32(n * 2 + 36), 4);
    h.append("WAVEfmt ");
    put_le(h, 16, 4);
    put_le(h, 1, 2);
    put_le(h, 1, 2);
    put_le(h, rate, 4);
    put_le(h, rate * 2, 4);
    put_le(h, 2, 2);
    put_le(h, 16, 2);
    h.append("data");
    put_le(h, quint32(n * 2), 4);
    f.write(h);
    QRandomGenerator rng(1234);
    QVector<qint16> block(rate);
    double phase = 0;
    for (qint64 start = 0; start < n; start += rate) {
        for (int i = 0; i < rate && start + i < n; ++i) {
            const double t = double(start + i) / rate;
            const double f0 = 140.0 + 40.0 * std::sin(2 * M_PI * 0.7 * t);
            phase += 2 * M_PI * f0 / rate;
            double v = 0;
            for (int k = 1; k <= 8; ++k)
                v += std::sin(k * phase) / k;
            const double syllable = std::max(0.0, std::sin(2 * M_PI * 3.0 * t));
            const bool pause = std::fmod(t, 7.0) > 6.0;
            const double noise = (rng.generateDouble() - 0.5) * 0.05;
            block[i] = qint16((pause ? 0.0 : v * syllable * 6000.0) + noise * 6000.0);
        }
        const int count = int(qMin<qint64>(rate, n - start));
        f.write(reinterpret_cast<const char *>(block.constData()), count * 2);
    }
    return true;
}

} // namespace
