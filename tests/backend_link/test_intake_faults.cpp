// The events file under faults: a writer killed in the middle of its burst, and the file
// truncated, rewritten, replaced or deleted while the client reads it. Every complete event
// arrives once, in order, and no half line is ever taken for an event.

#include "backend_link/app_log.h"
#include "backend_link/event_intake.h"

#include <QProcess>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

#include <csignal>
#include <cstdio>

#include "common/test_util.h"

using namespace test_util;

namespace {

QByteArray lines(int from, int to)
{
    QByteArray out;
    for (int n = from; n <= to; ++n)
        out += "{\"type\":\"burst\",\"n\":" + QByteArray::number(n) + "}\n";
    return out;
}

// A stand-in backend: appends events from..to, one write each, then half of one more line, and
// waits to be killed.
void startWriter(QProcess &p, const QString &file, int from, int to)
{
    p.start(
        QStringLiteral("sh"),
        {QStringLiteral("-c"),
         QStringLiteral("i=%1; while [ $i -le %2 ]; do "
                        "printf '{\"type\":\"burst\",\"n\":%d}\\n' $i; i=$((i+1)); done "
                        ">>\"$0\"; printf '{\"type\":\"burst\",\"n\":' >>\"$0\"; exec sleep 600")
             .arg(from)
             .arg(to),
         file});
}

// "1..N" when the events delivered are 1 to N, each once, in order.
QString numbers(const QSignalSpy &spy)
{
    for (int i = 0; i < spy.count(); ++i) {
        if (spy.at(i).at(0).toMap().value(QStringLiteral("n")).toInt() != i + 1)
            return QStringLiteral("wrong event at %1").arg(i);
    }
    return QStringLiteral("1..%1").arg(spy.count());
}

// The client's intake polling an events file in a folder of its own, and what it delivers.
struct Reader
{
    QTemporaryDir dir;
    QString events = dir.filePath(QStringLiteral("backend_events.jsonl"));
    AppLog log;
    EventIntake intake{&log};
    QSignalSpy spy{&intake, &EventIntake::eventReceived};

    Reader()
    {
        intake.setEventsFilePath(events);
        intake.startPolling();
    }
};

} // namespace

class TestIntakeFaults : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void killedWriter_data()
    {
        QTest::addColumn<int>("upTo");   // events in its burst
        QTest::addColumn<int>("killAt"); // killed once this many arrived; upTo: after half a line
        QTest::newRow("killed in the middle of its burst") << 100000 << 200;
        QTest::newRow("killed after half a line") << 300 << 300;
    }
    void killedWriter()
    {
        QFETCH(int, upTo);
        QFETCH(int, killAt);
        Reader r;
        const QString &events = r.events;
        QSignalSpy &spy = r.spy;
        QProcess writer;
        startWriter(writer, events, 1, upTo);
        QVERIFY(waitFor(
            [&] {
                return spy.count() >= killAt && (killAt < upTo || !readAll(events).endsWith('\n'));
            },
            60000));
        ::kill(pid_t(writer.processId()), SIGKILL);
        QVERIFY(writer.waitForFinished(10000));
        const int whole = readAll(events).count('\n');
        QVERIFY(waitFor([&] { return spy.count() >= whole; }, 30000));
        QCOMPARE(numbers(spy), QStringLiteral("1..%1").arg(whole));
        QVERIFY(!r.log.buffer().contains(QStringLiteral("parse error")));
        // The next backend (a service started anew) appends to the same file: its events arrive
        // whole, and the dead half line, ended by it, is reported and dropped.
        spy.clear();
        QProcess next;
        next.setEnvironment(cleanEnvironment()
                            << "VEXA_DATA_DIR=" + r.dir.path() << "BACKEND_EVENTS_FILE=" + events
                            << "DEMO_SPEED=0");
        next.start(QStringLiteral(TD_BACKEND_PATH), QStringList());
        next.closeWriteChannel(); // it answers what is pending and ends
        QVERIFY(next.waitForFinished(30000));
        QVERIFY(waitFor([&] { return texts(spy).contains(QStringLiteral("td_closed")); }, 30000));
        QCOMPARE(texts(spy).first(), QStringLiteral("backend_ready"));
        QCOMPARE(r.log.buffer().count(QStringLiteral("[event] json parse error\n")),
                 readAll(events).count("\"n\":\n"));
    }

    void fileChangedUnderReader_data()
    {
        QTest::addColumn<QString>("fault");
        QTest::newRow("truncated") << "truncate";
        QTest::newRow("truncated and written past the old end") << "rewrite";
        QTest::newRow("replaced by a longer file") << "replace";
        QTest::newRow("deleted") << "delete";
    }
    void fileChangedUnderReader()
    {
        QFETCH(QString, fault);
        Reader r;
        const QString &events = r.events;
        QSignalSpy &spy = r.spy;
        QProcess writer;
        startWriter(writer, events, 1, 50);
        QVERIFY(waitFor([&] { return spy.count() >= 50; }, 30000));
        writer.kill();
        writer.waitForFinished();

        // Each fault is done in one step, between two reads.
        if (fault == QLatin1String("truncate")) {
            QVERIFY(QFile::resize(events, 0));
        } else if (fault == QLatin1String("rewrite")) {
            QVERIFY(writeFile(events, lines(51, 200)));
        } else if (fault == QLatin1String("replace")) {
            QVERIFY(writeFile(events + ".new", lines(51, 200)));
            QVERIFY(std::rename(qPrintable(events + ".new"), qPrintable(events)) == 0);
        } else {
            QVERIFY(QFile::remove(events));
        }
        const int from = readAll(events).count('\n') + 51;
        QProcess next;
        startWriter(next, events, from, from + 49);
        QVERIFY(waitFor([&] { return spy.count() >= from + 49; }, 30000));
        next.kill();
        next.waitForFinished();
        QCOMPARE(numbers(spy), QStringLiteral("1..%1").arg(from + 49));
        QVERIFY(!r.log.buffer().contains(QStringLiteral("parse error")));
    }
};

QTEST_GUILESS_MAIN(TestIntakeFaults)
#include "test_intake_faults.moc"
