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
    void init();
    void cleanup() { f.reset(); }

    void poll_eventsFile_data();
    void poll_eventsFile();
    void poll_missingThenTruncatedFile();
    void poll_linesBeforeResetNeverDelivered();
    void poll_overlongLineDropped_data();
    void poll_overlongLineDropped();
    void poll_suspendedReadsNothing();
    void poll_adaptiveInterval_data();
    void poll_adaptiveInterval();
    void poll_fileChangeReadAtOnce_data();
    void poll_fileChangeReadAtOnce();

    void handleOutput_prefixes_data();
    void handleOutput_prefixes();
    void handleOutput_overlongLineDropped();

    void tailTdlibLog_rules_data();
    void tailTdlibLog_rules();
    void poll_tailsTdlibLogOnlyWhileViewVisible();

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

void TestEventIntake::init()
{
    f = std::make_unique<Fixture>();
    f->console.open(QIODevice::WriteOnly);
    f->log.setConsoleDevice(&f->console);
    f->intake.setEventsFilePath(f->events);
    f->intake.setTdlibLogPath(f->tdlib);
}

void TestEventIntake::poll_eventsFile_data()
{
    // One poll after each write; the types each poll delivers, "," between polls.
    QTest::addColumn<QList<QByteArray>>("writes");
    QTest::addColumn<QString>("types");
    QTest::addColumn<int>("parseErrors");
    const auto row = [](const char *name, const QList<QByteArray> &w, const QString &t, int e) {
        QTest::newRow(name) << w << t << e;
    };
    row("burst in file order in one poll",
        {"{\"type\":\"a\"}\n{\"type\":\"b\"}\n{\"type\":\"c\"}\n"}, "abc", 0);
    row("partial line later, whole", {"{\"type\":\"a\"}\n{\"type\":\"b\",", "\"n\":1}", "\n", ""},
        "a,,b,", 0);
    row("blank lines skipped silently", {"\n   \n\t\r\n{\"type\":\"x\"}\r\n\n"}, "x", 0);
    row("parse error logged, later lines go on", {"{\"type\":\"a\"}\n{broken\n{\"type\":\"b\"}\n"},
        "ab", 1);
    row("non-object values dropped silently",
        {"[1,2]\n42\n\"text\"\nnull\ntrue\n{\"type\":\"o\"}\n"}, "o", 0);
    row("garbage after a value", {"42 43\n{\"type\":\"o\"} x\n"}, "", 2);
    row("character split across polls", {"{\"type\":\"\xc3", "\xa9\"}\n"}, QStringLiteral(",é"), 0);
    row("invalid UTF-8 replaced, not dropped",
        {"{\"type\":\"a\xff\"}\n{\"type\":\"\xed\xa0\x80\"}\n"},
        QStringLiteral("a\uFFFD\uFFFD\uFFFD\uFFFD"), 0);
}

void TestEventIntake::poll_eventsFile()
{
    QFETCH(QList<QByteArray>, writes);
    QFETCH(QString, types);
    QFETCH(int, parseErrors);
    QVERIFY(writeFile(f->events, "{\"type\":\"old\"}\n"));
    f->intake.resetOffsets();
    QSignalSpy spy(&f->intake, &EventIntake::eventReceived);
    QStringList polls;
    for (const QByteArray &w : writes) {
        QVERIFY(writeFile(f->events, w, true));
        spy.clear();
        f->intake.onPoll();
        polls << texts(spy).join("");
    }
    QCOMPARE(polls.join(","), types);
    QCOMPARE(f->log.buffer().count(QStringLiteral("[event] json parse error\n")), parseErrors);
}

void TestEventIntake::poll_missingThenTruncatedFile()
{
    QSignalSpy spy(&f->intake, &EventIntake::eventReceived);
    f->intake.onPoll(); // no file yet: nothing, and no message
    QCOMPARE(f->log.buffer(), QString());
    QVERIFY(writeFile(f->events,
                      "{\"type\":\"a\",\"chat_id\":-100123,\"nested\":{\"k\":\"v\"}}\n"
                      "{\"type\":\"b\"}\n{\"type\":\"partial",
                      true));
    f->intake.onPoll();
    QCOMPARE(texts(spy), (QStringList{"a", "b"}));
    const QVariantMap a = spy.at(0).at(0).toMap();
    QCOMPARE(a.value("chat_id").toLongLong(), Q_INT64_C(-100123));
    QCOMPARE(a.value("nested").toMap().value("k").toString(), QStringLiteral("v"));
    // The backend starts a new file: the old partial line must not be glued to it.
    QVERIFY(writeFile(f->events, "{\"type\":\"n\"}\n"));
    spy.clear();
    f->intake.onPoll();
    QCOMPARE(texts(spy), QStringList{"n"});
    QCOMPARE(f->log.buffer(), QString());
}

void TestEventIntake::poll_linesBeforeResetNeverDelivered()
{
    QVERIFY(writeFile(f->events,
                      "{\"type\":\"old1\"}\n{\"type\":\"old2\"}\n{\"type\":\"old_partial\"", true));
    f->intake.resetOffsets();
    // The unterminated old line ends here; its remainder is skipped as garbage.
    QVERIFY(writeFile(f->events, "}\n{\"type\":\"new\"}\n", true));
    QSignalSpy spy(&f->intake, &EventIntake::eventReceived);
    f->intake.onPoll();
    QCOMPARE(texts(spy), QStringList{"new"});
}

void TestEventIntake::poll_overlongLineDropped_data()
{
    QTest::addColumn<int>("pieces"); // the long line is written in this many polls
    QTest::newRow("one write") << 1;
    QTest::newRow("spread over three polls") << 3;
}

void TestEventIntake::poll_overlongLineDropped()
{
    QFETCH(int, pieces);
    const QByteArray longLine = "{\"type\":\"big\",\"pad\":\"" + QByteArray(17 << 20, 'x') + "\"}";
    QSignalSpy spy(&f->intake, &EventIntake::eventReceived);
    QVERIFY(writeFile(f->events, "{\"type\":\"before\"}\n", true));
    const int step = longLine.size() / pieces + 1;
    for (int i = 0; i < pieces; ++i) {
        QVERIFY(writeFile(f->events, longLine.mid(i * step, step), true));
        f->intake.onPoll();
        QCOMPARE(f->intake.eventsFileOffset(), QFileInfo(f->events).size());
    }
    QVERIFY(writeFile(f->events, "\n{\"type\":\"after\"}\n", true));
    f->intake.onPoll();
    QCOMPARE(texts(spy), (QStringList{"before", "after"}));
    QCOMPARE(f->log.buffer(), QStringLiteral("[event] line too long\n"));
}

void TestEventIntake::poll_suspendedReadsNothing()
{
    QSignalSpy spy(&f->intake, &EventIntake::eventReceived);
    f->intake.setPollingSuspended(true);
    QVERIFY(writeFile(f->events, "{\"type\":\"a\"}\n", true));
    f->intake.onPoll();
    f->intake.onLowMemory();
    QCOMPARE(spy.count(), 0);
    QCOMPARE(f->intake.currentPollInterval(), int(EventIntake::kIdlePollMs));
    f->intake.onAppFullscreen(); // clears the suspension
    f->intake.onPoll();
    QCOMPARE(texts(spy), QStringList{"a"});
}

void TestEventIntake::poll_adaptiveInterval_data()
{
    // Steps: A = an event arrives before the poll, - = an idle poll, T = thumbnailed,
    // F = fullscreen, L = low memory. One expected interval per step.
    QTest::addColumn<QString>("steps");
    QTest::addColumn<QList<int>>("intervals");
    QTest::newRow("activity then ten polls fast, then idle")
        << "-A----------"
        << QList<int>{1000, 200, 200, 200, 200, 200, 200, 200, 200, 200, 200, 1000};
    QTest::newRow("new activity refills the ticks")
        << "A--A---" << QList<int>{200, 200, 200, 200, 200, 200, 200};
    QTest::newRow("background: 2500 idle, 800 active")
        << "T-A----------"
        << QList<int>{2500, 2500, 800, 800, 800, 800, 800, 800, 800, 800, 800, 800, 2500};
    QTest::newRow("fullscreen: idle interval, then fast polls")
        << "TF----------"
        << QList<int>{2500, 1000, 200, 200, 200, 200, 200, 200, 200, 200, 200, 1000};
    QTest::newRow("low memory: 2000, no fast polls") << "AL--" << QList<int>{200, 2000, 1000, 1000};
}

void TestEventIntake::poll_adaptiveInterval()
{
    QFETCH(QString, steps);
    QFETCH(QList<int>, intervals);
    f->intake.startPolling();
    for (int i = 0; i < steps.size(); ++i) {
        const char step = steps.at(i).toLatin1();
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
        QVERIFY2(f->intake.currentPollInterval() == intervals.at(i),
                 qPrintable(QString::number(i)));
        QVERIFY(f->intake.isPollTimerActive());
    }
}

void TestEventIntake::poll_fileChangeReadAtOnce_data()
{
    // What the file holds before polling starts (no file when empty), and whether the backend
    // then replaces it instead of appending.
    QTest::addColumn<QByteArray>("before");
    QTest::addColumn<bool>("replace");
    const QByteArray old = "{\"type\":\"old\",\"pad\":\"" + QByteArray(64, 'x') + "\"}\n";
    QTest::newRow("appended") << old << false;
    QTest::newRow("created after the start") << QByteArray() << false;
    QTest::newRow("replaced by a new file") << old << true;
}

void TestEventIntake::poll_fileChangeReadAtOnce()
{
    QFETCH(QByteArray, before);
    QFETCH(bool, replace);
    if (!before.isEmpty())
        QVERIFY(writeFile(f->events, before));
    // The timer would not fire within the hour: only the file watch can deliver.
    f->intake.setPollIntervals(3600 * 1000, 3600 * 1000);
    f->intake.startPolling();
    QSignalSpy spy(&f->intake, &EventIntake::eventReceived);
    if (replace)
        QVERIFY(QFile::remove(f->events));
    QVERIFY(writeFile(f->events, "{\"type\":\"new\"}\n", !replace));
    QTRY_VERIFY_WITH_TIMEOUT(texts(spy).contains("new"), 10000);
    // The watch follows the file as it is now.
    QVERIFY(writeFile(f->events, "{\"type\":\"later\"}\n", true));
    QTRY_VERIFY_WITH_TIMEOUT(texts(spy).contains("later"), 10000);
    QCOMPARE(f->intake.currentPollInterval(), 3600 * 1000);
}

void TestEventIntake::handleOutput_prefixes_data()
{
    QTest::addColumn<QStringList>("chunks");
    QTest::addColumn<QStringList>("statuses");
    QTest::addColumn<QString>("log");
    const auto row = [](const char *name, const QStringList &c, const QStringList &st,
                        const char *log = "") { QTest::newRow(name) << c << st << log; };
    row("auth, need, me, in order", {"AUTH_STATE WaitPhone\nNEED code\nME 42 Ann Lee\n"},
        {"Auth: WaitPhone", "Need: code", "ME 42 Ann Lee"});
    row("ready with text", {"BACKEND_READY v1\n"}, {"Backend ready"});
    row("bare ready ignored, also with blanks after it", {"BACKEND_READY\nBACKEND_READY   \n"}, {});
    row("fatal logs and shows", {"FATAL db broken\n"}, {"FATAL db broken"}, "FATAL db broken\n");
    row("surrounding blanks and CR trimmed", {"   AUTH_STATE Ready  \r\n"}, {"Auth: Ready"});
    row("json, blank, lower-case ignored", {"{\"type\":\"x\"}\n\n  \nauth_state Ready\n"}, {});
    row("line split across chunks", {"AUTH_ST", "ATE Rea", "dy\n"}, {"Auth: Ready"});
    row("unterminated line waits", {"NEED code"}, {});
    row("first prefix wins", {"NEED FATAL x\n"}, {"Need: FATAL x"});
}

void TestEventIntake::handleOutput_prefixes()
{
    QFETCH(QStringList, chunks);
    QFETCH(QStringList, statuses);
    QFETCH(QString, log);
    QSignalSpy spy(&f->intake, &EventIntake::statusTextChanged);
    for (const QString &c : chunks)
        f->intake.handleOutput(c);
    QCOMPARE(texts(spy), statuses);
    QCOMPARE(f->log.buffer(), log);
}

void TestEventIntake::handleOutput_overlongLineDropped()
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

void TestEventIntake::tailTdlibLog_rules_data()
{
    QTest::addColumn<QByteArray>("written");
    QTest::addColumn<QStringList>("statuses");
    QTest::addColumn<bool>("logged"); // the whole text lands in the in-app log
    const auto row = [](const char *name, const QByteArray &w, const QStringList &st, bool log) {
        QTest::newRow(name) << w << st << log;
    };
    row("auth, need, indented me",
        "[backend] AUTH_STATE Ready\n[backend] NEED password\n[backend]   ME 7 Bo\n",
        {"Auth: Ready", "Need: password", "ME 7 Bo"}, true);
    row("bare ready counts here", "[backend] BACKEND_READY\n", {"Backend ready"}, true);
    row("ready with trailing text does not", "[backend] BACKEND_READY now\n", {}, true);
    row("fatal shows the rest", "[backend]FATAL disk\n", {"FATAL disk"}, true);
    row("other tagged line only logged", "[backend] hello\n", {}, true);
    row("untagged, indented skipped", "[ 1][t 2] td\n [backend] AUTH_STATE X\nplain\n", {}, false);
    row("unterminated line waits", "[backend] NEED code", {}, false);
}

void TestEventIntake::tailTdlibLog_rules()
{
    QFETCH(QByteArray, written);
    QFETCH(QStringList, statuses);
    QFETCH(bool, logged);
    QVERIFY(!f->intake.tailTdlibLog()); // missing file
    QVERIFY(writeFile(f->tdlib, "[backend] AUTH_STATE Old\n", true));
    f->intake.resetOffsets();
    QVERIFY(!f->intake.tailTdlibLog()); // nothing new
    QSignalSpy spy(&f->intake, &EventIntake::statusTextChanged);
    QVERIFY(writeFile(f->tdlib, written, true));
    QVERIFY(f->intake.tailTdlibLog());
    QCOMPARE(texts(spy), statuses);
    QCOMPARE(f->log.buffer(), logged ? QString::fromUtf8(written) : QString());
}

void TestEventIntake::poll_tailsTdlibLogOnlyWhileViewVisible()
{
    QSignalSpy spy(&f->intake, &EventIntake::statusTextChanged);
    QVERIFY(writeFile(f->tdlib, "[backend] NEED hidden\n", true));
    f->intake.onPoll();
    QVERIFY(writeFile(f->tdlib, "[backend] NEED still_hidden\n", true));
    f->intake.onToggleDebugLog(); // show: tail only from now on, poll fast
    QVERIFY(f->log.isViewVisible());
    QVERIFY(writeFile(f->tdlib, "[backend] NEED shown\n", true));
    f->intake.onPoll();
    QCOMPARE(f->intake.currentPollInterval(), 200);
    f->intake.onToggleDebugLog(); // hide again
    QVERIFY(!f->log.isViewVisible());
    QVERIFY(writeFile(f->tdlib, "[backend] NEED hidden_again\n", true));
    f->intake.onPoll();
    QCOMPARE(texts(spy), QStringList{"Need: shown"});
}

QTEST_GUILESS_MAIN(TestEventIntake)
#include "test_event_intake.moc"
