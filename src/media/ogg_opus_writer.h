#pragma once

#include <QByteArray>
#include <QFile>
#include <QString>

// The Ogg page checksum: CRC-32, polynomial 0x04C11DB7, initial value 0,
// unreflected, no final XOR. 0 for len below 1.
quint32 ogg_crc(const char *data, int len);

// Appends the lacing values of one packet: 255 while more than 255 bytes are
// left, then the rest. A non-zero multiple of 255 gets no terminating 0; the
// reader in ogg_opus_decoder.cpp expects exactly this.
void ogg_append_lacing(QByteArray &lacing, int packetLength);

// Bitstream serial derived from the wall clock, never 0.
quint32 ogg_serial_from_ms(qint64 ms);

// An Ogg Opus file being written: mono (or the given channel count) Opus
// packets gathered into pages of up to 4096 body bytes or 240 lacing values.
class OggOpusWriter : public QFile
{
public:
    static constexpr int kMaxPageBody = 4096;
    static constexpr int kMaxLacingBeforeFlush = 240;
    static constexpr qint64 kSamplesPerPacket = 960;

    OggOpusWriter();
    ~OggOpusWriter() override;

    // Opens path write-only and truncating after resetting all page state.
    bool openForWrite(const QString &path, QString *error);
    // OpusHead (one page, type 2) and OpusTags (one page, type 0).
    bool writeHeaders(int channels, QString *error);
    // One page holding exactly the one packet.
    bool writePage(int headerType, long long granule, const QByteArray &packet, QString *error);
    // Adds an audio packet to the pending page, writing the pending page
    // first when it is full. An empty packet is not stored.
    bool appendAudioPacket(const QByteArray &packet, QString *error);
    // Writes the pending page (if any packet is pending) as the last page.
    bool finish(QString *error);
    void close() override;

    bool isOpened() const { return m_opened; }
    bool hasPendingPage() const { return !m_lacing.isEmpty(); }

    quint32 serial = 0;
    quint32 pageSequence = 0;
    qint64 granuleTotal = 0;
    quint32 preSkip = 312;
    quint32 inputSampleRate = 48000;
    // Voice notes carry page granules of "samples so far minus pre-skip"
    // (the client's own reader ignores them). Readers built on opusfile
    // reject that as a bad timestamp; with this set, pages carry the plain
    // running count instead, which every Ogg Opus reader accepts.
    bool standardGranules = false;

private:
    bool writeRawPage(int headerType, qint64 granule, const QByteArray &lacing,
                      const QByteArray &body, QString *error);
    bool flushPending(int headerType, QString *error);

    bool m_opened = false;
    QByteArray m_body;
    QByteArray m_lacing;
    qint64 m_pageGranule = 0;
};
