// From the tap on a 10-minute voice note to its sound reaching the sound
// server, for the first play (the Ogg Opus file is converted to a cached WAV)
// and for later plays (the cached WAV plays at once). Sound is observed where
// a listener would get it: the default sink's monitor, read with parec, so a
// PulseAudio server must run (see "Audio in headless tests" in PORTING.md: a
// null sink as the default sink is enough). Goals: first play under 300 ms,
// cached under 50 ms.
//
// Usage: bench_voice_playback [minutes] [runs]

#include "../common/stats.h"
#include "../common/voice_signal.h"
#include "media/audio_libs.h"
#include "media/media_services.h"
#include "media/voice_file_encoder.h"
#include "media/voice_player.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QProcess>
#include <QTemporaryDir>
#include <QTimer>

#include <cstdio>
#include <cstdlib>

namespace {

// Reads the monitor of the default sink and tells when a sample louder than
// the noise floor arrives.
class SoundWatch
{
public:
    bool start()
    {
        m_parec.setProgram(QStringLiteral("parec"));
        m_parec.setArguments({QStringLiteral("--device=@DEFAULT_MONITOR@"),
                              QStringLiteral("--format=s16le"), QStringLiteral("--rate=48000"),
                              QStringLiteral("--channels=1"), QStringLiteral("--latency-msec=5"),
                              QStringLiteral("--raw")});
        m_parec.start();
        if (!m_parec.waitForStarted(5000))
            return false;
        // Let the stream settle, then drop what came before the tap.
        QEventLoop loop;
        QTimer::singleShot(300, &loop, &QEventLoop::quit);
        loop.exec();
        m_parec.readAll();
        return true;
    }
    void stop()
    {
        m_parec.kill();
        m_parec.waitForFinished(2000);
    }
    // Milliseconds from clock's start to the first loud sample; -1 on time-out.
    double waitForSound(const QElapsedTimer &clock, int timeoutMs)
    {
        while (clock.elapsed() < timeoutMs) {
            if (!m_parec.waitForReadyRead(20))
                continue;
            const QByteArray data = m_parec.readAll();
            const auto *s = reinterpret_cast<const qint16 *>(data.constData());
            for (int i = 0; i < data.size() / 2; ++i)
                if (std::abs(int(s[i])) > 600)
                    return clock.nsecsElapsed() / 1e6;
        }
        return -1;
    }
    void drain() { m_parec.readAll(); }

private:
    QProcess m_parec;
};

void spin(int ms)
{
    QEventLoop loop;
    QTimer::singleShot(ms, &loop, &QEventLoop::quit);
    loop.exec();
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();
    const int minutes = args.size() > 1 ? args.at(1).toInt() : 10;
    const int runs = args.size() > 2 ? args.at(2).toInt() : 5;
    if (QProcess::execute(QStringLiteral("pactl"), {QStringLiteral("info")}) != 0) {
        std::fprintf(stderr, "no PulseAudio server reachable (pactl info failed)\n");
        return 2;
    }
    QTemporaryDir dir;
    const QString wav = dir.filePath(QStringLiteral("voice.wav"));
    const QString ogg = dir.filePath(QStringLiteral("voice.ogg"));
    OpusLib opus;
    QString error;
    if (!write_voice_wav(wav, minutes * 60) ||
        !encode_wav_to_voice_ogg(opus, wav, ogg, &error, false)) {
        std::fprintf(stderr, "cannot make the voice note: %s\n", qPrintable(error));
        return 1;
    }
    std::printf("a %d-minute voice note, %d runs each\n", minutes, runs);

    MediaServices services;
    QObject listView;
    SoundWatch watch;
    if (!watch.start()) {
        std::fprintf(stderr, "parec did not start\n");
        return 1;
    }
    std::vector<double> first, cached;
    for (int r = 0; r < runs; ++r) {
        // A new cache folder makes the next tap a first play.
        const QString cache = dir.filePath(QStringLiteral("cache%1").arg(r));
        VoicePlayer player(opus, nullptr, cache, services, &listView);
        // As the client does when a chat opens: the media framework had the
        // time to start before the first tap, which makes the player.
        QElapsedTimer prep;
        prep.start();
        player.prepare();
        std::printf("  run %d, prepare: %.0f ms\n", r, prep.nsecsElapsed() / 1e6);
        spin(r == 0 ? 2000 : 0);
        for (int play = 0; play < 2; ++play) {
            watch.drain();
            QElapsedTimer clock;
            clock.start();
            player.onVoiceTapped(ogg, 7);
            const double ms = watch.waitForSound(clock, 10000);
            if (ms < 0) {
                std::fprintf(stderr, "no sound within 10 s (run %d, play %d)\n", r, play);
                return 1;
            }
            (play == 0 ? first : cached).push_back(ms);
            std::printf("  run %d, %s: %.0f ms\n", r, play == 0 ? "first play" : "cached", ms);
            player.stopVoicePlayback();
            // Quiet again before the next tap.
            spin(400);
        }
    }
    watch.stop();
    std::printf("first play (conversion): median %.0f ms, max %.0f ms (goal under 300 ms)\n",
                bench::median(first), *std::max_element(first.begin(), first.end()));
    std::printf("cached WAV:              median %.0f ms, max %.0f ms (goal under 50 ms)\n",
                bench::median(cached), *std::max_element(cached.begin(), cached.end()));
    return 0;
}
