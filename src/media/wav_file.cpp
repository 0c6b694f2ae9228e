#include "media/wav_file.h"

#include <QFile>
#include <QtEndian>

bool read_wav_pcm16(const QString &path, WavPcm16 &wav, QString *error, qint64 maxDataBytes)
{
    if (error)
        error->clear();
    wav = WavPcm16();
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly)) {
        if (error)
            *error = QStringLiteral("wav: cannot open input");
        return false;
    }
    char riff[12];
    if (f.read(riff, 12) != 12 || memcmp(riff, "RIFF", 4) != 0 ||
        memcmp(riff + 8, "WAVE", 4) != 0) {
        if (error)
            *error = QStringLiteral("wav: not a RIFF/WAVE file");
        return false;
    }
    bool haveFmt = false;
    while (true) {
        char ch[8];
        if (f.read(ch, 8) != 8) {
            if (error)
                *error = QStringLiteral("wav: no data chunk");
            return false;
        }
        const quint32 size = qFromLittleEndian<quint32>(ch + 4);
        if (memcmp(ch, "fmt ", 4) == 0) {
            if (size < 16 || size > 1024) {
                if (error)
                    *error = QStringLiteral("wav: bad fmt chunk");
                return false;
            }
            const QByteArray fmt = f.read(size + (size & 1));
            if (fmt.size() < int(size)) {
                if (error)
                    *error = QStringLiteral("wav: truncated fmt chunk");
                return false;
            }
            const quint16 tag = qFromLittleEndian<quint16>(fmt.constData());
            const quint16 bits = qFromLittleEndian<quint16>(fmt.constData() + 14);
            wav.channels = qFromLittleEndian<quint16>(fmt.constData() + 2);
            wav.sampleRate = int(qFromLittleEndian<quint32>(fmt.constData() + 4));
            // 0xFFFE (extensible) carries plain PCM in the cases we accept.
            if ((tag != 1 && tag != 0xFFFE) || bits != 16) {
                if (error)
                    *error = QStringLiteral("wav: only 16-bit PCM is supported");
                return false;
            }
            haveFmt = true;
        } else if (memcmp(ch, "data", 4) == 0) {
            if (!haveFmt) {
                if (error)
                    *error = QStringLiteral("wav: data before fmt");
                return false;
            }
            qint64 want = size;
            // Streams written without a known length carry 0 or 0xFFFFFFFF.
            if (want == 0 || want == 0xFFFFFFFFLL)
                want = f.size() - f.pos();
            if (want > maxDataBytes) {
                if (error)
                    *error = QStringLiteral("wav: data too large");
                return false;
            }
            wav.samples = f.read(want);
            const int frameBytes = 2 * qMax(1, wav.channels);
            wav.samples.chop(wav.samples.size() % frameBytes);
            return true;
        } else {
            if (!f.seek(f.pos() + size + (size & 1))) {
                if (error)
                    *error = QStringLiteral("wav: truncated chunk");
                return false;
            }
        }
    }
}
