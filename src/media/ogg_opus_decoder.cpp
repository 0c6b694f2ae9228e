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

bool decodeOgaOpusToWav(OpusLib &opus, const QString &inputPath, const QString &outputPath,
                        QString *errorOut)
{
    // The loop reads its own failure back; the caller's copy is written once at the end.
    QString error;
    const auto done = [&](bool ok) {
        if (errorOut)
            *errorOut = error;
        return ok;
    };
    DecodeState st;
    st.api = opus.ensure_opus_dyn_api_loaded();
    if (!st.api) {
        error = QStringLiteral("opus: libkelOpus is missing");
        return done(false);
    }
    QFile in(inputPath);
    if (!in.open(QIODevice::ReadOnly)) {
        error = QStringLiteral("opus: cannot open input");
        return done(false);
    }
    QFile out(outputPath);
    if (!out.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        error = QStringLiteral("opus: cannot open output");
        return done(false);
    }
    if (out.write(QByteArray(44, '\0')) != 44) {
        error = QStringLiteral("opus: write wav header failed");
        return done(false);
    }

    st.samples.resize(11520);
    QByteArray packet;
    packet.reserve(4096);
    char header[27];
    unsigned char lacing[255];
    QByteArray payload;

    while (!in.atEnd()) {
        const qint64 got = in.read(header, 27);
        if (got == 0)
            break;
        if (got != 27) {
            error = QStringLiteral("opus: truncated ogg page header");
            break;
        }
        if (memcmp(header, "OggS", 4) != 0) {
            error = QStringLiteral("opus: invalid ogg capture pattern");
            break;
        }
        const int segments = quint8(header[26]);
        if (in.read(reinterpret_cast<char *>(lacing), segments) != segments) {
            error = QStringLiteral("opus: truncated ogg segment table");
            break;
        }
        int payloadSize = 0;
        for (int i = 0; i < segments; ++i)
            payloadSize += lacing[i];
        payload.resize(payloadSize);
        if (in.read(payload.data(), payloadSize) != payloadSize) {
            error = QStringLiteral("opus: truncated ogg payload");
            break;
        }
        int pos = 0;
        for (int i = 0; i < segments && error.isEmpty(); ++i) {
            const int v = lacing[i];
            if (v > 0) {
                if (packet.size() + v > kMaxOggOpusPacketBytes) {
                    error = QStringLiteral("opus: packet too large");
                    break;
                }
                packet.append(payload.constData() + pos, v);
                pos += v;
            }
            if (v < 255) {
                handle_packet(st, packet, out, &error);
                packet.resize(0); // keeps the reserved capacity
            }
        }
        if (!error.isEmpty())
            break;
    }

    if (st.decoder)
        st.api->opus_decoder_destroy(st.decoder);
    if (!error.isEmpty())
        return done(false);
    if (st.dataBytes < 1) {
        error = QStringLiteral("opus: no decoded audio");
        return done(false);
    }
    if (!out.seek(0) || out.write(wav_header(st.channels, quint32(st.dataBytes))) != 44) {
        error = QStringLiteral("opus: patch wav header failed");
        return done(false);
    }
    if (!out.flush()) {
        error = QStringLiteral("opus: patch wav header failed");
        return done(false);
    }
    return done(true);
}
