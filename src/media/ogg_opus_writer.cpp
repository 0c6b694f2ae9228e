#include "media/ogg_opus_writer.h"

namespace {

const quint32 *crc_table()
{
    static quint32 table[256];
    static bool built = false;
    if (!built) {
        for (quint32 i = 0; i < 256; ++i) {
            quint32 r = i << 24;
            for (int k = 0; k < 8; ++k)
                r = (r & 0x80000000u) ? (r << 1) ^ 0x04C11DB7u : (r << 1);
            table[i] = r;
        }
        built = true;
    }
    return table;
}

void put_le16(QByteArray &a, quint16 v)
{
    a.append(char(v & 0xff));
    a.append(char((v >> 8) & 0xff));
}

void put_le32(QByteArray &a, quint32 v)
{
    for (int i = 0; i < 4; ++i)
        a.append(char((v >> (8 * i)) & 0xff));
}

} // namespace

quint32 ogg_crc(const char *data, int len)
{
    if (!data || len < 1)
        return 0;
    const quint32 *t = crc_table();
    quint32 crc = 0;
    for (int i = 0; i < len; ++i)
        crc = t[(quint8(data[i]) ^ (crc >> 24)) & 0xff] ^ (crc << 8);
    return crc;
}

void ogg_append_lacing(QByteArray &lacing, int packetLength)
{
    int l = packetLength;
    while (l > 255) {
        lacing.append(char(255));
        l -= 255;
    }
    lacing.append(char(l));
}

quint32 ogg_serial_from_ms(qint64 ms)
{
    quint32 x = quint32(quint64(ms) & 0xffffffffu) ^ 0x4F474730u;
    x ^= x >> 16;
    x *= 0x7FEB352Du;
    x ^= x >> 15;
    x *= 0x846CA68Bu;
    x ^= x >> 16;
    return x ? x : 1u;
}

OggOpusWriter::OggOpusWriter() = default;

OggOpusWriter::~OggOpusWriter()
{
    // Releasing only: an unfinished file is left as it is.
    m_body.clear();
    m_lacing.clear();
}

bool OggOpusWriter::openForWrite(const QString &path, QString *error)
{
    if (error)
        error->clear();
    if (isOpen())
        QFile::close();
    m_opened = false;
    m_body.clear();
    m_lacing.clear();
    m_pageGranule = 0;
    granuleTotal = 0;
    pageSequence = 0;
    setFileName(path);
    // Unbuffered: one write per page, so a full disk shows up on that page
    // instead of at close.
    if (!open(QIODevice::WriteOnly | QIODevice::Truncate | QIODevice::Unbuffered)) {
        if (error)
            *error = QStringLiteral("ogg: cannot open output");
        return false;
    }
    m_opened = true;
    return true;
}

bool OggOpusWriter::writeHeaders(int channels, QString *error)
{
    if (error)
        error->clear();
    if (!m_opened) {
        if (error)
            *error = QStringLiteral("ogg: not opened");
        return false;
    }
    QByteArray head("OpusHead");
    head.append(char(1));
    head.append(char(channels));
    put_le16(head, quint16(preSkip));
    put_le32(head, inputSampleRate);
    put_le16(head, 0);
    head.append(char(0));
    if (!writePage(2, 0, head, error))
        return false;

    const QByteArray vendor("quillo");
    QByteArray tags("OpusTags");
    put_le32(tags, quint32(vendor.size()));
    tags.append(vendor);
    put_le32(tags, 0);
    return writePage(0, 0, tags, error);
}

bool OggOpusWriter::writeRawPage(int headerType, qint64 granule, const QByteArray &lacing,
                                 const QByteArray &body, QString *error)
{
    QByteArray page;
    page.reserve(27 + lacing.size() + body.size());
    page.append("OggS", 4);
    page.append(char(0));
    page.append(char(headerType));
    const quint64 g = granule < 0 ? 0 : quint64(granule);
    put_le32(page, quint32(g & 0xffffffffu));
    put_le32(page, quint32(g >> 32));
    put_le32(page, serial);
    put_le32(page, pageSequence++);
    put_le32(page, 0);
    page.append(char(lacing.size() & 0xff));
    page.append(lacing);
    page.append(body);
    const quint32 crc = ogg_crc(page.constData(), page.size());
    for (int i = 0; i < 4; ++i)
        page[22 + i] = char((crc >> (8 * i)) & 0xff);
    if (write(page) != page.size()) {
        if (error)
            *error = QStringLiteral("ogg: write failed");
        return false;
    }
    return true;
}

bool OggOpusWriter::writePage(int headerType, long long granule, const QByteArray &packet,
                              QString *error)
{
    if (error)
        error->clear();
    m_body.clear();
    m_lacing.clear();
    m_pageGranule = 0;
    QByteArray lacing;
    ogg_append_lacing(lacing, packet.size());
    if (!writeRawPage(headerType, granule, lacing, packet, error))
        return false;
    return true;
}

bool OggOpusWriter::flushPending(int headerType, QString *error)
{
    const qint64 granule =
        standardGranules ? m_pageGranule : qMax<qint64>(0, m_pageGranule - qint64(preSkip));
    if (!writeRawPage(headerType, granule, m_lacing, m_body, error))
        return false;
    m_body.clear();
    m_lacing.clear();
    m_pageGranule = 0;
    return true;
}

bool OggOpusWriter::appendAudioPacket(const QByteArray &packet, QString *error)
{
    if (error)
        error->clear();
    if (!m_opened) {
        if (error)
            *error = QStringLiteral("ogg: not opened");
        return false;
    }
    if (packet.isEmpty())
        return true;
    if (!m_lacing.isEmpty() &&
        (m_body.size() + packet.size() > kMaxPageBody || m_lacing.size() > kMaxLacingBeforeFlush)) {
        if (!flushPending(0, error))
            return false;
    }
    m_body.append(packet);
    ogg_append_lacing(m_lacing, packet.size());
    granuleTotal += kSamplesPerPacket;
    m_pageGranule = granuleTotal;
    return true;
}

bool OggOpusWriter::finish(QString *error)
{
    if (error)
        error->clear();
    bool ok = true;
    if (m_opened && !m_lacing.isEmpty())
        ok = flushPending(4, error);
    if (isOpen())
        flush();
    close();
    return ok;
}

void OggOpusWriter::close()
{
    if (isOpen())
        QFile::close();
    m_opened = false;
    pageSequence = 0;
    granuleTotal = 0;
    m_pageGranule = 0;
    m_body.clear();
    m_lacing.clear();
}
