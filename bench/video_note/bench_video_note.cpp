// Video notes: capture rate at 384x384 from the live GStreamer test picture
// (frames reaching the encoder per second of wall time, and per second of
// the written file), the time from release to the "sendvideonote64" line for
// a 10-second note, and the cost of one frame of inline playback in the
// row's circle and ring. Runs its own PulseAudio for the microphone and the
// sound of playback.

#include "../common/stats.h"
#include "common/audio.h"
#include "media/media_services.h"
#include "media/pulse_fixture.h"
#include "media/ui/video_note_widgets.h"
#include "media/video_note_player.h"
#include "media/video_note_recorder.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QTemporaryDir>
#include <QTimer>

#include <cstdio>
#include <ctime>
#include <vector>

namespace {

void waitUntil(const std::function<bool()> &done, int capMs)
{
    QElapsedTimer t;
    t.start();
    while (!done() && t.elapsed() < capMs)
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 50);
}

// Frames in each whole second from the first one.
std::vector<int> perSecond(const std::vector<double> &seconds)
{
    std::vector<int> bins;
    if (seconds.empty())
        return bins;
    const double first = seconds.front();
    for (double s : seconds) {
        const size_t bin = size_t(s - first);
        if (bins.size() <= bin)
            bins.resize(bin + 1, 0);
        ++bins[bin];
    }
    // The last second is cut by the release.
    if (bins.size() > 1)
        bins.pop_back();
    return bins;
}

// CPU time of this thread in ms: what a frame costs, without the time the
// thread waits for a core on a busy machine.
double threadCpuMs()
{
    timespec ts{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return ts.tv_sec * 1e3 + ts.tv_nsec / 1e6;
}

int minOf(const std::vector<int> &v)
{
    return v.empty() ? 0 : *std::min_element(v.begin(), v.end());
}

std::vector<double> filePacketSeconds(const QString &file)
{
    const testaudio::RunResult r = testaudio::run(
        QStringLiteral("ffprobe"), {"-v", "error", "-select_streams", "v", "-show_entries",
                                    "packet=pts_time", "-of", "csv=p=0", file});
    std::vector<double> out;
    for (const QString &line : r.output.split('\n', Qt::SkipEmptyParts))
        out.push_back(line.trimmed().toDouble());
    std::sort(out.begin(), out.end());
    return out;
}

} // namespace

int main(int argc, char **argv)
{
    QApplication app(argc, argv);
    PulseFixture pulse;
    QString error;
    if (!pulse.start(&error)) {
        std::fprintf(stderr, "pulseaudio: %s\n", qPrintable(error));
        return 1;
    }
    QTemporaryDir dir;
    QStringList lines;
    MediaServices services;
    services.sendLine = [&](const QString &l) { lines << l; };
    const int runs = 3;
    const int seconds = 10;

    std::vector<double> releaseMs;
    int worstWall = 1000, worstFile = 1000;
    QString note;
    for (int run = 0; run < runs; ++run) {
        VideoNoteRecorder rec(dir.filePath("data"), QStringLiteral("videotestsrc is-live=true"),
                              services);
        rec.setChatId(1);
        std::vector<double> arrivals;
        QElapsedTimer clock;
        clock.start();
        QObject::connect(&rec, &VideoNoteRecorder::frameEncoded,
                         [&] { arrivals.push_back(clock.elapsed() / 1000.0); });
        QString sentPath;
        QObject::connect(&rec, &VideoNoteRecorder::sent,
                         [&](const QString &path) { sentPath = path; });
        if (!rec.startVideoNoteCapture(&error)) {
            std::fprintf(stderr, "start: %s\n", qPrintable(error));
            return 1;
        }
        waitUntil([&] { return rec.captureStarted(); }, 20000);
        const qint64 startedAt = clock.elapsed();
        waitUntil([&] { return clock.elapsed() - startedAt >= seconds * 1000; }, seconds * 2000);
        QElapsedTimer release;
        release.start();
        rec.stopVideoNoteCapture(true);
        waitUntil([&] { return !sentPath.isEmpty(); }, 20000);
        releaseMs.push_back(release.nsecsElapsed() / 1e6);
        const int wall = minOf(perSecond(arrivals));
        const int file = minOf(perSecond(filePacketSeconds(sentPath)));
        worstWall = qMin(worstWall, wall);
        worstFile = qMin(worstFile, file);
        std::printf("capture run %d: %zu frames, side %d, slowest second %d frames (wall), %d "
                    "(file); release to send %.0f ms\n",
                    run + 1, arrivals.size(), rec.side(), wall, file, releaseMs.back());
        note = sentPath;
    }
    std::printf("capture: slowest second %d fps at the encoder, %d fps in the file (goal >= 25)\n",
                worstWall, worstFile);
    std::printf("release to sendvideonote64 for a %d s note: median %.0f ms, max %.0f ms (goal < "
                "1000 ms)\n",
                seconds, bench::median(releaseMs), bench::percentile(releaseMs, 1.0));

    // Inline playback: each frame goes into the row's circle and ring, which
    // are then painted at once.
    QWidget mask;
    mask.setFixedSize(240, 240);
    VideoNoteCircle circle(&mask);
    circle.setGeometry(7, 7, 226, 226);
    VideoNoteRing track(VideoNoteRing::Kind::Track, &mask);
    VideoNoteRing ring(VideoNoteRing::Kind::Progress, &mask);
    track.setGeometry(0, 0, 240, 240);
    ring.setGeometry(0, 0, 240, 240);
    mask.show();
    QObject view;
    VideoNotePlayer player(nullptr, services, &view);
    std::vector<double> paintMs, paintCpuMs;
    QObject::connect(&player, &VideoNotePlayer::frameReady, [&](const QImage &frame) {
        QElapsedTimer t;
        t.start();
        const double cpu = threadCpuMs();
        circle.setImage(frame);
        ring.setProgress(player.progress());
        mask.repaint();
        paintCpuMs.push_back(threadCpuMs() - cpu);
        paintMs.push_back(t.nsecsElapsed() / 1e6);
    });
    bool done = false;
    QObject::connect(&player, &VideoNotePlayer::playingChanged,
                     [&](bool playing) { done = done || !playing; });
    player.startVideoNotePlayback(1, note, 1);
    waitUntil([&] { return done; }, 60000);
    std::printf("inline playback: %zu frames painted, wall median %.2f ms, 95th %.2f ms, max "
                "%.2f ms; CPU median %.2f ms, 95th %.2f ms, max %.2f ms (goal < 4 ms)\n",
                paintMs.size(), bench::median(paintMs), bench::percentile(paintMs, 0.95),
                bench::percentile(paintMs, 1.0), bench::median(paintCpuMs),
                bench::percentile(paintCpuMs, 0.95), bench::percentile(paintCpuMs, 1.0));
    return 0;
}
