// A full disk under everything the client writes. The small file systems are tmpfs mounts in a
// mount namespace of this test's own: what the user already had stays whole, and no cut file is
// left under a name that a later run would trust.

#include "backend_link/app_log.h"
#include "common/audio.h"
#include "common/small_fs.h"
#include "media/audio_libs.h"
#include "media/media_downloads.h"
#include "media/pulse_fixture.h"
#include "media/voice_file_encoder.h"
#include "media/voice_player.h"
#include "media/voice_recorder.h"
#include "shell/links.h"
#include "shell/theme.h"
#include "shell/update_checker.h"

#include <QDirIterator>
#include <QTcpServer>
#include <QTcpSocket>
#include <QtTest>

#include <csignal>

#include "common/test_util.h"

using namespace testaudio;
using namespace test_util;

namespace {

// Every file under dir with its content, the filler left out.
QMap<QString, QByteArray> filesUnder(const QString &dir)
{
    QMap<QString, QByteArray> out;
    QDirIterator it(dir, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        if (it.fileName() != QLatin1String(".filler"))
            out.insert(QDir(dir).relativeFilePath(path), readAll(path));
    }
    return out;
}

// An update on offer: the manifest at any path, the package at /pkg.bar. With `sent` set, only
// that many bytes of the package go out before the answer stalls.
class UpdateServer : public QTcpServer
{
public:
    explicit UpdateServer(int packageBytes, int sent = -1)
        : m_package(packageBytes, 'p'), m_sent(sent)
    {
        listen(QHostAddress::LocalHost, 0);
    }
    QString url() const { return QStringLiteral("http://127.0.0.1:%1").arg(serverPort()); }

protected:
    void incomingConnection(qintptr descriptor) override
    {
        auto *socket = new QTcpSocket(this);
        socket->setSocketDescriptor(descriptor);
        connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
        connect(socket, &QTcpSocket::readyRead, socket, [this, socket] {
            m_head[socket] += socket->readAll();
            if (!m_head[socket].contains("\r\n\r\n"))
                return;
            const bool package = m_head[socket].contains("/pkg.bar");
            const QByteArray body =
                package ? m_package
                        : R"({"build_id": 4, "version_number": "1.2", "download_url": ")" +
                              url().toUtf8() + "/pkg.bar\"}";
            const bool stall = package && m_sent >= 0;
            socket->write("HTTP/1.1 200 OK\r\nContent-Length: " + QByteArray::number(body.size()) +
                          "\r\nConnection: close\r\n\r\n" +
                          body.left(stall ? m_sent : body.size()));
            if (!stall)
                socket->disconnectFromHost();
        });
    }

private:
    QByteArray m_package;
    int m_sent;
    QHash<QTcpSocket *, QByteArray> m_head;
};

} // namespace

class TestFaults : public QObject
{
    Q_OBJECT
    QTemporaryDir m_dir;
    QString m_small = m_dir.filePath(QStringLiteral("small"));
    PulseFixture m_pulse;
    OpusLib m_opus;
    OpenAlLib m_openal;
    Recorded m_rec;
    AppLog m_log;

    QScopedPointer<QProcess> m_play;

    QString small(const QString &name) const { return m_small + QLatin1Char('/') + name; }
    // A loud tone into the test's own sound server, for a recorder to hear.
    bool playTone(QString *error)
    {
        if (!m_pulse.start(error) ||
            !writeFile(m_dir.filePath("loud.wav"),
                       wav_bytes(tone(700, 30, 48000, 2, 16000), 48000, 2)))
            return false;
        m_play.reset(m_pulse.startPaplay(m_dir.filePath("loud.wav"), nullptr));
        return true;
    }
    // The real program on data and shared under the small disk, with env's additions.
    void startVexa(QProcess &vexa, const QString &data, const QString &shared,
                   QProcessEnvironment env = QProcessEnvironment::systemEnvironment())
    {
        env.insert(QStringLiteral("VEXA_DATA_DIR"), small(data));
        env.insert(QStringLiteral("VEXA_SHARED_DIR"), small(shared));
        env.insert(QStringLiteral("HOME"), m_small);
        env.insert(QStringLiteral("DEMO_SPEED"), QStringLiteral("0"));
        vexa.setProcessEnvironment(env);
        vexa.start(QStringLiteral(VEXA_PATH), QStringList());
    }

private Q_SLOTS:
    void initTestCase()
    {
        QString why;
        if (!small_fs::enterPrivateMounts(&why))
            QSKIP(qPrintable(why));
    }
    void init()
    {
        m_rec.clear();
        m_log.clear();
        QString why;
        QVERIFY2(small_fs::mountTmpfs(m_small, 1 << 20, false, &why), qPrintable(why));
    }
    void cleanup()
    {
        if (m_play) {
            m_play->kill();
            m_play->waitForFinished();
            m_play.reset();
        }
        m_pulse.stop();
        small_fs::unmount(m_small);
    }

    void diskFull_data()
    {
        QTest::addColumn<QString>("writing");
        QTest::addColumn<int>("free"); // bytes left on the disk
        // A recording cut by a write error is discarded as a failed one.
        QTest::newRow("recording a voice note") << "record" << 4096;
        QTest::newRow("converting a voice note to WAV") << "wav" << 4096;
        QTest::newRow("copying a download to the shared folder") << "copy" << 4096;
        QTest::newRow("downloading an update") << "update" << 4096;
        // The old setting and request stay whole; the caller logs the error.
        QTest::newRow("writing the theme") << "theme" << 0;
        QTest::newRow("writing an open request") << "hub" << 0;
        // Lines that do not fit are lost whole, never cut.
        QTest::newRow("writing the logs") << "log" << 4096;
    }
    void diskFull()
    {
        QFETCH(QString, writing);
        QFETCH(int, free);
        // What the user already has on the small disk.
        QString error;
        QVERIFY(write_tone_wav(m_dir.filePath("tone.wav"), 440, 3.0, 48000, 1));
        QVERIFY2(
            encode_wav_to_voice_ogg(m_opus, m_dir.filePath("tone.wav"), small("voice.ogg"), &error),
            qPrintable(error));
        QVERIFY(writeFile(small("files/report.pdf"), QByteArray(100 * 1024, 'r')));
        QVERIFY(writeFile(small("ui_theme.txt"), "dark\n"));
        QVERIFY(QDir().mkpath(small("data/cache/voice-out")));
        const QMap<QString, QByteArray> had = filesUnder(m_small);
        QVERIFY(small_fs::fill(m_small, free));

        if (writing == QLatin1String("record")) {
            if (!have_tool("pulseaudio") || !have_tool("paplay"))
                QSKIP("no pulseaudio to record from");
            QVERIFY2(playTone(&error), qPrintable(error));
            VoiceRecorder rec(m_opus, m_openal, small("data"), m_rec.services());
            rec.setChatId(1);
            rec.startVoiceRecording();
            QVERIFY2(rec.voiceRecording(), qPrintable(m_rec.log.join(QString())));
            // A page that does not fit ends the recording by itself.
            QTRY_VERIFY_WITH_TIMEOUT(!rec.voiceRecording(), 30000);
            QCOMPARE(m_rec.lines, QStringList()); // nothing sent
        } else if (writing == QLatin1String("wav")) {
            VoicePlayer player(m_opus, nullptr, small("cache"), m_rec.services(), nullptr);
            QCOMPARE(player.ensureWavForVoiceFile(5, small("voice.ogg")), QString());
        } else if (writing == QLatin1String("copy")) {
            MediaDownloads downloads(m_rec.services(), small("shared"), m_small + "/", nullptr);
            downloads.onFileTapped(small("files/report.pdf"), 7);
        } else if (writing == QLatin1String("update")) {
            UpdateServer server(64 * 1024);
            UpdateCheckerConfig config;
            config.host = QStringLiteral("127.0.0.1");
            config.httpsBaseUrl = config.httpBaseUrl = server.url();
            config.downloadsDir = small("shared");
            UpdateChecker checker(config, &m_rec.toaster, &m_log);
            connect(&checker, &UpdateChecker::updateQuestionAsked, &checker,
                    [&checker] { checker.onUpdateDialogFinished(2); }); // "Download"
            checker.onCheckUpdates();
            QTRY_VERIFY_WITH_TIMEOUT(m_rec.toaster.last().startsWith("Update download"), 20000);
        } else if (writing == QLatin1String("theme")) {
            QVERIFY(!write_theme_file(small("ui_theme.txt"), false, &error));
            QVERIFY(!error.isEmpty());
        } else if (writing == QLatin1String("hub")) {
            QVERIFY(!write_hub_open_request(m_small, 42, 0, QStringLiteral("test"), &error));
            QVERIFY(!error.isEmpty());
        } else {
            m_log.setUiDebugLogPath(small("ui_debug.log"));
            for (int i = 0; i < 40; ++i)
                m_log.appendUiFileLog(QString(300, QLatin1Char('x')));
            // Only whole lines, each as long as the others.
            const QByteArray logged = readAll(small("ui_debug.log"));
            QVERIFY(logged.size() > 0 && logged.size() < 40 * 325);
            QCOMPARE(logged.size() % (logged.indexOf('\n') + 1), 0);
        }
        // The user or the log is told what failed.
        if (writing == QLatin1String("record") || writing == QLatin1String("wav") ||
            writing == QLatin1String("copy")) {
            const QStringList told = m_rec.toaster.shown() + m_rec.log;
            const QRegularExpression failed(QStringLiteral("fail|error"),
                                            QRegularExpression::CaseInsensitiveOption);
            QVERIFY2(!told.filter(failed).isEmpty(), qPrintable(told.join(QLatin1Char('|'))));
        }
        QMap<QString, QByteArray> now = filesUnder(m_small);
        now.remove(QStringLiteral("ui_debug.log"));
        QCOMPARE(now.keys(), had.keys());
        QVERIFY(now == had);
    }

    // The real program on folders it cannot write: it says so, keeps running with what needs
    // no writing, and ends in order on SIGTERM. "ro" is a read-only file system.
    void foldersAtStart_data()
    {
        QTest::addColumn<QString>("data");
        QTest::addColumn<QString>("shared");
        QTest::addColumn<bool>("complains"); // on standard error
        const auto row = [](const char *name, const char *data, const char *shared,
                            bool complains) {
            QTest::newRow(name) << QString(data) << QString(shared) << complains;
        };
        row("data folder read-only", "ro", "shared", true);
        row("data folder missing, cannot be made", "ro/data", "shared", true);
        row("shared folder read-only", "data", "ro", true);
        row("shared folder missing: made", "data", "new/shared", false);
    }
    void foldersAtStart()
    {
        QFETCH(QString, data);
        QFETCH(QString, shared);
        QFETCH(bool, complains);
        QString why;
        QVERIFY2(small_fs::mountTmpfs(small("ro"), 64 * 1024, true, &why), qPrintable(why));
        QProcess vexa;
        QByteArray err;
        connect(&vexa, &QProcess::readyReadStandardError, this,
                [&] { err += vexa.readAllStandardError(); });
        startVexa(vexa, data, shared);
        if (complains)
            QVERIFY(waitFor([&] { return err.contains("vexa: cannot"); }, 30000));
        if (data == QLatin1String("data")) // the backend started and wrote its first events
            QVERIFY(waitFor([&] { return !readAll(small("data/backend_events.jsonl")).isEmpty(); },
                            30000));
        QCOMPARE(err.contains("vexa: cannot"), complains);
        QCOMPARE(QFileInfo(small(shared + "/downloads/quillo")).isDir(), shared != "ro");
        ::kill(pid_t(vexa.processId()), SIGTERM);
        QVERIFY(vexa.waitForFinished(30000));
        QCOMPARE(vexa.exitStatus(), QProcess::NormalExit);
        QCOMPARE(vexa.exitCode(), 0);
        QVERIFY(!QFileInfo::exists(small(data + "/ui_running.txt")));
        small_fs::unmount(small("ro"));
    }

    // The wall clock jumps under the running program (libfaketime, re-read at every call; the
    // monotonic clock stays true, as in a real jump): events are still read at once and the
    // running marker still refreshed, so no timer paces itself by the wall clock.
    void clockJumps_data()
    {
        QTest::addColumn<int>("days");
        QTest::newRow("back a day") << -1;
        QTest::newRow("forward a year") << 365;
    }
    void clockJumps()
    {
        QFETCH(int, days);
        QString lib;
        for (const QFileInfo &d : QDir("/usr/lib").entryInfoList({"*-linux-gnu*"}, QDir::Dirs))
            if (QFileInfo::exists(d.filePath() + "/faketime/libfaketime.so.1"))
                lib = d.filePath() + "/faketime/libfaketime.so.1";
        if (lib.isEmpty())
            QSKIP("libfaketime is not installed");
        const QString offset = small("offset");
        QVERIFY(writeFile(offset, "+0"));
        QProcess vexa;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("LD_PRELOAD"), lib);
        // Under AddressSanitizer the preloaded library comes before its runtime, which is fine.
        env.insert(QStringLiteral("ASAN_OPTIONS"),
                   env.value(QStringLiteral("ASAN_OPTIONS")) + ":verify_asan_link_order=0");
        env.insert(QStringLiteral("FAKETIME_TIMESTAMP_FILE"), offset);
        env.insert(QStringLiteral("FAKETIME_NO_CACHE"), QStringLiteral("1"));
        env.insert(QStringLiteral("FAKETIME_DONT_FAKE_MONOTONIC"), QStringLiteral("1"));
        startVexa(vexa, QStringLiteral("data"), QStringLiteral("shared"), env);
        const QString events = small("data/backend_events.jsonl");
        QVERIFY(waitFor([&] { return !readAll(events).isEmpty(); }, 30000));

        QVERIFY(writeFile(offset, (days > 0 ? "+" : "") + QByteArray::number(days) + 'd'));
        const qint64 jumpedMs = QDateTime::currentMSecsSinceEpoch() + days * 86400000LL;
        QVERIFY(writeFile(events, "{\"type\":\"reaction_ok\",\"chat_id\":1,\"id\":7}\n", true));
        // The line that reading the event logs carries the jumped date.
        const QString day = QDateTime::fromMSecsSinceEpoch(jumpedMs, Qt::UTC)
                                .toString(QStringLiteral("yyyy-MM-dd"));
        QVERIFY(waitFor(
            [&] {
                const QByteArray log = readAll(small("data/ui_debug.log"));
                return log.contains(day.toUtf8() + 'T') && log.contains("react: ok chat_id=1");
            },
            30000));
        QVERIFY(waitFor(
            [&] {
                return qAbs(readAll(small("data/ui_running.txt")).trimmed().toLongLong() -
                            jumpedMs) < 3600000;
            },
            30000));
        ::kill(pid_t(vexa.processId()), SIGTERM);
        QVERIFY(vexa.waitForFinished(30000));
        QCOMPARE(vexa.exitStatus(), QProcess::NormalExit);
        QCOMPARE(vexa.exitCode(), 0);
    }

    // SIGTERM while a long write runs: the program ends in order and leaves no part of it, and
    // what the user had stays whole.
    void sigtermMidway_data()
    {
        QTest::addColumn<QString>("writing");
        QTest::newRow("downloading an update, first bytes in") << "update";
        QTest::newRow("recording a voice note") << "record";
        QTest::newRow("converting a voice note to WAV") << "wav";
        // The copy runs within one turn of the event loop; it ends whole before the quit.
        QTest::newRow("copying a download to the shared folder") << "copy";
    }
    void sigtermMidway()
    {
        QFETCH(QString, writing);
        QString error;
        small_fs::unmount(m_small); // room for a whole WAV
        QVERIFY2(small_fs::mountTmpfs(m_small, 8 << 20, false, &error), qPrintable(error));
        QVERIFY(write_tone_wav(m_dir.filePath("tone.wav"), 440, 30.0, 48000, 1));
        QVERIFY2(
            encode_wav_to_voice_ogg(m_opus, m_dir.filePath("tone.wav"), small("voice.ogg"), &error),
            qPrintable(error));
        QVERIFY(writeFile(small("files/report.pdf"), QByteArray(1 << 20, 'r')));
        QMap<QString, QByteArray> had = filesUnder(m_small);
        UpdateServer server(1 << 20, 4096); // stalls after the first bytes
        QStringList args{writing};
        if (writing == QLatin1String("update")) {
            args << server.url() << small("shared");
        } else if (writing == QLatin1String("record")) {
            if (!have_tool("pulseaudio") || !have_tool("paplay"))
                QSKIP("no pulseaudio to record from");
            QVERIFY2(playTone(&error), qPrintable(error));
            args << small("data");
        } else if (writing == QLatin1String("wav")) {
            args << small("voice.ogg") << small("cache");
        } else {
            args << small("files/report.pdf") << small("shared");
            had.insert(QStringLiteral("shared/report.pdf"), had.value("files/report.pdf"));
        }
        QProcess helper;
        helper.start(QStringLiteral(FAULT_HELPER_PATH), args);
        QVERIFY(waitFor([&] { return helper.peek(64).contains("midway"); }, 30000));
        if (writing != QLatin1String("copy"))
            QVERIFY(filesUnder(m_small).size() > had.size()); // the part written so far
        ::kill(pid_t(helper.processId()), SIGTERM);
        helper.write("go\n");
        QVERIFY(helper.waitForFinished(30000));
        QCOMPARE(helper.exitStatus(), QProcess::NormalExit);
        QCOMPARE(helper.exitCode(), 0);
        const QMap<QString, QByteArray> now = filesUnder(m_small);
        QCOMPARE(now.keys(), had.keys());
        QVERIFY(now == had);
    }
};

QTEST_GUILESS_MAIN(TestFaults)
#include "test_faults.moc"
