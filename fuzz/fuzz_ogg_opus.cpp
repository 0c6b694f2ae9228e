// Voice notes: the Ogg Opus reader and its conversion to WAV, both as the
// one-shot conversion and in steps with the reserved length the player uses.
// Properties: the two paths agree; a finished WAV is exactly its header plus
// the decoded bytes, and its header says so; what is decoded and what is
// reserved from the last page's granule stay within the set limit (small
// here, so that tiny packets of 120 ms each reach it). The packet limit is the
// reader's own (a longer packet fails the file).

#include "fuzz_common.h"
#include "media/audio_libs.h"
#include "media/ogg_opus_decoder.h"

#include <QFile>
#include <QtEndian>

namespace {

void checkWav(const QString &path, qint64 decoded)
{
    QFile f(path);
    fuzz::check(f.open(QIODevice::ReadOnly), "finished WAV cannot be read");
    fuzz::check(f.size() == 44 + decoded, "WAV length is not header plus data",
                QStringLiteral("%1 vs %2").arg(f.size()).arg(decoded));
    const QByteArray header = f.read(44);
    fuzz::check(header.startsWith("RIFF") && header.mid(36, 4) == "data", "bad WAV header");
    fuzz::check(qFromLittleEndian<quint32>(header.constData() + 40) == quint32(decoded),
                "WAV header data size differs");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static OpusLib opus;
    const QString dir = fuzz::processTempDir("ogg");
    const QString in = dir + QStringLiteral("/in.ogg");
    const QString outOnce = dir + QStringLiteral("/once.wav");
    const QString outSteps = dir + QStringLiteral("/steps.wav");
    {
        QFile file(in);
        if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
            fuzz::violated("setup", in);
        file.write(reinterpret_cast<const char *>(data), qint64(size));
    }
    QString onceError;
    const bool once = decodeOgaOpusToWav(opus, in, outOnce, &onceError);
    fuzz::check(once || !onceError.isEmpty(), "failure without a reason");

    const qint64 estimate = oggOpusEstimatedPcmBytes(in);
    fuzz::check(estimate >= 0 && estimate < (qint64(1) << 41), "reserved length out of bounds");
    const qint64 limit = 4 * 1024 * 1024;
    OggOpusToWav steps(opus);
    steps.setMaxDataBytes(limit);
    QString error;
    bool ok = steps.open(in, outSteps, estimate, &error);
    fuzz::check(QFileInfo(outSteps).size() <= 44 + limit, "reserved beyond the limit");
    while (ok && !steps.atEnd())
        ok = steps.step(1, &error);
    ok = ok && steps.finish(&error);
    fuzz::check(steps.decodedBytes() <= limit, "decoded beyond the limit");
    if (error != QLatin1String("opus: too long for a WAV file"))
        fuzz::check(ok == once, "stepped and one-shot conversions disagree", onceError + error);
    if (ok) {
        fuzz::check(steps.decodedBytes() > 0, "finished without audio");
        checkWav(outSteps, steps.decodedBytes());
        checkWav(outOnce, steps.decodedBytes());
    }
    return 0;
}
