#include "backend_link/app_log.h"
#include "backend_link/backend_link.h"
#include "backend_link/event_intake.h"
#include "platform/invoker.h"

#include "common/test_util.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QNetworkDatagram>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QUdpSocket>
#include <QtTest>

#include <memory>
#include <sys/resource.h>

using namespace test_util;

// A real link against the stand-in backend (a child process) or, in service mode, against a UDP
// socket bound to the command port in this test.
class TestBackendLink : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init()
    {
        f = std::make_unique<Fixture>();
        m_app = f->root.filePath("app");
        m_data = f->root.filePath("data");
        m_misc = f->root.filePath("shared/misc/marlinde");
        QVERIFY(QDir().mkpath(m_app) && QDir().mkpath(m_misc) && QDir().mkpath(m_data));
    }
    void cleanup() { f.reset(); }

    void startAttempt_childEnvironment_data()
    {
        // The value of key the child sees, from the inherited environment and the three env files
        // (weakest first); "-" = not set at that level. $APP / $DATA stand for the folders.
        QTest::addColumn<QString>("key");
        QTest::addColumn<QStringList>("levels"); // inherited, tg_api, tg_login, td_debug
        QTest::addColumn<QString>("expected");
        const auto row = [](const char *name, const char *key, const QStringList &levels,
                            const char *expected) {
            QTest::newRow(name) << key << levels << expected;
        };
        row("working folder", "#cwd", {"-", "-", "-", "-"}, "$APP");
        row("events file", "BACKEND_EVENTS_FILE", {"-", "-", "-", "-"},
            "$DATA/backend_events.jsonl");
        row("fixed entries over inherited", "TDLIB_LOG_VERBOSITY", {"7", "-", "-", "-"}, "2");
        row("library path replaced", "LD_LIBRARY_PATH", {"/x", "-", "-", "-"}, "$APP");
        row("inherited passes through", "SOME_VAR", {"x", "-", "-", "-"}, "x");
        row("tg_api over fixed entries", "TG_AUTO_SEND_PHONE", {"-", "1", "-", "-"}, "1");
        row("tg_login over tg_api, UTF-8", "TG_API_ID", {"-", "111", "Zoë Ђорђе", "-"},
            "Zoë Ђорђе");
        row("td_debug over all", "TDLIB_LOG_VERBOSITY", {"9", "3", "4", "5"}, "5");
        row("env file may set the library path", "LD_LIBRARY_PATH", {"/x", "-", "-", "/o"}, "/o");
    }
    void startAttempt_childEnvironment()
    {
        QFETCH(QString, key);
        QFETCH(QStringList, levels);
        QFETCH(QString, expected);
        const char *files[] = {"tg_api.env", "tg_login.env", "td_debug.env"};
        for (int i = 0; i < 3; ++i) {
            if (levels.at(i + 1) != "-")
                writeFile(m_misc + "/" + files[i],
                          ("# generated\n  " + key + " = " + levels.at(i + 1)).toUtf8());
        }
        makeLink(levels.at(0) == "-" ? QStringList() : QStringList{key + "=" + levels.at(0)});
        f->link->startBackendAttempt();
        QTRY_VERIFY(childEnv("BACKEND_EVENTS_FILE") != "<unset>");
        expected.replace("$APP", m_app).replace("$DATA", m_data);
        QCOMPARE(childEnv(key), expected);
    }
    void startAttempt_killsRunningChild()
    {
        makeLink();
        f->link->startBackendAttempt();
        // The first child has read its ping before it is replaced.
        QTRY_COMPARE(readAll(record(".received")), QByteArray("ping\n"));
        f->link->startBackendAttempt();
        QCOMPARE(f->link->backendState(), QProcess::Running);
        QTRY_COMPARE(readAll(record(".starts")).count('\n'), 2);
        // The first child was killed with SIGKILL, whose number equals the lock code: no retry.
        QVERIFY(!f->link->isRetryPending());
        QTRY_COMPARE(readAll(record(".received")), QByteArray("ping\nping\n"));
    }
    void sendLine_data()
    {
        // Local mode: the bytes the child reads after "ping\n". Service mode: the datagrams, each
        // followed by "|" here. A multi-line command is refused before either.
        QTest::addColumn<bool>("service");
        QTest::addColumn<QStringList>("lines");
        QTest::addColumn<QByteArray>("expected");
        const auto row = [](const char *name, bool service, const QStringList &l,
                            const QString &e) {
            QTest::newRow(name) << service << l << e.toUtf8();
        };
        const QString typed = QStringLiteral("password пароль");
        row("local: trimmed, in order", false, {"  \t open -100123  ", typed},
            "open -100123\n" + typed + "\n");
        row("local: blank is a lone line feed", false, {"   "}, "\n");
        row("local: LF refused", false, {"send64 1 aGk=\nleave 5", "state"}, "state\n");
        row("service: no terminator, trimmed, blank not sent", true,
            {"chats 60", "  read -1 7 \t", "   ", "", typed}, "chats 60|read -1 7|" + typed + "|");
        row("service: CR refused", true, {"open 1\rleave 1", "state"}, "state|");
    }
    void sendLine()
    {
        QFETCH(bool, service);
        QFETCH(QStringList, lines);
        QFETCH(QByteArray, expected);
        if (service)
            QVERIFY(bindCommandPort());
        writeFile(m_data + "/ui_debug.log", "left over from the last run\n");
        makeLink(service ? QStringList{"UI_USE_SERVICE_BACKEND=1", "UI_USE_LOCAL_BACKEND=1"}
                         : QStringList());
        QCOMPARE(f->link->useServiceBackend(), service);
        f->link->startBackendAttempt();
        QCOMPARE(f->link->statusText(), service ? "Backend: service" : "Backend started");
        for (const QString &l : lines)
            f->link->sendLine(l);
        f->link->sendLine("end-marker");
        const QByteArray uiLog = readAll(m_data + "/ui_debug.log");
        QVERIFY(!uiLog.contains("left over")); // each attempt begins a fresh one
        QVERIFY(uiLog.contains(" startBackendAttempt use_service_backend=" +
                               QByteArray::number(service)));
        if (!service) {
            QTRY_VERIFY(readAll(record(".received")).endsWith("end-marker\n"));
            QCOMPARE(readAll(record(".received")), "ping\n" + expected + "end-marker\n");
            return;
        }
        QList<QByteArray> got = datagramsUntil("end-marker");
        got.removeLast();
        QCOMPARE(got.isEmpty() ? QByteArray() : got.join('|') + '|', expected);
        QVERIFY(!QFile::exists(record(".starts"))); // no child, so no "ping"
    }
    void sendLine_reactionTraceAndNotRunning()
    {
        makeLink();
        f->link->startBackendAttempt();
        const QString line = QStringLiteral("react -100 55 👍 add");
        f->link->sendLine("  " + line);
        f->link->sendLine("chats 60"); // not traced
        f->link->sendLine("exit 0");
        QTRY_COMPARE(f->link->statusText(), QStringLiteral("Backend finished"));
        QCOMPARE(readAll(record(".received")), "ping\n" + line.toUtf8() + "\nchats 60\nexit 0\n");
        f->link->sendLine("react 1 2 x add");
        QVERIFY(f->log.buffer().endsWith("backend: not running\n"));
        const QByteArray uiLog = readAll(m_data + "/ui_debug.log");
        QVERIFY(
            uiLog.contains(" react: sendLine begin use_service_backend=0 line=" + line.toUtf8()));
        QVERIFY(uiLog.contains(" react: sendLine abort backend_state=0\n"));
        QVERIFY(!uiLog.contains("chats 60"));
    }
    void sendLine_serviceSocketFailureRetried()
    {
        QVERIFY(bindCommandPort());
        makeLink({"UI_USE_SERVICE_BACKEND=1"}, false);
        struct rlimit saved;
        QCOMPARE(getrlimit(RLIMIT_NOFILE, &saved), 0);
        struct rlimit none = saved;
        none.rlim_cur = 0; // no new descriptor can be opened
        QCOMPARE(setrlimit(RLIMIT_NOFILE, &none), 0);
        f->link->sendLine(QStringLiteral("first"));
        QCOMPARE(setrlimit(RLIMIT_NOFILE, &saved), 0);
        QVERIFY(f->log.buffer().contains(
            QStringLiteral("ui: service cmd socket() failed errno=%1\n").arg(EMFILE)));
        f->link->sendLine(QStringLiteral("second"));
        QCOMPARE(datagramsUntil("second"), QList<QByteArray>{"second"});
    }
    void initNotifications()
    {
        // The headless service is asked to start (no reply here); in service mode "state" follows.
        QVERIFY(bindCommandPort());
        makeLink({"UI_USE_SERVICE_BACKEND=1"}, false);
        f->link->startBackendAttempt();
        QElapsedTimer t;
        t.start();
        f->link->onInitNotifications();
        QCOMPARE(f->invoker.requests().size(), 1);
        const RecordingInvoker::Request r = f->invoker.requests().first();
        QCOMPARE(r.kind, RecordingInvoker::Request::InvokeService);
        QCOMPARE(
            r.target + " " + r.action + " " + r.mimeType,
            QStringLiteral("com.vexa.quillo.service com.vexa.quillo.service.START text/plain"));
        QCOMPARE(datagramsUntil("state"), QList<QByteArray>{"state"});
        QVERIFY(t.elapsed() >= 750);
    }
    void childOutputAndEvents()
    {
        // The child's two output streams and the events file reach the intake (its line rules:
        // test_event_intake); what an earlier backend left in the file is never delivered.
        QVERIFY(writeFile(m_data + "/backend_events.jsonl", "{\"type\":\"stale\"}\n"));
        makeLink(
            {"FAKE_BACKEND_STDOUT=AUTH_STATE WaitPhone\\n", "FAKE_BACKEND_STDERR=NEED code\\n"});
        QSignalSpy status(&f->intake, &EventIntake::statusTextChanged);
        QSignalSpy events(&f->intake, &EventIntake::eventReceived);
        f->link->startBackendAttempt();
        f->intake.startPolling();
        QTRY_VERIFY(texts(status).contains("Auth: WaitPhone"));
        QTRY_VERIFY(texts(status).contains("Need: code"));
        // A character split between two writes of the child arrives whole.
        f->link->sendLine(QString("say " + QByteArray("ME 7 Zo\xc3").toBase64()));
        f->link->sendLine(QString("say " + QByteArray("\xab\n").toBase64()));
        QTRY_VERIFY(texts(status).contains(QStringLiteral("ME 7 Zoë")));
        f->link->sendLine(QString("emit " + QByteArray("{\"type\":\"auth_state\"}").toBase64()));
        QTRY_COMPARE_WITH_TIMEOUT(texts(events), QStringList{"auth_state"}, 5000);
    }
    void retry_onlyMissingBackend_data()
    {
        // What lies at the program's path; only a missing program is waited for.
        QTest::addColumn<QByteArray>("content"); // empty: no file
        QTest::newRow("missing") << QByteArray();
        QTest::newRow("not executable") << QByteArray("#!/bin/sh\n");
    }
    void retry_onlyMissingBackend()
    {
        QFETCH(QByteArray, content);
        QVERIFY(content.isEmpty() || writeFile(m_app + "/td_backend", content));
        makeLink({}, false);
        QSignalSpy status(f->link.get(), &BackendLink::statusTextChanged);
        QElapsedTimer t;
        t.start();
        f->link->startBackendAttempt();
        if (!content.isEmpty()) {
            QVERIFY(!f->link->isRetryPending());
            QCOMPARE(f->link->statusText(), QStringLiteral("Backend failed to start"));
            return;
        }
        QTRY_VERIFY_WITH_TIMEOUT(f->link->retryCount() == 5 && !f->link->isRetryPending(), 10000);
        QVERIFY2(t.elapsed() >= 250 + 500 + 750 + 1000 + 1250,
                 qPrintable(QString::number(t.elapsed())));
        QStringList expected;
        for (int i = 1; i <= 5; ++i)
            expected << "Backend failed to start" << QStringLiteral("Backend retry %1/5").arg(i);
        expected << "Backend failed to start";
        QStringList seen = texts(status);
        seen.removeAll("Backend error"); // the process error that comes with each failed start
        QCOMPARE(seen, expected);
    }
    void retry_sharedCounterMissingThenLocked()
    {
        // Three missing-file retries, then the backend appears but finds its database locked on
        // every start: the successful start resets the count, so ten lock retries follow and the
        // eleventh lock exit ends supervision.
        makeLink({"FAKE_BACKEND_EXIT_CODE=9"}, false);
        QSignalSpy status(f->link.get(), &BackendLink::statusTextChanged);
        connect(f->link.get(), &BackendLink::statusTextChanged, this, [this](const QString &s) {
            if (s == QLatin1String("Backend retry 3/5"))
                installBackend();
        });
        f->link->startBackendAttempt();
        QTRY_VERIFY_WITH_TIMEOUT(f->link->statusText() == "Backend finished", 30000);
        QVERIFY(!f->link->isRetryPending());
        QStringList expected{"Backend retry 1/5", "Backend retry 2/5", "Backend retry 3/5"};
        for (int i = 1; i <= 10; ++i)
            expected << QStringLiteral("Backend waiting for TDLib lock %1/10").arg(i);
        expected << "Backend finished";
        QStringList seen;
        for (const QString &s : texts(status)) {
            if (s.startsWith("Backend retry") || s.startsWith("Backend waiting") ||
                s == "Backend finished")
                seen << s;
        }
        QCOMPARE(seen, expected);
        QCOMPARE(texts(status).count("Backend started"), 11);
        QCOMPARE(readAll(record(".starts")).count('\n'), 11);
    }
    void finished_otherExitEndsSupervision_data()
    {
        QTest::addColumn<QStringList>("env");
        QTest::addColumn<QString>("command");
        QTest::newRow("exit 10 at start") << QStringList{"FAKE_BACKEND_EXIT_CODE=10"} << "";
        QTest::newRow("crash") << QStringList() << "crash";
    }
    void finished_otherExitEndsSupervision()
    {
        QFETCH(QStringList, env);
        QFETCH(QString, command);
        makeLink(env);
        f->link->startBackendAttempt();
        if (!command.isEmpty())
            f->link->sendLine(command);
        QTRY_COMPARE(f->link->statusText(), QStringLiteral("Backend finished"));
        QVERIFY(!f->link->isRetryPending());
        QCOMPARE(readAll(record(".starts")).count('\n'), 1);
    }
    void runningMarker()
    {
        makeLink({}, false);
        const QString marker = m_data + "/ui_running.txt";
        const qint64 before = QDateTime::currentMSecsSinceEpoch();
        f->link->startRunningMarker();
        const QByteArray content = readAll(marker);
        QCOMPARE(content.count('\n'), 1);
        QVERIFY(content.endsWith('\n'));
        const qint64 stamp = content.trimmed().toLongLong();
        QVERIFY(stamp >= before && stamp <= QDateTime::currentMSecsSinceEpoch());
        // Foreground: each tick rewrites it; background: ticks leave it to go stale.
        writeFile(marker, "old\n");
        f->link->onUiRunningMarkerTick();
        QVERIFY(readAll(marker) != "old\n");
        f->link->onAppThumbnailed();
        writeFile(marker, "old\n");
        f->link->onUiRunningMarkerTick();
        QCOMPARE(readAll(marker), QByteArray("old\n"));
        // Back in front: rewritten at once, then every five seconds by the timer.
        f->link->onAppFullscreen();
        QVERIFY(readAll(marker) != "old\n");
        writeFile(marker, "old\n");
        QTRY_VERIFY_WITH_TIMEOUT(readAll(marker) != "old\n", 7000);
        f->link->onAppAboutToQuit();
        QVERIFY(!QFile::exists(marker));
    }

private:
    void makeLink(const QStringList &extraEnv = {}, bool withBackend = true)
    {
        if (withBackend)
            installBackend();
        QStringList env; // the test's own environment without anything that picks the transport
        for (const QString &e : QProcess::systemEnvironment()) {
            if (!e.startsWith("UI_USE_") && !e.startsWith("FAKE_BACKEND"))
                env << e;
        }
        AppFolders folders;
        folders.appDir = m_app;
        folders.dataDir = m_data;
        folders.miscDir = m_misc;
        f->link.reset(new BackendLink(folders, &f->log, &f->intake, &f->invoker, env + extraEnv));
    }
    void installBackend() { QVERIFY(installExecutable(FAKE_BACKEND_PATH, m_app + "/td_backend")); }
    QString record(const char *suffix) const { return m_data + "/backend_events.jsonl" + suffix; }
    // "#cwd": the working folder; "<unset>" when the child had no such variable.
    QString childEnv(const QString &key) const
    {
        for (const QString &line : QString::fromUtf8(readAll(record(".env"))).split('\n')) {
            if (line.startsWith(key + '='))
                return line.mid(key.size() + 1);
        }
        return QStringLiteral("<unset>");
    }
    bool bindCommandPort()
    {
        // Another test may hold the fixed port for a moment.
        return waitFor(
            [this] {
                return f->port.bind(QHostAddress(QHostAddress::LocalHost),
                                    BackendLink::kServiceCommandPort);
            },
            20000);
    }
    QList<QByteArray> datagramsUntil(const QByteArray &last)
    {
        QList<QByteArray> got;
        waitFor(
            [&] {
                while (f->port.hasPendingDatagrams())
                    got << f->port.receiveDatagram().data();
                return !got.isEmpty() && got.last() == last;
            },
            5000);
        return got;
    }

    struct Fixture
    {
        QTemporaryDir root;
        AppLog log;
        EventIntake intake{&log};
        RecordingInvoker invoker;
        std::unique_ptr<BackendLink> link;
        QUdpSocket port;
    };
    std::unique_ptr<Fixture> f;
    QString m_app, m_data, m_misc;
};

QTEST_GUILESS_MAIN(TestBackendLink)
#include "test_backend_link.moc"
