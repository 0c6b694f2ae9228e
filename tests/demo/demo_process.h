#pragma once

// Runs the demo backend as a real child process on private folders and reads
// its events file the way the user interface does: new bytes from an offset,
// whole lines only.

#include "common/test_util.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>

#include <algorithm>
#include <functional>

using EventMatch = std::function<bool(const QJsonObject &)>;

inline QString str(const QJsonObject &e, const char *key)
{
    return e.value(QLatin1String(key)).toString();
}
inline bool flag(const QJsonObject &e, const char *key)
{
    return e.value(QLatin1String(key)).toBool();
}
// Ids come as strings or numbers.
inline qint64 ev_i64(const QJsonObject &e, const char *key)
{
    const QJsonValue v = e.value(QLatin1String(key));
    return v.isString() ? v.toString().toLongLong() : qint64(v.toDouble());
}
inline EventMatch typed(const char *type)
{
    return [type](const QJsonObject &e) { return str(e, "type") == QLatin1String(type); };
}
inline QJsonObject td_error_json(const QJsonObject &e)
{
    return QJsonDocument::fromJson(str(e, "json").toUtf8()).object();
}
inline QByteArray num(qint64 v)
{
    return QByteArray::number(v);
}
inline QByteArray b64(const QString &text)
{
    return text.toUtf8().toBase64();
}
inline QList<QJsonObject> ofType(const QList<QJsonObject> &events, const char *type)
{
    QList<QJsonObject> out;
    std::copy_if(events.begin(), events.end(), std::back_inserter(out), typed(type));
    return out;
}
// The first element whose key has the value, or an empty object.
inline QJsonObject findBy(const QList<QJsonObject> &list, const char *key, qint64 value)
{
    const auto it = std::find_if(list.begin(), list.end(),
                                 [&](const QJsonObject &e) { return ev_i64(e, key) == value; });
    return it == list.end() ? QJsonObject() : *it;
}

class DemoProcess
{
public:
    explicit DemoProcess(const QString &root) : m_root(root) {}
    ~DemoProcess()
    {
        m_proc.kill();
        m_proc.waitForFinished(3000);
    }

    QString dbDir() const { return m_root + QStringLiteral("/tdlib-db"); }
    QString filesDir() const { return m_root + QStringLiteral("/cache/tdlib-files"); }
    QString eventsPath() const { return m_root + QStringLiteral("/backend_events.jsonl"); }
    QString logPath() const { return m_root + QStringLiteral("/tdlib.log"); }
    QProcess &process() { return m_proc; }
    const QList<QJsonObject> &events() const { return m_events; }
    QList<QJsonObject> between(int from, int to) const { return m_events.mid(from, to - from); }
    int badLines() const { return m_badLines; }
    int mark() const { return m_events.size(); }
    void setEnv(const QString &key, const QString &value) { m_env.insert(key, value); }
    bool start(const QStringList &args = {})
    {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        for (const char *key : {"TDLIB_DB_DIR", "TDLIB_FILES_DIR", "BACKEND_EVENTS_FILE",
                                "TDLIB_LOG_FILE", "VEXA_DATA_DIR", "XDG_DATA_HOME"})
            env.remove(QLatin1String(key));
        // Given a working folder, it starts the way a user starts it by hand:
        // no path in the environment; root must be the folder it picks.
        if (m_proc.workingDirectory().isEmpty()) {
            env.insert(QStringLiteral("TDLIB_DB_DIR"), dbDir());
            env.insert(QStringLiteral("TDLIB_FILES_DIR"), filesDir());
            env.insert(QStringLiteral("BACKEND_EVENTS_FILE"), eventsPath());
            env.insert(QStringLiteral("TDLIB_LOG_FILE"), logPath());
        }
        env.insert(QStringLiteral("TDLIB_LOG_VERBOSITY"), QStringLiteral("2"));
        env.insert(QStringLiteral("TG_AUTO_SEND_PHONE"), QStringLiteral("0"));
        env.insert(QStringLiteral("DEMO_SPEED"), QStringLiteral("0"));
        env.insert(QStringLiteral("DEMO_SEED"), QStringLiteral("7"));
        for (auto it = m_env.cbegin(); it != m_env.cend(); ++it)
            env.insert(it.key(), it.value());
        m_proc.setProcessEnvironment(env);
        m_offset = QFileInfo(eventsPath()).size(); // like the user interface, skip earlier runs
        m_proc.start(QStringLiteral(TD_BACKEND_PATH), args);
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
    int finish()
    {
        m_proc.closeWriteChannel();
        if (!m_proc.waitForFinished(20000))
            return -1;
        poll(); // everything the process wrote before it ended
        const int code = m_proc.exitStatus() == QProcess::NormalExit ? m_proc.exitCode() : -1;
        if (code != 0)
            qWarning("td_backend exited with %d: %s", code,
                     m_proc.readAllStandardError().right(4000).constData());
        return code;
    }

    QByteArray standardOutput() { return m_stdout += m_proc.readAllStandardOutput(); }

    // Index of the first event at or after `from` that matches, or -1 after
    // the time-out.
    int waitFor(int from, const EventMatch &match, int timeoutMs = 10000)
    {
        int found = -1;
        test_util::waitFor(
            [&] {
                poll();
                for (int i = from; i < m_events.size() && found < 0; ++i)
                    found = match(m_events.at(i)) ? i : -1;
                return found >= 0;
            },
            timeoutMs);
        return found;
    }
    int waitType(int from, const char *type, int timeoutMs = 10000)
    {
        return waitFor(from, typed(type), timeoutMs);
    }

    // With DEMO_SPEED=0 every answer is written before the next command is
    // read: once a ping is answered, all earlier commands are. Returns the
    // index of the answer to the ping, or -1 after the time-out.
    int settle()
    {
        return waitFor(
            post("ping"), [](const QJsonObject &e) { return flag(e, "pong"); }, 30000);
    }
    // Everything a command was answered with.
    QList<QJsonObject> answers(const QByteArray &command)
    {
        const int m = post(command);
        return between(m, qMax(m, settle()));
    }
    // The first answer to a command that matches, or an empty object.
    QJsonObject ask(const QByteArray &command, const EventMatch &match)
    {
        return m_events.value(waitFor(post(command), match));
    }
    QJsonObject ask(const QByteArray &command, const char *type)
    {
        return ask(command, typed(type));
    }

    QList<QJsonObject> chats(int n) { return ofType(answers("chats " + num(n)), "chat"); }
    // The messages of the next history batch, oldest first.
    QList<QJsonObject> history(const QByteArray &command, QJsonObject *end = nullptr)
    {
        const QList<QJsonObject> all = answers(command);
        if (end)
            *end = ofType(all, "history_end").value(0);
        return ofType(all, "message");
    }

    // Signs in with the password-free test number; the connection settling
    // is the last answer of a sign-in.
    bool signIn()
    {
        return !ask("phone +15550101", stateIs("auth_state", "WaitCode")).isEmpty() &&
               !ask("code 22222", stateIs("connection_state", "Ready")).isEmpty();
    }
    static EventMatch stateIs(const char *type, const char *state)
    {
        return [type, state](const QJsonObject &e) {
            return str(e, "type") == QLatin1String(type) && str(e, "state") == QLatin1String(state);
        };
    }

private:
    // Reads the complete new lines of the events file; a file made again is
    // read from its start.
    void poll()
    {
        QFile f(eventsPath());
        if (!f.open(QIODevice::ReadOnly))
            return;
        if (f.size() < m_offset)
            m_offset = 0, m_partial.clear();
        f.seek(m_offset);
        const QByteArray bytes = f.readAll();
        m_offset += bytes.size();
        m_partial += bytes;
        for (int nl; (nl = m_partial.indexOf('\n')) >= 0; m_partial.remove(0, nl + 1)) {
            QJsonParseError err;
            const QJsonDocument doc = QJsonDocument::fromJson(m_partial.left(nl), &err);
            if (err.error != QJsonParseError::NoError || !doc.isObject())
                ++m_badLines;
            else
                m_events.append(doc.object());
        }
    }
    QString m_root;
    QProcess m_proc;
    QHash<QString, QString> m_env;
    QByteArray m_stdout;
    qint64 m_offset = 0;
    QByteArray m_partial;
    QList<QJsonObject> m_events;
    int m_badLines = 0;
};
