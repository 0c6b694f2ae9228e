#pragma once

#include <QByteArray>
#include <QObject>
#include <QString>

class QSocketNotifier;
class QUdpSocket;

constexpr int kBackendExitLocked = 9;
constexpr quint16 kBackendServicePort = 47010;

// The value of an environment variable, or fallback when it is unset or empty.
QString backend_env(const char *key, const QString &fallback = QString());

// Writes "FATAL <text>" on standard output, where the client looks for it.
void backend_fatal(const QString &text);

// Takes the one-process-per-database lock in dbDir. The lock lives as long as
// *fd, which is never handed to child processes. *locked tells a lock held by
// another process apart from other failures.
bool backend_lock_database(const QString &dbDir, int *fd, bool *locked, QString *error);

// Splits a byte stream into lines, dropping any line longer than maxLine up
// to its line feed so one huge line cannot exhaust memory.
class BackendLineSplitter
{
public:
    explicit BackendLineSplitter(qint64 maxLine = 1024 * 1024) : m_maxLine(maxLine) {}

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
            if (m_buffer.size() >= m_maxLine) {
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
    qint64 m_maxLine;
    QByteArray m_buffer;
    bool m_discarding = false;
};

// Where commands come from: lines on standard input (local mode) or one
// command per datagram on 127.0.0.1 (service mode), plus SIGTERM and SIGINT,
// all delivered on the main thread.
class BackendCommandInput : public QObject
{
    Q_OBJECT
public:
    explicit BackendCommandInput(QObject *parent = nullptr);
    ~BackendCommandInput() override;

    // Installs the signal handlers and starts reading; port 0 means local mode.
    bool start(quint16 servicePort, QString *error);

Q_SIGNALS:
    void lineReceived(const QByteArray &line);
    // Standard input ended (local mode only).
    void inputEnded();
    void terminationRequested();

private:
    void readStdin();
    void readDatagrams();

    BackendLineSplitter m_splitter;
    QSocketNotifier *m_stdinNotifier = nullptr;
    QSocketNotifier *m_signalNotifier = nullptr;
    QUdpSocket *m_udp = nullptr;
};
