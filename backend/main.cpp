// td_backend: the program Vexa starts (or reaches as a service) for
// everything that speaks to the messaging service. It runs TDLib when the
// application credentials are in its environment and the library loads, and
// the simulated account otherwise. Local mode reads commands on standard
// input; "--service" reads one command per datagram on 127.0.0.1:47010.

#include "backend_output.h"
#include "backend_runtime.h"
#include "demo_backend.h"
#include "demo_store.h"
#include "platform/folders.h"
#include "td_engine.h"
#include "td_json_library.h"
#include "td_voice_waveform.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QProcessEnvironment>
#include <QThreadPool>

#include <csignal>
#include <unistd.h>

namespace {

struct BackendPaths
{
    QString dbDir;
    QString filesDir;
    QString eventsPath;
    QString logPath;
    qint64 logMaxSize = 5242880;
    int verbosity = 2;
};

BackendPaths pathsFromEnvironment()
{
    // Without explicit paths the backend uses the folders Vexa would give it,
    // so a service started by hand and the client share one account.
    const QString data = resolve_app_folders(QCoreApplication::applicationDirPath(),
                                             QProcessEnvironment::systemEnvironment())
                             .dataDir;
    BackendPaths p;
    p.dbDir = backend_env("TDLIB_DB_DIR", data + QStringLiteral("/tdlib-db"));
    p.filesDir = backend_env("TDLIB_FILES_DIR", data + QStringLiteral("/cache/tdlib-files"));
    p.eventsPath =
        backend_env("BACKEND_EVENTS_FILE", data + QStringLiteral("/backend_events.jsonl"));
    p.logPath = backend_env("TDLIB_LOG_FILE", data + QStringLiteral("/tdlib.log"));
    bool ok = false;
    const int verbosity = backend_env("TDLIB_LOG_VERBOSITY", QStringLiteral("2")).toInt(&ok);
    p.verbosity = ok ? qBound(0, verbosity, 10) : 2;
    const qint64 maxLog =
        backend_env("TDLIB_LOG_MAX_FILE_SIZE", QStringLiteral("5242880")).toLongLong(&ok);
    p.logMaxSize = ok && maxLog > 0 ? maxLog : 5242880;
    return p;
}

struct EngineChoice
{
    bool tdlib = false;
    QString reason;
};

EngineChoice chooseEngine(bool forceDemo, const QProcessEnvironment &env, TdJsonLibrary *library,
                          TdConfig *config)
{
    if (forceDemo)
        return {false, QStringLiteral("--demo given")};
    QString why;
    if (!td_credentials_from_env(env, &config->apiId, &config->apiHash, &why))
        return {false, why};
    const QString path = TdJsonLibrary::defaultPath(QCoreApplication::applicationDirPath(), env);
    if (!library->load(path, &why))
        return {false, QStringLiteral("TDLib library %1 cannot be loaded: %2").arg(path, why)};
    return {true, QStringLiteral("TG_API_ID and TG_API_HASH set, %1 loaded").arg(path)};
}

// The first line of the log says which engine runs and why; so does standard error.
void announceEngine(const BackendPaths &paths, const EngineChoice &choice)
{
    const QString line =
        QStringLiteral("engine: %1 (%2)")
            .arg(choice.tdlib ? QStringLiteral("tdlib") : QStringLiteral("demo"), choice.reason);
    backend_write_fully(STDERR_FILENO, "td_backend: " + line.toUtf8() + '\n');
    BackendOutput out(paths.eventsPath, paths.logPath, 0, paths.verbosity);
    if (out.open(nullptr))
        out.log(1, line);
}

int runDemo(QCoreApplication &app, const BackendPaths &paths, BackendCommandInput &input)
{
    DemoConfig cfg;
    cfg.dbDir = paths.dbDir;
    cfg.filesDir = paths.filesDir;
    cfg.eventsPath = paths.eventsPath;
    cfg.logPath = paths.logPath;
    cfg.verbosity = paths.verbosity;
    cfg.logMaxSize = paths.logMaxSize;
    cfg.autoSendPhone =
        backend_env("TG_AUTO_SEND_PHONE", QStringLiteral("0")) == QLatin1String("1");
    cfg.phone = backend_env("TG_PHONE_NUMBER");
    bool ok = false;
    const quint64 seed = backend_env("DEMO_SEED", QStringLiteral("1")).toULongLong(&ok);
    cfg.seed = ok ? seed : 1;
    const double speed = backend_env("DEMO_SPEED", QStringLiteral("1")).toDouble(&ok);
    cfg.speed = ok && speed >= 0 && speed <= 100 ? speed : 1.0;
    const int burst = backend_env("DEMO_LIFE_BURST", QStringLiteral("0")).toInt(&ok);
    cfg.lifeBurst = ok ? qBound(0, burst, 10000) : 0;

    DemoStore store;
    QString error;
    if (!store.open(QDir(cfg.dbDir).filePath(QStringLiteral("demo.sqlite")), &error)) {
        backend_fatal(QStringLiteral("cannot open database: %1").arg(error));
        return 1;
    }
    DemoBackend backend(cfg, &store);
    QObject::connect(&input, &BackendCommandInput::lineReceived, &backend,
                     &DemoBackend::handleLine);
    QObject::connect(&input, &BackendCommandInput::inputEnded, &app, [&] {
        // Answer what is left, then go.
        backend.drainPending();
        backend.announceClosed();
        app.quit();
    });
    QObject::connect(&input, &BackendCommandInput::terminationRequested, &app, [&] {
        backend.announceClosed();
        app.quit();
    });
    if (!backend.start(&error)) {
        backend_fatal(error);
        return 1;
    }
    const int exitCode = app.exec();
    // Image work may have started pool threads; end them before exit so
    // nothing runs while the process tears down.
    QThreadPool::globalInstance()->waitForDone();
    store.close();
    return exitCode;
}

int runTdlib(QCoreApplication &app, const BackendPaths &paths, const TdJsonLibrary &library,
             TdConfig config, BackendCommandInput &input)
{
    const QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    config.databaseDir = paths.dbDir;
    config.filesDir = paths.filesDir;
    config.phone = env.value(QStringLiteral("TG_PHONE_NUMBER"));
    config.autoSendPhone = env.value(QStringLiteral("TG_AUTO_SEND_PHONE")) == QLatin1String("1");
    td_network_from_env(env, &config);
    config.voiceWaveform = td_voice_waveform;

    // TDLib turns the shared log over itself; the "[backend]" lines follow it.
    BackendOutput out(paths.eventsPath, paths.logPath, 0, paths.verbosity);
    QString error;
    if (!out.open(&error)) {
        backend_fatal(error);
        return 1;
    }
    TdEngineSettings settings;
    settings.td = config;
    settings.logPath = paths.logPath;
    settings.logMaxSize = paths.logMaxSize;
    settings.verbosity = paths.verbosity;
    TdEngine engine(settings, &library, &out);
    QObject::connect(&input, &BackendCommandInput::lineReceived, &engine, &TdEngine::handleLine);
    QObject::connect(&input, &BackendCommandInput::inputEnded, &engine,
                     [&engine] { engine.shutdown(0); });
    QObject::connect(&input, &BackendCommandInput::terminationRequested, &engine,
                     [&engine] { engine.shutdown(0); });
    QObject::connect(&engine, &TdEngine::finished, &app, &QCoreApplication::exit);
    engine.start();
    return app.exec();
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();
    const bool service = args.contains(QStringLiteral("--service"));
    std::signal(SIGPIPE, SIG_IGN);

    const BackendPaths paths = pathsFromEnvironment();
    if (!QDir().mkpath(paths.dbDir)) {
        backend_fatal(QStringLiteral("cannot create database folder"));
        return 1;
    }
    QDir().mkpath(paths.filesDir);
    QDir().mkpath(QFileInfo(paths.eventsPath).absolutePath());
    if (!paths.logPath.isEmpty())
        QDir().mkpath(QFileInfo(paths.logPath).absolutePath());

    // One process per database folder, whichever engine: taken before TDLib
    // starts so a second backend learns it at once.
    int lockFd = -1;
    bool locked = false;
    QString error;
    if (!backend_lock_database(paths.dbDir, &lockFd, &locked, &error)) {
        backend_fatal(error);
        return locked ? kBackendExitLocked : 1;
    }

    TdJsonLibrary library;
    TdConfig config{};
    const EngineChoice choice =
        chooseEngine(args.contains(QStringLiteral("--demo")),
                     QProcessEnvironment::systemEnvironment(), &library, &config);
    announceEngine(paths, choice);

    BackendCommandInput input;
    quint16 port = 0;
    if (service) {
        port = quint16(
            backend_env("DEMO_SERVICE_PORT", QString::number(kBackendServicePort)).toUInt());
        if (!port)
            port = kBackendServicePort;
    }
    if (!input.start(port, &error)) {
        backend_fatal(error);
        return 1;
    }
    const int exitCode =
        choice.tdlib ? runTdlib(app, paths, library, config, input) : runDemo(app, paths, input);
    ::close(lockFd);
    return exitCode;
}
