// Real capture: a private PulseAudio daemon with a null sink, a tone played
// into it, OpenAL Soft capturing the monitor through the voice recorder, and
// the Ogg Opus file decoded back to that tone.

#include "audio_test_util.h"
#include "media/audio_libs.h"
#include "media/ogg_opus_decoder.h"
#include "media/voice_recorder.h"
#include "pulse_fixture.h"

#include <QTemporaryDir>
#include <QtTest>

using namespace testaudio;

class TstVoiceCapture : public QObject
{
    Q_OBJECT
private:
    PulseFixture m_pulse;
    QTemporaryDir m_dir;
    OpusLib m_opus;
    OpenAlLib m_openal;
    QStringList m_lines;
    QStringList m_log;
    RecordingToaster m_toaster;

    MediaServices services()
    {
        MediaServices s;
        s.sendLine = [this](const QString &l) { m_lines.append(l); };
        s.appendLog = [this](const QString &l) { m_log.append(l); };
        s.toaster = &m_toaster;
        return s;
    }
    void clear()
    {
        m_lines.clear();
        m_log.clear();
        m_toaster.clear();
    }

private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();
    void recordsTone_data();
    void recordsTone();
    void tooShortIsDiscarded();
    void cancelDiscards();
    void folderFailure();
};

void TstVoiceCapture::initTestCase()
{
    if (!PulseFixture::available())
        QSKIP("pulseaudio is not installed");
    QVERIFY(m_dir.isValid());
    QString error;
    QVERIFY2(m_pulse.start(&error), qPrintable(error));
}

void TstVoiceCapture::cleanupTestCase()
{
    m_pulse.stop();
}

void TstVoiceCapture::recordsTone_data()
{
    QTest::addColumn<double>("freq");
    QTest::addColumn<qint64>("replyTo");
    QTest::newRow("1 kHz, new message") << 1000.0 << qint64(0);
    QTest::newRow("440 Hz, answer") << 440.0 << qint64(777);
}

void TstVoiceCapture::recordsTone()
{
    QFETCH(double, freq);
    QFETCH(qint64, replyTo);
    clear();
    const QString toneFile = m_dir.filePath(QStringLiteral("tone.wav"));
    QVERIFY(write_file(toneFile, wav_bytes(tone(freq, 1.5, 48000, 2, 16000), 48000, 2)));

    VoiceRecorder rec(m_opus, m_openal, m_dir.filePath(QStringLiteral("data")), services());
    QSignalSpy changed(&rec, &VoiceRecorder::voiceRecordingChanged);
    QSignalSpy replyDone(&rec, &VoiceRecorder::replyTargetConsumed);
    rec.setChatId(4242);
    rec.setReplyToMessageId(replyTo);
    rec.startVoiceRecording();
    QVERIFY2(rec.voiceRecording(), qPrintable(m_log.join(QString()) + m_toaster.shown().join('|')));
    QCOMPARE(m_toaster.last(), QStringLiteral("Recording voice…"));
    QCOMPARE(rec.captureRate(), 48000);
    QCOMPARE(changed.count(), 1);
    const QString path = rec.recordingPath();
    QVERIFY(path.startsWith(m_dir.filePath(QStringLiteral("data/cache/voice-out/voice_"))));
    QVERIFY(path.endsWith(QStringLiteral(".ogg")));

    QTest::qWait(300);
    QProcess *play = m_pulse.startPaplay(toneFile, this);
    QVERIFY(play->waitForStarted(5000));
    QTRY_VERIFY_WITH_TIMEOUT(play->state() == QProcess::NotRunning, 15000);
    QCOMPARE(play->exitCode(), 0);
    delete play;
    QTest::qWait(400);
    const qint64 samples = rec.recordedSamples();
    QVERIFY2(samples >= 72000, qPrintable(QString::number(samples)));
    rec.stopVoiceRecording(true);

    QVERIFY(!rec.voiceRecording());
    QCOMPARE(changed.count(), 2);
    QCOMPARE(m_lines.size(), 1);
    const QStringList words = m_lines.first().split(QLatin1Char(' '));
    const int seconds = VoiceRecorder::voiceDurationSeconds(rec.recordedSamples());
    QVERIFY(seconds >= 2);
    if (replyTo == 0) {
        QCOMPARE(words.size(), 4);
    } else {
        QCOMPARE(words.size(), 5);
        QCOMPARE(words.at(2), QString::number(replyTo));
        QCOMPARE(replyDone.count(), 1);
        QCOMPARE(rec.replyToMessageId(), qint64(0));
    }
    QCOMPARE(words.at(0), QStringLiteral("sendvoice64"));
    QCOMPARE(words.at(1), QStringLiteral("4242"));
    QCOMPARE(QString::fromUtf8(QByteArray::fromBase64(words.at(words.size() - 2).toLatin1())),
             path);
    QCOMPARE(words.last(), QString::number(seconds));
    QVERIFY(m_log.contains(
        QStringLiteral("ui: send voice chat=4242 dur=%1s path=%2\n").arg(seconds).arg(path)));
    QVERIFY(QFileInfo(path).isFile());

    QString error;
    const QString wav = m_dir.filePath(QStringLiteral("captured.wav"));
    QVERIFY2(decodeOgaOpusToWav(m_opus, path, wav, error), qPrintable(error));
    Wav out;
    QVERIFY(read_wav(wav, out));
    QCOMPARE(qint64(out.samples.size()), rec.recordedSamples() - 312);
    const QPair<int, int> span = loud_span(out.samples, 48000, 2000.0);
    QVERIFY2(span.first >= 0, "the tone was not captured");
    QVERIFY2(span.second - span.first >= 48000,
             qPrintable(QString::number(span.second - span.first)));
    const QVector<qint16> loud =
        out.samples.mid(span.first + 4800, span.second - span.first - 9600);
    const double got = dominant_frequency(loud, 48000, 100.0, 4000.0);
    QVERIFY2(qAbs(got - freq) < freq * 0.02, qPrintable(QString::number(got)));
}

void TstVoiceCapture::tooShortIsDiscarded()
{
    clear();
    VoiceRecorder rec(m_opus, m_openal, m_dir.filePath(QStringLiteral("data")), services());
    rec.setChatId(5);
    rec.startVoiceRecording();
    QVERIFY(rec.voiceRecording());
    const QString path = rec.recordingPath();
    QVERIFY(QFileInfo(path).isFile());
    rec.stopVoiceRecording(true);
    QVERIFY(rec.recordedSamples() < 2400);
    QCOMPARE(m_toaster.last(), QStringLiteral("Voice message: too short"));
    QVERIFY(m_lines.isEmpty());
    QVERIFY(!QFileInfo::exists(path));
    QVERIFY(rec.recordingPath().isEmpty());
}

void TstVoiceCapture::cancelDiscards()
{
    clear();
    VoiceRecorder rec(m_opus, m_openal, m_dir.filePath(QStringLiteral("data")), services());
    rec.setChatId(6);
    rec.startVoiceRecording();
    QVERIFY(rec.voiceRecording());
    const QString path = rec.recordingPath();
    QTRY_VERIFY_WITH_TIMEOUT(rec.recordedSamples() >= 2400, 5000);
    rec.stopVoiceRecording(false);
    QVERIFY(m_lines.isEmpty());
    QCOMPARE(m_toaster.last(), QStringLiteral("Recording voice…"));
    QVERIFY(!QFileInfo::exists(path));
    // A second stop is harmless.
    rec.stopVoiceRecording(true);
    QVERIFY(m_lines.isEmpty());
}

void TstVoiceCapture::folderFailure()
{
    clear();
    const QString notAFolder = m_dir.filePath(QStringLiteral("plain-file"));
    QVERIFY(write_file(notAFolder, "x"));
    VoiceRecorder rec(m_opus, m_openal, notAFolder, services());
    rec.setChatId(7);
    rec.startVoiceRecording();
    QVERIFY(!rec.voiceRecording());
    QCOMPARE(m_toaster.shown(), QStringList{QStringLiteral("Error: failed to create folder")});
    QVERIFY(m_log.contains(QStringLiteral("voice_rec: mkpath failed\n")));
    // The device was released: the next recording opens it again.
    VoiceRecorder again(m_opus, m_openal, m_dir.filePath(QStringLiteral("data")), services());
    again.setChatId(7);
    again.startVoiceRecording();
    QVERIFY(again.voiceRecording());
    again.stopVoiceRecording(false);
}

QTEST_GUILESS_MAIN(TstVoiceCapture)
#include "tst_voice_capture.moc"
