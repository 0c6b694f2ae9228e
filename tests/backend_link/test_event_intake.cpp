#include "backend_link/app_log.h"
#include "backend_link/event_intake.h"

#include <QBuffer>
#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

#include <memory>

#include "common/test_util.h"

using namespace test_util;

class TestEventIntake : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init()
    {
        f = std::make_unique<Fixture>();
        f->console.open(QIODevice::WriteOnly);
        f->log.setConsoleDevice(&f->console);
        f->intake.setEventsFilePath(f->events);
        f->intake.setTdlibLogPath(f->tdlib);
    }
    void cleanup() { f.reset(); }

    void poll_eventsFile_data()
    {
        // One poll after each write; the types each poll delivers, "," between polls. A write
        // starting with "!" replaces the file (the backend started a new one); one starting with
        // "^" lands before the reader skips to the end, and is not polled.
        QTest::addColumn<QList<QByteArray>>("writes");
        QTest::addColumn<QString>("types");
        QTest::addColumn<int>("parseErrors");
        const auto row = [](const char *name, const QList<QByteArray> &w, const QString &t, int e) {
            QTest::newRow(name) << w << t << e;
        };
        row("partial line later, whole",
            {"{\"type\":\"a\"}\n{\"type\":\"b\",", "\"n\":1}", "\n", ""}, "a,,b,", 0);
        row("blanks and non-objects skipped silently",
            {"\n   \n\t\r\n[1,2]\n42\n\"text\"\nnull\n{\"type\":\"x\"}\r\n"}, "x", 0);
        row("parse errors logged, later lines go on",
            {"{\"type\":\"a\"}\n{broken\n42 43\n{\"type\":\"b\"} x\n{\"type\":\"c\"}\n"}, "ac", 3);
        row("repeated key dropped",
            {"{\"type\":\"chat\",\"id\":{\"x\":1},\"id\":5}\n{\"type\":\"end\"}\n"}, "end", 0);
        row("character split across polls", {"{\"type\":\"\xc3", "\xa9\"}\n"}, QStringLiteral(",é"),
            0);
        row("invalid UTF-8 replaced, not dropped",
            {"{\"type\":\"a\xff\"}\n{\"type\":\"\xed\xa0\x80\"}\n"},
            QStringLiteral("a\uFFFD\uFFFD\uFFFD\uFFFD"), 0);
        row("new file: the old partial line is not glued to it",
            {"{\"type\":\"a\"}\n{\"type\":\"partial", "!{\"type\":\"n\"}\n"}, "a,n", 0);
        row("lines before the skip never delivered, the cut one is garbage",
            {"^{\"type\":\"old_partial\"", "}\n{\"type\":\"new\"}\n"}, "new", 1);
    }
    void poll_eventsFile()
    {
        QFETCH(QList<QByteArray>, writes);
        QFETCH(QString, types);
        QFETCH(int, parseErrors);
        QSignalSpy spy(&f->intake, &EventIntake::eventReceived);
        QVERIFY(writeFile(f->events, "{\"type\":\"old\"}\n"));
        f->intake.resetOffsets();
        QStringList polls;
        for (const QByteArray &w : writes) {
            QVERIFY(writeFile(f->events, w.mid(w.startsWith('!') || w.startsWith('^')),
                              !w.startsWith('!')));
            if (w.startsWith('^')) {
                f->intake.resetOffsets();
                continue;
            }
            spy.clear();
            f->intake.onPoll();
            polls << texts(spy).join("");
        }
        QCOMPARE(polls.join(","), types);
        QCOMPARE(f->log.buffer().count(QStringLiteral("[event] json parse error\n")), parseErrors);
    }
    void poll_overlongLineDropped()
    {
        const int pieces = 3; // the long line reaches the limit over several polls
        const QByteArray longLine =
            "{\"type\":\"big\",\"pad\":\"" + QByteArray(17 << 20, 'x') + "\"}";
        QSignalSpy spy(&f->intake, &EventIntake::eventReceived);
        QVERIFY(writeFile(f->events, "{\"type\":\"before\"}\n", true));
        const int step = longLine.size() / pieces + 1;
        for (int i = 0; i < pieces; ++i) {
            QVERIFY(writeFile(f->events, longLine.mid(i * step, step), true));
            f->intake.onPoll();
        }
        QVERIFY(writeFile(f->events, "\n{\"type\":\"after\"}\n", true));
        f->intake.onPoll();
        QCOMPARE(texts(spy), (QStringList{"before", "after"}));
        QCOMPARE(f->log.buffer(), QStringLiteral("[event] line too long\n"));
    }
    void poll_adaptiveInterval_data()
    {
        // Steps: A = an event arrives before the poll, - = an idle poll, T = thumbnailed,
        // F = fullscreen, L = low memory. One expected interval per step ("200*9": nine times).
        QTest::addColumn<QString>("steps");
        QTest::addColumn<QString>("intervals");
        const auto row = [](const char *name, const char *steps, const char *intervals) {
            QTest::newRow(name) << steps << intervals;
        };
        row("activity then ten polls fast, then idle", "-A----------", "1000 200*10 1000");
        row("new activity refills the ticks", "A--A---", "200*7");
        row("background: 2500 idle, 800 active", "T-A----------", "2500 2500 800*10 2500");
        row("fullscreen: idle interval, then fast polls", "TF----------", "2500 1000 200*9 1000");
        row("low memory: 2000, no fast polls", "AL--", "200 2000 1000 1000");
    }
    void poll_adaptiveInterval()
    {
        QFETCH(QString, steps);
        QFETCH(QString, intervals);
        QStringList expected;
        for (const QString &part : intervals.split(' '))
            for (int n = qMax(1, part.section('*', 1).toInt()); n > 0; --n)
                expected << part.section('*', 0, 0);
        QCOMPARE(expected.size(), steps.size());
        f->intake.startPolling();
        QStringList got;
        for (const QChar step : steps) {
            if (step == 'A')
                QVERIFY(writeFile(f->events, "{\"type\":\"tick\"}\n", true));
            if (step == 'A' || step == '-')
                f->intake.onPoll();
            else if (step == 'T')
                f->intake.onAppThumbnailed();
            else if (step == 'F')
                f->intake.onAppFullscreen();
            else if (step == 'L')
                f->intake.onLowMemory();
            got << QString::number(f->intake.currentPollInterval());
            QVERIFY(f->intake.isPollTimerActive());
        }
        QCOMPARE(got, expected);
    }
    void statusLines_fromOutput()
    {
        // In the chunks the child's output arrives in: blanks and CR trimmed; JSON, lower case and
        // a bare ready ignored; a split line joined, an unterminated one kept waiting.
        QSignalSpy spy(&f->intake, &EventIntake::statusTextChanged);
        for (const char *chunk :
             {"AUTH_STATE WaitPhone\n{\"type\":\"x\"}\n\n  \nauth_state Ready\nNEED code\n"
              "   ME 42 Ann Lee  \r\nBACKEND_READY\nBACKEND_READY   \nBACKEND_READY v1\n"
              "FATAL db broken\nAUTH_ST",
              "ATE Rea", "dy\nNEED x"})
            f->intake.handleOutput(QString::fromUtf8(chunk));
        QCOMPARE(texts(spy), (QStringList{"Auth: WaitPhone", "Need: code", "ME 42 Ann Lee",
                                          "Backend ready", "FATAL db broken", "Auth: Ready"}));
        QCOMPARE(f->log.buffer(), QStringLiteral("FATAL db broken\n"));
    }
    void handleOutput_overlongLineDropped()
    {
        QSignalSpy spy(&f->intake, &EventIntake::statusTextChanged);
        f->intake.handleOutput(QStringLiteral("NEED "));
        for (int i = 0; i < 5; ++i) // 20 Mi characters without a line feed
            f->intake.handleOutput(QString(4 << 20, QLatin1Char('z')));
        QVERIFY(f->intake.outputLineBuffer().size() <= EventIntake::kMaxOutputLineChars);
        f->intake.handleOutput(QStringLiteral("zzz\nNEED code\n"));
        QCOMPARE(texts(spy), QStringList{"Need: code"});
        QCOMPARE(f->log.buffer(), QStringLiteral("backend: output line too long\n"));
    }

    void statusLines_fromTdlibLog()
    {
        // Only while the log view shows, from the moment it is shown, and only the tagged lines,
        // each logged whole; here a bare ready counts.
        QSignalSpy spy(&f->intake, &EventIntake::statusTextChanged);
        QVERIFY(writeFile(f->tdlib, "[backend] NEED hidden\n"));
        f->intake.onPoll();
        QVERIFY(writeFile(f->tdlib, "[backend] NEED still_hidden\n", true));
        f->intake.onToggleDebugLog(); // shown: polls run fast
        const QByteArray tagged = "[backend] AUTH_STATE Ready\n[backend] NEED password\n"
                                  "[backend]   ME 7 Bo\n[backend] hello\n[backend] BACKEND_READY\n"
                                  "[backend] BACKEND_READY now\n[backend]FATAL disk\n";
        QVERIFY(writeFile(f->tdlib, tagged + "[ 1] td\n [backend] NEED x\n[backend] NEED y", true));
        f->intake.onPoll();
        QCOMPARE(f->intake.currentPollInterval(), 200);
        f->intake.onToggleDebugLog();
        QVERIFY(writeFile(f->tdlib, "\n[backend] NEED hidden_again\n", true));
        f->intake.onPoll();
        QCOMPARE(texts(spy), (QStringList{"Auth: Ready", "Need: password", "ME 7 Bo",
                                          "Backend ready", "FATAL disk"}));
        QCOMPARE(f->log.buffer(), QString::fromUtf8(tagged));
    }

private:
    struct Fixture
    {
        QTemporaryDir dir;
        QBuffer console; // keeps the copy of the shown log off the test output
        AppLog log;
        EventIntake intake{&log};
        QString events = dir.filePath("backend_events.jsonl");
        QString tdlib = dir.filePath("tdlib.log");
    };
    std::unique_ptr<Fixture> f;
};

QTEST_GUILESS_MAIN(TestEventIntake)
#include "test_event_intake.moc"
