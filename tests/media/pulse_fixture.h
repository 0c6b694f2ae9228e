#pragma once

// A private PulseAudio server run as a child: a null sink as the default
// sink and its monitor as the default source. start() points this process
// (and so OpenAL and QtMultimedia) at it through a private XDG_RUNTIME_DIR.

#include "common/audio.h"

#include <QFileInfo>
#include <QTemporaryDir>

class PulseFixture
{
public:
    ~PulseFixture() { stop(); }

    bool start(QString *error)
    {
        QFile::setPermissions(m_dir.path(), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        qputenv("XDG_RUNTIME_DIR", m_dir.path().toLocal8Bit());
        qputenv("PULSE_SERVER", ("unix:" + m_dir.path() + "/pulse/native").toLocal8Bit());
        m_server.setProcessChannelMode(QProcess::MergedChannels);
        m_server.start("pulseaudio", {"-n", "--daemonize=no", "--exit-idle-time=-1",
                                      "--load=module-null-sink sink_name=vexa_test rate=48000",
                                      "--load=module-native-protocol-unix"});
        for (int i = 0; i < 250 && !QFileInfo::exists(m_dir.path() + "/pulse/native"); ++i)
            m_server.waitForFinished(20);
        QString out;
        if (m_server.state() != QProcess::Running ||
            !pactl({"set-default-sink", "vexa_test"}, &out) ||
            !pactl({"set-default-source", "vexa_test.monitor"}, &out)) {
            *error = QStringLiteral("pulseaudio did not come up: ") + out +
                     QString::fromLocal8Bit(m_server.readAll());
            return false;
        }
        return true;
    }

    void stop()
    {
        m_server.terminate();
        if (!m_server.waitForFinished(3000)) {
            m_server.kill();
            m_server.waitForFinished(1000);
        }
    }

    bool pactl(const QStringList &args, QString *output)
    {
        const testaudio::RunResult r = testaudio::run("pactl", args);
        *output = r.output;
        return r.exitCode == 0;
    }

    // Starts paplay on a file into the default sink with a short buffer, so
    // the monitor delivers it at once.
    QProcess *startPaplay(const QString &file, QObject *parent)
    {
        auto *p = new QProcess(parent);
        p->start("paplay", {"--latency-msec=20", file});
        return p;
    }

private:
    QTemporaryDir m_dir;
    QProcess m_server;
};
