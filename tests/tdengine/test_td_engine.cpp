// td_backend's engine choice and its TDLib engine with the real TDLib: as
// child processes, behind the client's sign-in form, and in this process.
// main() moves the whole test into a loopback-only network namespace before
// anything runs; credentials are made up, and TDLib gets no network or a
// proxy that refuses.
#include "backend_output.h"
#include "common/loopback_namespace.h"
#include "demo/demo_process.h"
#include "platform/ui/phone_window.h"
#include "shell/ui/screens.h"
#include "shell/ui/shell_screens.h"
#include "td_engine.h"
#include "td_json_library.h"
#include "ui_main/ui/ui_tdlib_spike.h"

#include <QApplication>
#include <QLabel>
#include <QLineEdit>
#include <QSignalSpy>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QUdpSocket>
#include <QtTest>

#include <csignal>
#include <memory>

using namespace test_util;

namespace {

QString g_isolation = QStringLiteral("not entered"); // empty once inside the namespace

// Not a real application's: TDLib only checks that they are set.
const QStringList kCredentials{QStringLiteral("TG_API_ID=1"),
                               QStringLiteral("TG_API_HASH=0123456789abcdef0123456789abcdef")};

// The libtdjson.so the build linked beside td_backend; empty when there is none.
QString tdLibrary()
{
    const QFileInfo lib(QFileInfo(QStringLiteral(TD_BACKEND_PATH)).dir().filePath("libtdjson.so"));
    return lib.exists() ? lib.canonicalFilePath() : QString();
}

void setEnv(DemoProcess &p, const QStringList &pairs)
{
    for (const QString &kv : pairs)
        p.setEnv(kv.section(QLatin1Char('='), 0, 0), kv.section(QLatin1Char('='), 1));
}

// A TDLib engine with no network; true once it asks for a phone number.
bool startTdlib(DemoProcess &p, const QStringList &args = {})
{
    setEnv(p, kCredentials + QStringList{QStringLiteral("TDLIB_NETWORK_NONE=1")});
    return p.start(args) &&
           waitFor([&] { return p.standardOutput().contains("\nNEED phone\n"); }, 30000);
}

// A SOCKS5 proxy on 127.0.0.1 that never connects anywhere: it takes the
// greeting without authentication, counts each request to connect, and refuses
// it. Pointing TDLib at it shows that TDLib tried while nothing leaves the
// machine.

class RefusingSocks5Proxy : public QObject
{
    Q_OBJECT
public:
    explicit RefusingSocks5Proxy(QObject *parent = nullptr) : QObject(parent)
    {
        connect(&m_server, &QTcpServer::newConnection, this, [this] {
            while (QTcpSocket *s = m_server.nextPendingConnection()) {
                s->setParent(this);
                connect(s, &QTcpSocket::readyRead, this, [this, s] { serve(s); });
                connect(s, &QTcpSocket::disconnected, s, &QObject::deleteLater);
            }
        });
    }
    bool listen() { return m_server.listen(QHostAddress::LocalHost, 0); }
    quint16 port() const { return m_server.serverPort(); }
    int attempts() const { return m_attempts; }

private:
    void serve(QTcpSocket *s)
    {
        QByteArray buf = s->property("buf").toByteArray() + s->readAll();
        // Every message of the exchange is short; anything longer is not SOCKS5.
        if (buf.size() > 1024) {
            s->abort();
            return;
        }
        const auto byte = [&](int i) { return quint8(buf.at(i)); };
        if (!s->property("greeted").toBool() && buf.size() >= 2 && buf.size() >= 2 + byte(1)) {
            s->write(QByteArray("\x05\x00", 2));
            buf.remove(0, 2 + byte(1));
            s->setProperty("greeted", true);
        }
        // A request (CONNECT or other) is refused as soon as its header is in.
        if (s->property("greeted").toBool() && buf.size() >= 4) {
            ++m_attempts;
            // Reply 5: connection refused.
            s->write(QByteArray("\x05\x05\x00\x01\x00\x00\x00\x00\x00\x00", 10));
            s->disconnectFromHost();
            return;
        }
        s->setProperty("buf", buf);
    }

    QTcpServer m_server;
    int m_attempts = 0;
};

} // namespace

#define REQUIRE_TDLIB()                                                                            \
    if (tdLibrary().isEmpty())                                                                     \
    QSKIP("no libtdjson.so beside td_backend: scripts/fetch_tdlib.sh fetches it")

class TestTdEngine : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase()
    {
        if (!g_isolation.isEmpty())
            QSKIP(qPrintable(QStringLiteral("no loopback-only network namespace here (%1); "
                                            "TDLib is never run outside one")
                                 .arg(g_isolation)));
    }

    void engineChoice_data()
    {
        QTest::addColumn<QStringList>("args");
        QTest::addColumn<bool>("credentials");
        QTest::addColumn<bool>("library");
        QTest::addColumn<QString>("engine");
        QTest::newRow("no credentials") << QStringList() << false << true << "demo";
        QTest::newRow("credentials, no library") << QStringList() << true << false << "demo";
        QTest::newRow("--demo") << QStringList{"--demo"} << true << true << "demo";
        QTest::newRow("credentials and library") << QStringList() << true << true << "tdlib";
    }

    void engineChoice()
    {
        QFETCH(QStringList, args);
        QFETCH(bool, credentials);
        QFETCH(bool, library);
        QFETCH(QString, engine);
        if (library)
            REQUIRE_TDLIB();
        QTemporaryDir dir;
        DemoProcess p(dir.path());
        const QString missing = dir.filePath(QStringLiteral("nowhere/libtdjson.so"));
        setEnv(p, {QStringLiteral("TG_API_ID="), QStringLiteral("TG_API_HASH="),
                   QStringLiteral("TDLIB_NETWORK_NONE=1"),
                   QStringLiteral("VEXA_TDJSON=") + (library ? tdLibrary() : missing)});
        if (credentials)
            setEnv(p, kCredentials);
        QVERIFY(p.start(args));
        const QByteArray ready = "BACKEND_READY " + engine.toUtf8() + '\n';
        QVERIFY2(waitFor([&] { return p.standardOutput().startsWith(ready); }, 30000),
                 p.standardOutput().constData());
        QCOMPARE(p.finish(), 0);
        // The first line of the log tells why; for a library that will not load, which one.
        const QByteArray why = p.process().readAllStandardError();
        if (credentials && !library)
            QVERIFY2(why.contains(missing.toUtf8()), why.constData());
        const QByteArray log = readAll(p.logPath());
        QVERIFY2(log.startsWith("[backend] ") &&
                     log.left(log.indexOf('\n')).contains(engine.toUtf8()),
                 log.left(400).constData());
    }

    void orderlyClose_data()
    {
        QTest::addColumn<QString>("how");
        QTest::newRow("end of input") << "eof";
        QTest::newRow("SIGTERM") << "term";
        QTest::newRow("service: close") << "close";
    }

    // A second backend on the database exits locked and leaves the first
    // unharmed; ended in any of the ways it can be, that first one's TDLib
    // goes through closing to closed, and that is the last word.
    void orderlyClose()
    {
        QFETCH(QString, how);
        REQUIRE_TDLIB();
        QTemporaryDir dir;
        DemoProcess p(dir.path());
        const bool service = how == "close";
        // The service port is this namespace's own, whatever else runs on the machine.
        p.setEnv(QStringLiteral("DEMO_SERVICE_PORT"), QStringLiteral("47010"));
        QVERIFY(startTdlib(p, service ? QStringList{"--service"} : QStringList()));
        DemoProcess second(dir.path());
        setEnv(second, kCredentials + QStringList{QStringLiteral("TDLIB_NETWORK_NONE=1")});
        QVERIFY(second.start() && second.process().waitForFinished(20000));
        QCOMPARE(second.process().exitCode(), 9);
        QVERIFY(second.standardOutput().startsWith("FATAL "));
        QUdpSocket udp;
        const auto command = [&](const QByteArray &line) {
            if (service)
                udp.writeDatagram(line, QHostAddress::LocalHost, 47010);
            else
                p.send(line);
        };
        const int from = p.mark();
        command("ping");
        QVERIFY(p.waitFor(from, [](const QJsonObject &e) { return flag(e, "pong"); }) >= 0);
        if (service)
            command("close");
        else if (how == "eof")
            p.process().closeWriteChannel();
        else
            ::kill(pid_t(p.process().processId()), SIGTERM);
        QVERIFY(p.process().waitForFinished(30000) &&
                p.process().exitStatus() == QProcess::NormalExit && p.process().exitCode() == 0);
        const int closing = p.waitFor(from, DemoProcess::stateIs("auth_state", "Closing"));
        QVERIFY(closing >= 0 &&
                p.waitFor(closing, DemoProcess::stateIs("auth_state", "Closed")) > 0);
        QCOMPARE(str(p.events().last(), "type"), QStringLiteral("td_closed"));
    }

    // The client with credentials in "tg_api.env" runs TDLib, sent to a SOCKS5
    // proxy on 127.0.0.1 that refuses everything, and its sign-in form follows
    // TDLib's state.
    void credentialsBringTheTdlibSignInForm()
    {
        REQUIRE_TDLIB();
        RefusingSocks5Proxy proxy;
        QVERIFY(proxy.listen());
        QTemporaryDir dir;
        const QString appDir = dir.filePath("app");
        const QString dataDir = dir.filePath("data");
        QVERIFY(QDir().mkpath(appDir) &&
                installExecutable(QStringLiteral(TD_BACKEND_PATH), appDir + "/td_backend") &&
                QFile::link(tdLibrary(), appDir + "/libtdjson.so"));
        const QStringList api =
            kCredentials + QStringList{"TG_PROXY_TYPE=socks5", "TG_PROXY_HOST=127.0.0.1",
                                       QStringLiteral("TG_PROXY_PORT=%1").arg(proxy.port())};
        QVERIFY(
            writeFile(dir.filePath("shared/misc/marlinde/tg_api.env"), api.join('\n').toUtf8()));
        auto spike = std::make_unique<UiTdlibSpike>(
            appDir, cleanEnvironment() << "VEXA_DATA_DIR=" + dataDir
                                       << "VEXA_SHARED_DIR=" + dir.filePath("shared"));
        spike->window()->show();
        MainScreen *main = spike->screens()->mainScreen();
        const auto seen = [&](const char *text) {
            return waitFor(
                [&] { return readAll(dataDir + "/backend_events.jsonl").contains(text); }, 30000);
        };

        // TDLib, not the demo, answers; it wants a phone number and the form is there for it.
        QVERIFY(seen(R"("name":"tdlib")") && seen(R"("what":"phone")"));
        QLineEdit *phone = main->findChildren<QLineEdit *>().value(0);
        QVERIFY(phone && phone->isVisible());
        // A typed (fictional) number goes to TDLib, which cannot get past the proxy.
        QTest::keyClicks(phone, QStringLiteral("+15550100"));
        QTest::keyClick(phone, Qt::Key_Return);
        QVERIFY(waitFor([&] { return proxy.attempts() > 0; }, 60000));
        QVERIFY(seen(R"("type":"connection_state")") && !main->isAuthorised());
        // The form says that TDLib is still trying to connect.
        QLabel *line = main->findChild<QLabel *>(QStringLiteral("connection_label"));
        QTRY_VERIFY_WITH_TIMEOUT(line && line->isVisible() && line->text().startsWith("Connecting"),
                                 30000);
        // Closing the window ends the backend in order: TDLib reports itself closed.
        spike.reset();
        QVERIFY(readAll(dataDir + "/backend_events.jsonl").contains(R"("type":"td_closed")"));
    }

    // In this process: a client that closes without the engine asking (a
    // log-out) is followed by a fresh one that asks for a number again, and only
    // a close asked for ends the engine. Every object reaches the translator
    // though the hand-off from TDLib's thread has room for one at a time.
    void logOutBringsTheFormBack()
    {
        REQUIRE_TDLIB();
        TdJsonLibrary library;
        QString error;
        QVERIFY2(library.load(tdLibrary(), &error), qPrintable(error));
        QTemporaryDir dir;
        const QString eventsPath = dir.filePath("events.jsonl");
        BackendOutput out(eventsPath, dir.filePath("backend.log"), 0, 2);
        QVERIFY2(out.open(&error), qPrintable(error));
        TdEngineSettings settings;
        settings.td.apiId = 1;
        settings.td.apiHash = kCredentials.at(1).section('=', 1);
        settings.td.databaseDir = dir.filePath("db");
        settings.td.filesDir = dir.filePath("files");
        settings.td.networkNone = true;
        settings.logPath = dir.filePath("tdlib.log");
        settings.queueCapacity = 1;
        TdEngine engine(settings, &library, &out);
        QSignalSpy finished(&engine, &TdEngine::finished);
        const QByteArray phoneWanted = R"("what":"phone")";
        engine.start();
        QVERIFY(waitFor([&] { return readAll(eventsPath).contains(phoneWanted); }, 30000));
        const int first = engine.clientId();

        // Logged out while the form is shown: TDLib closes the client unasked.
        library.send(first, R"({"@type":"logOut"})");
        QVERIFY(waitFor([&] { return readAll(eventsPath).count(phoneWanted) == 2; }, 30000));
        const QByteArray afterLogOut = readAll(eventsPath);
        const int closed = afterLogOut.indexOf("\"td_closed\"");
        QVERIFY(closed > 0 && afterLogOut.indexOf(phoneWanted, closed) > closed);
        QVERIFY(afterLogOut.indexOf("\"backend_ready\"", closed) > closed);
        QVERIFY(finished.isEmpty() && engine.clientId() != first);

        // Asked to close, the engine ends once TDLib is closed.
        engine.handleLine("close");
        QVERIFY(finished.wait(30000));
        QCOMPARE(finished.first().first().toInt(), 0);
        QVERIFY(readAll(eventsPath).trimmed().split('\n').last().contains("\"td_closed\""));
    }
};

// Into the namespace first, while the process is one thread; the tests skip
// when it cannot be had.
int main(int argc, char **argv)
{
    if (test_netns::enterLoopbackOnlyNamespace(&g_isolation))
        g_isolation.clear();
    QApplication app(argc, argv);
    TestTdEngine test;
    QTEST_SET_MAIN_SOURCE_PATH
    return QTest::qExec(&test, argc, argv);
}
#include "test_td_engine.moc"
