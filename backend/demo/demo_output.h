#pragma once

#include <QJsonObject>
#include <QString>

// Where the backend's answers go: events appended to the events file, status
// lines on standard output, and "[backend]" lines in the log, which keeps one
// old generation when it outgrows its size.
class DemoOutput
{
public:
    DemoOutput(const QString &eventsPath, const QString &logPath, qint64 logMaxSize, int verbosity);
    ~DemoOutput();
    DemoOutput(const DemoOutput &) = delete;
    DemoOutput &operator=(const DemoOutput &) = delete;

    bool open(QString *error);
    void event(const QJsonObject &event);
    void status(const QString &line);
    void log(int level, const QString &text);
    int verbosity() const { return m_verbosity; }

private:
    void reopenEventsIfReplaced();

    QString m_eventsPath;
    QString m_logPath;
    qint64 m_logMaxSize;
    int m_verbosity;
    int m_eventsFd = -1;
    int m_logFd = -1;
    qint64 m_logSize = 0;
};

// Writes all of bytes to a file descriptor, going on after interruptions.
bool demo_write_fully(int fd, const QByteArray &bytes);
