#pragma once

#include <QJsonObject>
#include <QString>

// Where the backend's answers go: events appended to the events file, status
// lines on standard output, and "[backend]" lines in the log, which keeps one
// old generation when it outgrows its size (a size of 0 leaves the turning
// over to another writer of the same file).
class BackendOutput
{
public:
    BackendOutput(const QString &eventsPath, const QString &logPath, qint64 logMaxSize,
                  int verbosity);
    ~BackendOutput();
    BackendOutput(const BackendOutput &) = delete;
    BackendOutput &operator=(const BackendOutput &) = delete;

    bool open(QString *error);
    void event(const QJsonObject &event);
    void status(const QString &line);
    void log(int level, const QString &text);
    int verbosity() const { return m_verbosity; }

private:
    void reopenEventsIfReplaced();
    static bool reopenIfReplaced(const QString &path, int *fd, bool events = false);

    QString m_eventsPath;
    QString m_logPath;
    qint64 m_logMaxSize;
    int m_verbosity;
    int m_eventsFd = -1;
    int m_logFd = -1;
    qint64 m_logSize = 0;
};

// Writes all of bytes to a file descriptor, going on after interruptions.
bool backend_write_fully(int fd, const QByteArray &bytes);
