#include "common/test_util.h"

#include <QHostAddress>
#include <QNetworkDatagram>
#include <QProcess>
#include <QTemporaryDir>
#include <QUdpSocket>
#include <QtTest>

#include <memory>

using namespace test_util;

// The program as a black box: the vexa executable copied with the stand-in backend (as
// "td_backend") into a fresh folder, run offscreen on temporary data and shared folders.
class TestStartup : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();

    // One local-mode run, inspected step by step (in this order).
    void bannerPingAndMarker();
    void secondInstanceHandsOver();
    void sigtermRemovesMarker();

    void serviceModeSendsState();

private:
    struct Run
    {
        QTemporaryDir dir;
        QString root = QDir(dir.path()).canonicalPath(); // what the child sees as paths
        std::unique_ptr<QProcess> proc;
        QString app() const { return root + "/app"; }
        QString data() const { return root + "/data"; }
        QString events() const { return data() + "/backend_events.jsonl"; }
    };
    static bool start(Run &run, const QStringList &extraEnv = {});

    Run m_main;
    QByteArray m_mainStderr;
};

bool TestStartup::start(Run &run, const QStringList &extraEnv)
{
    if (!QDir().mkpath(run.app()) || !QDir().mkpath(run.data()) ||
        !installExecutable(VEXA_PATH, run.app() + "/vexa") ||
        !installExecutable(FAKE_BACKEND_PATH, run.app() + "/td_backend"))
        return false;
    run.proc = std::make_unique<QProcess>();
    run.proc->setEnvironment(cleanEnvironment()
                             << "QT_QPA_PLATFORM=offscreen"
                             << "VEXA_DATA_DIR=" + run.data()
                             << "VEXA_SHARED_DIR=" + run.root + "/shared" << extraEnv);
    run.proc->setWorkingDirectory(run.root);
    run.proc->start(run.app() + "/vexa", QStringList());
    return run.proc->waitForStarted(5000);
}

void TestStartup::initTestCase()
{
    QVERIFY(start(m_main));
    const bool pinged =
        waitFor([&] { return QFile::exists(m_main.events() + ".received"); }, 15000);
    m_mainStderr = m_main.proc->readAllStandardError();
    QVERIFY2(pinged, m_mainStderr.constData());
}

void TestStartup::bannerPingAndMarker()
{
    QVERIFY2(m_mainStderr.startsWith("Vexa: starting\n"), m_mainStderr.constData());
    QVERIFY(
        waitFor([&] { return readAll(m_main.events() + ".received").startsWith("ping\n"); }, 5000));
    QCOMPARE(readAll(m_main.events() + ".starts").count("start "), 1);
    const QByteArray marker = readAll(m_main.data() + "/ui_running.txt");
    QVERIFY(marker.endsWith('\n'));
    QVERIFY(qAbs(QDateTime::currentMSecsSinceEpoch() - marker.trimmed().toLongLong()) < 60000);
}

void TestStartup::secondInstanceHandsOver()
{
    // A second vexa on the same data folder passes its request to the first and ends at once,
    // without starting a backend of its own; half a request is refused.
    const auto vexa = [&](const QStringList &args) {
        QProcess proc;
        proc.setProcessEnvironment(m_main.proc->processEnvironment());
        proc.start(m_main.app() + "/vexa", args);
        return proc.waitForFinished(10000) && proc.exitStatus() == QProcess::NormalExit
                   ? proc.exitCode()
                   : -1;
    };
    QCOMPARE(vexa({"tg://resolve?domain=example"}), 0);
    QCOMPARE(vexa({"--open-chat", "42", "--message"}), 2);
    QCOMPARE(vexa({"--open-chat", "42", "--message", "7"}), 0);
    QVERIFY2(waitFor([&] {
                 m_mainStderr += m_main.proc->readAllStandardError();
                 return m_mainStderr.contains("chat_id=42 message_id=7\n");
             }),
             m_mainStderr.constData());
    QCOMPARE(readAll(m_main.events() + ".starts").count("start "), 1);
}

void TestStartup::sigtermRemovesMarker()
{
    m_main.proc->terminate();
    QVERIFY(m_main.proc->waitForFinished(10000));
    QCOMPARE(m_main.proc->exitStatus(), QProcess::NormalExit);
    QCOMPARE(m_main.proc->exitCode(), 0);
    QVERIFY(!QFile::exists(m_main.data() + "/ui_running.txt"));
}

void TestStartup::serviceModeSendsState()
{
    QUdpSocket port;
    // Another test may hold the port for a moment; wait for it.
    QVERIFY(waitFor([&] { return port.bind(QHostAddress::LocalHost, 47010); }, 20000));
    Run run;
    QVERIFY(start(run, {"UI_USE_SERVICE_BACKEND=1"}));
    QVERIFY(waitFor([&] { return port.hasPendingDatagrams(); }, 8000));
    QCOMPARE(port.receiveDatagram().data(), QByteArray("state"));
    QVERIFY(!QFile::exists(run.events() + ".starts"));
    run.proc->terminate();
    QVERIFY(run.proc->waitForFinished(10000));
}

QTEST_GUILESS_MAIN(TestStartup)
#include "test_startup.moc"
