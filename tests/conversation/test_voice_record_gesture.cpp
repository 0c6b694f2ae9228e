#include "conversation/ui/chat_screen.h"
#include "conversation/voice_record_gesture.h"
#include "platform/osicons.h"

#include <QSignalSpy>
#include <QTemporaryDir>
#include <QToolButton>
#include <QtTest>

using Touch = VoiceRecordGesture::Touch;

namespace {

// The recorders and the composer as the gesture sees them; every request is
// written down as a word.
struct Recorders
{
    bool voice = false;
    bool text = false;
    bool editing = false;
    bool videoMode = false;
    QStringList calls;

    VoiceRecordGesture::Hooks hooks()
    {
        VoiceRecordGesture::Hooks h;
        h.voiceRecording = [this] { return voice; };
        h.videoRecording = [] { return false; };
        h.videoCaptureStarted = [] { return false; };
        h.editing = [this] { return editing; };
        h.composerEmpty = [this] { return !text; };
        h.videoNoteMode = [this] { return videoMode; };
        h.startVoice = [this] {
            calls << "start";
            voice = true;
            return true;
        };
        h.startVideo = [this] {
            calls << "video";
            return false;
        };
        h.stopVoice = [this](bool send) {
            calls << (send ? "send" : "discard");
            voice = false;
        };
        h.stopVideo = [this](bool) { calls << "stop video"; };
        h.toggleVideoNoteMode = [this] { calls << "toggle"; };
        h.sendMessage = [this] { calls << "message"; };
        return h;
    }
};

} // namespace

class TestVoiceRecordGesture : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase() { qRegisterMetaType<Touch>(); }
    // "steps => calls": "text", "edit", "video" set the composer; "down Y",
    // "move Y", "up Y", "cancel Y" touch at x=10; "hold" waits for the hold
    // timer. The calls the recorders saw, then "locked" when the recording is.
    void gestures_data()
    {
        QTest::addColumn<QString>("steps");
        const auto row = [](const char *name, const char *steps) { QTest::newRow(name) << steps; };
        row("hold records, release sends", "down 500; hold; up 500 => start send");
        row("a cancelled touch discards", "down 500; hold; cancel 500 => start discard");
        row("sliding up locks; the release keeps recording",
            "down 500; hold; move 440; move 410; up 410 => start locked");
        row("a tap on a locked recording sends it",
            "down 500; hold; move 400; up 400; down 300; up 300 => start send");
        row("80 pixels up is not yet a lock", "down 500; hold; move 420; up 420 => start send");
        row("a short tap switches voice and video", "down 500; up 500 => toggle");
        row("a short drag is no tap", "down 500; up 510 =>");
        row("with text a tap sends the message", "text; down 500; up 500 => message");
        row("while editing a tap sends the edit", "edit; down 500; hold; up 500 => message");
        row("video-note mode starts the camera", "video; down 500; hold; up 500 => video toggle");
    }
    void gestures()
    {
        QFETCH(QString, steps);
        QStringList calls = steps.section(QStringLiteral(" =>"), 1).split(' ', Qt::SkipEmptyParts);
        const bool locked = calls.removeAll(QStringLiteral("locked")) > 0;
        const QHash<QString, Touch> touches{{"down", Touch::Down},
                                            {"move", Touch::Move},
                                            {"up", Touch::Up},
                                            {"cancel", Touch::Cancel}};
        Recorders r;
        VoiceRecordGesture g(r.hooks(), 1.0f);
        for (const QString &step :
             steps.section(QStringLiteral(" =>"), 0, 0).split(QStringLiteral("; "))) {
            const QString verb = step.section(' ', 0, 0);
            const QPointF at(10, step.section(' ', 1, 1).toDouble());
            if (verb == "text")
                r.text = true;
            else if (verb == "edit")
                r.editing = true;
            else if (verb == "video")
                r.videoMode = true;
            else if (verb == "hold" && g.isHoldTimerActive())
                QTRY_VERIFY(!g.isHoldTimerActive());
            else if (touches.contains(verb))
                g.onComposerActionTouch(touches.value(verb), at);
        }
        QCOMPARE(r.calls, calls);
        QCOMPARE(g.locked(), locked);
    }
    void buttonReportsTouches()
    {
        init_osicons();
        QTemporaryDir dir;
        ChatScreen c(1.0f, dir.path());
        c.resize(720, 1280);
        c.show();
        QVERIFY(QTest::qWaitForWindowExposed(&c));
        auto *action = c.findChild<QToolButton *>(QStringLiteral("composer_action_button"));
        QVERIFY(action);
        QSignalSpy touches(&c, &ChatScreen::actionTouched);
        const QPoint mid = action->rect().center();
        QTest::mousePress(action, Qt::LeftButton, {}, mid);
        // A drag as the window system delivers it to the pressed button.
        QMouseEvent drag(
            QEvent::MouseMove, mid - QPoint(0, 90), action->mapTo(&c, mid - QPoint(0, 90)),
            action->mapToGlobal(mid - QPoint(0, 90)), Qt::NoButton, Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(action, &drag);
        QTest::mouseRelease(action, Qt::LeftButton, {}, mid - QPoint(0, 90));
        QCOMPARE(touches.size(), 3);
        QCOMPARE(touches.at(0).at(0).value<Touch>(), Touch::Down);
        QCOMPARE(touches.at(2).at(0).value<Touch>(), Touch::Up);
        // Window coordinates: the drag up shows as a smaller y.
        QCOMPARE(touches.at(0).at(1).toPointF().y() - touches.at(2).at(1).toPointF().y(), 90.0);
    }
};

QTEST_MAIN(TestVoiceRecordGesture)
#include "test_voice_record_gesture.moc"
