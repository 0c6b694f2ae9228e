#include "platform/app_lifecycle.h"

#include <QCoreApplication>
#include <QGuiApplication>
#include <QSocketNotifier>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace {

// A signal handler can reach nothing but globals; this pipe is the one
// bridge from the handler into the event loop.
int g_signalPipe[2] = {-1, -1};

void onTerminationSignal(int sig)
{
    const int saved = errno;
    const unsigned char b = static_cast<unsigned char>(sig);
    // write() is async-signal-safe; a full pipe means a quit is pending
    // anyway, so the result does not matter.
    const ssize_t ignored = ::write(g_signalPipe[1], &b, 1);
    (void)ignored;
    errno = saved;
}

} // namespace

AppLifecycle::AppLifecycle(QObject *parent) : QObject(parent)
{
    if (auto *app = QCoreApplication::instance()) {
        connect(app, &QCoreApplication::aboutToQuit, this, &AppLifecycle::aboutToQuit);
        if (auto *gui = qobject_cast<QGuiApplication *>(app)) {
            connect(gui, &QGuiApplication::applicationStateChanged, this,
                    &AppLifecycle::onApplicationStateChanged);
        }
    }
}

AppLifecycle::~AppLifecycle()
{
    for (const Psi &p : qAsConst(m_psiFds)) {
        delete p.notifier;
        ::close(p.fd);
    }
    if (m_ownsSignals) {
        struct sigaction sa;
        std::memset(&sa, 0, sizeof sa);
        sa.sa_handler = SIG_DFL;
        ::sigaction(SIGINT, &sa, nullptr);
        ::sigaction(SIGTERM, &sa, nullptr);
        delete m_signalNotifier;
        ::close(g_signalPipe[0]);
        ::close(g_signalPipe[1]);
        g_signalPipe[0] = g_signalPipe[1] = -1;
    }
}

void AppLifecycle::onApplicationStateChanged(Qt::ApplicationState state)
{
    const bool thumb = state != Qt::ApplicationActive;
    if (thumb == m_thumbnailed)
        return;
    m_thumbnailed = thumb;
    if (thumb)
        Q_EMIT thumbnailed();
    else
        Q_EMIT fullscreen();
}

bool AppLifecycle::installSignalHandlers(QString *error)
{
    if (g_signalPipe[0] >= 0) {
        if (error)
            *error = QStringLiteral("signal handlers already installed");
        return false;
    }
    if (::pipe2(g_signalPipe, O_CLOEXEC | O_NONBLOCK) != 0) {
        if (error)
            *error = QStringLiteral("pipe: %1").arg(QString::fromLocal8Bit(std::strerror(errno)));
        g_signalPipe[0] = g_signalPipe[1] = -1;
        return false;
    }
    m_ownsSignals = true;
    m_signalNotifier = new QSocketNotifier(g_signalPipe[0], QSocketNotifier::Read, this);
    connect(m_signalNotifier, &QSocketNotifier::activated, this, &AppLifecycle::onSignalPipe);

    struct sigaction sa;
    std::memset(&sa, 0, sizeof sa);
    sa.sa_handler = onTerminationSignal;
    sigemptyset(&sa.sa_mask);
    sa.sa_flags = SA_RESTART;
    if (::sigaction(SIGINT, &sa, nullptr) != 0 || ::sigaction(SIGTERM, &sa, nullptr) != 0) {
        if (error)
            *error =
                QStringLiteral("sigaction: %1").arg(QString::fromLocal8Bit(std::strerror(errno)));
        return false;
    }
    return true;
}

void AppLifecycle::onSignalPipe()
{
    unsigned char buf[64];
    int last = 0;
    ssize_t n;
    while ((n = ::read(g_signalPipe[0], buf, sizeof buf)) > 0)
        last = buf[n - 1];
    if (last == 0)
        return;
    Q_EMIT terminationRequested(last);
    // quit() leaves the loop through the normal path, which emits
    // QCoreApplication::aboutToQuit.
    QCoreApplication::quit();
}

bool AppLifecycle::watchMemoryPressure(QString *error)
{
    if (!m_psiFds.isEmpty())
        return true;
    // Thresholds: 150 ms of stall within a 2 s window (unprivileged
    // processes need windows that are multiples of 2 s).
    const struct
    {
        const char *trigger;
        int level;
    } triggers[] = {{"some 150000 2000000", 1}, {"full 150000 2000000", 2}};
    for (const auto &t : triggers) {
        const int fd = ::open("/proc/pressure/memory", O_RDWR | O_NONBLOCK | O_CLOEXEC);
        if (fd < 0) {
            if (error)
                *error = QStringLiteral("memory pressure: %1")
                             .arg(QString::fromLocal8Bit(std::strerror(errno)));
            break;
        }
        const size_t len = std::strlen(t.trigger) + 1; // the kernel wants the NUL too
        if (::write(fd, t.trigger, len) < 0) {
            if (error)
                *error = QStringLiteral("memory pressure trigger: %1")
                             .arg(QString::fromLocal8Bit(std::strerror(errno)));
            ::close(fd);
            break;
        }
        // PSI reports with POLLPRI, which QSocketNotifier calls Exception.
        auto *n = new QSocketNotifier(fd, QSocketNotifier::Exception, this);
        const int level = t.level;
        connect(n, &QSocketNotifier::activated, this, [this, level] { Q_EMIT lowMemory(level); });
        m_psiFds.append({fd, t.level, n});
    }
    return !m_psiFds.isEmpty();
}
