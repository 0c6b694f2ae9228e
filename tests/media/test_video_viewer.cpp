// The video viewer plays a real file (VP8 and Opus in WebM, made by ffmpeg):
// frames reach the screen, play and pause, seeking, the end; and the viewer
// returns to the chat with Esc, leaving it where it was.

#include "common/audio.h"
#include "media/ui/video_view.h"
#include "shell/ui/screens.h"
#include "shell/ui/shell_screens.h"

#include <QApplication>
#include <QLabel>
#include <QScrollArea>
#include <QScrollBar>
#include <QTemporaryDir>
#include <QToolButton>
#include <QtTest>

class TestVideoViewer : public QObject
{
    Q_OBJECT
    QTemporaryDir m_dir;
    QString m_video;

private Q_SLOTS:
    void initTestCase()
    {
        // Two seconds of green at 10 frames a second with a tone.
        m_video = m_dir.filePath(QStringLiteral("clip.webm"));
        const testaudio::RunResult r =
            testaudio::run("ffmpeg", {"-nostdin", "-v", "error", "-f", "lavfi", "-i",
                                      "color=c=green:s=96x64:r=10:d=2", "-f", "lavfi", "-i",
                                      "sine=frequency=440:duration=2", "-c:v", "libvpx", "-b:v",
                                      "200k", "-c:a", "libopus", "-shortest", m_video});
        QVERIFY2(r.exitCode == 0, qPrintable(r.output));
    }

    void playsPausesSeeks()
    {
        VideoView view;
        view.resize(320, 480);
        view.show();
        QVERIFY(QTest::qWaitForWindowExposed(&view));
        auto *play = view.findChild<QToolButton *>(QStringLiteral("video_play_button"));
        auto *time = view.findChild<QLabel *>(QStringLiteral("video_time"));
        QVERIFY(play && time);

        view.open(m_video);
        QTRY_VERIFY_WITH_TIMEOUT(view.isPlaying() && !view.currentFrame().isNull(), 20000);
        QTRY_VERIFY_WITH_TIMEOUT(qAbs(view.duration() - 2000) < 150, 10000);

        play->click();
        QTRY_VERIFY_WITH_TIMEOUT(!view.isPlaying(), 10000);
        view.seek(1200);
        QTRY_VERIFY_WITH_TIMEOUT(qAbs(view.position() - 1200) < 150, 10000);
        QTRY_COMPARE_WITH_TIMEOUT(time->text(), QStringLiteral("0:01 / 0:02"), 10000);

        // Played on, it ends and is ready to play again from the start.
        play->click();
        QTRY_VERIFY_WITH_TIMEOUT(view.isPlaying(), 10000);
        QTRY_VERIFY2_WITH_TIMEOUT(
            !view.isPlaying() && view.position() == 0,
            qPrintable(QStringLiteral("%1 %2").arg(view.isPlaying()).arg(view.position())), 20000);
        QCOMPARE(time->text(), QStringLiteral("0:00 / 0:02"));
    }

    // Both viewers are one screen class: the video's case stands for the photo's.
    void escReturnsToTheChat()
    {
        ShellScreens screens(true, 0.5f);
        // A long chat read halfway up.
        auto *chat = new QScrollArea;
        auto *rows = new QWidget;
        rows->setFixedHeight(5000);
        chat->setWidget(rows);
        screens.setChatScreen(chat);
        screens.resize(360, 640);
        screens.show();
        QVERIFY(QTest::qWaitForWindowExposed(&screens));
        screens.showScreen(ShellScreens::Screen::Conversation);
        chat->verticalScrollBar()->setValue(2345);

        MediaViewerScreen *viewer = screens.videoViewer();
        screens.showScreen(ShellScreens::Screen::Video);
        viewer->playVideo(m_video);
        QTRY_VERIFY_WITH_TIMEOUT(viewer->videoView()->isPlaying(), 20000);
        QTRY_VERIFY(viewer->hasFocus());
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Escape);
        QCOMPARE(screens.currentScreen(), ShellScreens::Screen::Conversation);
        QCOMPARE(chat->verticalScrollBar()->value(), 2345);
        // Nothing plays on behind the chat.
        QVERIFY(!viewer->videoView()->isPlaying() && viewer->videoView()->path().isEmpty());
    }
};

QTEST_MAIN(TestVideoViewer)
#include "test_video_viewer.moc"
