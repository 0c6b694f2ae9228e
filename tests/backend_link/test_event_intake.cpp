#include "backend_link/app_log.h"
#include "backend_link/event_intake.h"

#include <QBuffer>
#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

namespace {

void appendBytes(const QString &path, const QByteArray &bytes)
{
    QFile f(path);
    QVERIFY(f.open(QIODevice::WriteOnly | QIODevice::Append));
    QCOMPARE(f.write(bytes), qint64(bytes.size()));
}

void replaceFile(const QString &path, const QByteArray &bytes)
{
    QFile f(path);
    QVERIFY(f.open(QIODevice::WriteOnly | QIODevice::Truncate));
    QCOMPARE(f.write(bytes), qint64(bytes.size()));
}

QStringList eventTypes(const QSignalSpy &spy)
{
    QStringList types;
    for (const QList<QVariant> &args : spy)
        types << args.at(0).toMap().value(QStringLiteral("type")).toString();
    return types;
}

QStringList statusTexts(const QSignalSpy &spy)
{
    QStringList texts;
    for (const QList<QVariant> &args : spy)
        texts << args.at(0).toString();
    return texts;
}

} // namespace

class TestEventIntake : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init();
    void cleanup();

    void poll_eventsFile_data();
    void poll_eventsFile();
    void poll_eventMapKeepsJsonTypes();
    void poll_truncatedFileRestartsAtZero();
    void poll_linesBeforeResetNeverDelivered();
    void poll_overlongLineDropped_data();
    void poll_overlongLineDropped();
    void poll_missingFileDeliversNothing();
    void poll_suspendedReadsNothing();
    void poll_realTimerDeliversEvents();

    void handleOutput_prefixes_data();
    void handleOutput_prefixes();
    void handleOutput_overlongLineDropped();

    void tailTdlibLog_rules_data();
    void tailTdlibLog_rules();
    void tailTdlibLog_nothingNewOrMissing();
    void poll_tailsTdlibLogOnlyWhileViewVisible();

    void poll_adaptiveInterval_data();
    void poll_adaptiveInterval();

private:
    QTemporaryDir *m_dir = nullptr;
    QBuffer m_console;
    AppLog *m_log = nullptr;
    EventIntake *m_intake = nullptr;
    QString m_events;
    QString m_tdlib;
};

void TestEventIntake::init()
{
    m_dir = new QTemporaryDir;
    QVERIFY(m_dir->isValid());
    m_log = new AppLog;
    m_console.open(QIODevice::WriteOnly);
    m_log->setConsoleDevice(&m_console); // keeps the copy of the shown log off the test output
    m_intake = new EventIntake(m_log);
    m_events = m_dir->filePath("backend_events.jsonl");
    m_tdlib = m_dir->filePath("tdlib.log");
    m_intake->setEventsFilePath(m_events);
    m_intake->setTdlibLogPath(m_tdlib);
}

void TestEventIntake::cleanup()
{
    delete m_intake;
    delete m_log;
    m_console.close();
    m_console.setData(QByteArray());
    delete m_dir;
}

void TestEventIntake::poll_eventsFile_data()
{
    QTest::addColumn<QList<QByteArray>>("writes"); // one poll after each write
    QTest::addColumn<QList<QStringList>>("typesPerPoll");
    QTest::addColumn<int>("parseErrors");

    QTest::newRow("burst dispatched in file order in one poll")
        << QList<QByteArray>{"{\"type\":\"a\"}\n{\"type\":\"b\"}\n{\"type\":\"c\"}\n"}
        << QList<QStringList>{{"a", "b", "c"}} << 0;
    QTest::newRow("partial line delivered later, whole")
        << QList<QByteArray>{"{\"type\":\"a\"}\n{\"type\":\"b\",", "\"n\":1}", "\n"}
        << QList<QStringList>{{"a"}, {}, {"b"}} << 0;
    QTest::newRow("blank and white-space lines skipped silently")
        << QList<QByteArray>{"\n   \n\t\r\n{\"type\":\"x\"}\r\n\n"} << QList<QStringList>{{"x"}}
        << 0;
    QTest::newRow("parse error logged, later lines go on")
        << QList<QByteArray>{"{\"type\":\"a\"}\n{broken\n{\"type\":\"b\"}\n"}
        << QList<QStringList>{{"a", "b"}} << 1;
    QTest::newRow("valid non-object values dropped without message")
        << QList<QByteArray>{"[1,2]\n42\n\"text\"\nnull\ntrue\n{\"type\":\"o\"}\n"}
        << QList<QStringList>{{"o"}} << 0;
    QTest::newRow("garbage after a value is a parse error")
        << QList<QByteArray>{"42 43\n{\"type\":\"o\"} x\n"} << QList<QStringList>{{}} << 2;
    QTest::newRow("multi-byte character split across polls arrives intact")
        << QList<QByteArray>{"{\"type\":\"caf\xc3", "\xa9\"}\n"}
        << QList<QStringList>{{}, {QStringLiteral("café")}} << 0;
    QTest::newRow("nothing new") << QList<QByteArray>{"{\"type\":\"a\"}\n", ""}
                                 << QList<QStringList>{{"a"}, {}} << 0;
}

void TestEventIntake::poll_eventsFile()
{
    QFETCH(QList<QByteArray>, writes);
    QFETCH(QList<QStringList>, typesPerPoll);
    QFETCH(int, parseErrors);

    replaceFile(m_events, "{\"type\":\"old\"}\n");
    m_intake->resetOffsets();
    QSignalSpy spy(m_intake, &EventIntake::eventReceived);
    for (int i = 0; i < writes.size(); ++i) {
        appendBytes(m_events, writes.at(i));
        spy.clear();
        m_intake->onPoll();
        QCOMPARE(eventTypes(spy), typesPerPoll.at(i));
    }
    QCOMPARE(m_log->buffer().count(QStringLiteral("[event] json parse error\n")), parseErrors);
}

void TestEventIntake::poll_eventMapKeepsJsonTypes()
{
    appendBytes(m_events, "{\"type\":\"message_new\",\"chat_id\":-100123,\"text\":\"hi\","
                          "\"ok\":true,\"nested\":{\"k\":\"v\"},\"list\":[1,\"two\"]}\n");
    QSignalSpy spy(m_intake, &EventIntake::eventReceived);
    m_intake->onPoll();
    QCOMPARE(spy.count(), 1);
    const QVariantMap event = spy.at(0).at(0).toMap();
    QCOMPARE(event.value("chat_id").toLongLong(), Q_INT64_C(-100123));
    QCOMPARE(event.value("ok").toBool(), true);
    QCOMPARE(event.value("nested").toMap().value("k").toString(), QStringLiteral("v"));
    QCOMPARE(event.value("list").toList().size(), 2);
    QCOMPARE(event.value("text").toString(), QStringLiteral("hi"));
}

void TestEventIntake::poll_truncatedFileRestartsAtZero()
{
    appendBytes(m_events, "{\"type\":\"a\"}\n{\"type\":\"b\"}\n{\"type\":\"partial");
    QSignalSpy spy(m_intake, &EventIntake::eventReceived);
    m_intake->onPoll();
    QCOMPARE(eventTypes(spy), (QStringList{"a", "b"}));
    // The backend starts a new file: the old partial line must not be glued to it.
    replaceFile(m_events, "{\"type\":\"n\"}\n");
    spy.clear();
    m_intake->onPoll();
    QCOMPARE(eventTypes(spy), QStringList{"n"});
    QCOMPARE(m_intake->eventsFileOffset(), QFileInfo(m_events).size());
    QCOMPARE(m_log->buffer().count("[event] json parse error"), 0);
}

void TestEventIntake::poll_linesBeforeResetNeverDelivered()
{
    appendBytes(m_events, "{\"type\":\"old1\"}\n{\"type\":\"old2\"}\n{\"type\":\"old_partial\"");
    m_intake->resetOffsets();
    QCOMPARE(m_intake->eventsFileOffset(), QFileInfo(m_events).size());
    // The unterminated old line ends here; its remainder is also skipped as garbage.
    appendBytes(m_events, "}\n{\"type\":\"new\"}\n");
    QSignalSpy spy(m_intake, &EventIntake::eventReceived);
    m_intake->onPoll();
    QVERIFY(!eventTypes(spy).contains("old1"));
    QVERIFY(!eventTypes(spy).contains("old2"));
    QVERIFY(!eventTypes(spy).contains("old_partial"));
    QVERIFY(eventTypes(spy).contains("new"));
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
    const int longSize = 17 * 1024 * 1024;
    QByteArray longLine = "{\"type\":\"big\",\"pad\":\"";
    longLine += QByteArray(longSize, 'x');
    longLine += "\"}";
    QSignalSpy spy(m_intake, &EventIntake::eventReceived);
    appendBytes(m_events, "{\"type\":\"before\"}\n");
    const int step = longLine.size() / pieces + 1;
    for (int i = 0; i < pieces; ++i) {
        appendBytes(m_events, longLine.mid(i * step, step));
        m_intake->onPoll();
        QVERIFY(m_intake->eventsFileOffset() == QFileInfo(m_events).size());
    }
    appendBytes(m_events, "\n{\"type\":\"after\"}\n");
    m_intake->onPoll();
    QCOMPARE(eventTypes(spy), (QStringList{"before", "after"}));
    QCOMPARE(m_log->buffer().count(QStringLiteral("[event] line too long\n")), 1);
    QCOMPARE(m_log->buffer().count(QStringLiteral("[event] json parse error\n")), 0);
}

void TestEventIntake::poll_missingFileDeliversNothing()
{
    QSignalSpy spy(m_intake, &EventIntake::eventReceived);
    m_intake->onPoll();
    QCOMPARE(spy.count(), 0);
    QCOMPARE(m_log->buffer(), QString());
    appendBytes(m_events, "{\"type\":\"late\"}\n");
    m_intake->onPoll();
    QCOMPARE(eventTypes(spy), QStringList{"late"});
}

void TestEventIntake::poll_suspendedReadsNothing()
{
    QSignalSpy spy(m_intake, &EventIntake::eventReceived);
    m_intake->setPollingSuspended(true);
    appendBytes(m_events, "{\"type\":\"a\"}\n");
    m_intake->onPoll();
    QCOMPARE(spy.count(), 0);
    const int interval = m_intake->currentPollInterval();
    m_intake->onLowMemory();
    QCOMPARE(m_intake->currentPollInterval(), interval);
    m_intake->onAppFullscreen(); // clears the suspension
    QVERIFY(!m_intake->isPollingSuspended());
    m_intake->onPoll();
    QCOMPARE(eventTypes(spy), QStringList{"a"});
}

void TestEventIntake::poll_realTimerDeliversEvents()
{
    QSignalSpy spy(m_intake, &EventIntake::eventReceived);
    m_intake->startPolling();
    QVERIFY(m_intake->isPollTimerActive());
    appendBytes(m_events, "{\"type\":\"timer\"}\n");
    QTRY_COMPARE_WITH_TIMEOUT(spy.count(), 1, 3000);
    // Activity switched the running timer to the fast rate.
    QCOMPARE(m_intake->currentPollInterval(), int(EventIntake::kActivePollMs));
    appendBytes(m_events, "{\"type\":\"timer2\"}\n");
    QTRY_COMPARE_WITH_TIMEOUT(spy.count(), 2, 1000);
}

void TestEventIntake::handleOutput_prefixes_data()
{
    QTest::addColumn<QStringList>("chunks");
    QTest::addColumn<QStringList>("statuses");
    QTest::addColumn<QString>("log");

    QTest::newRow("auth state") << QStringList{"AUTH_STATE WaitPhone\n"}
                                << QStringList{"Auth: WaitPhone"} << "";
    QTest::newRow("need") << QStringList{"NEED code\n"} << QStringList{"Need: code"} << "";
    QTest::newRow("me is the whole line")
        << QStringList{"ME 42 Ann Lee\n"} << QStringList{"ME 42 Ann Lee"} << "";
    QTest::newRow("ready with text")
        << QStringList{"BACKEND_READY v1\n"} << QStringList{"Backend ready"} << "";
    QTest::newRow("bare ready ignored") << QStringList{"BACKEND_READY\n"} << QStringList{} << "";
    QTest::newRow("ready with only blank after it ignored (line is trimmed)")
        << QStringList{"BACKEND_READY   \n"} << QStringList{} << "";
    QTest::newRow("fatal logs and shows") << QStringList{"FATAL db broken\n"}
                                          << QStringList{"FATAL db broken"} << "FATAL db broken\n";
    QTest::newRow("surrounding blanks and CR trimmed")
        << QStringList{"   AUTH_STATE Ready  \r\n"} << QStringList{"Auth: Ready"} << "";
    QTest::newRow("json ignored") << QStringList{"{\"type\":\"x\"}\n"} << QStringList{} << "";
    QTest::newRow("empty lines ignored") << QStringList{"\n\n  \n"} << QStringList{} << "";
    QTest::newRow("case-sensitive") << QStringList{"auth_state Ready\n"} << QStringList{} << "";
    QTest::newRow("line split across chunks")
        << QStringList{"AUTH_ST", "ATE Rea", "dy\n"} << QStringList{"Auth: Ready"} << "";
    QTest::newRow("unterminated line waits") << QStringList{"NEED code"} << QStringList{} << "";
    QTest::newRow("several lines in order")
        << QStringList{"NEED phone\nAUTH_STATE WaitCode\nME 1 A\n"}
        << QStringList{"Need: phone", "Auth: WaitCode", "ME 1 A"} << "";
    QTest::newRow("first prefix wins over later text")
        << QStringList{"NEED FATAL x\n"} << QStringList{"Need: FATAL x"} << "";
}

void TestEventIntake::handleOutput_prefixes()
{
    QFETCH(QStringList, chunks);
    QFETCH(QStringList, statuses);
    QFETCH(QString, log);
    QSignalSpy spy(m_intake, &EventIntake::statusTextChanged);
    for (const QString &c : chunks)
        m_intake->handleOutput(c);
    QCOMPARE(statusTexts(spy), statuses);
    QCOMPARE(m_log->buffer(), log);
}

void TestEventIntake::handleOutput_overlongLineDropped()
{
    QSignalSpy spy(m_intake, &EventIntake::statusTextChanged);
    const QString piece(4 * 1024 * 1024, QLatin1Char('z'));
    m_intake->handleOutput(QStringLiteral("NEED "));
    for (int i = 0; i < 5; ++i) // 20 Mi characters without a line feed
        m_intake->handleOutput(piece);
    QVERIFY(m_intake->outputLineBuffer().size() <= EventIntake::kMaxOutputLineChars);
    m_intake->handleOutput(QStringLiteral("zzz\nNEED code\n"));
    QCOMPARE(statusTexts(spy), QStringList{"Need: code"});
    QCOMPARE(m_log->buffer(), QStringLiteral("backend: output line too long\n"));
    QCOMPARE(m_intake->outputLineBuffer(), QString());
}

void TestEventIntake::tailTdlibLog_rules_data()
{
    QTest::addColumn<QByteArray>("written");
    QTest::addColumn<QStringList>("statuses");
    QTest::addColumn<QString>("log");

    QTest::newRow("auth state") << QByteArray("[backend] AUTH_STATE Ready\n")
                                << QStringList{"Auth: Ready"} << "[backend] AUTH_STATE Ready\n";
    QTest::newRow("need") << QByteArray("[backend] NEED password\n")
                          << QStringList{"Need: password"} << "[backend] NEED password\n";
    QTest::newRow("me") << QByteArray("[backend]   ME 7 Bo\n") << QStringList{"ME 7 Bo"}
                        << "[backend]   ME 7 Bo\n";
    QTest::newRow("bare ready counts here")
        << QByteArray("[backend] BACKEND_READY\n") << QStringList{"Backend ready"}
        << "[backend] BACKEND_READY\n";
    QTest::newRow("ready with trailing text does not")
        << QByteArray("[backend] BACKEND_READY now\n") << QStringList{}
        << "[backend] BACKEND_READY now\n";
    QTest::newRow("fatal shows the rest") << QByteArray("[backend]FATAL disk\n")
                                          << QStringList{"FATAL disk"} << "[backend]FATAL disk\n";
    QTest::newRow("other tagged line only logged")
        << QByteArray("[backend] hello\n") << QStringList{} << "[backend] hello\n";
    QTest::newRow("untagged and indented lines skipped")
        << QByteArray("[ 1][t 2] td stuff\n [backend] AUTH_STATE X\nplain\n") << QStringList{}
        << "";
    QTest::newRow("unterminated line waits")
        << QByteArray("[backend] NEED code") << QStringList{} << "";
}

void TestEventIntake::tailTdlibLog_rules()
{
    QFETCH(QByteArray, written);
    QFETCH(QStringList, statuses);
    QFETCH(QString, log);
    appendBytes(m_tdlib, "[backend] AUTH_STATE Old\n");
    m_intake->resetOffsets();
    QSignalSpy spy(m_intake, &EventIntake::statusTextChanged);
    appendBytes(m_tdlib, written);
    QVERIFY(m_intake->tailTdlibLog());
    QCOMPARE(statusTexts(spy), statuses);
    QCOMPARE(m_log->buffer(), log);
}

void TestEventIntake::tailTdlibLog_nothingNewOrMissing()
{
    QVERIFY(!m_intake->tailTdlibLog()); // missing file
    appendBytes(m_tdlib, "line\n");
    QVERIFY(m_intake->tailTdlibLog());
    QVERIFY(!m_intake->tailTdlibLog()); // nothing new
}

void TestEventIntake::poll_tailsTdlibLogOnlyWhileViewVisible()
{
    QSignalSpy spy(m_intake, &EventIntake::statusTextChanged);
    appendBytes(m_tdlib, "[backend] NEED hidden\n");
    m_intake->onPoll();
    QCOMPARE(spy.count(), 0);
    QCOMPARE(m_intake->tdlibLogOffset(), qint64(0));

    appendBytes(m_tdlib, "[backend] NEED still_hidden\n");
    m_intake->onToggleDebugLog(); // show: tail only from now on, poll fast
    QVERIFY(m_log->isViewVisible());
    QCOMPARE(m_intake->tdlibLogOffset(), QFileInfo(m_tdlib).size());
    QCOMPARE(m_intake->activeTicksLeft(), int(EventIntake::kActiveTicks));
    appendBytes(m_tdlib, "[backend] NEED shown\n");
    m_intake->onPoll();
    QCOMPARE(statusTexts(spy), QStringList{"Need: shown"});
    QCOMPARE(m_intake->currentPollInterval(), int(EventIntake::kActivePollMs));

    m_intake->onToggleDebugLog(); // hide again
    QVERIFY(!m_log->isViewVisible());
    appendBytes(m_tdlib, "[backend] NEED hidden_again\n");
    m_intake->onPoll();
    QCOMPARE(statusTexts(spy), QStringList{"Need: shown"});
}

void TestEventIntake::poll_adaptiveInterval_data()
{
    // Steps: A = an event arrives before the poll, - = an idle poll, T = thumbnailed,
    // F = fullscreen, L = low memory. One expected interval per step.
    QTest::addColumn<QString>("steps");
    QTest::addColumn<QList<int>>("intervals");

    QTest::newRow("idle stays idle") << "--" << QList<int>{1000, 1000};
    QTest::newRow("activity then ten polls fast, then idle")
        << "A----------" << QList<int>{200, 200, 200, 200, 200, 200, 200, 200, 200, 200, 1000};
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
    QCOMPARE(steps.size(), intervals.size());
    m_intake->startPolling();
    for (int i = 0; i < steps.size(); ++i) {
        switch (steps.at(i).toLatin1()) {
        case 'A':
            appendBytes(m_events, "{\"type\":\"tick\"}\n");
            m_intake->onPoll();
            break;
        case '-':
            m_intake->onPoll();
            break;
        case 'T':
            m_intake->onAppThumbnailed();
            break;
        case 'F':
            m_intake->onAppFullscreen();
            break;
        case 'L':
            m_intake->onLowMemory();
            break;
        }
        QVERIFY2(
            m_intake->currentPollInterval() == intervals.at(i),
            qPrintable(QStringLiteral("step %1: %2").arg(i).arg(m_intake->currentPollInterval())));
        QVERIFY(m_intake->isPollTimerActive());
    }
}

QTEST_GUILESS_MAIN(TestEventIntake)
#include "test_event_intake.moc"
