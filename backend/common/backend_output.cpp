#include "backend_output.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

bool backend_write_fully(int fd, const QByteArray &bytes)
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
        backend_write_fully(fd, QByteArrayLiteral("\n"));
    return fd;
}

} // namespace

BackendOutput::BackendOutput(const QString &eventsPath, const QString &logPath, qint64 logMaxSize,
                             int verbosity)
    : m_eventsPath(eventsPath), m_logPath(logPath), m_logMaxSize(logMaxSize), m_verbosity(verbosity)
{
}

BackendOutput::~BackendOutput()
{
    if (m_eventsFd >= 0)
        ::close(m_eventsFd);
    if (m_logFd >= 0)
        ::close(m_logFd);
}

bool BackendOutput::open(QString *error)
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

void BackendOutput::event(const QJsonObject &event)
{
    QByteArray line = QJsonDocument(event).toJson(QJsonDocument::Compact);
    line.append('\n');
    reopenEventsIfReplaced();
    if (m_eventsFd >= 0 && !backend_write_fully(m_eventsFd, line))
        log(1, QStringLiteral("events write failed errno=%1").arg(errno));
    if (m_verbosity >= 4)
        log(4, QStringLiteral("event %1").arg(event.value(QStringLiteral("type")).toString()));
}

void BackendOutput::reopenEventsIfReplaced()
{
    // A reader may remove or replace the file; events then go to the file
    // that is there now, not to an unlinked one.
    reopenIfReplaced(m_eventsPath, &m_eventsFd, true);
}

bool BackendOutput::reopenIfReplaced(const QString &path, int *fd, bool events)
{
    struct stat open = {};
    struct stat named = {};
    const QByteArray name = QFile::encodeName(path);
    if (*fd >= 0 && ::fstat(*fd, &open) == 0 && ::stat(name.constData(), &named) == 0 &&
        open.st_ino == named.st_ino && open.st_dev == named.st_dev)
        return false;
    const int reopened = events ? openEventsAppend(path) : openAppend(path);
    if (reopened < 0)
        return false;
    if (*fd >= 0)
        ::close(*fd);
    *fd = reopened;
    return true;
}

void BackendOutput::status(const QString &line)
{
    backend_write_fully(STDOUT_FILENO, line.toUtf8() + '\n');
    log(1, line);
}

void BackendOutput::log(int level, const QString &text)
{
    if (m_logFd < 0 || level > qMax(1, m_verbosity))
        return;
    QByteArray line = "[backend] " + text.toUtf8();
    line.replace('\n', ' ');
    line.append('\n');
    // Without a size of its own the log is shared with a writer that turns it
    // over itself (TDLib); lines then follow the file that has the name now.
    if (m_logMaxSize <= 0 && reopenIfReplaced(m_logPath, &m_logFd))
        m_logSize = 0;
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
    if (backend_write_fully(m_logFd, line))
        m_logSize += line.size();
}
