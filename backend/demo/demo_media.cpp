#include "demo_media.h"

#include "demo_world.h"

#include <QColor>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QImage>
#include <QLinearGradient>
#include <QPainter>
#include <QPen>
#include <QSaveFile>
#include <QtMath>

#include <opus/opus.h>

namespace {

constexpr int kSampleRate = 48000;
constexpr int kFrameSamples = 960; // 20 ms
constexpr int kPacketBytes = 60;   // 24 kbit/s hard CBR
constexpr int kPacketsPerPage = 50;
constexpr int kPreSkip = 312;
const char kVendor[] = "vexa-demo";

QByteArray opusHead()
{
    QByteArray h("OpusHead", 8);
    h.append(char(1)); // version
    h.append(char(1)); // channels
    h.append(char(kPreSkip & 0xff));
    h.append(char((kPreSkip >> 8) & 0xff));
    const quint32 rate = kSampleRate;
    for (int i = 0; i < 4; ++i)
        h.append(char((rate >> (8 * i)) & 0xff));
    h.append(char(0)); // gain
    h.append(char(0));
    h.append(char(0)); // mapping family
    return h;
}

QByteArray opusTags()
{
    QByteArray t("OpusTags", 8);
    const quint32 len = quint32(sizeof(kVendor) - 1);
    for (int i = 0; i < 4; ++i)
        t.append(char((len >> (8 * i)) & 0xff));
    t.append(kVendor, int(len));
    for (int i = 0; i < 4; ++i)
        t.append(char(0));
    return t;
}

int packetCount(int seconds)
{
    return (seconds * kSampleRate + kPreSkip + kFrameSamples - 1) / kFrameSamples;
}

bool writeAll(const QString &path, const QByteArray &bytes, QString *error)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QSaveFile f(path);
    if (!f.open(QIODevice::WriteOnly)) {
        if (error)
            *error = QStringLiteral("cannot write %1: %2").arg(path, f.errorString());
        return false;
    }
    // commit() alone misses a flush that fails at close (a full disk) and renames a cut file in.
    if (f.write(bytes) != bytes.size() || !f.flush() || !f.commit()) {
        if (error)
            *error = QStringLiteral("cannot write %1: %2").arg(path, f.errorString());
        return false;
    }
    return true;
}

} // namespace

quint32 demo_ogg_crc(const QByteArray &page)
{
    static quint32 table[256];
    static bool ready = false;
    if (!ready) {
        for (quint32 i = 0; i < 256; ++i) {
            quint32 r = i << 24;
            for (int k = 0; k < 8; ++k)
                r = (r & 0x80000000u) ? (r << 1) ^ 0x04C11DB7u : (r << 1);
            table[i] = r;
        }
        ready = true;
    }
    quint32 crc = 0;
    for (char c : page)
        crc = (crc << 8) ^ table[((crc >> 24) ^ quint8(c)) & 0xff];
    return crc;
}

void DemoOggWriter::writePage(const QList<QByteArray> &packets, qint64 granule, bool bos, bool eos)
{
    QByteArray lacing;
    QByteArray body;
    for (const QByteArray &p : packets) {
        int n = p.size();
        while (n >= 255) {
            lacing.append(char(255));
            n -= 255;
        }
        lacing.append(char(n));
        body.append(p);
    }
    QByteArray page("OggS", 4);
    page.append(char(0));
    page.append(char((bos ? 2 : 0) | (eos ? 4 : 0)));
    for (int i = 0; i < 8; ++i)
        page.append(char((quint64(granule) >> (8 * i)) & 0xff));
    for (int i = 0; i < 4; ++i)
        page.append(char((m_serial >> (8 * i)) & 0xff));
    for (int i = 0; i < 4; ++i)
        page.append(char((m_sequence >> (8 * i)) & 0xff));
    page.append(QByteArray(4, '\0'));
    page.append(char(lacing.size()));
    page.append(lacing);
    page.append(body);
    const quint32 crc = demo_ogg_crc(page);
    for (int i = 0; i < 4; ++i)
        page[22 + i] = char((crc >> (8 * i)) & 0xff);
    m_data.append(page);
    ++m_sequence;
}

qint64 demo_voice_file_size(int seconds)
{
    if (seconds < 1)
        seconds = 1;
    const int packets = packetCount(seconds);
    qint64 size = 27 + 1 + opusHead().size() + 27 + 1 + opusTags().size();
    const int fullPages = packets / kPacketsPerPage;
    const int rest = packets % kPacketsPerPage;
    size += qint64(fullPages) * (27 + kPacketsPerPage + kPacketsPerPage * kPacketBytes);
    if (rest > 0)
        size += 27 + rest + rest * kPacketBytes;
    return size;
}

bool demo_write_voice_note(const QString &path, int seconds, quint64 seed, QString *error)
{
    if (seconds < 1)
        seconds = 1;
    int err = 0;
    OpusEncoder *enc = opus_encoder_create(kSampleRate, 1, OPUS_APPLICATION_VOIP, &err);
    if (!enc || err != OPUS_OK) {
        if (error)
            *error = QStringLiteral("opus: encoder create failed: %1").arg(err);
        return false;
    }
    opus_encoder_ctl(enc, OPUS_SET_BITRATE(kPacketBytes * 8 * 50));
    opus_encoder_ctl(enc, OPUS_SET_VBR(0));

    DemoOggWriter ogg(quint32(seed & 0xffffffffu) | 1u);
    ogg.writePage({opusHead()}, 0, true, false);
    ogg.writePage({opusTags()}, 0, false, false);

    DemoRng rng(seed);
    const double base = 140.0 + rng.below(120);
    const int packets = packetCount(seconds);
    const qint64 finalGranule = kPreSkip + qint64(seconds) * kSampleRate;
    QVector<opus_int16> pcm(kFrameSamples);
    QList<QByteArray> page;
    double phase = 0.0;
    qint64 sample = 0;
    unsigned char out[1500];
    bool ok = true;
    for (int p = 0; p < packets; ++p) {
        for (int i = 0; i < kFrameSamples; ++i, ++sample) {
            const double t = double(sample) / kSampleRate;
            // A voice-like hum: pitch glides, syllable-rate amplitude envelope.
            const double pitch = base * (1.0 + 0.15 * qSin(2 * M_PI * 0.7 * t));
            phase += 2 * M_PI * pitch / kSampleRate;
            const double env = 0.5 + 0.5 * qSin(2 * M_PI * 3.1 * t);
            const double v =
                env * (0.6 * qSin(phase) + 0.25 * qSin(2 * phase) + 0.1 * qSin(3 * phase));
            pcm[i] = opus_int16(v * 9000.0);
        }
        const int n = opus_encode(enc, pcm.constData(), kFrameSamples, out, sizeof(out));
        if (n < 0) {
            if (error)
                *error = QStringLiteral("opus: encode failed: %1").arg(n);
            ok = false;
            break;
        }
        page.append(QByteArray(reinterpret_cast<const char *>(out), n));
        const bool last = p == packets - 1;
        if (page.size() == kPacketsPerPage || last) {
            const qint64 granule =
                last ? finalGranule : qint64(p + 1) * kFrameSamples; // samples incl. pre-skip
            ogg.writePage(page, granule, false, last);
            page.clear();
        }
    }
    opus_encoder_destroy(enc);
    if (!ok)
        return false;
    return writeAll(path, ogg.data(), error);
}

bool demo_write_picture(const QString &path, int width, int height, quint64 seed, QString *error)
{
    width = qBound(8, width, 4096);
    height = qBound(8, height, 4096);
    DemoRng rng(seed);
    QImage img(width, height, QImage::Format_RGB32);
    QPainter p(&img);
    p.setRenderHint(QPainter::Antialiasing);
    const QColor a = QColor::fromHsv(rng.below(360), 120 + rng.below(100), 150 + rng.below(90));
    const QColor b = QColor::fromHsv(rng.below(360), 120 + rng.below(100), 90 + rng.below(120));
    QLinearGradient g(0, 0, width, height);
    g.setColorAt(0, a);
    g.setColorAt(1, b);
    p.fillRect(img.rect(), g);
    // Positions and sizes are fractions of the picture, so one seed draws
    // the same picture at any size (a thumbnail and its photo).
    const auto part = [&rng](int length, int of) {
        return int(qint64(rng.below(10000)) * length / of / 10000);
    };
    const int shapes = 6 + rng.below(10);
    for (int i = 0; i < shapes; ++i) {
        QColor c = QColor::fromHsv(rng.below(360), 80 + rng.below(170), 120 + rng.below(130));
        c.setAlpha(90 + rng.below(140));
        p.setBrush(c);
        p.setPen(Qt::NoPen);
        const int w = width / 10 + part(width, 3);
        const int h = height / 10 + part(height, 3);
        const int x = part(width, 1) - w / 2;
        const int y = part(height, 1) - h / 2;
        if (rng.chance(60))
            p.drawEllipse(x, y, w, h);
        else
            p.drawRoundedRect(x, y, w, h, w / 8.0, h / 8.0);
    }
    if (qint64(width) * height > 4000000) {
        // A camera-sized picture gets fine detail, so zooming in shows more.
        for (int i = 0; i < 3000; ++i) {
            QColor c = QColor::fromHsv(rng.below(360), 60 + rng.below(190), 140 + rng.below(115));
            c.setAlpha(120 + rng.below(130));
            p.setBrush(c);
            const int d = 4 + rng.below(28);
            p.drawEllipse(rng.below(width), rng.below(height), d, d);
        }
        p.setPen(QPen(QColor(255, 255, 255, 40), 1));
        for (int x = 0; x < width; x += 40)
            p.drawLine(x, 0, x, height);
        for (int y = 0; y < height; y += 40)
            p.drawLine(0, y, width, y);
    }
    p.end();
    QDir().mkpath(QFileInfo(path).absolutePath());
    const bool png = path.endsWith(QLatin1String(".png"), Qt::CaseInsensitive);
    const QString tmp = path + QStringLiteral(".part");
    if (!img.save(tmp, png ? "PNG" : "JPG", png ? -1 : 82)) {
        QFile::remove(tmp);
        if (error)
            *error = QStringLiteral("cannot save picture %1").arg(path);
        return false;
    }
    QFile::remove(path);
    if (!QFile::rename(tmp, path)) {
        if (error)
            *error = QStringLiteral("cannot move picture to %1").arg(path);
        return false;
    }
    return true;
}

bool demo_write_document(const QString &path, const QString &name, qint64 size, quint64 seed,
                         QString *error)
{
    size = qBound<qint64>(0, size, 64 * 1024 * 1024);
    DemoRng rng(seed);
    QByteArray out;
    out.reserve(int(size));
    const QString suffix = QFileInfo(name).suffix().toLower();
    if (suffix == QLatin1String("bin")) {
        while (out.size() < size) {
            const quint64 v = rng.next();
            out.append(reinterpret_cast<const char *>(&v), sizeof(v));
        }
        out.truncate(int(size));
    } else if (suffix == QLatin1String("pdf") || suffix == QLatin1String("json")) {
        const bool pdf = suffix == QLatin1String("pdf");
        QByteArray head;
        QByteArray tail;
        if (pdf) {
            head = "%PDF-1.4\n1 0 obj << /Type /Catalog /Pages 2 0 R >> endobj\n"
                   "2 0 obj << /Type /Pages /Kids [3 0 R] /Count 1 >> endobj\n"
                   "3 0 obj << /Type /Page /Parent 2 0 R /MediaBox [0 0 595 842] >> endobj\n";
            tail = "trailer << /Root 1 0 R >>\n%%EOF\n";
        } else {
            head = "{\"generator\":\"vexa-demo\",\"items\":[0";
            tail = "]}\n";
        }
        out = head;
        while (out.size() + tail.size() + 40 < size) {
            if (pdf)
                out += "% demo page content " + QByteArray::number(rng.next() % 100000) + "\n";
            else
                out += "," + QByteArray::number(qint64(rng.next() % 1000000));
        }
        while (out.size() + tail.size() < size)
            out.append(pdf ? '%' : ' ');
        out += tail;
        if (out.size() > size)
            out.truncate(int(size));
    } else {
        const bool csv = suffix == QLatin1String("csv");
        int row = 0;
        if (csv)
            out = "row,amount,comment\n";
        while (out.size() < size) {
            if (csv)
                out += QByteArray::number(++row) + "," + QByteArray::number(rng.below(100000)) +
                       ",item " + QByteArray::number(rng.below(1000)) + "\n";
            else
                out += "Line " + QByteArray::number(++row) +
                       ": the quick brown fox jumps over the lazy dog.\n";
        }
        out.truncate(int(size));
    }
    return writeAll(path, out, error);
}
