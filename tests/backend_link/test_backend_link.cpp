#include "backend_link/app_log.h"
#include "backend_link/backend_link.h"
#include "backend_link/event_intake.h"
#include "platform/invoker.h"

#include <QBuffer>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QUdpSocket>
#include <QtTest>

#include <memory>
#include <sys/resource.h>

namespace {

QByteArray readAll(const QString &path)
{
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly))
        return QByteArray();
    return f.readAll();
}

void writeFile(const QString &path, const QByteArray &bytes)
{
    QFile f(path);
    QVERIFY(f.open(QIODevice::WriteOnly | QIODevice::Truncate));
    f.write(bytes);
}

// The test process's own environment without anything that would pick the transport.
QStringList baseEnvironment()
{
    QStringList env;
    for (const QString &e : QProcess::systemEnvironment()) {
        if (!e.startsWith(QLatin1String("UI_USE_")) && !e.startsWith(QLatin1String("FAKE_BACKEND")))
            env << e;
    }
    return env;
}

QStringList statusTexts(const QSignalSpy &spy)
{
    QStringList texts;
    for (const QList<QVariant> &args : spy)
        texts << args.at(0).toString();
    return texts;
}

} // namespace

class TestBackendLink : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init();
    void cleanup();

    void startAttempt_childEnvironmentAndFolders();
    void startAttempt_envFilePrecedence_data();
    void startAttempt_envFilePrecedence();
    void startAttempt_settingsFromChildEnvironment_data();
    void startAttempt_settingsFromChildEnvironment();
    void startAttempt_oldEventsNeverDelivered();
    void startAttempt_killsRunningChild();

    void sendLine_local_data();
    void sendLine_local();
    void sendLine_localReactionTrace();
    void sendLine_refusesMultiLine_data();
    void sendLine_refusesMultiLine();
    void sendLine_localNotRunning();
    void sendLine_service_data();
    void sendLine_service();
    void sendLine_serviceSocketFailureRetried();

    void initNotifications_data();
    void initNotifications();

    void childOutput_reachesStatus();
    void childEvents_reachIntake();

    void retry_missingBackendFiveTimesThenStays();
    void retry_sharedCounterMissingThenLocked();
    void finished_otherExitEndsSupervision_data();
    void finished_otherExitEndsSupervision();

    void runningMarker();

private:
    void makeLink(const QStringList &extraEnv = QStringList());
    void installBackend();
    QString recordPath(const char *suffix) const
    {
        return m_data + QStringLiteral("/backend_events.jsonl") + QLatin1String(suffix);
    }
    QMap<QString, QString> childEnvDump();
    bool bindCommandPort(QUdpSocket &socket);

    std::unique_ptr<QTemporaryDir> m_root;
    QString m_app, m_data, m_misc;
    std::unique_ptr<AppLog> m_log;
    std::unique_ptr<EventIntake> m_intake;
    std::unique_ptr<RecordingInvoker> m_invoker;
    std::unique_ptr<BackendLink> m_link;
};

void TestBackendLink::init()
{
    m_root.reset(new QTemporaryDir);
    QVERIFY(m_root->isValid());
    m_app = m_root->filePath("app");
    m_data = m_root->filePath("data");
    m_misc = m_root->filePath("shared/misc/marlinde");
    QVERIFY(QDir().mkpath(m_app));
    QVERIFY(QDir().mkpath(m_misc));
    QVERIFY(QDir().mkpath(m_data));
    m_log.reset(new AppLog);
    m_intake.reset(new EventIntake(m_log.get()));
    m_invoker.reset(new RecordingInvoker);
}

void TestBackendLink::cleanup()
{
    m_link.reset();
    m_intake.reset();
    m_log.reset();
    m_invoker.reset();
    m_root.reset();
}

void TestBackendLink::makeLink(const QStringList &extraEnv)
{
    AppFolders folders;
    folders.appDir = m_app;
    folders.dataDir = m_data;
    folders.miscDir = m_misc;
    m_link.reset(new BackendLink(folders, m_log.get(), m_intake.get(), m_invoker.get(),
                                 baseEnvironment() + extraEnv));
}

void TestBackendLink::installBackend()
{
    const QString target = m_app + QStringLiteral("/td_backend");
    QFile::remove(target);
    QVERIFY(QFile::copy(QStringLiteral(FAKE_BACKEND_PATH), target));
    QVERIFY(QFile::setPermissions(target, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
}

QMap<QString, QString> TestBackendLink::childEnvDump()
{
    QMap<QString, QString> env;
    const QList<QByteArray> lines = readAll(recordPath(".env")).split('\n');
    for (const QByteArray &line : lines) {
        const QString text = QString::fromUtf8(line);
        if (text.startsWith(QLatin1String("#cwd="))) {
            env.insert(QStringLiteral("#cwd"), text.mid(5));
            continue;
        }
        const int eq = text.indexOf('=');
        if (eq > 0)
            env.insert(text.left(eq), text.mid(eq + 1));
    }
    return env;
}

bool TestBackendLink::bindCommandPort(QUdpSocket &socket)
{
    // Another test may hold the fixed port for a moment.
    QElapsedTimer t;
    t.start();
    while (!socket.bind(QHostAddress(QHostAddress::LocalHost), BackendLink::kServiceCommandPort)) {
        if (t.elapsed() > 20000)
            return false;
        QTest::qWait(200);
    }
    return true;
}

void TestBackendLink::startAttempt_childEnvironmentAndFolders()
{
    installBackend();
    makeLink(
        {"VEXA_TEST_INHERITED=kept", "LD_LIBRARY_PATH=/inherited/lib", "TDLIB_LOG_VERBOSITY=7"});
    QVERIFY(!m_link->useServiceBackend());
    QSignalSpy status(m_link.get(), &BackendLink::statusTextChanged);
    writeFile(m_data + "/ui_debug.log", "left over from the last run\n");
    m_link->startBackendAttempt();
    QCOMPARE(m_link->statusText(), QStringLiteral("Backend started"));
    QTRY_VERIFY(QFile::exists(recordPath(".env")));
    QTRY_VERIFY(!childEnvDump().value("BACKEND_EVENTS_FILE").isEmpty());

    const QMap<QString, QString> env = childEnvDump();
    QCOMPARE(env.value("#cwd"), m_app);
    QCOMPARE(env.value("OPENSSL_armcap"), QStringLiteral("0"));
    QCOMPARE(env.value("TDLIB_LOG_VERBOSITY"), QStringLiteral("2"));
    QCOMPARE(env.value("TG_AUTO_SEND_PHONE"), QStringLiteral("0"));
    QCOMPARE(env.value("TDLIB_DB_DIR"), m_data + "/tdlib-db");
    QCOMPARE(env.value("TDLIB_FILES_DIR"), m_data + "/cache/tdlib-files");
    QCOMPARE(env.value("TDLIB_LOG_FILE"), m_data + "/tdlib.log");
    QCOMPARE(env.value("BACKEND_EVENTS_FILE"), m_data + "/backend_events.jsonl");
    QCOMPARE(env.value("TDLIB_LOG_MAX_FILE_SIZE"), QStringLiteral("5242880"));
    QCOMPARE(env.value("LD_LIBRARY_PATH"), m_app);
    QCOMPARE(env.value("VEXA_TEST_INHERITED"), QStringLiteral("kept"));
    QVERIFY(QFileInfo(m_data + "/cache/tdlib-files").isDir());

    const QString log = m_log->buffer();
    QVERIFY(log.contains("appDir=" + m_app + "\n"));
    QVERIFY(log.contains("dataDir=" + m_data + "\n"));
    QVERIFY(log.contains("homeDir=" + QDir::homePath() + "\n"));
    QVERIFY(log.contains("cwd=" + QDir::currentPath() + "\n"));
    QVERIFY(log.contains("backendExists=true\n"));
    QVERIFY(log.contains("eventsFile=" + m_data + "/backend_events.jsonl\n"));
    QVERIFY(log.contains("backend: starting " + m_app + "/td_backend\n"));

    const QByteArray uiLog = readAll(m_data + "/ui_debug.log");
    QVERIFY(!uiLog.contains("left over"));
    QVERIFY(uiLog.contains(" startBackendAttempt use_service_backend=0\n"));
    QVERIFY(uiLog.contains(" backend: starting " + (m_app + "/td_backend\n").toUtf8()));
}

void TestBackendLink::startAttempt_envFilePrecedence_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<QString>("inherited"); // empty = not set at that level
    QTest::addColumn<QString>("api");
    QTest::addColumn<QString>("login");
    QTest::addColumn<QString>("debug");
    QTest::addColumn<QString>("expected");

    QTest::newRow("td_debug wins over everything") << "TDLIB_LOG_VERBOSITY"
                                                   << "9"
                                                   << "3"
                                                   << "4"
                                                   << "5"
                                                   << "5";
    QTest::newRow("tg_login over tg_api") << "TG_API_ID"
                                          << ""
                                          << "111"
                                          << "222"
                                          << ""
                                          << "222";
    QTest::newRow("tg_api over the fixed entries") << "TG_AUTO_SEND_PHONE"
                                                   << ""
                                                   << "1"
                                                   << ""
                                                   << ""
                                                   << "1";
    QTest::newRow("fixed entries over the inherited value") << "TDLIB_LOG_VERBOSITY"
                                                            << "7"
                                                            << ""
                                                            << ""
                                                            << ""
                                                            << "2";
    QTest::newRow("inherited passes through") << "SOME_VAR"
                                              << "x"
                                              << ""
                                              << ""
                                              << ""
                                              << "x";
    QTest::newRow("td_debug over tg_login for a new key") << "TG_PHONE_NUMBER"
                                                          << ""
                                                          << ""
                                                          << "+111"
                                                          << "+222"
                                                          << "+222";
    QTest::newRow("env file may replace the library path") << "LD_LIBRARY_PATH"
                                                           << "/x"
                                                           << ""
                                                           << ""
                                                           << "/opt/lib"
                                                           << "/opt/lib";
    QTest::newRow("quoted value passed as written") << "TG_API_HASH"
                                                    << ""
                                                    << "\"abc def\""
                                                    << ""
                                                    << ""
                                                    << "\"abc def\"";
}

void TestBackendLink::startAttempt_envFilePrecedence()
{
    QFETCH(QString, key);
    QFETCH(QString, inherited);
    QFETCH(QString, api);
    QFETCH(QString, login);
    QFETCH(QString, debug);
    QFETCH(QString, expected);
    const auto envFile = [&](const char *name, const QString &value) {
        if (!value.isEmpty())
            writeFile(m_misc + "/" + name,
                      ("# generated\n  " + key + " = " + value + "\n").toUtf8());
    };
    envFile("tg_api.env", api);
    envFile("tg_login.env", login);
    envFile("td_debug.env", debug);
    installBackend();
    QStringList extra;
    if (!inherited.isEmpty())
        extra << key + "=" + inherited;
    makeLink(extra);
    m_link->startBackendAttempt();
    QTRY_VERIFY(!childEnvDump().value("BACKEND_EVENTS_FILE").isEmpty());
    QCOMPARE(childEnvDump().value(key), expected);
}

void TestBackendLink::startAttempt_settingsFromChildEnvironment_data()
{
    QTest::addColumn<QByteArray>("debugEnv");
    QTest::addColumn<QStringList>("phones");
    QTest::addColumn<bool>("openFirst");
    QTest::addColumn<qint64>("chatId");

    QTest::newRow("nothing set") << QByteArray() << QStringList() << false << qint64(0);
    QTest::newRow("phone") << QByteArray("TG_PHONE_NUMBER=+15550100\n") << QStringList{"+15550100"}
                           << false << qint64(0);
    QTest::newRow("empty phone") << QByteArray("TG_PHONE_NUMBER=\n") << QStringList() << false
                                 << qint64(0);
    QTest::newRow("open first chat")
        << QByteArray("UI_AUTO_OPEN_FIRST_CHAT=1\n") << QStringList() << true << qint64(0);
    QTest::newRow("open first chat needs exactly 1")
        << QByteArray("UI_AUTO_OPEN_FIRST_CHAT=true\n") << QStringList() << false << qint64(0);
    QTest::newRow("negative chat id kept") << QByteArray("UI_AUTO_OPEN_CHAT_ID=-1001234567890\n")
                                           << QStringList() << false << Q_INT64_C(-1001234567890);
    QTest::newRow("chat id not a number")
        << QByteArray("UI_AUTO_OPEN_CHAT_ID=12ab\n") << QStringList() << false << qint64(0);
}

void TestBackendLink::startAttempt_settingsFromChildEnvironment()
{
    QFETCH(QByteArray, debugEnv);
    QFETCH(QStringList, phones);
    QFETCH(bool, openFirst);
    QFETCH(qint64, chatId);
    if (!debugEnv.isEmpty())
        writeFile(m_misc + "/td_debug.env", debugEnv);
    installBackend();
    makeLink();
    QSignalSpy phoneSpy(m_link.get(), &BackendLink::phoneNumberFromEnvironment);
    m_link->startBackendAttempt();
    QCOMPARE(statusTexts(phoneSpy), phones);
    QCOMPARE(m_link->autoOpenFirstChat(), openFirst);
    QCOMPARE(m_link->autoOpenChatId(), chatId);
}

void TestBackendLink::startAttempt_oldEventsNeverDelivered()
{
    QVERIFY(QDir().mkpath(m_data));
    writeFile(m_data + "/backend_events.jsonl", "{\"type\":\"stale\"}\n");
    writeFile(m_data + "/tdlib.log", "[backend] AUTH_STATE Stale\n");
    installBackend();
    makeLink();
    QSignalSpy events(m_intake.get(), &EventIntake::eventReceived);
    QSignalSpy status(m_intake.get(), &EventIntake::statusTextChanged);
    QBuffer console; // the shown log's console copy, kept off the test output
    console.open(QIODevice::WriteOnly);
    m_log->setConsoleDevice(&console);
    m_log->setViewVisible(true);
    m_link->startBackendAttempt();
    m_link->sendLine("emit " + QByteArray("{\"type\":\"fresh\"}").toBase64());
    m_intake->startPolling();
    QTRY_COMPARE_WITH_TIMEOUT(events.count(), 1, 5000);
    QCOMPARE(events.at(0).at(0).toMap().value("type").toString(), QStringLiteral("fresh"));
    QVERIFY(!statusTexts(status).contains("Auth: Stale"));
}

void TestBackendLink::startAttempt_killsRunningChild()
{
    installBackend();
    makeLink();
    m_link->startBackendAttempt();
    QTRY_COMPARE(readAll(recordPath(".starts")).count('\n'), 1);
    m_link->startBackendAttempt();
    QCOMPARE(m_link->statusText(), QStringLiteral("Backend started"));
    QCOMPARE(m_link->backendState(), QProcess::Running);
    QTRY_COMPARE(readAll(recordPath(".starts")).count('\n'), 2);
    // The first child was killed with SIGKILL, whose number equals the lock code: no retry.
    QVERIFY(!m_link->isRetryPending());
    QTRY_COMPARE(readAll(recordPath(".received")), QByteArray("ping\nping\n"));
}

void TestBackendLink::sendLine_local_data()
{
    QTest::addColumn<QStringList>("lines");
    QTest::addColumn<QByteArray>("received"); // after the initial "ping\n"

    QTest::newRow("one line, one line feed") << QStringList{"chats 60"} << QByteArray("chats 60\n");
    QTest::newRow("trimmed") << QStringList{"  \t open -100123  "} << QByteArray("open -100123\n");
    QTest::newRow("blank line is a lone line feed") << QStringList{"   "} << QByteArray("\n");
    QTest::newRow("utf-8 of typed text")
        << QStringList{"password пароль"} << QStringLiteral("password пароль\n").toUtf8();
    QTest::newRow("order kept") << QStringList{"a", "b", "c"} << QByteArray("a\nb\nc\n");
}

void TestBackendLink::sendLine_local()
{
    QFETCH(QStringList, lines);
    QFETCH(QByteArray, received);
    installBackend();
    makeLink();
    m_link->startBackendAttempt();
    for (const QString &l : lines)
        m_link->sendLine(l);
    QTRY_COMPARE(readAll(recordPath(".received")), QByteArray("ping\n") + received);
    QVERIFY(!m_log->buffer().contains("backend: not running"));
}

void TestBackendLink::sendLine_localReactionTrace()
{
    installBackend();
    makeLink();
    m_link->startBackendAttempt();
    const QString line = QStringLiteral("react -100 55 👍 add");
    m_link->sendLine("  " + line);
    m_link->sendLine("chats 60"); // not traced
    QTRY_COMPARE(readAll(recordPath(".received")),
                 QByteArray("ping\n") + line.toUtf8() + "\nchats 60\n");
    const QByteArray uiLog = readAll(m_data + "/ui_debug.log");
    QVERIFY(uiLog.contains(" react: sendLine begin use_service_backend=0 line=" + line.toUtf8() +
                           "\n"));
    QVERIFY(uiLog.contains(
        " react: sendLine done written=" + QByteArray::number(line.toUtf8().size() + 1) + "\n"));
    QVERIFY(!uiLog.contains("chats 60"));
}

void TestBackendLink::sendLine_refusesMultiLine_data()
{
    QTest::addColumn<bool>("service");
    QTest::addColumn<QString>("line");
    QTest::newRow("local LF") << false << "send64 1 aGk=\nleave 5";
    QTest::newRow("local CR") << false << "phone +1\rdelete_chat 5";
    QTest::newRow("local CRLF inside, blanks around") << false << "  code 1\r\n2  ";
    QTest::newRow("service LF") << true << "open 1\nleave 1";
    QTest::newRow("service CR") << true << "open 1\rleave 1";
}

void TestBackendLink::sendLine_refusesMultiLine()
{
    QFETCH(bool, service);
    QFETCH(QString, line);
    QUdpSocket receiver;
    if (service)
        QVERIFY(bindCommandPort(receiver));
    installBackend();
    makeLink(service ? QStringList{"UI_USE_SERVICE_BACKEND=1"} : QStringList());
    m_link->startBackendAttempt();
    m_link->sendLine(line);
    m_link->sendLine(QStringLiteral("state"));
    QVERIFY(m_log->buffer().contains("backend: refused multi-line command\n"));
    if (service) {
        QTRY_VERIFY(receiver.hasPendingDatagrams());
        QByteArray datagram(int(receiver.pendingDatagramSize()), '\0');
        receiver.readDatagram(datagram.data(), datagram.size());
        QCOMPARE(datagram, QByteArray("state"));
    } else {
        QTRY_COMPARE(readAll(recordPath(".received")), QByteArray("ping\nstate\n"));
    }
}

void TestBackendLink::sendLine_localNotRunning()
{
    installBackend();
    makeLink({"FAKE_BACKEND_EXIT_CODE=0"});
    QSignalSpy status(m_link.get(), &BackendLink::statusTextChanged);
    m_link->startBackendAttempt();
    QTRY_COMPARE(m_link->statusText(), QStringLiteral("Backend finished"));
    QVERIFY(m_log->buffer().contains("backend: finished exitCode=0\n"));
    m_link->sendLine("react 1 2 x add");
    QVERIFY(m_log->buffer().endsWith("backend: not running\n"));
    QVERIFY(readAll(m_data + "/ui_debug.log").contains(" react: sendLine abort backend_state=0\n"));
}

void TestBackendLink::sendLine_service_data()
{
    QTest::addColumn<QStringList>("lines");
    QTest::addColumn<QList<QByteArray>>("datagrams");

    QTest::newRow("one datagram per line, no terminator")
        << QStringList{"chats 60", "open 5"} << QList<QByteArray>{"chats 60", "open 5"};
    QTest::newRow("trimmed") << QStringList{"  read -1 7 \t"} << QList<QByteArray>{"read -1 7"};
    QTest::newRow("blank line sends nothing")
        << QStringList{"   ", "", "state"} << QList<QByteArray>{"state"};
    QTest::newRow("utf-8") << QStringList{"code ١٢٣"}
                           << QList<QByteArray>{QStringLiteral("code ١٢٣").toUtf8()};
}

void TestBackendLink::sendLine_service()
{
    QFETCH(QStringList, lines);
    QFETCH(QList<QByteArray>, datagrams);
    QUdpSocket receiver;
    QVERIFY(bindCommandPort(receiver));
    installBackend();
    makeLink({"UI_USE_SERVICE_BACKEND=1", "UI_USE_LOCAL_BACKEND=1"});
    QVERIFY(m_link->useServiceBackend());
    m_link->startBackendAttempt();
    QCOMPARE(m_link->statusText(), QStringLiteral("Backend: service"));
    QVERIFY(m_log->buffer().contains("ui: backend via headless service (cmd port 47010)\n"));
    QVERIFY(readAll(m_data + "/ui_debug.log").contains(" backend: service\n"));
    QVERIFY(
        readAll(m_data + "/ui_debug.log").contains(" startBackendAttempt use_service_backend=1\n"));
    for (const QString &l : lines)
        m_link->sendLine(l);
    m_link->sendLine(QStringLiteral("end-marker"));
    QList<QByteArray> got;
    QTRY_VERIFY_WITH_TIMEOUT(
        [&]() {
            while (receiver.hasPendingDatagrams()) {
                QByteArray d(int(receiver.pendingDatagramSize()), '\0');
                receiver.readDatagram(d.data(), d.size());
                got << d;
            }
            return !got.isEmpty() && got.last() == "end-marker";
        }(),
        5000);
    got.removeLast();
    QCOMPARE(got, datagrams);
    // No child and no ping in service mode.
    QCOMPARE(m_link->backendState(), QProcess::NotRunning);
    QVERIFY(!QFile::exists(recordPath(".starts")));
}

void TestBackendLink::sendLine_serviceSocketFailureRetried()
{
    QUdpSocket receiver;
    QVERIFY(bindCommandPort(receiver));
    makeLink({"UI_USE_SERVICE_BACKEND=1"});
    struct rlimit saved;
    QCOMPARE(getrlimit(RLIMIT_NOFILE, &saved), 0);
    struct rlimit none = saved;
    none.rlim_cur = 0; // no new descriptor can be opened
    QCOMPARE(setrlimit(RLIMIT_NOFILE, &none), 0);
    m_link->sendLine(QStringLiteral("first"));
    QCOMPARE(setrlimit(RLIMIT_NOFILE, &saved), 0);
    QVERIFY(m_log->buffer().contains(
        QStringLiteral("ui: service cmd socket() failed errno=%1\n").arg(EMFILE)));

    m_link->sendLine(QStringLiteral("second"));
    QTRY_VERIFY(receiver.hasPendingDatagrams());
    QByteArray d(int(receiver.pendingDatagramSize()), '\0');
    receiver.readDatagram(d.data(), d.size());
    QCOMPARE(d, QByteArray("second"));
}

void TestBackendLink::initNotifications_data()
{
    QTest::addColumn<bool>("service");
    QTest::addColumn<bool>("reply");
    QTest::newRow("local, no reply") << false << false;
    QTest::newRow("local, reply") << false << true;
    QTest::newRow("service, no reply") << true << false;
}

void TestBackendLink::initNotifications()
{
    QFETCH(bool, service);
    QFETCH(bool, reply);
    QUdpSocket receiver;
    if (service)
        QVERIFY(bindCommandPort(receiver));
    installBackend();
    m_invoker->setServiceResult(reply);
    makeLink(service ? QStringList{"UI_USE_SERVICE_BACKEND=1"} : QStringList());
    m_link->startBackendAttempt();
    QElapsedTimer t;
    t.start();
    m_link->onInitNotifications();

    QCOMPARE(m_invoker->requests().size(), 1);
    const RecordingInvoker::Request r = m_invoker->requests().first();
    QCOMPARE(r.kind, RecordingInvoker::Request::InvokeService);
    QCOMPARE(r.target, QStringLiteral("com.vexa.quillo.service"));
    QCOMPARE(r.action, QStringLiteral("com.vexa.quillo.service.START"));
    QCOMPARE(r.mimeType, QStringLiteral("text/plain"));
    QCOMPARE(m_log->buffer().contains("ui: invoke headless failed (no reply) verb=START\n"),
             !reply);

    if (service) {
        QTRY_VERIFY_WITH_TIMEOUT(receiver.hasPendingDatagrams(), 3000);
        QVERIFY(t.elapsed() >= 750);
        QByteArray d(int(receiver.pendingDatagramSize()), '\0');
        receiver.readDatagram(d.data(), d.size());
        QCOMPARE(d, QByteArray("state"));
    } else {
        // Local mode asks nothing more: only the ping reaches the child.
        QTest::qWait(1100);
        QCOMPARE(readAll(recordPath(".received")), QByteArray("ping\n"));
    }
}

void TestBackendLink::childOutput_reachesStatus()
{
    installBackend();
    makeLink({"FAKE_BACKEND_STDOUT=AUTH_STATE WaitPhone\\nBACKEND_READY\\n",
              "FAKE_BACKEND_STDERR=NEED code\\n"});
    QSignalSpy status(m_intake.get(), &EventIntake::statusTextChanged);
    m_link->startBackendAttempt();
    QTRY_VERIFY(statusTexts(status).contains("Auth: WaitPhone"));
    QTRY_VERIFY(statusTexts(status).contains("Need: code"));
    m_link->sendLine("say " + QByteArray("FATAL out of disk\n").toBase64());
    QTRY_VERIFY(statusTexts(status).contains("FATAL out of disk"));
    QVERIFY(!statusTexts(status).contains("Backend ready"));
    // A character split between two writes of the child arrives whole.
    m_link->sendLine("say " + QByteArray("ME 7 Zo\xc3").toBase64());
    m_link->sendLine("say " + QByteArray("\xab\n").toBase64());
    QTRY_VERIFY(statusTexts(status).contains(QStringLiteral("ME 7 Zoë")));
    QVERIFY(m_log->buffer().contains("FATAL out of disk\n"));
}

void TestBackendLink::childEvents_reachIntake()
{
    installBackend();
    makeLink();
    QSignalSpy events(m_intake.get(), &EventIntake::eventReceived);
    m_link->startBackendAttempt();
    m_intake->startPolling();
    m_link->sendLine("emit " +
                     QByteArray("{\"type\":\"auth_state\",\"state\":\"Ready\"}").toBase64());
    m_link->sendLine("emitraw " + QByteArray("{\"type\":\"chat_upd").toBase64());
    m_link->sendLine("emitraw " + QByteArray("ate\",\"chat_id\":-5}\n").toBase64());
    QTRY_COMPARE_WITH_TIMEOUT(events.count(), 2, 5000);
    QCOMPARE(events.at(0).at(0).toMap().value("state").toString(), QStringLiteral("Ready"));
    QCOMPARE(events.at(1).at(0).toMap().value("chat_id").toLongLong(), Q_INT64_C(-5));
}

void TestBackendLink::retry_missingBackendFiveTimesThenStays()
{
    makeLink();
    QSignalSpy status(m_link.get(), &BackendLink::statusTextChanged);
    QElapsedTimer t;
    t.start();
    m_link->startBackendAttempt();
    QTRY_VERIFY_WITH_TIMEOUT(m_link->retryCount() == 5 && !m_link->isRetryPending(), 10000);
    const qint64 elapsed = t.elapsed();
    QVERIFY2(elapsed >= 250 + 500 + 750 + 1000 + 1250, qPrintable(QString::number(elapsed)));
    QCOMPARE(m_link->statusText(), QStringLiteral("Backend failed to start"));

    QStringList retries;
    for (const QString &s : statusTexts(status)) {
        if (s.startsWith("Backend retry"))
            retries << s;
    }
    QCOMPARE(retries, (QStringList{"Backend retry 1/5", "Backend retry 2/5", "Backend retry 3/5",
                                   "Backend retry 4/5", "Backend retry 5/5"}));
    const QString log = m_log->buffer();
    for (int delay : {250, 500, 750, 1000, 1250})
        QVERIFY(log.contains(QStringLiteral("backend: retry in %1 ms\n").arg(delay)));
    QCOMPARE(log.count("backend: retry in"), 5);
    QCOMPARE(log.count("backend: failed to start: "), 6);
    QVERIFY(log.contains("No such file or directory"));
    QVERIFY(log.contains("backendExists=false\n"));
    QCOMPARE(statusTexts(status).count("Backend failed to start"), 6);
    QVERIFY(QDir(m_app).entryList(QDir::NoDotAndDotDot | QDir::AllEntries).isEmpty());
}

void TestBackendLink::retry_sharedCounterMissingThenLocked()
{
    // Three missing-file retries, then the backend appears but finds its database locked on
    // every start: the successful start resets the count, so ten lock retries follow and the
    // eleventh lock exit ends supervision.
    makeLink({"FAKE_BACKEND_EXIT_CODE=9"});
    QSignalSpy status(m_link.get(), &BackendLink::statusTextChanged);
    connect(m_link.get(), &BackendLink::statusTextChanged, this, [this](const QString &s) {
        if (s == QLatin1String("Backend retry 3/5"))
            installBackend();
    });
    m_link->startBackendAttempt();
    QTRY_VERIFY_WITH_TIMEOUT(m_link->statusText() == "Backend finished", 30000);
    QVERIFY(!m_link->isRetryPending());

    QStringList expected{"Backend retry 1/5", "Backend retry 2/5", "Backend retry 3/5"};
    for (int i = 1; i <= 10; ++i)
        expected << QStringLiteral("Backend waiting for TDLib lock %1/10").arg(i);
    expected << "Backend finished";
    QStringList seen;
    for (const QString &s : statusTexts(status)) {
        if (s.startsWith("Backend retry") || s.startsWith("Backend waiting") ||
            s == "Backend finished")
            seen << s;
    }
    QCOMPARE(seen, expected);
    QCOMPARE(statusTexts(status).count("Backend started"), 11);
    QCOMPARE(readAll(recordPath(".starts")).count('\n'), 11);
    const QString log = m_log->buffer();
    QCOMPARE(log.count("backend: finished exitCode=9\n"), 11);
    for (int i = 1; i <= 10; ++i)
        QVERIFY(log.contains(
            QStringLiteral("backend: tdlib db locked, retry in %1 ms\n").arg(250 * i)));
}

void TestBackendLink::finished_otherExitEndsSupervision_data()
{
    QTest::addColumn<QStringList>("env");
    QTest::addColumn<QString>("command");
    QTest::addColumn<int>("exitCode");

    QTest::newRow("exit 0 at end of input") << QStringList() << "exit 0" << 0;
    QTest::newRow("exit 1") << QStringList() << "exit 1" << 1;
    QTest::newRow("exit 8") << QStringList() << "exit 8" << 8;
    QTest::newRow("exit 10") << QStringList{"FAKE_BACKEND_EXIT_CODE=10"} << "" << 10;
    QTest::newRow("crash") << QStringList() << "crash" << -1;
}

void TestBackendLink::finished_otherExitEndsSupervision()
{
    QFETCH(QStringList, env);
    QFETCH(QString, command);
    QFETCH(int, exitCode);
    installBackend();
    makeLink(env);
    m_link->startBackendAttempt();
    if (!command.isEmpty())
        m_link->sendLine(command);
    QTRY_COMPARE(m_link->statusText(), QStringLiteral("Backend finished"));
    QVERIFY(!m_link->isRetryPending());
    if (exitCode >= 0)
        QVERIFY(m_log->buffer().contains(
            QStringLiteral("backend: finished exitCode=%1\n").arg(exitCode)));
    QVERIFY(m_log->buffer().contains("backend: state=2\n"));
    QVERIFY(m_log->buffer().contains("backend: state=0\n"));
    QCOMPARE(readAll(recordPath(".starts")).count('\n'), 1);
}

void TestBackendLink::runningMarker()
{
    makeLink();
    const QString marker = m_data + "/ui_running.txt";
    const qint64 before = QDateTime::currentMSecsSinceEpoch();
    m_link->startRunningMarker();
    const qint64 after = QDateTime::currentMSecsSinceEpoch();
    QByteArray content = readAll(marker);
    QVERIFY(content.endsWith('\n'));
    QCOMPARE(content.count('\n'), 1);
    bool ok = false;
    const qint64 stamp = content.trimmed().toLongLong(&ok);
    QVERIFY(ok);
    QVERIFY(stamp >= before && stamp <= after);

    // Foreground: each tick rewrites it.
    writeFile(marker, "old\n");
    m_link->onUiRunningMarkerTick();
    QVERIFY(readAll(marker) != "old\n");

    // Background: ticks leave it to go stale.
    m_link->onAppThumbnailed();
    QVERIFY(!m_link->isAppActive());
    writeFile(marker, "old\n");
    m_link->onUiRunningMarkerTick();
    QCOMPARE(readAll(marker), QByteArray("old\n"));

    // Back in front: rewritten at once, then every five seconds by the timer.
    m_link->onAppFullscreen();
    QVERIFY(readAll(marker) != "old\n");
    writeFile(marker, "old\n");
    QTRY_VERIFY_WITH_TIMEOUT(readAll(marker) != "old\n", 7000);

    m_link->onAppAboutToQuit();
    QVERIFY(!QFile::exists(marker));
}

QTEST_GUILESS_MAIN(TestBackendLink)
#include "test_backend_link.moc"
