// Voice note codec speed on one 10-minute voice-like file: our decoder
// against "opusdec --rate 48000", our encoder against opusenc with the same
// complexity, bitrate and frame size. Goals: decode at most 0.9 of opusdec's
// time, encode no slower than opusenc.
//
// Usage: bench_opus [minutes] [runs]

#include "../common/voice_signal.h"
#include "media/audio_libs.h"
#include "media/ogg_opus_decoder.h"
#include "media/voice_file_encoder.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QVector>

#include <cmath>
#include <cstdio>
#include <functional>

namespace {

qint64 best_of(int runs, const std::function<bool()> &job)
{
    qint64 best = -1;
    for (int r = 0; r < runs; ++r) {
        QElapsedTimer t;
        t.start();
        if (!job())
            return -1;
        const qint64 ns = t.nsecsElapsed();
        if (best < 0 || ns < best)
            best = ns;
    }
    return best;
}

bool run_tool(const QString &program, const QStringList &args)
{
    QProcess p;
    p.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    p.setStandardOutputFile(QProcess::nullDevice());
    p.start(program, args);
    if (!p.waitForFinished(600000) || p.exitStatus() != QProcess::NormalExit || p.exitCode() != 0) {
        std::fprintf(stderr, "%s failed\n", qPrintable(program));
        return false;
    }
    return true;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();
    const int minutes = args.size() > 1 ? args.at(1).toInt() : 10;
    const int runs = args.size() > 2 ? args.at(2).toInt() : 3;
    QTemporaryDir dir;
    const QString wav = dir.filePath(QStringLiteral("voice.wav"));
    const QString ours = dir.filePath(QStringLiteral("ours.ogg"));
    const QString theirs = dir.filePath(QStringLiteral("opusenc.opus"));
    if (!write_voice_wav(wav, minutes * 60)) {
        std::fprintf(stderr, "cannot write %s\n", qPrintable(wav));
        return 1;
    }
    std::printf("input: %d min mono 48 kHz voice-like signal, best of %d runs\n", minutes, runs);

    OpusLib opus;
    QString error;
    // Standard granules, so that opusdec accepts the same file.
    const qint64 encOurs =
        best_of(runs, [&] { return encode_wav_to_voice_ogg(opus, wav, ours, &error, true); });
    if (encOurs < 0) {
        std::fprintf(stderr, "encode failed: %s\n", qPrintable(error));
        return 1;
    }
    // The recorder's settings: complexity 5, 20 kbit/s VBR, 20 ms frames,
    // voice signal.
    const qint64 encTheirs = best_of(runs, [&] {
        return run_tool(QStringLiteral("opusenc"),
                        {QStringLiteral("--quiet"), QStringLiteral("--comp"), QStringLiteral("5"),
                         QStringLiteral("--bitrate"), QStringLiteral("20"), QStringLiteral("--vbr"),
                         QStringLiteral("--framesize"), QStringLiteral("20"),
                         QStringLiteral("--speech"), wav, theirs});
    });
    const qint64 decOurs = best_of(runs, [&] {
        return decodeOgaOpusToWav(opus, ours, dir.filePath(QStringLiteral("ours.wav")), &error);
    });
    const qint64 decTheirs = best_of(runs, [&] {
        return run_tool(QStringLiteral("opusdec"),
                        {QStringLiteral("--quiet"), QStringLiteral("--rate"),
                         QStringLiteral("48000"), ours,
                         dir.filePath(QStringLiteral("opusdec.wav"))});
    });
    if (encTheirs < 0 || decOurs < 0 || decTheirs < 0) {
        std::fprintf(stderr, "a run failed: %s\n", qPrintable(error));
        return 1;
    }
    const double ms = 1e6;
    std::printf("encode: ours %.1f ms, opusenc %.1f ms, ratio %.2f (goal <= 1.00)\n", encOurs / ms,
                encTheirs / ms, double(encOurs) / double(encTheirs));
    std::printf("decode: ours %.1f ms, opusdec %.1f ms, ratio %.2f (goal <= 0.90)\n", decOurs / ms,
                decTheirs / ms, double(decOurs) / double(decTheirs));
    std::printf("sizes: ours %lld bytes, opusenc %lld bytes\n",
                static_cast<long long>(QFile(ours).size()),
                static_cast<long long>(QFile(theirs).size()));
    return 0;
}
