#pragma once

// Helpers shared by the media tests: tone WAV files, reading WAV samples,
// estimating a tone's frequency, a minimal independent Ogg page reader and
// builder, and running tools as child processes.

#include <QByteArray>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QString>
#include <QStringList>
#include <QVector>

#include <cmath>

namespace testaudio {

inline void put_le(QByteArray &a, quint64 v, int bytes)
{
    for (int i = 0; i < bytes; ++i)
        a.append(char((v >> (8 * i)) & 0xff));
}

inline quint32 get_le32(const QByteArray &a, int at)
{
    quint32 v = 0;
    for (int i = 3; i >= 0; --i)
        v = (v << 8) | quint8(a.at(at + i));
    return v;
}

inline quint64 get_le64(const QByteArray &a, int at)
{
    return quint64(get_le32(a, at)) | (quint64(get_le32(a, at + 4)) << 32);
}

inline QByteArray wav_bytes(const QVector<qint16> &interleaved, int rate, int channels)
{
    QByteArray w("RIFF");
    const quint32 data = quint32(interleaved.size() * 2);
    put_le(w, data + 36, 4);
    w.append("WAVEfmt ");
    put_le(w, 16, 4);
    put_le(w, 1, 2);
    put_le(w, quint64(channels), 2);
    put_le(w, quint64(rate), 4);
    put_le(w, quint64(rate * channels * 2), 4);
    put_le(w, quint64(channels * 2), 2);
    put_le(w, 16, 2);
    w.append("data");
    put_le(w, data, 4);
    w.append(reinterpret_cast<const char *>(interleaved.constData()), int(data));
    return w;
}

inline QVector<qint16> tone(double freq, double seconds, int rate, int channels,
                            double amplitude = 12000.0)
{
    const int n = int(seconds * rate);
    QVector<qint16> s(n * channels);
    for (int i = 0; i < n; ++i) {
        const qint16 v = qint16(amplitude * std::sin(2.0 * M_PI * freq * i / rate));
        for (int c = 0; c < channels; ++c)
            s[i * channels + c] = v;
    }
    return s;
}

inline bool write_file(const QString &path, const QByteArray &bytes)
{
    QFile f(path);
    return f.open(QIODevice::WriteOnly | QIODevice::Truncate) && f.write(bytes) == bytes.size();
}

inline QByteArray read_file(const QString &path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

struct Wav
{
    int rate = 0;
    int channels = 0;
    QVector<qint16> samples;
};

// Plain 44-byte-header or chunked RIFF reader for test outputs.
inline bool read_wav(const QString &path, Wav &wav)
{
    const QByteArray b = read_file(path);
    if (b.size() < 12 || !b.startsWith("RIFF") || b.mid(8, 4) != "WAVE")
        return false;
    int pos = 12;
    while (pos + 8 <= b.size()) {
        const QByteArray id = b.mid(pos, 4);
        const quint32 size = get_le32(b, pos + 4);
        const int body = pos + 8;
        if (id == "fmt ") {
            wav.channels = quint8(b.at(body + 2)) | (quint8(b.at(body + 3)) << 8);
            wav.rate = int(get_le32(b, body + 4));
        } else if (id == "data") {
            const int n = int(qMin<qint64>(size, b.size() - body)) / 2;
            wav.samples.resize(n);
            memcpy(wav.samples.data(), b.constData() + body, size_t(n) * 2);
            return wav.channels > 0;
        }
        pos = body + int(size) + int(size & 1);
    }
    return false;
}

// Frequency of the strongest tone in a mono signal, by counting upward zero
// crossings over the loudest stretch.
inline double estimate_frequency(const QVector<qint16> &mono, int rate)
{
    int crossings = 0;
    int first = -1;
    int last = -1;
    for (int i = 1; i < mono.size(); ++i) {
        if (mono[i - 1] < 0 && mono[i] >= 0) {
            if (first < 0)
                first = i;
            last = i;
            ++crossings;
        }
    }
    if (crossings < 2)
        return 0.0;
    return double(crossings - 1) * rate / double(last - first);
}

// Power of one frequency in a signal (Goertzel).
inline double tone_power(const QVector<qint16> &s, int from, int count, double freq, int rate)
{
    const double w = 2.0 * M_PI * freq / rate;
    const double c = 2.0 * std::cos(w);
    double s1 = 0;
    double s2 = 0;
    for (int i = from; i < from + count && i < s.size(); ++i) {
        const double s0 = s[i] + c * s1 - s2;
        s2 = s1;
        s1 = s0;
    }
    return s1 * s1 + s2 * s2 - c * s1 * s2;
}

// The strongest frequency between lo and hi Hz (1 Hz steps) in up to one
// second from the middle of the signal. Unlike counting zero crossings it
// is not thrown off by short gaps or noise.
inline double dominant_frequency(const QVector<qint16> &s, int rate, double lo, double hi)
{
    const int count = qMin(s.size(), rate);
    const int from = (s.size() - count) / 2;
    double best = 0;
    double bestPower = -1;
    for (double f = lo; f <= hi; f += 1.0) {
        const double p = tone_power(s, from, count, f, rate);
        if (p > bestPower) {
            bestPower = p;
            best = f;
        }
    }
    return best;
}

// Root mean square of a stretch of samples.
inline double rms(const QVector<qint16> &s, int from, int count)
{
    double acc = 0;
    int n = 0;
    for (int i = from; i < from + count && i < s.size(); ++i, ++n)
        acc += double(s[i]) * s[i];
    return n ? std::sqrt(acc / n) : 0.0;
}

// The loudest continuous stretch above a level, as [from, to).
inline QPair<int, int> loud_span(const QVector<qint16> &s, int rate, double level)
{
    const int win = rate / 50;
    int from = -1;
    int to = -1;
    for (int i = 0; i + win <= s.size(); i += win) {
        if (rms(s, i, win) > level) {
            if (from < 0)
                from = i;
            to = i + win;
        }
    }
    return qMakePair(from, to);
}

struct OggPage
{
    int headerType = 0;
    qint64 granule = 0;
    quint32 serial = 0;
    quint32 sequence = 0;
    quint32 checksum = 0;
    QByteArray lacing;
    QByteArray body;
    QByteArray raw;
};

// Splits a whole Ogg file into pages; false on any malformation.
inline bool parse_pages(const QByteArray &b, QVector<OggPage> &pages)
{
    int pos = 0;
    while (pos < b.size()) {
        if (pos + 27 > b.size() || b.mid(pos, 4) != "OggS")
            return false;
        OggPage p;
        p.headerType = quint8(b.at(pos + 5));
        p.granule = qint64(get_le64(b, pos + 6));
        p.serial = get_le32(b, pos + 14);
        p.sequence = get_le32(b, pos + 18);
        p.checksum = get_le32(b, pos + 22);
        const int n = quint8(b.at(pos + 26));
        if (pos + 27 + n > b.size())
            return false;
        p.lacing = b.mid(pos + 27, n);
        int bodySize = 0;
        for (char c : p.lacing)
            bodySize += quint8(c);
        if (pos + 27 + n + bodySize > b.size())
            return false;
        p.body = b.mid(pos + 27 + n, bodySize);
        p.raw = b.mid(pos, 27 + n + bodySize);
        pages.append(p);
        pos += 27 + n + bodySize;
    }
    return true;
}

// The Ogg checksum written out bit by bit, independent of the table version.
inline quint32 slow_ogg_crc(QByteArray page)
{
    for (int i = 22; i < 26; ++i)
        page[i] = 0;
    quint32 crc = 0;
    for (char c : page) {
        crc ^= quint32(quint8(c)) << 24;
        for (int k = 0; k < 8; ++k)
            crc = (crc & 0x80000000u) ? (crc << 1) ^ 0x04C11DB7u : (crc << 1);
    }
    return crc;
}

// One raw page with the given lacing values and body; the checksum is left 0
// (the client's reader does not check it).
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
    p.append(lacing);
    p.append(body);
    return p;
}

inline QByteArray lacing_for(int len)
{
    QByteArray l;
    while (len >= 255) {
        l.append(char(255));
        len -= 255;
    }
    l.append(char(len));
    return l;
}

inline QByteArray opus_head(int channels, int preSkip)
{
    QByteArray h("OpusHead");
    h.append(char(1));
    h.append(char(channels));
    put_le(h, quint64(preSkip), 2);
    put_le(h, 48000, 4);
    put_le(h, 0, 2);
    h.append(char(0));
    return h;
}

inline QByteArray opus_tags()
{
    QByteArray t("OpusTags");
    put_le(t, 4, 4);
    t.append("test");
    put_le(t, 0, 4);
    return t;
}

struct RunResult
{
    bool started = false;
    int exitCode = -1;
    QString output;
};

inline RunResult run(const QString &program, const QStringList &args, int timeoutMs = 60000)
{
    RunResult r;
    QProcess p;
    p.setProcessChannelMode(QProcess::MergedChannels);
    p.start(program, args);
    if (!p.waitForStarted(5000))
        return r;
    r.started = true;
    if (!p.waitForFinished(timeoutMs)) {
        p.kill();
        p.waitForFinished(1000);
    }
    r.output = QString::fromLocal8Bit(p.readAll());
    r.exitCode = p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1;
    return r;
}

inline QString tool_dir()
{
    return qEnvironmentVariable("VEXA_BIN_DIR");
}

inline QString vexa_opus()
{
    return tool_dir() + QStringLiteral("/vexa-opus");
}

// Starts a new peak-memory measurement (VmHWM back to the current RSS).
inline bool reset_peak_rss()
{
    QFile f(QStringLiteral("/proc/self/clear_refs"));
    return f.open(QIODevice::WriteOnly) && f.write("5") == 1;
}

// Peak resident memory of this process in KiB.
inline qint64 peak_rss_kib()
{
    QFile f(QStringLiteral("/proc/self/status"));
    if (!f.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray &line : f.readAll().split('\n')) {
        if (line.startsWith("VmHWM:"))
            return line.mid(6).trimmed().split(' ').value(0).toLongLong();
    }
    return -1;
}

} // namespace testaudio
