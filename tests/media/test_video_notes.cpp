// Video notes through real GStreamer and a real sound server: the recorder
// runs its pipeline on a live test picture and the private PulseAudio's
// monitor, and ffprobe reads back what it wrote; the inline player plays
// such a file through QtMultimedia with sound and publishes its state.

#include "common/audio.h"
#include "common/test_util.h"
#include "media/media_downloads.h"
#include "media/video_note_player.h"
#include "media/video_note_recorder.h"
#include "pulse_fixture.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QtTest>

using namespace testaudio;

namespace {

const QString kTestCamera = QStringLiteral("videotestsrc is-live=true");

struct Probe
{
    QStringList codecs;
    int width = 0;
    int height = 0;
    double seconds = 0;
};

Probe ffprobe(const QString &file)
{
    Probe p;
    const RunResult r =
        run(QStringLiteral("ffprobe"),
            {QStringLiteral("-v"), QStringLiteral("error"), QStringLiteral("-show_entries"),
             QStringLiteral("stream=codec_name,width,height:format=duration"),
             QStringLiteral("-of"), QStringLiteral("json"), file});
    const QJsonObject o = QJsonDocument::fromJson(r.output.toUtf8()).object();
    for (const QJsonValue &s : o.value(QStringLiteral("streams")).toArray()) {
        const QJsonObject so = s.toObject();
        p.codecs << so.value(QStringLiteral("codec_name")).toString();
        if (so.contains(QStringLiteral("width"))) {
            p.width = so.value(QStringLiteral("width")).toInt();
            p.height = so.value(QStringLiteral("height")).toInt();
        }
    }
    p.codecs.sort();
    p.seconds = o.value(QStringLiteral("format"))
                    .toObject()
                    .value(QStringLiteral("duration"))
                    .toString()
                    .toDouble();
    return p;
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
        if (!have_tool("pulseaudio") || !have_tool("ffprobe"))
            QSKIP("pulseaudio or ffprobe is not installed");
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
        QTest::newRow("test camera, new note")
            << kTestCamera << qint64(0) << VideoNoteRecorder::kDefaultSizeLimit << "sendvideonote64"
            << 384;
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
        QSignalSpy consumed(&rec, &VideoNoteRecorder::replyTargetConsumed);
        QSignalSpy level(&rec, &VideoNoteRecorder::inputLevelChanged);
        QString error;
        QVERIFY2(rec.startVideoNoteCapture(&error), qPrintable(error));
        QVERIFY2(running.wait(20000), qPrintable(m_rec.log.join(QString())));
        // A tone into the sound server reaches the microphone's level.
        const QString tone = m_dir.filePath(QStringLiteral("tone.wav"));
        QVERIFY(write_tone_wav(tone, 1000, 3.0, 48000, 1));
        QProcess *paplay = m_pulse.startPaplay(tone, this);
        const auto loudest = [&] {
            qreal peak = 0;
            for (const QList<QVariant> &args : level)
                peak = qMax(peak, args.at(0).toReal());
            return peak;
        };
        QTRY_VERIFY_WITH_TIMEOUT(loudest() > 0.1, 20000);
        // Two seconds of pictures at 30 per second.
        QTRY_VERIFY_WITH_TIMEOUT(rec.framesEncoded() >= 60, 20000);
        QVERIFY(preview.count() > 0 || preview.wait(5000));
        const QImage frame = preview.last().at(0).value<QImage>();
        QCOMPARE(frame.size(), QSize(side, side));
        const qint64 frames = rec.framesEncoded();
        rec.stopVideoNoteCapture(true);
        QVERIFY2(sent.wait(20000), qPrintable(m_rec.log.join(QString())));
        QVERIFY(!rec.isRecording());
        paplay->kill();
        paplay->waitForFinished(5000);

        const QString file = sent.at(0).at(0).toString();
        const QString b64 = QString::fromLatin1(file.toUtf8().toBase64());
        const QString expected =
            replyTo ? QStringLiteral("%1 4242 %2 %3").arg(verb).arg(replyTo).arg(b64)
                    : QStringLiteral("%1 4242 %2").arg(verb, b64);
        QCOMPARE(m_rec.lines, QStringList{expected});
        QCOMPARE(consumed.count(), replyTo ? 1 : 0);
        QVERIFY(QFileInfo(file).fileName().startsWith(QLatin1String("video_note_")));
        const Probe p = ffprobe(file);
        QCOMPARE(p.codecs, (QStringList{QStringLiteral("aac"), QStringLiteral("h264")}));
        QCOMPARE(p.width, side);
        QCOMPARE(p.height, side);
        // The file holds what was encoded (the last frames were on their way).
        QVERIFY2(p.seconds >= frames / 30.0 - 0.2 && p.seconds <= frames / 30.0 + 1.5,
                 qPrintable(QStringLiteral("%1 s for %2 frames").arg(p.seconds).arg(frames)));
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
        QSignalSpy changed(&rec, &VideoNoteRecorder::recordingChanged);
        QCOMPARE(rec.startVideoNoteCapture(), starts);
        if (starts) {
            QVERIFY(running.wait(20000));
            const QString file = rec.recordingPath();
            rec.stopVideoNoteCapture(false);
            QVERIFY(!QFileInfo::exists(file));
            QCOMPARE(changed.count(), 2);
        } else {
            QCOMPARE(m_rec.toaster.shown().size(), 1);
            QCOMPARE(changed.count(), 0);
        }
        QVERIFY(!rec.isRecording());
        QVERIFY(m_rec.lines.isEmpty());
    }

    void playsInline()
    {
        // A short note from the same pipeline as the sender's.
        VideoNoteRecorder rec(dataDir(), kTestCamera, m_rec.services());
        rec.setChatId(1);
        QSignalSpy sent(&rec, &VideoNoteRecorder::sent);
        QVERIFY(rec.startVideoNoteCapture());
        QTRY_VERIFY_WITH_TIMEOUT(rec.framesEncoded() >= 45, 20000);
        rec.stopVideoNoteCapture(true);
        QVERIFY(sent.wait(20000));
        const QString file = sent.at(0).at(0).toString();

        QObject view;
        MediaDownloads downloads(m_rec.services(), m_dir.filePath("dl"), m_dir.path(), &view);
        VideoNotePlayer player(&downloads, m_rec.services(), &view);
        QSignalSpy frames(&player, &VideoNotePlayer::frameReady);
        QSignalSpy playing(&player, &VideoNotePlayer::playingChanged);
        const auto state = [&] { return view.property("video_note_media_state").toInt(); };

        // Not on the device: fetched first, with priority.
        player.onVideoNoteTapped(QString(), 55, 900);
        QCOMPARE(player.pendingFileId(), 55LL);
        QCOMPARE(downloads.queue().value(0), 55LL);

        player.startVideoNotePlayback(55, file, 900);
        QCOMPARE(player.pendingFileId(), 0LL);
        QCOMPARE(view.property("video_note_playing_file_id").toLongLong(), 55);
        QCOMPARE(view.property("video_note_playing_message_id").toLongLong(), 900);
        QVERIFY(frames.wait(20000));
        QCOMPARE(frames.last().at(0).value<QImage>().width(),
                 frames.last().at(0).value<QImage>().height());
        QTRY_COMPARE_WITH_TIMEOUT(state(), int(VideoNotePlayer::Started), 10000);
        QTRY_VERIFY_WITH_TIMEOUT(player.progress() > 0, 10000);

        // A second tap pauses, a third resumes.
        player.onVideoNoteTapped(file, 55, 900);
        QTRY_COMPARE(state(), int(VideoNotePlayer::Paused));
        player.onVideoNoteTapped(file, 55, 900);
        QTRY_COMPARE(state(), int(VideoNotePlayer::Started));

        // It plays to its end, then the row is free again.
        QVERIFY(playing.wait(20000));
        QCOMPARE(playing.last().at(0).toBool(), false);
        QCOMPARE(view.property("video_note_playing_file_id").toLongLong(), 0);
        QCOMPARE(state(), int(VideoNotePlayer::Stopped));
    }
};

QTEST_MAIN(TstVideoNotes)
#include "test_video_notes.moc"
