#include "conversation/voice_record_gesture.h"

#include <QtTest>

using Touch = VoiceRecordGesture::Touch;

class TestVoiceRecordGesture : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    // "steps => calls": "text", "edit" set the composer; "down Y",
    // "move Y", "up Y", "cancel Y" touch at x=10; "hold" waits for the hold
    // timer. Then the calls the recorders saw.
    void gestures_data()
    {
        QTest::addColumn<QString>("steps");
        const auto row = [](const char *name, const char *steps) { QTest::newRow(name) << steps; };
        row("hold records, release sends", "down 500; hold; up 500 => start send");
        row("a cancelled touch discards", "down 500; hold; cancel 500 => start discard");
        row("sliding up locks; a tap then sends",
            "down 500; hold; move 400; up 400; down 300; up 300 => start send");
        row("80 pixels up is not yet a lock", "down 500; hold; move 420; up 420 => start send");
        row("a short tap switches voice and video", "down 500; up 500 => toggle");
        row("a short drag is no tap", "down 500; up 510 =>");
        row("with text a tap sends the message", "text; down 500; up 500 => message");
        row("while editing a tap sends the edit", "edit; down 500; hold; up 500 => message");
    }
    void gestures()
    {
        QFETCH(QString, steps);
        // The recorders and the composer as the gesture sees them; every
        // request is written down as a word.
        QStringList composer;
        QStringList seen;
        bool voice = false;
        VoiceRecordGesture::Hooks h;
        h.voiceRecording = [&] { return voice; };
        h.videoRecording = [] { return false; };
        h.editing = [&] { return composer.contains("edit"); };
        h.composerEmpty = [&] { return !composer.contains("text"); };
        h.videoNoteMode = [] { return false; };
        h.startVoice = [&] {
            seen << "start";
            return voice = true;
        };
        h.stopVoice = [&](bool send) {
            seen << (send ? "send" : "discard");
            voice = false;
        };
        h.toggleVideoNoteMode = [&] { seen << "toggle"; };
        h.sendMessage = [&] { seen << "message"; };
        VoiceRecordGesture g(h, 1.0f);
        const QStringList touches{"down", "move", "up", "cancel"};
        for (const QString &step :
             steps.section(QStringLiteral(" =>"), 0, 0).split(QStringLiteral("; "))) {
            const QString verb = step.section(' ', 0, 0);
            if (touches.contains(verb))
                g.onComposerActionTouch(Touch(touches.indexOf(verb)),
                                        QPointF(10, step.section(' ', 1).toDouble()));
            else if (verb == "hold")
                QTRY_VERIFY(!g.isHoldTimerActive());
            else
                composer << verb;
        }
        QCOMPARE(seen.join(' '), steps.section(QStringLiteral(" =>"), 1).trimmed());
    }
};

QTEST_GUILESS_MAIN(TestVoiceRecordGesture)
#include "test_voice_record_gesture.moc"
