// Video notes in the open chat, through the real controller: the action
// button records one from a live GStreamer test picture and the private
// sound server and sends it; a tap on a round row fetches and plays it in
// the row, and another note, a voice note or leaving the chat stops it.

#include "backend_link/event_intake.h"
#include "common/audio.h"
#include "common/recording_commands.h"
#include "common/test_util.h"
#include "conversation/ui/chat_screen.h"
#include "conversation/voice_record_gesture.h"
#include "media/pulse_fixture.h"
#include "media/ui/video_note_widgets.h"
#include "media/video_note_player.h"
#include "media/video_note_recorder.h"
#include "media/voice_player.h"
#include "platform/app_lifecycle.h"
#include "platform/ui/list_view.h"
#include "platform/ui/phone_window.h"
#include "ui_main/ui/ui_tdlib_spike.h"

#include <QScrollBar>
#include <QtTest>

using namespace test_util;
using Touch = VoiceRecordGesture::Touch;

class TestVideoNoteChat : public QObject
{
    Q_OBJECT
    PulseFixture m_pulse;
    QTemporaryDir m_dir;
    RecordingCommands m_commands;
    std::unique_ptr<UiTdlibSpike> m_spike;
    QString m_note; // a 2-second square H.264 and AAC note
    int m_noteRow = 0;

    void feed(const QByteArray &json)
    {
        QVERIFY(writeFile(m_dir.filePath("data/backend_events.jsonl"), json + '\n', true));
        m_spike->eventIntake()->onPoll();
    }
    // The controller with chat 1 open at the end of its history: as many
    // text messages as asked, round notes 101 and 102 (files 201 and 202),
    // then a voice note (id 150, file 250).
    bool openChat(int texts = 0)
    {
        const QStringList env = cleanEnvironment()
                                << "VEXA_DATA_DIR=" + m_dir.filePath("data")
                                << "VEXA_SHARED_DIR=" + m_dir.filePath("shared") << "VEXA_ZOOM=1"
                                << "UI_USE_SERVICE_BACKEND=1"
                                << "VEXA_CAMERA_SOURCE=videotestsrc is-live=true";
        m_spike = std::make_unique<UiTdlibSpike>(m_dir.filePath("app"), env, &m_commands);
        m_spike->window()->resize(720, 1280);
        feed(R"({"type":"auth_state","state":"Ready"})");
        feed(R"({"type":"chats_begin"})");
        feed(R"({"type":"chat","id":1,"title":"Chat 1","order":"1"})");
        feed(R"({"type":"chats_end"})");
        m_spike->openChatFromRow(QVariantMap{{"id", "1"}, {"title", "Chat 1"}});
        feed(R"({"type":"history_begin","chat_id":1,"clear":true})");
        m_noteRow = texts;
        for (int i = 0; i < texts; ++i)
            feed(QStringLiteral(R"({"type":"message","chat_id":1,"id":%1,"text":"line %1"})")
                     .arg(i + 1)
                     .toUtf8());
        for (int id : {101, 102})
            feed(QStringLiteral(R"({"type":"message","chat_id":1,"id":%1,"outgoing":false,)"
                                R"("content_type":"messageVideoNote","media_type":"video_note",)"
                                R"("media_duration":2,"media_file_id":%2})")
                     .arg(id)
                     .arg(id + 100)
                     .toUtf8());
        feed(R"({"type":"message","chat_id":1,"id":150,"outgoing":false,)"
             R"("content_type":"messageVoiceNote","media_type":"voice","media_file_id":250})");
        feed(R"({"type":"history_end","chat_id":1,"clear":true})");
        ListView *list = m_spike->messageListView();
        return waitFor([&] { return list->itemWidget(m_noteRow) && circleOf(m_noteRow + 1); });
    }
    QWidget *circleOf(int row)
    {
        QWidget *item = m_spike->messageListView()->itemWidget(row);
        return item ? item->findChild<QWidget *>("msg_video_note_mask") : nullptr;
    }
    void tap(QWidget *w)
    {
        QWidget *viewport = m_spike->messageListView()->viewport();
        const QPoint at = w->mapTo(viewport, w->rect().center());
        QTest::mousePress(viewport, Qt::LeftButton, {}, at);
        QTest::mouseRelease(viewport, Qt::LeftButton, {}, at);
    }
    void touch(Touch t, qreal y)
    {
        Q_EMIT m_spike->chatScreen()->actionTouched(t, QPointF(680, y));
    }

private Q_SLOTS:
    void initTestCase()
    {
        if (!testaudio::have_tool("pulseaudio"))
            QSKIP("pulseaudio is not installed");
        QString error;
        QVERIFY2(m_pulse.start(&error), qPrintable(error));
        QVERIFY(QDir().mkpath(m_dir.filePath("app")));
        QVERIFY(QDir().mkpath(m_dir.filePath("shared/misc/marlinde")));
        m_note = m_dir.filePath("note.mp4");
        const testaudio::RunResult r =
            testaudio::run("ffmpeg", {"-v", "error", "-f", "lavfi", "-i",
                                      "testsrc2=size=160x160:rate=25:duration=2", "-f", "lavfi",
                                      "-i", "sine=frequency=500:duration=2", "-pix_fmt", "yuv420p",
                                      "-c:v", "libx264", "-c:a", "aac", m_note});
        QVERIFY2(r.exitCode == 0, qPrintable(r.output));
    }
    void cleanup()
    {
        m_spike.reset();
        m_commands.clear();
    }

    void recordsFromTheActionButton()
    {
        QVERIFY(openChat());
        VideoNoteRecorder *rec = m_spike->videoNoteRecorder();
        // A short tap switches to video notes; holding records one.
        touch(Touch::Down, 1200);
        touch(Touch::Up, 1200);
        touch(Touch::Down, 1200);
        QTRY_VERIFY_WITH_TIMEOUT(rec->captureStarted(), 20000);
        QTRY_VERIFY(m_spike->videoNotePreview()->isVisible());
        // Sliding up locks it; the finger leaves; a tap sends it.
        touch(Touch::Move, 1000);
        touch(Touch::Up, 1000);
        // Another window takes the focus: the recording goes on.
        m_spike->lifecycle()->onApplicationStateChanged(Qt::ApplicationInactive);
        QTRY_VERIFY_WITH_TIMEOUT(rec->framesEncoded() >= 30, 20000);
        QVERIFY(rec->isRecording());
        const QString file = rec->recordingPath();
        touch(Touch::Down, 1200);
        touch(Touch::Up, 1200);
        const QString line = "sendvideonote64 1 " + QString::fromLatin1(file.toUtf8().toBase64());
        QTRY_COMPARE_WITH_TIMEOUT(m_commands.count(line), 1, 20000);
        QVERIFY(!m_spike->videoNotePreview()->isVisible());
    }

    void playsInTheRow_data()
    {
        QTest::addColumn<QString>("stop");
        QTest::newRow("another note") << "note";
        QTest::newRow("a voice note") << "voice";
        QTest::newRow("leaving the chat") << "back";
        QTest::newRow("scrolled away") << "scroll";
    }
    void playsInTheRow()
    {
        QFETCH(QString, stop);
        QVERIFY(openChat(stop == QLatin1String("scroll") ? 30 : 0));
        VideoNotePlayer *player = m_spike->videoNotePlayer();
        // The second note is on the device; the first one is not yet: the
        // tap waits for its download.
        feed(QStringLiteral(R"({"type":"file","id":202,"path":"%1"})").arg(m_note).toUtf8());
        tap(circleOf(m_noteRow));
        feed(QStringLiteral(R"({"type":"file","id":201,"path":"%1"})").arg(m_note).toUtf8());
        QCOMPARE(player->playingMessageId(), 101LL);

        // Its pictures fill the circle and the ring follows the position.
        auto *surface = circleOf(m_noteRow)->findChild<VideoNoteCircle *>();
        auto *ring = circleOf(m_noteRow)->findChild<VideoNoteRing *>("msg_video_note_ring");
        QTRY_COMPARE_WITH_TIMEOUT(surface->source(), QStringLiteral("frame"), 20000);
        QTRY_VERIFY_WITH_TIMEOUT(ring->progress() > 0.2, 20000);

        // A second tap pauses.
        tap(circleOf(m_noteRow));
        QTRY_COMPARE(player->state(), int(VideoNotePlayer::Paused));

        if (stop == QLatin1String("note")) {
            tap(circleOf(m_noteRow + 1));
            QCOMPARE(player->playingMessageId(), 102LL);
            return;
        }
        if (stop == QLatin1String("voice")) {
            const QString wav = m_dir.filePath("voice.wav");
            QVERIFY(testaudio::write_tone_wav(wav, 440, 1.0, 48000, 1));
            m_spike->voicePlayer()->startVoicePlayback(250, wav);
        } else if (stop == QLatin1String("back")) {
            Q_EMIT m_spike->chatScreen()->backRequested();
        } else {
            // The user drags the list back, away from the note.
            QScrollBar *bar = m_spike->messageListView()->verticalScrollBar();
            bar->setValue(bar->maximum() / 2);
        }
        QTRY_COMPARE(player->playingMessageId(), 0LL);
    }
};

QTEST_MAIN(TestVideoNoteChat)
#include "test_video_note_chat.moc"
