#include "common.h"

#include <QHostAddress>
#include <QNetworkDatagram>
#include <QProcess>
#include <QTemporaryDir>
#include <QUdpSocket>
#include <QtTest>

#include <memory>

using namespace test_util;

// The program as a black box: the vexa executable copied with the stand-in
// backend (as "td_backend") into a fresh folder, run offscreen on temporary
// data and shared folders.
class TestStartup : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();

    // One local-mode run, inspected step by step (in this order).
    void bannerOnStderr();
    void childEnvironment_data();
    void childEnvironment();
    void pingFirst();
    void markerWhileRunning();
    void secondInstanceHandsOverUrl_data();
    void secondInstanceHandsOverUrl();
    void sigtermEndsInOrder();

    void missingBackendRetries_data();
    void missingBackendRetries();
    void transport_data();
    void transport();

private:
    struct Run
    {
        std::unique_ptr<QTemporaryDir> dir;
        std::unique_ptr<QProcess> proc;
        QString app() const { return dir->filePath(QStringLiteral("app")); }
        QString data() const { return dir->filePath(QStringLiteral("data")); }
        QString misc() const { return dir->filePath(QStringLiteral("shared/misc/marlinde")); }
        QString record(const char *suffix) const
        {
            return data() + QStringLiteral("/backend_events.jsonl") + QLatin1String(suffix);
        }
    };
    static bool prepare(Run &run, bool withBackend);
    static void start(Run &run, const QStringList &extraEnv);
    static bool stop(Run &run);

    Run m_main;
    QByteArray m_mainStderr;
};

bool TestStartup::prepare(Run &run, bool withBackend)
{
    run.dir = std::make_unique<QTemporaryDir>();
    if (!run.dir->isValid() || !QDir().mkpath(run.app()) || !QDir().mkpath(run.data()) ||
        !QDir().mkpath(run.misc()))
        return false;
    if (!installExecutable(QStringLiteral(VEXA_PATH), run.app() + QStringLiteral("/vexa")))
        return false;
    return !withBackend || installExecutable(QStringLiteral(FAKE_BACKEND_PATH),
                                             run.app() + QStringLiteral("/td_backend"));
}

void TestStartup::start(Run &run, const QStringList &extraEnv)
{
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    for (const QString &k : env.keys()) {
        if (k.startsWith(QLatin1String("UI_USE_")) || k.startsWith(QLatin1String("QUILLO_")) ||
            k.startsWith(QLatin1String("VEXA_")) || k.startsWith(QLatin1String("TG_")) ||
            k.startsWith(QLatin1String("FAKE_BACKEND_")) || k.startsWith(QLatin1String("TDLIB_")))
            env.remove(k);
    }
    env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    env.insert(QStringLiteral("VEXA_DATA_DIR"), run.data());
    env.insert(QStringLiteral("VEXA_SHARED_DIR"), run.dir->filePath(QStringLiteral("shared")));
    env.insert(QStringLiteral("VEXA_TEST_INHERITED"), QStringLiteral("from parent"));
    env.insert(QStringLiteral("LD_LIBRARY_PATH"), QStringLiteral("/inherited/lib"));
    for (const QString &e : extraEnv) {
        const int eq = e.indexOf(QLatin1Char('='));
        env.insert(e.left(eq), e.mid(eq + 1));
    }
    run.proc = std::make_unique<QProcess>();
    run.proc->setProcessEnvironment(env);
    run.proc->setWorkingDirectory(run.dir->path());
    run.proc->start(run.app() + QStringLiteral("/vexa"), QStringList());
}

bool TestStartup::stop(Run &run)
{
    if (!run.proc || run.proc->state() == QProcess::NotRunning)
        return true;
    run.proc->terminate();
    if (run.proc->waitForFinished(10000))
        return true;
    run.proc->kill();
    run.proc->waitForFinished(3000);
    return false;
}

void TestStartup::initTestCase()
{
    QVERIFY(prepare(m_main, true));
    QVERIFY(writeFile(m_main.misc() + QStringLiteral("/tg_api.env"),
                      "# application credentials\nTG_API_ID=12345\nTDLIB_LOG_VERBOSITY=3\n"
                      "LAYER=api\n"));
    QVERIFY(writeFile(m_main.misc() + QStringLiteral("/tg_login.env"),
                      "TG_PHONE_NUMBER=+15550100\nTG_AUTO_SEND_PHONE=1\nLAYER=login\n"
                      "QUOTED=\"kept\"\n"));
    QVERIFY(writeFile(m_main.misc() + QStringLiteral("/td_debug.env"),
                      "LAYER = debug \nTDLIB_LOG_VERBOSITY=4\nEMPTY=\n=ignored\n"));
    start(m_main, {});
    QVERIFY(m_main.proc->waitForStarted(5000));
    const bool pinged =
        waitFor([&] { return readAll(m_main.record(".received")).contains("ping\n"); }, 15000);
    m_mainStderr = m_main.proc->readAllStandardError();
    QVERIFY2(pinged, m_mainStderr.constData());
}

void TestStartup::cleanupTestCase()
{
    stop(m_main);
}

void TestStartup::bannerOnStderr()
{
    QVERIFY2(m_mainStderr.startsWith("Vexa: starting\n"), m_mainStderr.constData());
}

void TestStartup::childEnvironment_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<QString>("value");
    const QString data = QDir(m_main.data()).canonicalPath();
    const QString app = QDir(m_main.app()).canonicalPath();
    QTest::newRow("working folder") << "#cwd" << app;
    QTest::newRow("fixed armcap") << "OPENSSL_armcap"
                                  << "0";
    QTest::newRow("verbosity from td_debug.env") << "TDLIB_LOG_VERBOSITY"
                                                 << "4";
    QTest::newRow("auto send from tg_login.env") << "TG_AUTO_SEND_PHONE"
                                                 << "1";
    QTest::newRow("db dir") << "TDLIB_DB_DIR" << data + "/tdlib-db";
    QTest::newRow("files dir") << "TDLIB_FILES_DIR" << data + "/cache/tdlib-files";
    QTest::newRow("log file") << "TDLIB_LOG_FILE" << data + "/tdlib.log";
    QTest::newRow("events file") << "BACKEND_EVENTS_FILE" << data + "/backend_events.jsonl";
    QTest::newRow("log size") << "TDLIB_LOG_MAX_FILE_SIZE"
                              << "5242880";
    QTest::newRow("library path replaced") << "LD_LIBRARY_PATH" << app;
    QTest::newRow("api file passed through") << "TG_API_ID"
                                             << "12345";
    QTest::newRow("phone") << "TG_PHONE_NUMBER"
                           << "+15550100";
    QTest::newRow("strongest file wins, trimmed") << "LAYER"
                                                  << "debug";
    QTest::newRow("quotes kept") << "QUOTED"
                                 << "\"kept\"";
    QTest::newRow("empty value") << "EMPTY"
                                 << "";
    QTest::newRow("inherited") << "VEXA_TEST_INHERITED"
                               << "from parent";
}

void TestStartup::childEnvironment()
{
    QFETCH(QString, key);
    QFETCH(QString, value);
    const QStringList lines =
        QString::fromUtf8(readAll(m_main.record(".env"))).split(QLatin1Char('\n'));
    QStringList found;
    for (const QString &l : lines) {
        if (l.startsWith(key + QLatin1Char('=')))
            found << l.mid(key.size() + 1);
    }
    QCOMPARE(found.size(), 1);
    // Paths may reach the child through a symlinked temp folder.
    if (found.first().startsWith(QLatin1Char('/')) && value.startsWith(QLatin1Char('/'))) {
        const QString canon = QFileInfo(found.first()).canonicalFilePath();
        const QString got = canon.isEmpty()
                                ? QDir(QFileInfo(found.first()).absolutePath()).canonicalPath() +
                                      QLatin1Char('/') + QFileInfo(found.first()).fileName()
                                : canon;
        QCOMPARE(got, value);
    } else {
        QCOMPARE(found.first(), value);
    }
}

void TestStartup::pingFirst()
{
    QVERIFY(readAll(m_main.record(".received")).startsWith("ping\n"));
    QCOMPARE(readAll(m_main.record(".starts")).count("start "), 1);
}

void TestStartup::markerWhileRunning()
{
    const QString marker = m_main.data() + QStringLiteral("/ui_running.txt");
    QVERIFY(QFile::exists(marker));
    const QByteArray text = readAll(marker);
    QVERIFY(text.endsWith('\n'));
    bool ok = false;
    const qint64 ms = text.trimmed().toLongLong(&ok);
    QVERIFY(ok);
    QVERIFY(qAbs(QDateTime::currentMSecsSinceEpoch() - ms) < 60000);
}

void TestStartup::secondInstanceHandsOverUrl_data()
{
    QTest::addColumn<QStringList>("args");
    QTest::newRow("with a link") << QStringList{QStringLiteral("tg://resolve?domain=example")};
    QTest::newRow("without arguments") << QStringList();
}

void TestStartup::secondInstanceHandsOverUrl()
{
    QFETCH(QStringList, args);
    // A second vexa on the same data folder with a link passes it to the
    // first and ends at once, without starting a backend of its own.
    QProcess proc;
    proc.setProcessEnvironment(m_main.proc->processEnvironment());
    proc.start(m_main.app() + QStringLiteral("/vexa"), args);
    QVERIFY(proc.waitForFinished(10000));
    QCOMPARE(proc.exitStatus(), QProcess::NormalExit);
    QCOMPARE(proc.exitCode(), 0);
    QVERIFY(proc.readAllStandardError().startsWith("Vexa: starting\n"));
    QCOMPARE(readAll(m_main.record(".starts")).count("start "), 1);
    QCOMPARE(m_main.proc->state(), QProcess::Running);
    QVERIFY(QFile::exists(m_main.data() + QStringLiteral("/ui_running.txt")));
}

void TestStartup::sigtermEndsInOrder()
{
    m_main.proc->terminate();
    QVERIFY(m_main.proc->waitForFinished(10000));
    QCOMPARE(m_main.proc->exitStatus(), QProcess::NormalExit);
    QCOMPARE(m_main.proc->exitCode(), 0);
    QVERIFY(!QFile::exists(m_main.data() + QStringLiteral("/ui_running.txt")));
}

void TestStartup::missingBackendRetries_data()
{
    // When td_backend appears, relative to the start of vexa, and whether a
    // retry still picks it up. Retries run at 250, 750, 1500, 2500 and 3750 ms.
    QTest::addColumn<int>("appearsAfterMs");
    QTest::addColumn<bool>("started");
    QTest::newRow("during the retries") << 900 << true;
    QTest::newRow("after the fifth retry") << 6000 << false;
}

void TestStartup::missingBackendRetries()
{
    QFETCH(int, appearsAfterMs);
    QFETCH(bool, started);
    Run run;
    QVERIFY(prepare(run, false));
    start(run, {});
    QVERIFY(run.proc->waitForStarted(5000));
    // The first attempt has happened once the debug log exists.
    QVERIFY(waitFor([&] { return QFile::exists(run.data() + QStringLiteral("/ui_debug.log")); },
                    10000));
    QTest::qWait(appearsAfterMs);
    QVERIFY(installExecutable(QStringLiteral(FAKE_BACKEND_PATH),
                              run.app() + QStringLiteral("/td_backend")));
    const bool came = waitFor([&] { return QFile::exists(run.record(".starts")); }, 4000);
    QCOMPARE(came, started);
    if (started)
        QVERIFY(
            waitFor([&] { return readAll(run.record(".received")).startsWith("ping\n"); }, 5000));
    QVERIFY(run.proc->state() == QProcess::Running);
    QVERIFY(stop(run));
    QCOMPARE(run.proc->exitCode(), 0);
}

void TestStartup::transport_data()
{
    QTest::addColumn<QStringList>("env");
    QTest::addColumn<bool>("service");
    QTest::newRow("service flag") << QStringList{"UI_USE_SERVICE_BACKEND=1"} << true;
    QTest::newRow("service flag beats local")
        << QStringList{"UI_USE_SERVICE_BACKEND=1", "UI_USE_LOCAL_BACKEND=1"} << true;
    QTest::newRow("local off means service") << QStringList{"UI_USE_LOCAL_BACKEND=0"} << true;
    QTest::newRow("service 0 beats local 0")
        << QStringList{"UI_USE_SERVICE_BACKEND=0", "UI_USE_LOCAL_BACKEND=0"} << false;
    QTest::newRow("true is not 1") << QStringList{"UI_USE_SERVICE_BACKEND=true"} << false;
}

void TestStartup::transport()
{
    QFETCH(QStringList, env);
    QFETCH(bool, service);
    QUdpSocket port;
    // Another test may hold the port for a moment; wait for it.
    QVERIFY(waitFor([&] { return port.bind(QHostAddress::LocalHost, 47010); }, 20000));
    Run run;
    QVERIFY(prepare(run, true));
    start(run, env);
    QVERIFY(run.proc->waitForStarted(5000));

    QByteArray first;
    const bool gotDatagram = waitFor(
        [&] {
            if (!port.hasPendingDatagrams())
                return false;
            first = port.receiveDatagram().data();
            return true;
        },
        service ? 8000 : 2500);
    QCOMPARE(gotDatagram, service);
    if (service) {
        QCOMPARE(first.trimmed(), QByteArray("state"));
        QVERIFY(!QFile::exists(run.record(".starts")));
    } else {
        QVERIFY(
            waitFor([&] { return readAll(run.record(".received")).startsWith("ping\n"); }, 5000));
    }
    QVERIFY(stop(run));
    QCOMPARE(run.proc->exitCode(), 0);
    QVERIFY(!QFile::exists(run.data() + QStringLiteral("/ui_running.txt")));
}

QTEST_GUILESS_MAIN(TestStartup)
#include "test_startup.moc"
