// WAV files given to the voice encoder ("vexa-opus encode", recorded
// fallbacks). Properties: what is kept never exceeds the caller's bound and
// holds whole sample frames. Rate and channel count are the caller's to check.

#include "fuzz_common.h"
#include "media/wav_file.h"

#include <QFile>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QString path = fuzz::processTempDir("wav") + QStringLiteral("/in.wav");
    {
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate))
            fuzz::violated("setup", path);
        file.write(reinterpret_cast<const char *>(data), qint64(size));
    }
    // A small bound, so that the fuzzer can reach it.
    const qint64 maxData = 1024;
    WavPcm16 wav;
    QString error;
    if (read_wav_pcm16(path, wav, &error, maxData)) {
        fuzz::check(wav.samples.size() <= maxData, "kept more samples than allowed");
        fuzz::check(wav.samples.size() % (2 * qMax(1, wav.channels)) == 0, "partial sample frame");
    } else {
        fuzz::check(!error.isEmpty(), "failure without a reason");
    }
    return 0;
}
