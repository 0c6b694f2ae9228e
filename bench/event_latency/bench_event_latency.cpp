// Time from the write of an event line into the events file to the event's delivery through
// EventIntake::eventReceived (the dispatcher's entry), with the intake polling as in the client
// (adaptive timer from 1000 ms, file watch) in the foreground.
//
// Usage: bench_event_latency [events=100] [quiet events=10]
// A writer thread appends one line at a time with O_APPEND, as the backend does: first a
// series at random gaps of 20 to 300 ms (the timer then runs at its fast 200 ms), then events
// each after 2.5 to 3.5 s of quiet (the timer back at 1000 ms).

#include "backend_link/app_log.h"
#include "backend_link/event_intake.h"

#include <QCoreApplication>
#include <QTemporaryDir>
#include <QTimer>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fcntl.h>
#include <random>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

qint64 nowNs()
{
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

void report(const char *what, std::vector<double> ms)
{
    if (ms.empty())
        return;
    std::sort(ms.begin(), ms.end());
    const auto at = [&](double q) { return ms[size_t(q * double(ms.size() - 1))]; };
    std::printf("%-32s %3zu events: median %.2f ms, 90th %.2f ms, max %.2f ms\n", what, ms.size(),
                at(0.5), at(0.9), ms.back());
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const int busy = argc > 1 ? QByteArray(argv[1]).toInt() : 100;
    const int quiet = argc > 2 ? QByteArray(argv[2]).toInt() : 10;
    const int total = busy + quiet;

    QTemporaryDir dir;
    if (!dir.isValid() || total <= 0)
        return 1;
    const QString path = dir.filePath(QStringLiteral("backend_events.jsonl"));
    const int fd = ::open(QFile::encodeName(path).constData(), O_WRONLY | O_CREAT | O_APPEND, 0600);
    if (fd < 0)
        return 1;

    AppLog log;
    EventIntake intake(&log);
    intake.setEventsFilePath(path);
    intake.resetOffsets();
    std::vector<double> busyMs;
    std::vector<double> quietMs;
    QObject::connect(&intake, &EventIntake::eventReceived, [&](const QVariantMap &event) {
        const double ms = double(nowNs() - event.value(QStringLiteral("t")).toLongLong()) / 1e6;
        (event.value(QStringLiteral("n")).toInt() < busy ? busyMs : quietMs).push_back(ms);
        if (int(busyMs.size() + quietMs.size()) == total)
            QCoreApplication::quit();
    });
    intake.startPolling();

    std::thread writer([&] {
        std::mt19937 random(42);
        std::uniform_int_distribution<int> gap(20, 300);
        std::uniform_int_distribution<int> quietGap(2500, 3500);
        for (int n = 0; n < total; ++n) {
            std::this_thread::sleep_for(
                std::chrono::milliseconds(n < busy ? gap(random) : quietGap(random)));
            const QByteArray line = "{\"type\":\"ping\",\"n\":" + QByteArray::number(n) +
                                    ",\"t\":" + QByteArray::number(nowNs()) + "}\n";
            if (::write(fd, line.constData(), size_t(line.size())) != line.size())
                return;
        }
    });
    // A generous cap, far beyond the run's own length.
    QTimer::singleShot((busy * 300 + quiet * 3500) * 2 + 10000, &app, [] {
        std::fprintf(stderr, "events lost\n");
        QCoreApplication::exit(1);
    });
    const int rc = QCoreApplication::exec();
    writer.join();
    ::close(fd);
    report("at random 20-300 ms gaps", busyMs);
    report("each after 2.5-3.5 s of quiet", quietMs);
    busyMs.insert(busyMs.end(), quietMs.begin(), quietMs.end());
    report("all", busyMs);
    return rc;
}
