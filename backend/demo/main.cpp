// td_backend (demo): a simulated messaging service behind the command and
// event interfaces that Vexa speaks. Local mode reads commands on standard
// input; "--service" reads one command per datagram on 127.0.0.1:47010.

#include "demo_backend.h"
#include "demo_store.h"
#include "platform/folders.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QHostAddress>
#include <QNetworkDatagram>
#include <QProcessEnvironment>
#include <QSocketNotifier>
#include <QThreadPool>
#include <QUdpSocket>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr int kExitLocked = 9;
constexpr qint64 kMaxLine = 1024 * 1024;
constexpr quint16 kServicePort = 47010;

int g_signalPipe[2] = {-1, -1};

void onSignal(int)
{
    const char c = 1;
    const ssize_t ignored = ::write(g_signalPipe[1], &c, 1);
    (void)ignored;
}

QString envOr(const char *key, const QString &fallback)
{
    const QByteArray v = qgetenv(key);
    return v.isEmpty() ? fallback : QString::fromLocal8Bit(v);
}

void fatal(const QString &text)
{
    const QByteArray line = "FATAL " + text.toUtf8() + "\n";
    const ssize_t ignored = ::write(STDOUT_FILENO, line.constData(), size_t(line.size()));
    (void)ignored;
}

// Splits standard input into lines, dropping any line longer than kMaxLine
// up to its line feed so one huge line cannot exhaust memory.
class LineSplitter
{
public:
    template<typename F>
    void feed(const char *data, qint64 n, F &&onLine)
    {
        for (qint64 i = 0; i < n; ++i) {
            const char c = data[i];
            if (c == '\n') {
                if (!m_discarding)
                    onLine(m_buffer);
                m_buffer.clear();
                m_discarding = false;
                continue;
            }
            if (m_discarding)
                continue;
            if (m_buffer.size() >= kMaxLine) {
                m_buffer.clear();
                m_discarding = true;
                continue;
            }
            m_buffer.append(c);
        }
    }
    template<typename F>
    void finish(F &&onLine)
    {
        if (!m_discarding && !m_buffer.isEmpty())
            onLine(m_buffer);
        m_buffer.clear();
    }

private:
    QByteArray m_buffer;
    bool m_discarding = false;
};

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const bool service = app.arguments().contains(QStringLiteral("--service"));
    std::signal(SIGPIPE, SIG_IGN);

    // Without explicit paths the backend uses the folders Vexa would give it,
    // so a service started by hand and the client share one account.
    const QString data = resolve_app_folders(QCoreApplication::applicationDirPath(),
                                             QProcessEnvironment::systemEnvironment())
                             .dataDir;
    DemoConfig cfg;
    cfg.dbDir = envOr("TDLIB_DB_DIR", data + QStringLiteral("/tdlib-db"));
    cfg.filesDir = envOr("TDLIB_FILES_DIR", data + QStringLiteral("/cache/tdlib-files"));
    cfg.eventsPath = envOr("BACKEND_EVENTS_FILE", data + QStringLiteral("/backend_events.jsonl"));
    cfg.logPath = envOr("TDLIB_LOG_FILE", data + QStringLiteral("/tdlib.log"));
    bool ok = false;
    const int verbosity = envOr("TDLIB_LOG_VERBOSITY", QStringLiteral("2")).toInt(&ok);
    cfg.verbosity = ok ? qBound(0, verbosity, 10) : 2;
    const qint64 maxLog =
        envOr("TDLIB_LOG_MAX_FILE_SIZE", QStringLiteral("5242880")).toLongLong(&ok);
    cfg.logMaxSize = ok && maxLog > 0 ? maxLog : 5242880;
    cfg.autoSendPhone = envOr("TG_AUTO_SEND_PHONE", QStringLiteral("0")) == QLatin1String("1");
    cfg.phone = envOr("TG_PHONE_NUMBER", QString());
    const quint64 seed = envOr("DEMO_SEED", QStringLiteral("1")).toULongLong(&ok);
    cfg.seed = ok ? seed : 1;
    const double speed = envOr("DEMO_SPEED", QStringLiteral("1")).toDouble(&ok);
    cfg.speed = ok && speed >= 0 && speed <= 100 ? speed : 1.0;
    const int burst = envOr("DEMO_LIFE_BURST", QStringLiteral("0")).toInt(&ok);
    cfg.lifeBurst = ok ? qBound(0, burst, 10000) : 0;

    if (!QDir().mkpath(cfg.dbDir)) {
        fatal(QStringLiteral("cannot create database folder"));
        return 1;
    }
    QDir().mkpath(cfg.filesDir);
    QDir().mkpath(QFileInfo(cfg.eventsPath).absolutePath());
    if (!cfg.logPath.isEmpty())
        QDir().mkpath(QFileInfo(cfg.logPath).absolutePath());

    // One process per database folder: the lock lives as long as the file
    // descriptor, which is never handed to child processes.
    const QByteArray lockPath =
        QFile::encodeName(QDir(cfg.dbDir).filePath(QStringLiteral("td.lock")));
    const int lockFd = ::open(lockPath.constData(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (lockFd < 0) {
        fatal(QStringLiteral("cannot open lock file"));
        return 1;
    }
    if (::flock(lockFd, LOCK_EX | LOCK_NB) != 0) {
        fatal(QStringLiteral("database is locked by another instance"));
        return kExitLocked;
    }

    DemoStore store;
    QString error;
    if (!store.open(QDir(cfg.dbDir).filePath(QStringLiteral("demo.sqlite")), &error)) {
        fatal(QStringLiteral("cannot open database: %1").arg(error));
        return 1;
    }

    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, g_signalPipe) != 0) {
        fatal(QStringLiteral("socketpair failed"));
        return 1;
    }
    struct sigaction sa = {};
    sa.sa_handler = onSignal;
    sigemptyset(&sa.sa_mask);
    sa.sa_flags = SA_RESTART;
    sigaction(SIGTERM, &sa, nullptr);
    sigaction(SIGINT, &sa, nullptr);

    DemoBackend backend(cfg, &store);

    QUdpSocket udp;
    if (service) {
        const quint16 port =
            quint16(envOr("DEMO_SERVICE_PORT", QString::number(kServicePort)).toUInt());
        if (!udp.bind(QHostAddress::LocalHost, port ? port : kServicePort)) {
            fatal(QStringLiteral("cannot bind 127.0.0.1:%1: %2").arg(port).arg(udp.errorString()));
            return 1;
        }
    }
    if (!backend.start(&error)) {
        fatal(error);
        return 1;
    }

    int exitCode = 0;
    QSocketNotifier sigNotifier(g_signalPipe[0], QSocketNotifier::Read);
    QObject::connect(&sigNotifier, &QSocketNotifier::activated, &app, [&] {
        char buf[16];
        const ssize_t ignored = ::read(g_signalPipe[0], buf, sizeof(buf));
        (void)ignored;
        backend.announceClosed();
        app.quit();
    });

    LineSplitter splitter;
    QSocketNotifier *stdinNotifier = nullptr;
    if (service) {
        QObject::connect(&udp, &QUdpSocket::readyRead, &app, [&] {
            while (udp.hasPendingDatagrams()) {
                const QNetworkDatagram d = udp.receiveDatagram(65536);
                QByteArray data = d.data();
                while (data.endsWith('\n') || data.endsWith('\r'))
                    data.chop(1);
                // One datagram is one command: a line break inside is refused
                // rather than read as a second command.
                if (data.contains('\n'))
                    continue;
                backend.handleLine(data);
            }
        });
    } else {
        const int flags = ::fcntl(STDIN_FILENO, F_GETFL);
        if (flags >= 0)
            ::fcntl(STDIN_FILENO, F_SETFL, flags | O_NONBLOCK);
        stdinNotifier = new QSocketNotifier(STDIN_FILENO, QSocketNotifier::Read, &app);
        QObject::connect(stdinNotifier, &QSocketNotifier::activated, &app, [&] {
            char buf[65536];
            for (;;) {
                const ssize_t n = ::read(STDIN_FILENO, buf, sizeof(buf));
                if (n > 0) {
                    splitter.feed(buf, n, [&](const QByteArray &l) { backend.handleLine(l); });
                    continue;
                }
                if (n < 0 && (errno == EINTR))
                    continue;
                if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK))
                    return;
                // End of input (or a broken stdin): answer what is left, then go.
                stdinNotifier->setEnabled(false);
                splitter.finish([&](const QByteArray &l) { backend.handleLine(l); });
                backend.drainPending();
                backend.announceClosed();
                app.quit();
                return;
            }
        });
    }

    exitCode = app.exec();
    // Image work may have started pool threads; end them before exit so
    // nothing runs while the process tears down.
    QThreadPool::globalInstance()->waitForDone();
    store.close();
    ::close(lockFd);
    return exitCode;
}
