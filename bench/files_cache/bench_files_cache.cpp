// Measures and clears a cache of 20,000 files on the event loop and reports
// how long the loop went without turning (the longest slice), the number of
// progress reports and the whole time. Prints milliseconds.
#include "../common/stats.h"
#include "shell/files_cache.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>
#include <QTimer>

#include <cstdio>
#include <vector>

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QTemporaryDir dir;
    const QList<CacheFolder> folders = files_cache_folders(dir.path());
    const QByteArray bytes(4096, 'x');
    for (int i = 0; i < 20000; ++i) {
        const QString folder = folders.at(i % folders.size()).path;
        if (i < folders.size())
            QDir().mkpath(folder);
        QFile f(QStringLiteral("%1/%2.bin").arg(folder).arg(i));
        if (!f.open(QIODevice::WriteOnly) || f.write(bytes) != bytes.size())
            return 1;
    }

    FilesCache cache(folders);
    for (bool clearing : {false, true}) {
        // A zero timer notes every turn of the loop; the gaps are what the
        // window would wait for input and painting.
        QElapsedTimer clock;
        std::vector<double> gaps;
        qint64 last = 0;
        QTimer ticker;
        ticker.setInterval(0);
        QObject::connect(&ticker, &QTimer::timeout, [&] {
            const qint64 now = clock.nsecsElapsed();
            gaps.push_back(double(now - last) / 1e6);
            last = now;
        });
        int reports = 0;
        QObject::connect(&cache, &FilesCache::progress, &app, [&] { ++reports; });
        QEventLoop loop;
        QObject::connect(&cache, &FilesCache::measured, &loop, &QEventLoop::quit);
        clock.start();
        ticker.start();
        clearing ? cache.clear() : cache.measure();
        loop.exec();
        const double total = double(clock.nsecsElapsed()) / 1e6;
        ticker.stop();
        QObject::disconnect(&cache, &FilesCache::progress, &app, nullptr);
        std::printf("%s 20,000 files: %.0f ms, %d progress reports, loop gap median %.2f ms, "
                    "max %.2f ms\n",
                    clearing ? "clear" : "measure", total, reports, bench::median(gaps),
                    *std::max_element(gaps.begin(), gaps.end()));
    }
    return 0;
}
