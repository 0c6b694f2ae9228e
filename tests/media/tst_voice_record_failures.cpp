// The recorder's refusals: no chat, no Opus encoder, no OpenAL, no capture
// device. OpenAL Soft is pointed at a PulseAudio server that does not exist
// before it first loads, so no capture device can open.

#include "audio_test_util.h"
#include "media/audio_libs.h"
#include "media/voice_recorder.h"

#include <QTemporaryDir>
#include <QtTest>

using namespace testaudio;

class TstVoiceRecordFailures : public QObject
{
    Q_OBJECT
private:
    QTemporaryDir m_dir;

private Q_SLOTS:
    void initTestCase();
    void refusals_data();
    void refusals();
    void duration_data();
    void duration();
};

void TstVoiceRecordFailures::initTestCase()
{
    QVERIFY(m_dir.isValid());
    const QString conf = m_dir.filePath(QStringLiteral("client.conf"));
    QVERIFY(write_file(conf, "autospawn = no\n"));
    QDir(m_dir.path()).mkpath(QStringLiteral("run"));
    qputenv("PULSE_CLIENTCONFIG", conf.toLocal8Bit());
    qputenv("PULSE_SERVER", ("unix:" + m_dir.filePath(QStringLiteral("run/none"))).toLocal8Bit());
    qputenv("XDG_RUNTIME_DIR", m_dir.filePath(QStringLiteral("run")).toLocal8Bit());
    qputenv("ALSOFT_DRIVERS", "pulse");
}

void TstVoiceRecordFailures::refusals_data()
{
    QTest::addColumn<qint64>("chatId");
    QTest::addColumn<QStringList>("opusNames");
    QTest::addColumn<QStringList>("openAlNames");
    QTest::addColumn<QString>("toast");
    QTest::addColumn<QString>("log");
    const QStringList opus = OpusLib::defaultNames();
    const QStringList al = OpenAlLib::defaultNames();
    QTest::newRow("no chat") << qint64(0) << opus << al << "Select a chat first"
                             << "ui: select chat first\n";
    QTest::newRow("no Opus library") << qint64(1) << QStringList{"libkelOpus.so.1", "libkelOpus.so"}
                                     << al << "Error: Opus encoder unavailable"
                                     << "voice_rec: opus encoder unavailable\n";
    QTest::newRow("decoder-only Opus")
        << qint64(1) << QStringList{QStringLiteral(OPUS_DECODER_ONLY_LIB)} << al
        << "Error: Opus encoder unavailable"
        << "voice_rec: opus encoder unavailable\n";
    QTest::newRow("no OpenAL") << qint64(1) << opus << QStringList{"libOpenAL.so.1", "libOpenAL.so"}
                               << "Microphone: OpenAL unavailable"
                               << "voice_rec: OpenAL capture unavailable\n";
    QTest::newRow("no capture device")
        << qint64(1) << opus << al << "Microphone: OpenAL capture not supported"
        << "voice_rec: OpenAL capture device not present\n";
}

void TstVoiceRecordFailures::refusals()
{
    QFETCH(qint64, chatId);
    QFETCH(QStringList, opusNames);
    QFETCH(QStringList, openAlNames);
    QFETCH(QString, toast);
    QFETCH(QString, log);
    OpusLib opus(opusNames);
    OpenAlLib openal(openAlNames);
    Recorded rec;
    const QString data = m_dir.filePath(QStringLiteral("data"));
    VoiceRecorder recorder(opus, openal, data, rec.services());
    QSignalSpy changed(&recorder, &VoiceRecorder::voiceRecordingChanged);
    recorder.setChatId(chatId);
    recorder.startVoiceRecording();
    recorder.startVoiceRecording(); // the same outcome again: nothing is retried
    QVERIFY(!recorder.voiceRecording());
    QCOMPARE(rec.toaster.shown(), (QStringList{toast, toast}));
    QCOMPARE(rec.log, (QStringList{log, log}));
    QCOMPARE(changed.count(), 0);
    recorder.stopVoiceRecording(true);
    QVERIFY(rec.lines.isEmpty());
    QVERIFY(!QFileInfo::exists(data + QStringLiteral("/cache/voice-out")));
}

void TstVoiceRecordFailures::duration_data()
{
    QTest::addColumn<qint64>("samples");
    QTest::addColumn<int>("seconds");
    QTest::newRow("nothing") << qint64(0) << 1;
    QTest::newRow("1.4 s") << qint64(67200) << 1;
    QTest::newRow("1.5 s") << qint64(72000) << 2;
    QTest::newRow("60 s") << qint64(2880000) << 60;
}

void TstVoiceRecordFailures::duration()
{
    QFETCH(qint64, samples);
    QFETCH(int, seconds);
    QCOMPARE(VoiceRecorder::voiceDurationSeconds(samples), seconds);
}

QTEST_GUILESS_MAIN(TstVoiceRecordFailures)
#include "tst_voice_record_failures.moc"
