// td_backend's engine choice and its TDLib engine, as real child processes
// with the real TDLib. The whole test runs in a loopback-only network
// namespace, with made-up credentials, and TDLib gets no network or a proxy
// it refuses. (The sign-in form behind a refusing proxy: test_td_sign_in.)
#include "demo/demo_process.h"
#include "td_isolation.h"

#include <QCoreApplication>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QUdpSocket>
#include <QtTest>

#include <csignal>

using namespace test_util;

class TestTdEngine : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase() { TD_REQUIRE_ISOLATION(); }
    void engineChoice_data();
    void engineChoice();
    void refusedProxyKeepsTheNetworkOff();
    void secondBackendOnTheDatabaseExitsLocked();
    void orderlyClose_data();
    void orderlyClose();

private:
    // A TDLib engine with no network; true once it asks for a phone number.
    static bool startTdlib(DemoProcess &p, const QStringList &args = {});
    static void setEnv(DemoProcess &p, const QStringList &pairs)
    {
        for (const QString &kv : pairs)
            p.setEnv(kv.section(QLatin1Char('='), 0, 0), kv.section(QLatin1Char('='), 1));
    }
    static bool stdoutHas(DemoProcess &p, const QString &line, int timeoutMs = 30000)
    {
        return waitFor(
            [&] { return QString::fromUtf8(p.standardOutput()).split('\n').contains(line); },
            timeoutMs);
    }
};

bool TestTdEngine::startTdlib(DemoProcess &p, const QStringList &args)
{
    setEnv(p, td_isolation::fakeCredentials() << QStringLiteral("TDLIB_NETWORK_NONE=1"));
    return p.start(args) && stdoutHas(p, QStringLiteral("NEED phone"));
}

void TestTdEngine::engineChoice_data()
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

void TestTdEngine::engineChoice()
{
    QFETCH(QStringList, args);
    QFETCH(bool, credentials);
    QFETCH(bool, library);
    QFETCH(QString, engine);
    if (library)
        TD_REQUIRE_LIBRARY();
    QTemporaryDir dir;
    DemoProcess p(dir.path());
    const QString missing = dir.filePath(QStringLiteral("nowhere/libtdjson.so"));
    setEnv(p, {QStringLiteral("TG_API_ID="), QStringLiteral("TG_API_HASH="),
               QStringLiteral("TDLIB_NETWORK_NONE=1"),
               QStringLiteral("VEXA_TDJSON=") + (library ? td_isolation::library() : missing)});
    if (credentials)
        setEnv(p, td_isolation::fakeCredentials());
    QVERIFY(p.start(args));
    QVERIFY(waitFor([&] { return p.standardOutput().contains('\n'); }, 30000));
    QCOMPARE(p.standardOutput().left(p.standardOutput().indexOf('\n')),
             "BACKEND_READY " + engine.toUtf8());
    QCOMPARE(p.finish(), 0);
    // The first line of the log tells why; for a library that will not load, which one.
    const QByteArray why = p.process().readAllStandardError();
    if (credentials && !library)
        QVERIFY2(why.contains(missing.toUtf8()), why.constData());
    const QByteArray log = readAll(p.logPath());
    QVERIFY2(log.startsWith("[backend] ") && log.left(log.indexOf('\n')).contains(engine.toUtf8()),
             log.left(400).constData());
}

// A proxy TDLib refuses leaves it off the network, not connecting directly, and says so.
void TestTdEngine::refusedProxyKeepsTheNetworkOff()
{
    TD_REQUIRE_LIBRARY();
    QTemporaryDir dir;
    DemoProcess p(dir.path());
    // A secret that is not one: TDLib answers addProxy with an error.
    setEnv(p, td_isolation::fakeCredentials() << "TG_PROXY_TYPE=mtproto"
                                              << "TG_PROXY_HOST=127.0.0.1"
                                              << "TG_PROXY_PORT=443"
                                              << "TG_PROXY_SECRET=not-a-secret");
    QVERIFY(p.start());
    QVERIFY(p.waitFor(0, [](const QJsonObject &e) {
        return ev_type(e) == "td_error" && str(e, "json").contains("\"@extra\":\"proxy\"");
    }) >= 0);
    QVERIFY(waitFor([&] { return p.standardOutput().contains("\nPROXY_REFUSED "); }, 30000));
    QVERIFY(p.waitFor(0, DemoProcess::stateIs("connection_state", "WaitingForNetwork")) >= 0);
    // A number to sign in with makes TDLib want the network; it stays without.
    QVERIFY(stdoutHas(p, QStringLiteral("NEED phone")));
    p.post("phone +15550100");
    QVERIFY(p.settle() >= 0);
    for (const QJsonObject &e : p.events())
        QVERIFY2(ev_type(e) != "connection_state" || str(e, "state") == "WaitingForNetwork",
                 qPrintable(str(e, "state")));
    QCOMPARE(p.finish(), 0);
}

void TestTdEngine::secondBackendOnTheDatabaseExitsLocked()
{
    TD_REQUIRE_LIBRARY();
    QTemporaryDir dir;
    DemoProcess first(dir.path());
    QVERIFY(startTdlib(first));

    DemoProcess second(dir.path());
    setEnv(second, td_isolation::fakeCredentials() << QStringLiteral("TDLIB_NETWORK_NONE=1"));
    QVERIFY(second.start());
    QVERIFY(second.process().waitForFinished(20000));
    QCOMPARE(second.process().exitStatus(), QProcess::NormalExit);
    QCOMPARE(second.process().exitCode(), 9);
    QVERIFY(second.standardOutput().startsWith("FATAL "));

    // The first goes on unharmed.
    QVERIFY(first.settle() >= 0);
    QCOMPARE(first.finish(), 0);
}

void TestTdEngine::orderlyClose_data()
{
    QTest::addColumn<QString>("how");
    QTest::addColumn<bool>("service");
    QTest::newRow("close") << "close" << false;
    QTest::newRow("end of input") << "eof" << false;
    QTest::newRow("SIGTERM") << "term" << false;
    QTest::newRow("service: close") << "close" << true;
}

void TestTdEngine::orderlyClose()
{
    QFETCH(QString, how);
    QFETCH(bool, service);
    TD_REQUIRE_LIBRARY();
    QTemporaryDir dir;
    DemoProcess p(dir.path());
    if (service)
        p.setEnv(QStringLiteral("DEMO_SERVICE_PORT"), QStringLiteral("47010"));
    QVERIFY(startTdlib(p, service ? QStringList{"--service"} : QStringList()));
    // The service port is this namespace's own, whatever else runs on the machine.
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
    if (how == QLatin1String("close"))
        command("close");
    else if (how == QLatin1String("eof"))
        p.process().closeWriteChannel();
    else
        ::kill(pid_t(p.process().processId()), SIGTERM);
    QVERIFY(p.process().waitForFinished(30000));
    QCOMPARE(p.process().exitStatus(), QProcess::NormalExit);
    QCOMPARE(p.process().exitCode(), 0);
    // TDLib went through closing to closed, and that was the last word.
    const int closing = p.waitFor(from, DemoProcess::stateIs("auth_state", "Closing"));
    const int closed = p.waitFor(from, DemoProcess::stateIs("auth_state", "Closed"));
    QVERIFY(closing >= 0 && closed > closing);
    QCOMPARE(ev_type(p.events().last()), QStringLiteral("td_closed"));
    QVERIFY(p.standardOutput().endsWith("AUTH_STATE Closed\n"));
}

TD_ISOLATED_TEST_MAIN(QCoreApplication, TestTdEngine)
#include "test_td_engine.moc"
