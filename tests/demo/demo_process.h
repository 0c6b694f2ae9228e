#pragma once

// Runs the demo backend as a real child process on private folders and reads
// its events file the way the user interface does: new bytes from an offset,
// whole lines only.

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QProcessEnvironment>
#include <QTemporaryDir>
#include <QThread>

#include <functional>

inline QString demo_backend_program()
{
    const QByteArray dir = qgetenv("VEXA_BIN_DIR");
    if (!dir.isEmpty())
        return QDir(QString::fromLocal8Bit(dir)).filePath(QStringLiteral("td_backend"));
    return QStringLiteral(TD_BACKEND_PATH);
}

class DemoProcess
{
public:
    explicit DemoProcess(const QString &root) : m_root(root) {}
    ~DemoProcess()
    {
        if (m_proc.state() != QProcess::NotRunning) {
            m_proc.kill();
            m_proc.waitForFinished(3000);
        }
    }

    QString dbDir() const { return m_root + QStringLiteral("/tdlib-db"); }
    QString filesDir() const { return m_root + QStringLiteral("/cache/tdlib-files"); }
    QString eventsPath() const { return m_root + QStringLiteral("/backend_events.jsonl"); }
    QString logPath() const { return m_root + QStringLiteral("/tdlib.log"); }
    QProcess &process() { return m_proc; }

    void setEnv(const QString &key, const QString &value) { m_extraEnv.insert(key, value); }
    // Starts without any path in the environment, in the given folder, the
    // way a user starts the backend by hand; root must then be the data
    // folder the backend picks.
    void useDefaultFolders(const QString &workingDir) { m_workingDir = workingDir; }

    bool start(const QStringList &args = {})
    {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        for (const char *key : {"TDLIB_DB_DIR", "TDLIB_FILES_DIR", "BACKEND_EVENTS_FILE",
                                "TDLIB_LOG_FILE", "VEXA_DATA_DIR", "XDG_DATA_HOME"})
            env.remove(QLatin1String(key));
        if (m_workingDir.isEmpty()) {
            env.insert(QStringLiteral("TDLIB_DB_DIR"), dbDir());
            env.insert(QStringLiteral("TDLIB_FILES_DIR"), filesDir());
            env.insert(QStringLiteral("BACKEND_EVENTS_FILE"), eventsPath());
            env.insert(QStringLiteral("TDLIB_LOG_FILE"), logPath());
        } else {
            m_proc.setWorkingDirectory(m_workingDir);
        }
        env.insert(QStringLiteral("TDLIB_LOG_VERBOSITY"), QStringLiteral("2"));
        env.insert(QStringLiteral("TG_AUTO_SEND_PHONE"), QStringLiteral("0"));
        env.insert(QStringLiteral("DEMO_SPEED"), QStringLiteral("0"));
        env.insert(QStringLiteral("DEMO_SEED"), QStringLiteral("7"));
        for (auto it = m_extraEnv.cbegin(); it != m_extraEnv.cend(); ++it)
            env.insert(it.key(), it.value());
        m_proc.setProcessEnvironment(env);
        // Like the user interface, skip what an earlier run wrote.
        m_offset = QFileInfo(eventsPath()).size();
        m_partial.clear();
        m_proc.setProcessChannelMode(QProcess::SeparateChannels);
        m_proc.start(demo_backend_program(), args);
        return m_proc.waitForStarted(5000);
    }

    void send(const QByteArray &line)
    {
        m_proc.write(line + '\n');
        m_proc.waitForBytesWritten(5000);
    }
    // Sends a command; returns the index its answers start at.
    int post(const QByteArray &line)
    {
        const int m = mark();
        send(line);
        return m;
    }

    // Closes standard input and waits for the exit; returns the exit code or
    // -1 when the process crashed or did not end.
    int finish(int timeoutMs = 20000)
    {
        m_proc.closeWriteChannel();
        if (!m_proc.waitForFinished(timeoutMs))
            return -1;
        m_stdout += m_proc.readAllStandardOutput();
        poll(); // everything the process wrote before it ended
        const int code = m_proc.exitStatus() == QProcess::NormalExit ? m_proc.exitCode() : -1;
        if (code != 0)
            qWarning("td_backend exited with %d: %s", code,
                     m_proc.readAllStandardError().right(4000).constData());
        return code;
    }

    static QByteArray readAll(const QString &path)
    {
        QFile f(path);
        return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
    }

    QByteArray standardOutput()
    {
        m_stdout += m_proc.readAllStandardOutput();
        return m_stdout;
    }

    // Reads complete new lines of the events file into the event list.
    void poll()
    {
        QFile f(eventsPath());
        if (!f.open(QIODevice::ReadOnly))
            return;
        if (f.size() < m_offset) { // removed and made again: read it from the start
            m_offset = 0;
            m_partial.clear();
        }
        f.seek(m_offset);
        const QByteArray bytes = f.readAll();
        m_offset += bytes.size();
        m_partial += bytes;
        int nl;
        while ((nl = m_partial.indexOf('\n')) >= 0) {
            const QByteArray line = m_partial.left(nl);
            m_partial.remove(0, nl + 1);
            QJsonParseError err;
            const QJsonDocument doc = QJsonDocument::fromJson(line, &err);
            if (err.error != QJsonParseError::NoError || !doc.isObject())
                ++m_badLines;
            else
                m_events.append(doc.object());
        }
    }

    const QList<QJsonObject> &events() const { return m_events; }
    int badLines() const { return m_badLines; }
    int mark() const { return m_events.size(); }

    // Index of the first event at or after `from` that matches, or -1 after
    // the time-out.
    int waitFor(int from, const std::function<bool(const QJsonObject &)> &match,
                int timeoutMs = 10000)
    {
        QElapsedTimer t;
        t.start();
        for (;;) {
            poll();
            for (int i = from; i < m_events.size(); ++i) {
                if (match(m_events.at(i)))
                    return i;
            }
            if (t.elapsed() > timeoutMs)
                return -1;
            QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
            QThread::msleep(3);
        }
    }

    int waitType(int from, const QString &type, int timeoutMs = 10000)
    {
        return waitFor(
            from, [&type](const QJsonObject &e) { return e.value(QStringLiteral("type")) == type; },
            timeoutMs);
    }

    QList<QJsonObject> between(int from, int to) const { return m_events.mid(from, to - from); }

    // With DEMO_SPEED=0 every answer is written before the next command is
    // read: once a ping is answered, all earlier commands are. Returns the
    // index of the answer to the ping, or -1 after the time-out.
    int settle(int timeoutMs = 30000)
    {
        return waitFor(
            post("ping"),
            [](const QJsonObject &e) { return e.value(QStringLiteral("pong")).toBool(); },
            timeoutMs);
    }

    // Everything a command was answered with (DEMO_SPEED=0).
    QList<QJsonObject> answers(const QByteArray &command)
    {
        const int m = post(command);
        const int end = settle();
        return between(m, end < 0 ? m : end);
    }

    // Sends a command and returns the first answer after it that matches, or
    // an empty object after the time-out.
    QJsonObject ask(const QByteArray &command,
                    const std::function<bool(const QJsonObject &)> &match, int timeoutMs = 10000)
    {
        const int i = waitFor(post(command), match, timeoutMs);
        return i < 0 ? QJsonObject() : m_events.at(i);
    }
    QJsonObject ask(const QByteArray &command, const QString &type, int timeoutMs = 10000)
    {
        return ask(
            command,
            [&type](const QJsonObject &e) { return e.value(QStringLiteral("type")) == type; },
            timeoutMs);
    }

    // The events of one type between a command and the answer that ends it.
    QList<QJsonObject> listing(const QByteArray &command, const QString &item,
                               const QString &endType, QJsonObject *end = nullptr)
    {
        const int m = post(command);
        const int e = waitType(m, endType);
        QList<QJsonObject> out;
        for (const QJsonObject &ev : between(m, e < 0 ? m : e)) {
            if (ev.value(QStringLiteral("type")) == item)
                out.append(ev);
        }
        if (end)
            *end = e < 0 ? QJsonObject() : m_events.at(e);
        return out;
    }
    QList<QJsonObject> chats(int n)
    {
        return listing("chats " + QByteArray::number(n), QStringLiteral("chat"),
                       QStringLiteral("chats_end"));
    }
    // The messages of the next history batch, oldest first.
    QList<QJsonObject> history(const QByteArray &command, QJsonObject *end = nullptr)
    {
        return listing(command, QStringLiteral("message"), QStringLiteral("history_end"), end);
    }

    // Signs in with the password-free test number; the connection settling
    // is the last answer of a sign-in.
    bool signIn()
    {
        return !ask("phone +15550101", stateIs("auth_state", "WaitCode")).isEmpty() &&
               !ask("code 22222", stateIs("connection_state", "Ready")).isEmpty();
    }

    static std::function<bool(const QJsonObject &)> stateIs(const char *type, const char *state)
    {
        return [type, state](const QJsonObject &e) {
            return e.value(QStringLiteral("type")) == QLatin1String(type) &&
                   e.value(QStringLiteral("state")) == QLatin1String(state);
        };
    }

private:
    QString m_root;
    QProcess m_proc;
    QHash<QString, QString> m_extraEnv;
    QString m_workingDir;
    QByteArray m_stdout;
    qint64 m_offset = 0;
    QByteArray m_partial;
    QList<QJsonObject> m_events;
    int m_badLines = 0;
};

inline QString ev_type(const QJsonObject &e)
{
    return e.value(QStringLiteral("type")).toString();
}
inline qint64 ev_i64(const QJsonObject &e, const char *key)
{
    const QJsonValue v = e.value(QLatin1String(key));
    return v.isString() ? v.toString().toLongLong() : qint64(v.toDouble());
}
inline QJsonObject td_error_json(const QJsonObject &e)
{
    return QJsonDocument::fromJson(e.value(QStringLiteral("json")).toString().toUtf8()).object();
}

// Small readers of events and writers of command arguments.
inline QByteArray num(qint64 v)
{
    return QByteArray::number(v);
}

inline QByteArray b64(const QString &text)
{
    return text.toUtf8().toBase64();
}

inline QString str(const QJsonObject &e, const char *key)
{
    return e.value(QLatin1String(key)).toString();
}

inline bool flag(const QJsonObject &e, const char *key)
{
    return e.value(QLatin1String(key)).toBool();
}

inline QList<QJsonObject> ofType(const QList<QJsonObject> &events, const char *type)
{
    QList<QJsonObject> out;
    for (const QJsonObject &e : events) {
        if (ev_type(e) == QLatin1String(type))
            out.append(e);
    }
    return out;
}

inline bool hasType(const QList<QJsonObject> &events, const char *type)
{
    return !ofType(events, type).isEmpty();
}

// The first element whose key has the value, or an empty object.
inline QJsonObject findBy(const QList<QJsonObject> &list, const char *key, qint64 value)
{
    for (const QJsonObject &e : list) {
        if (ev_i64(e, key) == value)
            return e;
    }
    return QJsonObject();
}

inline auto typed(const char *type)
{
    return [type](const QJsonObject &e) { return ev_type(e) == QLatin1String(type); };
}
