#pragma once

// A private PulseAudio daemon for audio tests: a null sink "vexa_test" that
// is the default sink, and its monitor as the default source. The daemon is
// reached through a private XDG_RUNTIME_DIR, which start() also sets in this
// process so that OpenAL and GStreamer find it; stop() ends it by its pid.

#include <QByteArray>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QThread>

#include <signal.h>

class PulseFixture
{
public:
    ~PulseFixture() { stop(); }

    static bool available() { return !QStandardPaths::findExecutable("pulseaudio").isEmpty(); }

    // False with error set when the daemon could not be brought up.
    bool start(QString *error)
    {
        if (!m_dir.isValid()) {
            *error = QStringLiteral("no temporary folder");
            return false;
        }
        QFile::setPermissions(m_dir.path(), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        m_oldRuntime = qgetenv("XDG_RUNTIME_DIR");
        m_oldServer = qgetenv("PULSE_SERVER");
        qputenv("XDG_RUNTIME_DIR", m_dir.path().toLocal8Bit());
        qputenv("PULSE_SERVER", ("unix:" + socketPath()).toLocal8Bit());
        m_envSet = true;

        QString out;
        if (!run(QStringLiteral("pulseaudio"),
                 {QStringLiteral("-n"), QStringLiteral("--daemonize=yes"),
                  QStringLiteral("--exit-idle-time=-1"),
                  QStringLiteral("--load=module-null-sink sink_name=vexa_test rate=48000"),
                  QStringLiteral("--load=module-native-protocol-unix")},
                 &out)) {
            *error = QStringLiteral("pulseaudio failed: ") + out;
            return false;
        }
        QElapsedTimer t;
        t.start();
        while (m_pid <= 0 && t.elapsed() < 5000) {
            QFile f(m_dir.path() + QStringLiteral("/pulse/pid"));
            if (f.open(QIODevice::ReadOnly))
                m_pid = f.readAll().trimmed().toLongLong();
            if (m_pid <= 0)
                QThread::msleep(20);
        }
        if (m_pid <= 0) {
            *error = QStringLiteral("pulseaudio wrote no pid");
            return false;
        }
        if (!pactl({QStringLiteral("set-default-sink"), QStringLiteral("vexa_test")}, &out) ||
            !pactl({QStringLiteral("set-default-source"), QStringLiteral("vexa_test.monitor")},
                   &out)) {
            *error = QStringLiteral("pactl failed: ") + out;
            return false;
        }
        return true;
    }

    void stop()
    {
        if (m_pid > 0) {
            ::kill(pid_t(m_pid), SIGTERM);
            QElapsedTimer t;
            t.start();
            while (running(m_pid) && t.elapsed() < 3000)
                QThread::msleep(20);
            if (running(m_pid))
                ::kill(pid_t(m_pid), SIGKILL);
            m_pid = 0;
        }
        if (m_envSet) {
            restore("XDG_RUNTIME_DIR", m_oldRuntime);
            restore("PULSE_SERVER", m_oldServer);
            m_envSet = false;
        }
    }

    QString socketPath() const { return m_dir.path() + QStringLiteral("/pulse/native"); }
    qint64 pid() const { return m_pid; }

    bool pactl(const QStringList &args, QString *output)
    {
        return run(QStringLiteral("pactl"), args, output);
    }

    // Starts paplay on a file into the default sink with a short buffer, so
    // the monitor delivers it at once.
    QProcess *startPaplay(const QString &file, QObject *parent)
    {
        auto *p = new QProcess(parent);
        p->setProcessChannelMode(QProcess::MergedChannels);
        p->start(QStringLiteral("paplay"), {QStringLiteral("--latency-msec=20"), file});
        return p;
    }

private:
    // Alive and not merely waiting to be reaped by its new parent.
    static bool running(qint64 pid)
    {
        if (::kill(pid_t(pid), 0) != 0)
            return false;
        QFile stat(QStringLiteral("/proc/%1/stat").arg(pid));
        if (!stat.open(QIODevice::ReadOnly))
            return false;
        const QByteArray text = stat.readAll();
        const int close = text.lastIndexOf(')');
        return close < 0 || text.mid(close + 2, 1) != "Z";
    }

    static void restore(const char *name, const QByteArray &old)
    {
        if (old.isNull())
            qunsetenv(name);
        else
            qputenv(name, old);
    }

    static bool run(const QString &program, const QStringList &args, QString *output)
    {
        QProcess p;
        p.setProcessChannelMode(QProcess::MergedChannels);
        p.start(program, args);
        if (!p.waitForFinished(10000)) {
            p.kill();
            p.waitForFinished(1000);
            if (output)
                *output = program + QStringLiteral(" did not finish");
            return false;
        }
        if (output)
            *output = QString::fromLocal8Bit(p.readAll());
        return p.exitStatus() == QProcess::NormalExit && p.exitCode() == 0;
    }

    QTemporaryDir m_dir;
    qint64 m_pid = 0;
    QByteArray m_oldRuntime;
    QByteArray m_oldServer;
    bool m_envSet = false;
};
