// A proxy TDLib refuses leaves td_backend off the network, not connecting
// directly, and says so. td_backend as a child process with the real TDLib,
// in a loopback-only network namespace, with made-up credentials.
#include "demo/demo_process.h"
#include "td_isolation.h"

#include <QCoreApplication>
#include <QTemporaryDir>
#include <QtTest>

using namespace test_util;

class TestTdProxyRefused : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase() { TD_REQUIRE_ISOLATION(); }
    void refusedProxyKeepsTheNetworkOff();
};

void TestTdProxyRefused::refusedProxyKeepsTheNetworkOff()
{
    TD_REQUIRE_LIBRARY();
    QTemporaryDir dir;
    DemoProcess p(dir.path());
    for (const QString &kv : td_isolation::fakeCredentials())
        p.setEnv(kv.section('=', 0, 0), kv.section('=', 1));
    // A secret that is not one: TDLib answers addProxy with an error.
    p.setEnv("TG_PROXY_TYPE", "mtproto");
    p.setEnv("TG_PROXY_HOST", "127.0.0.1");
    p.setEnv("TG_PROXY_PORT", "443");
    p.setEnv("TG_PROXY_SECRET", "not-a-secret");
    QVERIFY(p.start());

    const int refused = p.waitFor(0, [](const QJsonObject &e) {
        return ev_type(e) == "td_error" && str(e, "json").contains("\"@extra\":\"proxy\"");
    });
    QVERIFY(refused >= 0);
    QVERIFY(waitFor([&] { return p.standardOutput().contains("\nPROXY_REFUSED "); }, 30000));
    QVERIFY(p.waitFor(0, DemoProcess::stateIs("connection_state", "WaitingForNetwork")) >= 0);

    // A number to sign in with makes TDLib want the network; it stays without.
    QVERIFY(waitFor([&] { return p.standardOutput().contains("NEED phone"); }, 30000));
    p.post("phone +15550100");
    QVERIFY(p.settle() >= 0);
    for (const QJsonObject &e : p.events())
        QVERIFY2(ev_type(e) != "connection_state" || str(e, "state") == "WaitingForNetwork",
                 qPrintable(str(e, "state")));
    QCOMPARE(p.finish(), 0);
}

TD_ISOLATED_TEST_MAIN(QCoreApplication, TestTdProxyRefused)
#include "test_td_proxy_refused.moc"
