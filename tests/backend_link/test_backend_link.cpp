#include "backend_link/app_log.h"
#include "backend_link/backend_link.h"
#include "backend_link/env_file.h"
#include "backend_link/event_intake.h"

#include "common/test_util.h"
#include "platform/invoker.h"

#include <QElapsedTimer>
#include <QNetworkDatagram>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QUdpSocket>
#include <QtTest>

#include <memory>

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
        QVERIFY(QDir().mkpath(f->app));
    }
    void cleanup() { f.reset(); }

    void initNotificationsStartsTheService()
    {
        // The headless service is asked to start, whether or not it answers.
        makeLink({}, false);
        f->link->onInitNotifications();
        QCOMPARE(f->invoker.requests().size(), 1);
        QCOMPARE(f->invoker.requests().first().kind, RecordingInvoker::Request::InvokeService);
    }
    void startAttempt_childEnvironment_data()
    {
        // The value of key the child sees, from the inherited environment and the three env files
        // (weakest first); "-" = not set at that level. $APP stands for the application folder.
        QTest::addColumn<QString>("key");
        QTest::addColumn<QStringList>("levels"); // inherited, tg_api, tg_login, td_debug
        QTest::addColumn<QString>("expected");
        const auto row = [](const char *name, const char *key, const QStringList &levels,
                            const char *expected) {
            QTest::newRow(name) << key << levels << expected;
        };
        row("working folder", "#cwd", {"-", "-", "-", "-"}, "$APP");
        row("fixed entries over inherited", "TDLIB_LOG_VERBOSITY", {"7", "-", "-", "-"}, "2");
        row("library path replaced", "LD_LIBRARY_PATH", {"/x", "-", "-", "-"}, "$APP");
        row("inherited passes through", "SOME_VAR", {"x", "-", "-", "-"}, "x");
        row("tg_api over fixed entries", "TG_AUTO_SEND_PHONE", {"-", "1", "-", "-"}, "1");
        row("tg_login over tg_api, UTF-8", "TG_API_ID", {"-", "111", "Zoë Ђорђе", "-"},
            "Zoë Ђорђе");
        row("td_debug over all", "TDLIB_LOG_VERBOSITY", {"9", "3", "4", "5"}, "5");
    }
    void startAttempt_childEnvironment()
    {
        QFETCH(QString, key);
        QFETCH(QStringList, levels);
        QFETCH(QString, expected);
        const char *files[] = {"tg_api.env", "tg_login.env", "td_debug.env"};
        for (int i = 0; i < 3; ++i) {
            if (levels.at(i + 1) != "-")
                writeFile(f->misc + "/" + files[i], (key + "=" + levels.at(i + 1)).toUtf8());
        }
        makeLink(levels.at(0) == "-" ? QStringList() : QStringList{key + "=" + levels.at(0)});
        f->link->startBackendAttempt();
        QTRY_VERIFY(QFile::exists(record(".starts"))); // written after the environment
        const QStringList env = QString::fromUtf8(readAll(record(".env"))).split('\n');
        QCOMPARE(get_env_value(env, key), expected.replace("$APP", f->app));
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
        makeLink(service ? QStringList{"UI_USE_SERVICE_BACKEND=1"} : QStringList());
        f->link->startBackendAttempt();
        for (const QString &l : lines)
            f->link->sendLine(l);
        f->link->sendLine("end-marker");
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
    void restartAndReactionTrace()
    {
        // Starting again kills the child with SIGKILL, whose number equals the lock code: no
        // retry. Only reactions are traced, into a UI debug log each attempt begins afresh; a
        // backend that ended on its own is not started again.
        makeLink();
        f->link->startBackendAttempt();
        QTRY_COMPARE(readAll(record(".received")), QByteArray("ping\n")); // read before the kill
        QVERIFY(writeFile(f->data + "/ui_debug.log", "left over\n"));
        f->link->startBackendAttempt();
        QVERIFY(!f->link->isRetryPending());
        const QString line = QStringLiteral("react -100 55 👍 add");
        f->link->sendLine("  " + line);
        f->link->sendLine("chats 60");
        f->link->sendLine("exit 0");
        QTRY_COMPARE(f->link->statusText(), QStringLiteral("Backend finished"));
        QVERIFY(!f->link->isRetryPending());
        QCOMPARE(readAll(record(".starts")).count('\n'), 2);
        f->link->sendLine("react 1 2 x add");
        QVERIFY(f->log.buffer().endsWith("backend: not running\n"));
        const QByteArray uiLog = readAll(f->data + "/ui_debug.log");
        QVERIFY(
            uiLog.contains(" react: sendLine begin use_service_backend=0 line=" + line.toUtf8()));
        QVERIFY(uiLog.contains(" react: sendLine abort backend_state=0\n"));
        QVERIFY(!uiLog.contains("chats 60") && !uiLog.contains("left over"));
    }
    void childOutputAndEvents()
    {
        // The child's two output streams and the events file reach the intake (its line rules:
        // test_event_intake); what an earlier backend left in the file is never delivered.
        QVERIFY(writeFile(f->data + "/backend_events.jsonl", "{\"type\":\"stale\"}\n"));
        makeLink({"FAKE_BACKEND_STDERR=NEED code\\n"});
        QSignalSpy status(&f->intake, &EventIntake::statusTextChanged);
        QSignalSpy events(&f->intake, &EventIntake::eventReceived);
        f->link->startBackendAttempt();
        f->intake.startPolling();
        QTRY_VERIFY(texts(status).contains("Need: code"));
        // A character split between two writes of the child arrives whole.
        f->link->sendLine(QString("say " + QByteArray("ME 7 Zo\xc3").toBase64()));
        f->link->sendLine(QString("say " + QByteArray("\xab\n").toBase64()));
        QTRY_VERIFY(texts(status).contains(QStringLiteral("ME 7 Zoë")));
        f->link->sendLine(QString("emit " + QByteArray("{\"type\":\"auth_state\"}").toBase64()));
        QTRY_COMPARE_WITH_TIMEOUT(texts(events), QStringList{"auth_state"}, 5000);
    }
    void retries_data()
    {
        // What lies at the program's path, and the retry statuses that follow. Only a missing
        // program is waited for, whatever language the start error comes in. One that appears
        // at the third retry but finds its database locked on every start has had its count
        // reset by the start, so ten lock retries follow, and the eleventh lock exit ends it.
        QTest::addColumn<QByteArray>("program"); // empty: none; "later": the stand-in appears
        QTest::addColumn<QStringList>("statuses");
        QStringList missing, locked;
        for (int i = 1; i <= 5; ++i)
            missing << QStringLiteral("Backend retry %1/5").arg(i);
        locked = missing.mid(0, 3);
        for (int i = 1; i <= 10; ++i)
            locked << QStringLiteral("Backend waiting for TDLib lock %1/10").arg(i);
        QTest::newRow("missing") << QByteArray() << missing;
        QTest::newRow("not executable") << QByteArray("#!/bin/sh\n") << QStringList();
        QTest::newRow("appears, locked") << QByteArray("later") << (locked << "Backend finished");
    }
    void retries()
    {
        QFETCH(QByteArray, program);
        QFETCH(QStringList, statuses);
        QVERIFY(!program.startsWith("#!") || writeFile(f->app + "/td_backend", program));
        makeLink({"FAKE_BACKEND_EXIT_CODE=9"}, false);
        QSignalSpy status(f->link.get(), &BackendLink::statusTextChanged);
        connect(f->link.get(), &BackendLink::statusTextChanged, this, [&](const QString &s) {
            if (program == "later" && s == QLatin1String("Backend retry 3/5"))
                installBackend();
        });
        const auto seen = [&status] {
            QStringList out = texts(status);
            for (const char *s : {"Backend started", "Backend failed to start", "Backend error"})
                out.removeAll(s);
            return out;
        };
        QElapsedTimer t;
        t.start();
        f->link->startBackendAttempt();
        QTRY_COMPARE_WITH_TIMEOUT(seen(), statuses, 30000);
        QTRY_VERIFY(!f->link->isRetryPending());
        QCOMPARE(seen(), statuses);
        QCOMPARE(readAll(record(".starts")).count('\n'), program == "later" ? 11 : 0);
        QVERIFY(t.elapsed() >= (program.isEmpty() ? 250 + 500 + 750 + 1000 + 1250 : 0));
    }
    void runningMarker_staleInBackground()
    {
        // Its refresh in front and its removal on quit: the controller's and the startup tests.
        makeLink({}, false);
        const QString marker = f->data + "/ui_running.txt";
        f->link->startRunningMarker();
        f->link->onAppThumbnailed();
        QVERIFY(writeFile(marker, "old\n"));
        f->link->onUiRunningMarkerTick();
        QCOMPARE(readAll(marker), QByteArray("old\n"));
    }

private:
    void makeLink(const QStringList &extraEnv = {}, bool withBackend = true)
    {
        if (withBackend)
            installBackend();
        AppFolders folders;
        folders.appDir = f->app;
        folders.dataDir = f->data;
        folders.miscDir = f->misc;
        f->link.reset(new BackendLink(folders, &f->log, &f->intake, &f->invoker,
                                      cleanEnvironment() + extraEnv));
    }
    void installBackend() { QVERIFY(installExecutable(FAKE_BACKEND_PATH, f->app + "/td_backend")); }
    QString record(const char *suffix) const { return f->data + "/backend_events.jsonl" + suffix; }
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
        QString app = root.filePath("app");
        QString data = root.filePath("data");
        QString misc = root.filePath("misc");
        AppLog log;
        EventIntake intake{&log};
        RecordingInvoker invoker;
        std::unique_ptr<BackendLink> link;
        QUdpSocket port;
    };
    std::unique_ptr<Fixture> f;
};

QTEST_GUILESS_MAIN(TestBackendLink)
#include "test_backend_link.moc"
