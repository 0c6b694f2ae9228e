#pragma once

// Helpers shared by the media tests: tone WAV files, an independent WAV and
// Ogg page reader and builder, tone analysis, child processes and a
// recording MediaServices.

#include "common/recording_toaster.h"
#include "common/test_util.h"
#include "media/media_services.h"

#include <QDataStream>
#include <QElapsedTimer>
#include <QProcess>
#include <QStandardPaths>
#include <QVector>
#include <QtEndian>

#include <cmath>
#include <cstring>

namespace testaudio {

using test_util::readAll;
using test_util::writeFile;

inline void put_le(QByteArray &a, quint64 v, int bytes)
{
    for (int i = 0; i < bytes; ++i)
        a.append(char((v >> (8 * i)) & 0xff));
}

inline quint32 get_le32(const QByteArray &a, int at)
{
    return qFromLittleEndian<quint32>(a.constData() + at);
}

inline QByteArray wav_bytes(const QVector<qint16> &interleaved, int rate, int channels)
{
    QByteArray w;
    QDataStream d(&w, QIODevice::WriteOnly);
    d.setByteOrder(QDataStream::LittleEndian);
    const quint32 data = quint32(interleaved.size() * 2);
    d.writeRawData("RIFF", 4);
    d << data + 36;
    d.writeRawData("WAVEfmt ", 8);
    d << quint32(16) << quint16(1) << quint16(channels) << quint32(rate)
      << quint32(rate * channels * 2) << quint16(channels * 2) << quint16(16);
    d.writeRawData("data", 4);
    d << data;
    d.writeRawData(reinterpret_cast<const char *>(interleaved.constData()), int(data));
    return w;
}

inline QVector<qint16> tone(double freq, double seconds, int rate, int channels,
                            double amplitude = 12000.0)
{
    const int n = int(seconds * rate);
    QVector<qint16> s(n * channels);
    for (int i = 0; i < n * channels; ++i)
        s[i] = qint16(amplitude * std::sin(2.0 * M_PI * freq * (i / channels) / rate));
    return s;
}

inline bool write_tone_wav(const QString &path, double freq, double seconds, int rate, int channels)
{
    return writeFile(path, wav_bytes(tone(freq, seconds, rate, channels), rate, channels));
}

struct Wav
{
    int rate = 0;
    int channels = 0;
    QVector<qint16> samples;
};

// Chunked RIFF reader for test outputs (ours and opusdec's).
inline bool read_wav(const QString &path, Wav &wav)
{
    const QByteArray b = readAll(path);
    if (b.size() < 12 || !b.startsWith("RIFF") || b.mid(8, 4) != "WAVE")
        return false;
    for (int pos = 12; pos + 8 <= b.size();) {
        const quint32 size = get_le32(b, pos + 4);
        const int body = pos + 8;
        if (b.mid(pos, 4) == "fmt ") {
            wav.channels = quint8(b.at(body + 2));
            wav.rate = int(get_le32(b, body + 4));
        } else if (b.mid(pos, 4) == "data") {
            wav.samples.resize(int(qMin<qint64>(size, b.size() - body)) / 2);
            memcpy(wav.samples.data(), b.constData() + body, size_t(wav.samples.size()) * 2);
            return wav.channels > 0;
        }
        pos = body + int(size) + int(size & 1);
    }
    return false;
}

// The strongest frequency between 100 and 4000 Hz (1 Hz steps, Goertzel) in
// up to one second from the middle of a mono signal; short gaps and noise do
// not throw it off.
inline double dominant_frequency(const QVector<qint16> &s, int rate)
{
    const int count = qMin(s.size(), rate);
    const int from = (s.size() - count) / 2;
    double best = 0;
    double bestPower = -1;
    for (double f = 100; f <= 4000; f += 1.0) {
        const double c = 2.0 * std::cos(2.0 * M_PI * f / rate);
        double s1 = 0;
        double s2 = 0;
        for (int i = from; i < from + count; ++i) {
            const double s0 = s[i] + c * s1 - s2;
            s2 = s1;
            s1 = s0;
        }
        const double power = s1 * s1 + s2 * s2 - c * s1 * s2;
        if (power > bestPower) {
            bestPower = power;
            best = f;
        }
    }
    return best;
}

struct OggPage
{
    int headerType = 0;
    qint64 granule = 0;
    quint32 sequence = 0;
    QByteArray body;
};

// Splits a whole Ogg file into pages; false on any malformation.
inline bool parse_pages(const QByteArray &b, QVector<OggPage> &pages)
{
    for (int pos = 0; pos < b.size();) {
        if (pos + 27 > b.size() || b.mid(pos, 4) != "OggS")
            return false;
        OggPage p;
        p.headerType = quint8(b.at(pos + 5));
        p.granule = qint64(quint64(get_le32(b, pos + 6)) | quint64(get_le32(b, pos + 10)) << 32);
        p.sequence = get_le32(b, pos + 18);
        const QByteArray lacing = b.mid(pos + 27, quint8(b.at(pos + 26)));
        int size = 27 + lacing.size();
        for (char c : lacing)
            size += quint8(c);
        if (lacing.size() != quint8(b.at(pos + 26)) || pos + size > b.size())
            return false;
        p.body = b.mid(pos + 27 + lacing.size(), size - 27 - lacing.size());
        pages.append(p);
        pos += size;
    }
    return true;
}

inline QByteArray lacing_for(int len)
{
    return QByteArray(len / 255, char(255)) + QByteArray(1, char(len % 255));
}

// One raw page; the checksum is left 0 (the client's reader does not check it).
inline QByteArray raw_page(int headerType, const QByteArray &lacing, const QByteArray &body,
                           quint32 sequence = 0, qint64 granule = 0)
{
    QByteArray p("OggS");
    p.append(char(0));
    p.append(char(headerType));
    put_le(p, quint64(granule), 8);
    put_le(p, 0x1234, 4);
    put_le(p, sequence, 4);
    put_le(p, 0, 4);
    p.append(char(lacing.size()));
    return p + lacing + body;
}

inline QByteArray head_page(int channels, int preSkip)
{
    QByteArray h("OpusHead");
    h.append(char(1));
    h.append(char(channels));
    put_le(h, quint64(preSkip), 2);
    put_le(h, 48000, 4);
    put_le(h, 0, 3);
    return raw_page(2, lacing_for(19), h);
}

inline QByteArray tags_page()
{
    const QByteArray t = QByteArray("OpusTags\x04\0\0\0test\0\0\0\0", 20);
    return raw_page(0, lacing_for(t.size()), t, 1);
}

// All packets on one last page.
inline QByteArray audio_page(const QList<QByteArray> &packets, quint32 sequence)
{
    QByteArray lacing;
    for (const QByteArray &p : packets)
        lacing += lacing_for(p.size());
    return raw_page(4, lacing, packets.join(), sequence, packets.size() * 960);
}

struct RunResult
{
    int exitCode = -1; // -1 also when it did not start or crashed
    QString output;
};

inline RunResult run(const QString &program, const QStringList &args)
{
    QProcess p;
    p.setProcessChannelMode(QProcess::MergedChannels);
    p.start(program, args);
    const bool started = p.waitForStarted(5000);
    if (started && !p.waitForFinished(60000))
        p.kill();
    p.waitForFinished(1000);
    const bool normal = started && p.exitStatus() == QProcess::NormalExit;
    return {normal ? p.exitCode() : -1, QString::fromLocal8Bit(p.readAll())};
}

inline bool have_tool(const char *name)
{
    return !QStandardPaths::findExecutable(QString::fromLatin1(name)).isEmpty();
}

// MediaServices whose command lines, log lines, toasts and invocations are
// kept for the checks.
struct Recorded
{
    QStringList lines;
    QList<qint64> lineTimes; // ms since the QElapsedTimer in clock, when given
    QStringList log;
    RecordingToaster toaster;
    RecordingInvoker invoker;
    const QElapsedTimer *clock = nullptr;

    MediaServices services()
    {
        MediaServices s;
        s.sendLine = [this](const QString &l) {
            lines.append(l);
            lineTimes.append(clock ? clock->elapsed() : 0);
        };
        s.appendLog = [this](const QString &l) { log.append(l); };
        s.toaster = &toaster;
        s.invoker = &invoker;
        return s;
    }
    void clear()
    {
        lines.clear();
        lineTimes.clear();
        log.clear();
        toaster.clear();
        invoker.clear();
    }
};

} // namespace testaudio
