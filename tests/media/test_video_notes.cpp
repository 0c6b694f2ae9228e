// The video-note recorder through real GStreamer on a live test picture and
// the private PulseAudio's monitor; ffprobe reads back what it wrote.

#include "common/audio.h"
#include "media/video_note_recorder.h"
#include "pulse_fixture.h"

#include <QtTest>

using namespace testaudio;

namespace {

const QString kTestCamera = QStringLiteral("videotestsrc is-live=true");

// "codec width height" per stream, sorted, and the length in seconds.
QStringList ffprobe(const QString &file, double *seconds)
{
    const RunResult r = run(QStringLiteral("ffprobe"),
                            {"-v", "error", "-show_entries", "stream=codec_name,width,height",
                             "-show_entries", "format=duration", "-of", "compact=p=0:nk=1", file});
    QStringList streams = r.output.trimmed().split(QLatin1Char('\n'));
    *seconds = streams.takeLast().toDouble();
    for (QString &s : streams)
        s = s.replace(QLatin1Char('|'), QLatin1Char(' ')).trimmed();
    streams.sort();
    return streams;
}

} // namespace

class TstVideoNotes : public QObject
{
    Q_OBJECT
    PulseFixture m_pulse;
    QTemporaryDir m_dir;
    Recorded m_rec;

    QString dataDir() const { return m_dir.filePath(QStringLiteral("data")); }

private Q_SLOTS:
    void initTestCase()
    {
        QString error;
        QVERIFY2(m_pulse.start(&error), qPrintable(error));
    }
    void init() { m_rec.clear(); }

    void recordsSquareNote_data()
    {
        QTest::addColumn<QString>("camera");
        QTest::addColumn<qint64>("replyTo");
        QTest::addColumn<qint64>("sizeLimit");
        QTest::addColumn<QString>("verb");
        QTest::addColumn<int>("side");
        QTest::newRow("small camera, answer")
            << kTestCamera + QStringLiteral(" ! video/x-raw,width=320,height=240") << qint64(77)
            << VideoNoteRecorder::kDefaultSizeLimit << "sendvideonote64" << 240;
        QTest::newRow("over the size limit")
            << kTestCamera << qint64(0) << qint64(1000) << "sendfile64" << 384;
    }
    void recordsSquareNote()
    {
        QFETCH(QString, camera);
        QFETCH(qint64, replyTo);
        QFETCH(qint64, sizeLimit);
        QFETCH(QString, verb);
        QFETCH(int, side);
        VideoNoteRecorder rec(dataDir(), camera, m_rec.services());
        rec.setChatId(4242);
        rec.setReplyToMessageId(replyTo);
        rec.setSizeLimit(sizeLimit);
        QSignalSpy running(&rec, &VideoNoteRecorder::captureStartedChanged);
        QSignalSpy preview(&rec, &VideoNoteRecorder::previewFrame);
        QSignalSpy sent(&rec, &VideoNoteRecorder::sent);
        QString error;
        QVERIFY2(rec.startVideoNoteCapture(&error), qPrintable(error));
        QVERIFY2(running.wait(20000), qPrintable(m_rec.log.join(QString())));
        // A tone into the sound server reaches the microphone's level.
        const QString tone = m_dir.filePath(QStringLiteral("tone.wav"));
        QVERIFY(write_tone_wav(tone, 1000, 3.0, 48000, 1));
        QScopedPointer<QProcess> paplay(m_pulse.startPaplay(tone, nullptr));
        qreal loudest = 0;
        connect(&rec, &VideoNoteRecorder::inputLevelChanged, this,
                [&loudest](qreal level) { loudest = qMax(loudest, level); });
        QTRY_VERIFY_WITH_TIMEOUT(loudest > 0.1, 20000);
        // Two seconds of pictures at 30 per second.
        QTRY_VERIFY_WITH_TIMEOUT(rec.framesEncoded() >= 60, 20000);
        QVERIFY(preview.count() > 0 || preview.wait(5000));
        QCOMPARE(preview.last().at(0).value<QImage>().size(), QSize(side, side));
        const qint64 frames = rec.framesEncoded();
        rec.stopVideoNoteCapture(true);
        QVERIFY2(sent.wait(20000), qPrintable(m_rec.log.join(QString())));

        const QString file = sent.at(0).at(0).toString();
        const QString b64 = QString::fromLatin1(file.toUtf8().toBase64());
        const QString expected =
            replyTo ? QStringLiteral("%1 4242 %2 %3").arg(verb).arg(replyTo).arg(b64)
                    : QStringLiteral("%1 4242 %2").arg(verb, b64);
        QCOMPARE(m_rec.lines, QStringList{expected});
        double seconds = 0;
        QCOMPARE(ffprobe(file, &seconds),
                 (QStringList{QStringLiteral("aac"), QStringLiteral("h264 %1 %1").arg(side)}));
        // The file holds what was encoded (the last frames were on their way).
        QVERIFY2(seconds >= frames / 30.0 - 0.2 && seconds <= frames / 30.0 + 1.5,
                 qPrintable(QStringLiteral("%1 s for %2 frames").arg(seconds).arg(frames)));
    }

    void sendsNothing_data()
    {
        QTest::addColumn<QString>("camera");
        QTest::addColumn<bool>("starts");
        QTest::newRow("no camera") << QString() << false;
        QTest::newRow("cancelled") << kTestCamera << true;
        QTest::newRow("broken source") << QStringLiteral("no_such_source_element") << false;
    }
    void sendsNothing()
    {
        QFETCH(QString, camera);
        QFETCH(bool, starts);
        VideoNoteRecorder rec(dataDir(), camera, m_rec.services());
        rec.setChatId(4242);
        QSignalSpy running(&rec, &VideoNoteRecorder::captureStartedChanged);
        QCOMPARE(rec.startVideoNoteCapture(), starts);
        if (starts) {
            QVERIFY(running.wait(20000));
            const QString file = rec.recordingPath();
            rec.stopVideoNoteCapture(false);
            QVERIFY(!QFileInfo::exists(file));
        } else {
            QCOMPARE(m_rec.toaster.shown().size(), 1);
        }
        QVERIFY(m_rec.lines.isEmpty());
    }
};

QTEST_MAIN(TstVideoNotes)
#include "test_video_notes.moc"
