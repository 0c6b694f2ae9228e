#include "media/ogg_opus_decoder.h"

#include "media/audio_libs.h"

#include <QFile>
#include <QVector>
#include <cstring>

namespace {

constexpr int kMaxFrame = 5760; // 120 ms at 48 kHz

void put_le(QByteArray &a, quint32 v, int bytes)
{
    for (int i = 0; i < bytes; ++i)
        a.append(char((v >> (8 * i)) & 0xff));
}

QByteArray wav_header(int channels, quint32 dataBytes)
{
    QByteArray h;
    h.reserve(44);
    h.append("RIFF", 4);
    put_le(h, dataBytes + 36, 4);
    h.append("WAVEfmt ", 8);
    put_le(h, 16, 4);
    put_le(h, 1, 2);
    put_le(h, quint32(channels), 2);
    put_le(h, 48000, 4);
    put_le(h, 96000u * quint32(channels), 4);
    put_le(h, quint32(2 * channels), 2);
    put_le(h, 16, 2);
    h.append("data", 4);
    put_le(h, dataBytes, 4);
    return h;
}

struct DecodeState
{
    const OpusDynApi *api = nullptr;
    OpusDecoder *decoder = nullptr;
    bool headSeen = false;
    int channels = 1;
    int preSkipLeft = 0;
    qint64 dataBytes = 0;
    qint64 maxDataBytes = kMaxWavDataBytes;
    QVector<opus_int16> samples;
};

// One completed packet; false with error set when the file cannot go on.
bool handle_packet(DecodeState &st, const QByteArray &packet, QFile &out, QString *error)
{
    if (!st.headSeen) {
        if (packet.size() < 19 || !packet.startsWith("OpusHead")) {
            *error = QStringLiteral("opus: missing OpusHead");
            return false;
        }
        const int ch = quint8(packet.at(9));
        if (ch == 0 || ch > 2) {
            *error = QStringLiteral("opus: unsupported channel count");
            return false;
        }
        st.channels = ch;
        st.preSkipLeft = quint8(packet.at(10)) | (quint8(packet.at(11)) << 8);
        int err = 0;
        st.decoder = st.api->opus_decoder_create(48000, ch, &err);
        if (!st.decoder || err != 0) {
            *error = QStringLiteral("opus: decoder_create failed err=%1%2")
                         .arg(err)
                         .arg(st.api->errorSuffix(err));
            if (st.decoder) {
                st.api->opus_decoder_destroy(st.decoder);
                st.decoder = nullptr;
            }
            return false;
        }
        st.samples.resize(kMaxFrame * ch);
        st.headSeen = true;
        return true;
    }
    if (packet.size() >= 8 && packet.startsWith("OpusTags"))
        return true;
    if (packet.isEmpty())
        return true;
    const int n =
        st.api->opus_decode(st.decoder, reinterpret_cast<const unsigned char *>(packet.constData()),
                            packet.size(), st.samples.data(), kMaxFrame, 0);
    if (n < 0) {
        *error = QStringLiteral("opus: decode failed err=%1%2").arg(n).arg(st.api->errorSuffix(n));
        return false;
    }
    const int drop = qMin(n, st.preSkipLeft);
    st.preSkipLeft -= drop;
    const int keep = n - drop;
    if (keep > 0) {
        const qint64 bytes = qint64(keep) * st.channels * 2;
        if (st.dataBytes + bytes > st.maxDataBytes) {
            *error = QStringLiteral("opus: too long for a WAV file");
            return false;
        }
        const char *from =
            reinterpret_cast<const char *>(st.samples.constData() + drop * st.channels);
        if (out.write(from, bytes) != bytes) {
            *error = QStringLiteral("opus: write pcm failed");
            return false;
        }
        st.dataBytes += bytes;
    }
    return true;
}

} // namespace

struct OggOpusToWav::Private
{
    DecodeState st;
    QFile in;
    QFile out;
    QByteArray packet;
    QByteArray payload;
    bool atEnd = false;
    QString error;
};

OggOpusToWav::OggOpusToWav(OpusLib &opus) : m_opus(opus), d(new Private) {}

void OggOpusToWav::setMaxDataBytes(qint64 bytes)
{
    d->st.maxDataBytes = qBound<qint64>(0, bytes, kMaxWavDataBytes);
}

OggOpusToWav::~OggOpusToWav()
{
    if (d->st.decoder)
        d->st.api->opus_decoder_destroy(d->st.decoder);
}

qint64 OggOpusToWav::decodedBytes() const
{
    return d->st.dataBytes;
}

bool OggOpusToWav::atEnd() const
{
    return d->atEnd;
}

bool OggOpusToWav::fail(const QString &text, QString *error)
{
    d->error = text;
    d->atEnd = true;
    if (error)
        *error = text;
    return false;
}

bool OggOpusToWav::open(const QString &inputPath, const QString &outputPath, qint64 expectedBytes,
                        QString *error)
{
    d->st.api = m_opus.ensure_opus_dyn_api_loaded();
    if (!d->st.api)
        return fail(QStringLiteral("opus: libkelOpus is missing"), error);
    d->in.setFileName(inputPath);
    if (!d->in.open(QIODevice::ReadOnly))
        return fail(QStringLiteral("opus: cannot open input"), error);
    d->out.setFileName(outputPath);
    if (!d->out.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return fail(QStringLiteral("opus: cannot open output"), error);
    // A player that opens the file while it fills reads this header; the
    // real size goes in when the decoding ends. The last page's granule is
    // the file's word, so what it reserves is bounded like the decoding.
    expectedBytes = qMin(expectedBytes, d->st.maxDataBytes);
    const QByteArray header = expectedBytes > 0
                                  ? wav_header(1, quint32(qMin<qint64>(expectedBytes, 0x7fff0000)))
                                  : QByteArray(44, '\0');
    if (d->out.write(header) != 44)
        return fail(QStringLiteral("opus: write wav header failed"), error);
    if (expectedBytes > 0 && !d->out.resize(44 + expectedBytes))
        return fail(QStringLiteral("opus: write wav header failed"), error);
    d->st.samples.resize(11520);
    d->packet.reserve(4096);
    return true;
}

bool OggOpusToWav::step(int maxPages, QString *error)
{
    DecodeState &st = d->st;
    char header[27];
    unsigned char lacing[255];
    for (int page = 0; page < maxPages; ++page) {
        if (d->in.atEnd()) {
            d->atEnd = true;
            break;
        }
        const qint64 got = d->in.read(header, 27);
        if (got == 0) {
            d->atEnd = true;
            break;
        }
        if (got != 27)
            return fail(QStringLiteral("opus: truncated ogg page header"), error);
        if (memcmp(header, "OggS", 4) != 0)
            return fail(QStringLiteral("opus: invalid ogg capture pattern"), error);
        const int segments = quint8(header[26]);
        if (d->in.read(reinterpret_cast<char *>(lacing), segments) != segments)
            return fail(QStringLiteral("opus: truncated ogg segment table"), error);
        int payloadSize = 0;
        for (int i = 0; i < segments; ++i)
            payloadSize += lacing[i];
        d->payload.resize(payloadSize);
        if (d->in.read(d->payload.data(), payloadSize) != payloadSize)
            return fail(QStringLiteral("opus: truncated ogg payload"), error);
        int pos = 0;
        for (int i = 0; i < segments; ++i) {
            const int v = lacing[i];
            if (v > 0) {
                if (d->packet.size() + v > kMaxOggOpusPacketBytes)
                    return fail(QStringLiteral("opus: packet too large"), error);
                d->packet.append(d->payload.constData() + pos, v);
                pos += v;
            }
            if (v < 255) {
                QString text;
                if (!handle_packet(st, d->packet, d->out, &text))
                    return fail(text, error);
                d->packet.resize(0); // keeps the reserved capacity
            }
        }
    }
    return true;
}

bool OggOpusToWav::finish(QString *error)
{
    if (!d->error.isEmpty()) {
        if (error)
            *error = d->error;
        return false;
    }
    if (d->st.dataBytes < 1)
        return fail(QStringLiteral("opus: no decoded audio"), error);
    if (!d->out.seek(0) ||
        d->out.write(wav_header(d->st.channels, quint32(d->st.dataBytes))) != 44 ||
        !d->out.resize(44 + d->st.dataBytes) || !d->out.flush())
        return fail(QStringLiteral("opus: patch wav header failed"), error);
    return true;
}

qint64 oggOpusEstimatedPcmBytes(const QString &path)
{
    // The last page's granule position counts the samples up to its end
    // (with or without the pre-skip): enough to size a file that is played
    // while it fills.
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly))
        return 0;
    const qint64 tail = qMin<qint64>(f.size(), 65536);
    if (!f.seek(f.size() - tail))
        return 0;
    const QByteArray data = f.read(tail);
    const int at = data.lastIndexOf("OggS");
    if (at < 0 || at + 14 > data.size())
        return 0;
    qint64 granule = 0;
    for (int i = 7; i >= 0; --i)
        granule = (granule << 8) | quint8(data.at(at + 6 + i));
    // Channels are not known here: one channel, as voice notes are.
    return granule > 0 && granule < (qint64(1) << 40) ? granule * 2 : 0;
}

bool decodeOgaOpusToWav(OpusLib &opus, const QString &inputPath, const QString &outputPath,
                        QString *errorOut)
{
    OggOpusToWav decoder(opus);
    QString error;
    bool ok = decoder.open(inputPath, outputPath, 0, &error);
    while (ok && !decoder.atEnd())
        ok = decoder.step(64, &error);
    ok = ok && decoder.finish(&error);
    if (errorOut)
        *errorOut = error;
    return ok;
}
