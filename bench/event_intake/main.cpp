// Time to read, parse and hand on a burst of small event lines: one real events file, one
// EventIntake::onPoll(), each event delivered through eventReceived.

#include "backend_link/app_log.h"
#include "backend_link/event_intake.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <vector>

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const int lines = argc > 1 ? QByteArray(argv[1]).toInt() : 100000;
    const int rounds = 5;

    QTemporaryDir dir;
    if (!dir.isValid())
        return 1;
    const QString path = dir.filePath(QStringLiteral("backend_events.jsonl"));

    std::vector<double> times;
    for (int round = 0; round < rounds; ++round) {
        QFile::remove(path);
        AppLog log;
        EventIntake intake(&log);
        intake.setEventsFilePath(path);
        intake.resetOffsets();
        qint64 received = 0;
        qint64 checksum = 0;
        QObject::connect(&intake, &EventIntake::eventReceived, [&](const QVariantMap &event) {
            ++received;
            checksum += event.value(QStringLiteral("message_id")).toLongLong();
        });

        QByteArray burst;
        burst.reserve(lines * 120);
        for (int i = 0; i < lines; ++i) {
            burst += "{\"type\":\"message_new\",\"chat_id\":-1001234567890,\"message_id\":";
            burst += QByteArray::number(i + 1);
            burst += ",\"date\":1700000000,\"text\":\"hello number ";
            burst += QByteArray::number(i);
            burst += "\"}\n";
        }
        QFile f(path);
        if (!f.open(QIODevice::WriteOnly) || f.write(burst) != burst.size())
            return 1;
        f.close();

        QElapsedTimer timer;
        timer.start();
        intake.onPoll();
        const double ms = double(timer.nsecsElapsed()) / 1e6;
        if (received != lines || checksum != qint64(lines) * (lines + 1) / 2) {
            std::fprintf(stderr, "lost events: %lld of %d\n", static_cast<long long>(received),
                         lines);
            return 1;
        }
        times.push_back(ms);
        std::printf("round %d: %d lines (%.1f MiB) in %.1f ms, %.0f lines/s\n", round + 1, lines,
                    double(burst.size()) / (1024.0 * 1024.0), ms, lines / (ms / 1000.0));
    }
    std::sort(times.begin(), times.end());
    const double median = times[times.size() / 2];
    std::printf("median: %.1f ms, %.0f lines/s\n", median, lines / (median / 1000.0));
    return 0;
}
