#include "backend_runtime.h"

#include "backend_output.h"

#include <QDir>
#include <QFile>
#include <QHostAddress>
#include <QNetworkDatagram>
#include <QSocketNotifier>
#include <QUdpSocket>

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

int g_signalPipe[2] = {-1, -1};

void onSignal(int)
{
    const char c = 1;
    const ssize_t ignored = ::write(g_signalPipe[1], &c, 1);
    (void)ignored;
}

} // namespace

QString backend_env(const char *key, const QString &fallback)
{
    const QByteArray v = qgetenv(key);
    return v.isEmpty() ? fallback : QString::fromLocal8Bit(v);
}

void backend_fatal(const QString &text)
{
    backend_write_fully(STDOUT_FILENO, "FATAL " + text.toUtf8() + "\n");
}

bool backend_lock_database(const QString &dbDir, int *fd, bool *locked, QString *error)
{
    *locked = false;
    const QByteArray lockPath = QFile::encodeName(QDir(dbDir).filePath(QStringLiteral("td.lock")));
    *fd = ::open(lockPath.constData(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (*fd < 0) {
        if (error)
            *error = QStringLiteral("cannot open lock file");
        return false;
    }
    if (::flock(*fd, LOCK_EX | LOCK_NB) != 0) {
        ::close(*fd);
        *fd = -1;
        *locked = true;
        if (error)
            *error = QStringLiteral("database is locked by another instance");
        return false;
    }
    return true;
}

BackendCommandInput::BackendCommandInput(QObject *parent) : QObject(parent) {}

BackendCommandInput::~BackendCommandInput()
{
    std::signal(SIGTERM, SIG_DFL);
    std::signal(SIGINT, SIG_DFL);
}

bool BackendCommandInput::start(quint16 servicePort, QString *error)
{
    if (g_signalPipe[0] < 0 &&
        ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, g_signalPipe) != 0) {
        if (error)
            *error = QStringLiteral("socketpair failed");
        return false;
    }
    struct sigaction sa = {};
    sa.sa_handler = onSignal;
    sigemptyset(&sa.sa_mask);
    sa.sa_flags = SA_RESTART;
    sigaction(SIGTERM, &sa, nullptr);
    sigaction(SIGINT, &sa, nullptr);
    m_signalNotifier = new QSocketNotifier(g_signalPipe[0], QSocketNotifier::Read, this);
    connect(m_signalNotifier, &QSocketNotifier::activated, this, [this] {
        char buf[16];
        const ssize_t ignored = ::read(g_signalPipe[0], buf, sizeof(buf));
        (void)ignored;
        Q_EMIT terminationRequested();
    });

    if (servicePort) {
        m_udp = new QUdpSocket(this);
        if (!m_udp->bind(QHostAddress::LocalHost, servicePort)) {
            if (error)
                *error = QStringLiteral("cannot bind 127.0.0.1:%1: %2")
                             .arg(servicePort)
                             .arg(m_udp->errorString());
            return false;
        }
        connect(m_udp, &QUdpSocket::readyRead, this, &BackendCommandInput::readDatagrams);
        return true;
    }
    const int flags = ::fcntl(STDIN_FILENO, F_GETFL);
    if (flags >= 0)
        ::fcntl(STDIN_FILENO, F_SETFL, flags | O_NONBLOCK);
    m_stdinNotifier = new QSocketNotifier(STDIN_FILENO, QSocketNotifier::Read, this);
    connect(m_stdinNotifier, &QSocketNotifier::activated, this, &BackendCommandInput::readStdin);
    return true;
}

void BackendCommandInput::readDatagrams()
{
    while (m_udp->hasPendingDatagrams()) {
        const QNetworkDatagram d = m_udp->receiveDatagram(65536);
        QByteArray data = d.data();
        while (data.endsWith('\n') || data.endsWith('\r'))
            data.chop(1);
        // One datagram is one command: a line break inside is refused rather
        // than read as a second command.
        if (data.contains('\n'))
            continue;
        Q_EMIT lineReceived(data);
    }
}

void BackendCommandInput::readStdin()
{
    char buf[65536];
    for (;;) {
        const ssize_t n = ::read(STDIN_FILENO, buf, sizeof(buf));
        if (n > 0) {
            m_splitter.feed(buf, n, [this](const QByteArray &l) { Q_EMIT lineReceived(l); });
            continue;
        }
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK))
            return;
        // End of input (or a broken stdin): what is left is still a command.
        m_stdinNotifier->setEnabled(false);
        m_splitter.finish([this](const QByteArray &l) { Q_EMIT lineReceived(l); });
        Q_EMIT inputEnded();
        return;
    }
}
