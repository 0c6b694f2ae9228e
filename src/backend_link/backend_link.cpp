#include "backend_link/backend_link.h"

#include "backend_link/app_log.h"
#include "backend_link/command_channel.h"
#include "backend_link/env_file.h"
#include "backend_link/event_intake.h"
#include "backend_link/text_cut.h"
#include "platform/invoker.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTimer>

namespace {

const char kServiceTarget[] = "com.vexa.quillo.service";
const char kServiceActionPrefix[] = "com.vexa.quillo.service.";

} // namespace

BackendLink::BackendLink(const AppFolders &folders, AppLog *log, EventIntake *intake,
                         Invoker *invoker, const QStringList &uiEnvironment,
                         CommandChannel *commands, QObject *parent)
    : QObject(parent), m_appDir(folders.appDir), m_dataDir(folders.dataDir),
      m_miscDir(folders.miscDir), m_log(log), m_intake(intake), m_invoker(invoker),
      m_uiEnvironment(uiEnvironment), m_commands(commands)
{
    m_useServiceBackend = choose_service_backend(m_uiEnvironment);
    if (!m_commands) {
        if (m_useServiceBackend)
            m_ownCommands = std::make_unique<UdpCommandChannel>(kServiceCommandPort, m_log);
        else
            m_ownCommands = std::make_unique<StdinCommandChannel>(&m_process, m_log);
        m_commands = m_ownCommands.get();
    }

    m_retryTimer = new QTimer(this);
    m_retryTimer->setSingleShot(true);
    // A coarse timer may fire up to 5 % early; the back-off steps are meant as written.
    m_retryTimer->setTimerType(Qt::PreciseTimer);
    connect(m_retryTimer, &QTimer::timeout, this, &BackendLink::onBackendRetryTimeout);

    m_log->setUiDebugLogPath(uiDebugLogPath());
    m_intake->setEventsFilePath(eventsFilePath());
    m_intake->setTdlibLogPath(tdlibLogPath());
    m_intake->setProcess(m_useServiceBackend ? nullptr : &m_process);
}

BackendLink::~BackendLink()
{
    // The child may still report while it goes; this object is half gone by then.
    m_process.disconnect();
    if (m_intake)
        m_intake->setProcess(nullptr);
    if (m_process.state() != QProcess::NotRunning) {
        // End of input lets the backend close its database cleanly; kill it if it lingers.
        m_process.closeWriteChannel();
        if (!m_process.waitForFinished(1000)) {
            m_process.kill();
            m_process.waitForFinished(1000);
        }
    }
}

QString BackendLink::backendProgram() const
{
    return m_appDir + QStringLiteral("/td_backend");
}

QString BackendLink::filesDir() const
{
    return m_dataDir + QStringLiteral("/cache/tdlib-files");
}

QString BackendLink::tdlibLogPath() const
{
    return m_dataDir + QStringLiteral("/tdlib.log");
}

QString BackendLink::uiDebugLogPath() const
{
    return m_dataDir + QStringLiteral("/ui_debug.log");
}

QString BackendLink::eventsFilePath() const
{
    return m_dataDir + QStringLiteral("/backend_events.jsonl");
}

QString BackendLink::runningMarkerPath() const
{
    return m_dataDir + QStringLiteral("/ui_running.txt");
}

bool BackendLink::isRetryPending() const
{
    return m_retryTimer && m_retryTimer->isActive();
}

void BackendLink::setStatus(const QString &text)
{
    m_statusText = text;
    Q_EMIT statusTextChanged(text);
}

QStringList BackendLink::buildChildEnvironment() const
{
    QStringList env = m_uiEnvironment;
    upsert_env(env, QStringLiteral("OPENSSL_armcap"), QStringLiteral("0"));
    upsert_env(env, QStringLiteral("TDLIB_LOG_VERBOSITY"), QStringLiteral("2"));
    upsert_env(env, QStringLiteral("TG_AUTO_SEND_PHONE"), QStringLiteral("0"));
    upsert_env(env, QStringLiteral("TDLIB_DB_DIR"), m_dataDir + QStringLiteral("/tdlib-db"));
    upsert_env(env, QStringLiteral("TDLIB_FILES_DIR"), filesDir());
    upsert_env(env, QStringLiteral("TDLIB_LOG_FILE"), tdlibLogPath());
    upsert_env(env, QStringLiteral("BACKEND_EVENTS_FILE"), eventsFilePath());
    upsert_env(env, QStringLiteral("TDLIB_LOG_MAX_FILE_SIZE"), QStringLiteral("5242880"));
    upsert_env(env, QStringLiteral("LD_LIBRARY_PATH"), m_appDir);
    // Weakest to strongest: each file may override anything above it.
    load_env_file(env, m_miscDir + QStringLiteral("/tg_api.env"));
    load_env_file(env, m_miscDir + QStringLiteral("/tg_login.env"));
    load_env_file(env, m_miscDir + QStringLiteral("/td_debug.env"));
    return env;
}

void BackendLink::startBackendAttempt()
{
    const QString program = backendProgram();
    QDir().mkpath(filesDir());
    m_log->truncateUiDebugLog();
    m_intake->resetOffsets();

    m_log->appendLog(QStringLiteral("appDir=") + m_appDir + QLatin1Char('\n'));
    m_log->appendLog(QStringLiteral("dataDir=") + m_dataDir + QLatin1Char('\n'));
    m_log->appendLog(QStringLiteral("homeDir=") + QDir::homePath() + QLatin1Char('\n'));
    m_log->appendLog(QStringLiteral("cwd=") + QDir::currentPath() + QLatin1Char('\n'));
    const bool existedBefore = QFileInfo::exists(program);
    m_log->appendLog(QStringLiteral("backendExists=") +
                     (existedBefore ? QStringLiteral("true") : QStringLiteral("false")) +
                     QLatin1Char('\n'));
    m_log->appendLog(QStringLiteral("eventsFile=") + eventsFilePath() + QLatin1Char('\n'));
    m_log->appendUiFileLog(QStringLiteral("startBackendAttempt use_service_backend=%1\n")
                               .arg(m_useServiceBackend ? 1 : 0));

    if (m_useServiceBackend) {
        setStatus(QStringLiteral("Backend: service"));
        m_log->appendLog(QStringLiteral("ui: backend via headless service (cmd port %1)\n")
                             .arg(kServiceCommandPort));
        m_log->appendUiFileLog(QStringLiteral("backend: service\n"));
        return;
    }

    m_childEnvironment = buildChildEnvironment();
    const QString phone = get_env_value(m_childEnvironment, QStringLiteral("TG_PHONE_NUMBER"));
    if (!phone.isEmpty())
        Q_EMIT phoneNumberFromEnvironment(phone);
    m_autoOpenFirstChat =
        get_env_value(m_childEnvironment, QStringLiteral("UI_AUTO_OPEN_FIRST_CHAT")) ==
        QLatin1String("1");
    bool idOk = false;
    const qint64 chatId = get_env_value(m_childEnvironment, QStringLiteral("UI_AUTO_OPEN_CHAT_ID"))
                              .toLongLong(&idOk, 10);
    m_autoOpenChatId = idOk ? chatId : 0;

    m_process.setWorkingDirectory(m_appDir);
    m_process.setEnvironment(m_childEnvironment);
    m_process.setProcessChannelMode(QProcess::SeparateChannels);

    if (!m_signalsConnected) {
        connect(&m_process, &QProcess::readyReadStandardOutput, m_intake, &EventIntake::onStdout);
        connect(&m_process, &QProcess::readyReadStandardError, m_intake, &EventIntake::onStderr);
        connect(&m_process, &QProcess::errorOccurred, this, &BackendLink::onBackendError);
        connect(&m_process, QOverload<int, QProcess::ExitStatus>::of(&QProcess::finished), this,
                &BackendLink::onBackendFinished);
        connect(&m_process, &QProcess::stateChanged, this, &BackendLink::onBackendStateChanged);
        m_signalsConnected = true;
    }

    m_log->appendLog(QStringLiteral("backend: starting ") + program + QLatin1Char('\n'));
    m_log->appendUiFileLog(QStringLiteral("backend: starting %1\n").arg(program));

    if (m_process.state() != QProcess::NotRunning) {
        m_process.kill();
        m_process.waitForFinished(1000);
    }

    m_process.start(program, QStringList(), QIODevice::ReadWrite);
    if (m_process.waitForStarted(2000)) {
        setStatus(QStringLiteral("Backend started"));
        // A restart after a lock exit has not shown the database to be free yet; its count
        // runs on until the backend stops exiting with the lock code.
        if (!m_lockRetryInProgress)
            m_retryCount = 0;
        sendLine(QStringLiteral("ping"));
        return;
    }

    const QString error = m_process.errorString();
    m_log->appendLog(QStringLiteral("backend: failed to start: ") + error + QLatin1Char('\n'));
    setStatus(QStringLiteral("Backend failed to start"));
    // Only a missing program is worth waiting for (it may still be being installed). The error
    // text is translated on a localised desktop, so the file itself is asked; looking before and
    // after the start covers a file that came or went in between.
    const bool missing = !existedBefore || !QFileInfo::exists(program);
    if (m_process.error() == QProcess::FailedToStart && missing && m_retryTimer &&
        m_retryCount < kMaxMissingRetries) {
        const int delay = 250 * (m_retryCount + 1);
        m_log->appendLog(QStringLiteral("backend: retry in %1 ms\n").arg(delay));
        ++m_retryCount;
        m_lockRetryInProgress = false;
        m_retryTimer->start(delay);
        setStatus(QStringLiteral("Backend retry %1/%2").arg(m_retryCount).arg(kMaxMissingRetries));
    }
}

void BackendLink::onBackendRetryTimeout()
{
    startBackendAttempt();
}

void BackendLink::onBackendError(QProcess::ProcessError error)
{
    m_log->appendLog(QStringLiteral("backend: process error=%1 (%2)\n")
                         .arg(int(error))
                         .arg(m_process.errorString()));
    setStatus(QStringLiteral("Backend error"));
}

void BackendLink::onBackendStateChanged(QProcess::ProcessState state)
{
    m_log->appendLog(QStringLiteral("backend: state=%1\n").arg(int(state)));
}

void BackendLink::onBackendFinished(int exitCode, QProcess::ExitStatus exitStatus)
{
    m_log->appendLog(QStringLiteral("backend: finished exitCode=%1\n").arg(exitCode));
    // QProcess reports the signal number as the exit code of a killed child; SIGKILL (9), from
    // our own restart or from the system, must not pass for a locked database.
    const bool lockedExit = exitStatus == QProcess::NormalExit && exitCode == kLockedExitCode;
    if (lockedExit && m_retryTimer && m_retryCount < kMaxLockRetries) {
        const int delay = 250 * (m_retryCount + 1);
        m_log->appendLog(QStringLiteral("backend: tdlib db locked, retry in %1 ms\n").arg(delay));
        ++m_retryCount;
        m_lockRetryInProgress = true;
        m_retryTimer->start(delay);
        setStatus(QStringLiteral("Backend waiting for TDLib lock %1/%2")
                      .arg(m_retryCount)
                      .arg(kMaxLockRetries));
        return;
    }
    m_lockRetryInProgress = false;
    setStatus(QStringLiteral("Backend finished"));
}

bool BackendLink::writeUiRunningMarker()
{
    QFile file(runningMarkerPath());
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate | QIODevice::Text))
        return false;
    const QByteArray content = QByteArray::number(QDateTime::currentMSecsSinceEpoch()) + '\n';
    const bool ok = file.write(content) == content.size();
    return file.flush() && ok;
}

void BackendLink::startRunningMarker()
{
    QDir().mkpath(m_dataDir);
    writeUiRunningMarker();
    if (!m_markerTimer) {
        m_markerTimer = new QTimer(this);
        connect(m_markerTimer, &QTimer::timeout, this, &BackendLink::onUiRunningMarkerTick);
    }
    if (!m_markerTimer->isActive())
        m_markerTimer->start(kRunningMarkerIntervalMs);
}

void BackendLink::onUiRunningMarkerTick()
{
    // While the app is in the background the marker is left to grow stale on purpose.
    if (m_appActive)
        writeUiRunningMarker();
}

void BackendLink::removeUiRunningMarker()
{
    if (m_markerTimer)
        m_markerTimer->stop();
    QFile::remove(runningMarkerPath());
}

void BackendLink::onAppThumbnailed()
{
    m_appActive = false;
    if (m_markerTimer)
        m_markerTimer->stop();
}

void BackendLink::onAppFullscreen()
{
    m_appActive = true;
    writeUiRunningMarker();
    if (m_markerTimer)
        m_markerTimer->start(kRunningMarkerIntervalMs);
}

void BackendLink::onAppAboutToQuit()
{
    removeUiRunningMarker();
}

void BackendLink::onInitNotifications()
{
    const QString verb = QStringLiteral("START");
    const bool replied =
        m_invoker && m_invoker->invokeService(QLatin1String(kServiceTarget),
                                              QLatin1String(kServiceActionPrefix) + verb,
                                              QStringLiteral("text/plain"));
    if (!replied)
        m_log->appendLog(
            QStringLiteral("ui: invoke headless failed (no reply) verb=%1\n").arg(verb));
    if (m_useServiceBackend)
        QTimer::singleShot(kRequestStateDelayMs, this, &BackendLink::onRequestBackendState);
}

void BackendLink::onRequestBackendState()
{
    sendLine(QStringLiteral("state"));
}

void BackendLink::sendLine(const QString &line)
{
    const QString trimmed = line.trimmed();
    // A line break inside would let one caller's text become a second command.
    if (trimmed.contains(QLatin1Char('\n')) || trimmed.contains(QLatin1Char('\r'))) {
        m_log->appendLog(QStringLiteral("backend: refused multi-line command\n"));
        return;
    }
    const bool trace = trimmed.startsWith(QLatin1String("react "));
    if (trace) {
        m_log->appendUiFileLog(
            QStringLiteral("react: sendLine begin use_service_backend=%1 line=%2\n")
                .arg(m_useServiceBackend ? 1 : 0)
                .arg(left_code_points(trimmed, 240)));
    }
    m_commands->sendCommand(trimmed, trace);
}
