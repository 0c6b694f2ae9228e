#pragma once

#include <QByteArray>
#include <QString>

// Generated media for the demo account: pictures drawn with QPainter (shapes
// and colours only, so no fonts or display are needed), documents of an exact
// size, and voice notes as real Ogg Opus files.

// Size in bytes of the voice note that demo_write_voice_note writes for a
// duration; the encoder runs at a hard constant bit rate so this is exact.
qint64 demo_voice_file_size(int seconds);

bool demo_write_voice_note(const QString &path, int seconds, quint64 seed, QString *error);
bool demo_write_picture(const QString &path, int width, int height, quint64 seed, QString *error);
bool demo_write_document(const QString &path, const QString &name, qint64 size, quint64 seed,
                         QString *error);

// Minimal Ogg page writer for one logical Opus stream.
class DemoOggWriter
{
public:
    explicit DemoOggWriter(quint32 serial) : m_serial(serial) {}
    // Appends one page holding whole packets (each below 255 * 255 bytes).
    void writePage(const QList<QByteArray> &packets, qint64 granule, bool bos, bool eos);
    const QByteArray &data() const { return m_data; }

private:
    quint32 m_serial;
    quint32 m_sequence = 0;
    QByteArray m_data;
};

quint32 demo_ogg_crc(const QByteArray &page);
