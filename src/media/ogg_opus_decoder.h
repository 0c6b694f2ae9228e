#pragma once

#include <QString>

#include <memory>

class OpusLib;

// Largest packet the reader assembles from continued lacing values; a file
// that keeps a packet going beyond this is rejected instead of filling memory.
constexpr int kMaxOggOpusPacketBytes = 1024 * 1024;

// The most PCM a WAV header can describe (its sizes are 32-bit). A tiny Opus
// packet decodes to 120 ms, so a crafted note of a few megabytes could
// otherwise fill the disk and wrap the header's sizes.
constexpr qint64 kMaxWavDataBytes = 0xFFFFFFFFLL - 36;

// Converts an Ogg Opus file (one or two channels) into a 16-bit PCM WAV file
// at 48 kHz, dropping the pre-skip. True when at least one sample was written;
// otherwise error holds the reason. The output is not removed on failure.
bool decodeOgaOpusToWav(OpusLib &opus, const QString &inputPath, const QString &outputPath,
                        QString *error);

// The same conversion in steps, so that a long voice note can start playing
// from the WAV while the rest is decoded on later turns of the event loop.
class OggOpusToWav
{
public:
    explicit OggOpusToWav(OpusLib &opus);
    // Decoding more PCM than this fails the file (kMaxWavDataBytes unless
    // set); the reserved length is cut to it too.
    void setMaxDataBytes(qint64 bytes);
    ~OggOpusToWav();
    OggOpusToWav(const OggOpusToWav &) = delete;
    OggOpusToWav &operator=(const OggOpusToWav &) = delete;

    // expectedBytes > 0 writes a header for that much PCM and reserves the
    // file's length, so that a player reading it meanwhile sees the whole
    // duration; 0 writes a blank header.
    bool open(const QString &inputPath, const QString &outputPath, qint64 expectedBytes,
              QString *error);
    // Decodes up to maxPages Ogg pages; false with error set on bad input.
    bool step(int maxPages, QString *error);
    bool atEnd() const;
    qint64 decodedBytes() const;
    // Writes the real header and cuts the file to what was decoded.
    bool finish(QString *error);

private:
    bool fail(const QString &text, QString *error);

    struct Private;
    OpusLib &m_opus;
    std::unique_ptr<Private> d;
};

// Mono PCM bytes the file will decode to, from its last page's granule
// position; 0 when unknown.
qint64 oggOpusEstimatedPcmBytes(const QString &path);
