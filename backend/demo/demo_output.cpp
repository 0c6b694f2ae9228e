#include "demo_output.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

bool demo_write_fully(int fd, const QByteArray &bytes)
{
    const char *p = bytes.constData();
    qint64 left = bytes.size();
    while (left > 0) {
        const ssize_t n = ::write(fd, p, size_t(left));
        if (n < 0) {
            if (errno == EINTR)
                continue;
            return false;
        }
        p += n;
        left -= n;
    }
    return true;
}

namespace {

int openAppend(const QString &path)
{
    return ::open(QFile::encodeName(path).constData(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC,
                  0644);
}

// A writer that died in the middle of a line left it unterminated; ending it keeps the next
// event from being glued onto it and lost with it.
int openEventsAppend(const QString &path)
{
    const int fd =
        ::open(QFile::encodeName(path).constData(), O_RDWR | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
    char last = '\n';
    const off_t size = fd >= 0 ? ::lseek(fd, 0, SEEK_END) : 0;
    if (size > 0 && ::pread(fd, &last, 1, size - 1) == 1 && last != '\n')
        demo_write_fully(fd, QByteArrayLiteral("\n"));
    return fd;
}

} // namespace

DemoOutput::DemoOutput(const QString &eventsPath, const QString &logPath, qint64 logMaxSize,
                       int verbosity)
    : m_eventsPath(eventsPath), m_logPath(logPath), m_logMaxSize(logMaxSize), m_verbosity(verbosity)
{
}

DemoOutput::~DemoOutput()
{
    if (m_eventsFd >= 0)
        ::close(m_eventsFd);
    if (m_logFd >= 0)
        ::close(m_logFd);
}

bool DemoOutput::open(QString *error)
{
    m_eventsFd = openEventsAppend(m_eventsPath);
    if (m_eventsFd < 0) {
        if (error)
            *error = QStringLiteral("cannot open events file %1").arg(m_eventsPath);
        return false;
    }
    if (!m_logPath.isEmpty()) {
        m_logFd = openAppend(m_logPath);
        m_logSize = QFileInfo(m_logPath).size();
    }
    return true;
}

void DemoOutput::event(const QJsonObject &event)
{
    QByteArray line = QJsonDocument(event).toJson(QJsonDocument::Compact);
    line.append('\n');
    reopenEventsIfReplaced();
    if (m_eventsFd >= 0 && !demo_write_fully(m_eventsFd, line))
        log(1, QStringLiteral("events write failed errno=%1").arg(errno));
    if (m_verbosity >= 4)
        log(4, QStringLiteral("event %1").arg(event.value(QStringLiteral("type")).toString()));
}

void DemoOutput::reopenEventsIfReplaced()
{
    // A reader may remove or replace the file; events then go to the file
    // that is there now, not to an unlinked one.
    struct stat open = {};
    struct stat named = {};
    const QByteArray path = QFile::encodeName(m_eventsPath);
    if (m_eventsFd >= 0 && ::fstat(m_eventsFd, &open) == 0 &&
        ::stat(path.constData(), &named) == 0 && open.st_ino == named.st_ino &&
        open.st_dev == named.st_dev)
        return;
    const int fd = openEventsAppend(m_eventsPath);
    if (fd < 0)
        return;
    if (m_eventsFd >= 0)
        ::close(m_eventsFd);
    m_eventsFd = fd;
}

void DemoOutput::status(const QString &line)
{
    demo_write_fully(STDOUT_FILENO, line.toUtf8() + '\n');
    log(1, line);
}

void DemoOutput::log(int level, const QString &text)
{
    if (m_logFd < 0 || level > qMax(1, m_verbosity))
        return;
    QByteArray line = "[backend] " + text.toUtf8();
    line.replace('\n', ' ');
    line.append('\n');
    if (m_logMaxSize > 0 && m_logSize + line.size() > m_logMaxSize) {
        // Keep one old generation, like the service's own log rotation.
        ::close(m_logFd);
        const QString old = m_logPath + QStringLiteral(".old");
        QFile::remove(old);
        QFile::rename(m_logPath, old);
        m_logFd = openAppend(m_logPath);
        m_logSize = 0;
        if (m_logFd < 0)
            return;
    }
    if (demo_write_fully(m_logFd, line))
        m_logSize += line.size();
}
