// The photo and video viewers: fitting, zooming and dragging; real picture
// files shown; a real WebM file made by ffmpeg played; the way back to the chat.

#include "common/audio.h"
#include "media/ui/photo_view.h"
#include "media/ui/video_view.h"
#include "media/zoom_pan.h"
#include "shell/ui/screens.h"
#include "shell/ui/shell_screens.h"

#include <QApplication>
#include <QLabel>
#include <QScrollArea>
#include <QScrollBar>
#include <QTemporaryDir>
#include <QToolButton>
#include <QtTest>

class TestViewers : public QObject
{
    Q_OBJECT
    QTemporaryDir m_dir;
    QString m_video;

    static bool near(QColor a, QColor b)
    {
        return qAbs(a.red() - b.red()) < 24 && qAbs(a.green() - b.green()) < 24 &&
               qAbs(a.blue() - b.blue()) < 24;
    }

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

    // A camera photo on a phone unless "sizes IW IH VW VH" says otherwise;
    // then "toggle X Y", "zoom F X Y", "pan DX DY", "view W H", joined by ";".
    void zoomAndPan_data()
    {
        QTest::addColumn<QString>("actions");
        QTest::addColumn<QRect>("picture"); // in view coordinates
        QTest::addColumn<bool>("fitted");
        const auto row = [](const char *name, const char *actions, QRect picture, bool fitted) {
            QTest::newRow(name) << QString(actions) << picture << fitted;
        };
        row("double click: 1:1 there", "toggle 300 500", {-1700, -1000, 4000, 3000}, false);
        row("double click twice: fitted", "toggle 300 500; toggle 10 10", {0, 275, 600, 450}, true);
        row("small: 2.5x", "sizes 100 50 400 400; toggle 200 200", {-300, -50, 1000, 500}, false);
        row("wheel keeps its point", "zoom 2 0 275", {0, 50, 1200, 900}, false);
        row("drag stops at edges", "toggle 300 500; pan 5000 -5000", {0, -2000, 4000, 3000}, false);
        row("never smaller than fitted", "zoom 0.1 300 500", {0, 275, 600, 450}, true);
        row("never closer than 4:1", "zoom 1000 0 0", {0, 0, 16000, 12000}, false);
        row("turned: fitted stays fitted", "view 1000 600", {100, 0, 800, 600}, true);
        row("turned: zoom keeps centre", "toggle 300 500; view 1000 600",
            {-1500, -1200, 4000, 3000}, false);
    }
    void zoomAndPan()
    {
        QFETCH(QString, actions);
        QFETCH(QRect, picture);
        QFETCH(bool, fitted);
        QSizeF image(4000, 3000);
        ZoomPan zp;
        zp.setSizes(image, QSizeF(600, 1000));
        for (const QString &action : actions.split(QLatin1Char(';'), Qt::SkipEmptyParts)) {
            const QStringList a = action.simplified().split(QLatin1Char(' '));
            const auto n = [&a](int i) { return a.at(i).toDouble(); };
            if (a.first() == QLatin1String("sizes"))
                zp.setSizes(image = QSizeF(n(1), n(2)), QSizeF(n(3), n(4)));
            else if (a.first() == QLatin1String("toggle"))
                zp.toggleAt(QPointF(n(1), n(2)));
            else if (a.first() == QLatin1String("zoom"))
                zp.zoomAt(n(1), QPointF(n(2), n(3)));
            else if (a.first() == QLatin1String("pan"))
                zp.panBy(QPointF(n(1), n(2)));
            else
                zp.setSizes(image, QSizeF(n(1), n(2)));
        }
        const QRectF got = zp.imageRect();
        QCOMPARE(got.toRect(), picture);
        QCOMPARE(zp.isFitted(), fitted);
        // What is in view, in picture coordinates, maps back onto the view.
        const QRectF src = zp.visibleSource();
        const QRectF back(got.topLeft() + src.topLeft() * zp.scale(), src.size() * zp.scale());
        QVERIFY(QRectF(QPointF(), zp.viewSize()).adjusted(-0.01, -0.01, 0.01, 0.01).contains(back));
    }

    void showsRealFiles_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QSize>("fileSize");  // none: not a picture
        QTest::addColumn<QSize>("fullSize");  // given when the file stands in
        QTest::addColumn<bool>("quickFirst"); // the full resolution follows
        QTest::newRow("camera JPEG") << "camera.jpg" << QSize(4000, 3000) << QSize() << true;
        QTest::newRow("thumbnail in the photo's place")
            << "thumb.png" << QSize(40, 30) << QSize(4000, 3000) << false;
        QTest::newRow("not a picture") << "notes.txt" << QSize() << QSize() << false;
    }
    void showsRealFiles()
    {
        QFETCH(QString, name);
        QFETCH(QSize, fileSize);
        QFETCH(QSize, fullSize);
        QFETCH(bool, quickFirst);
        const QColor colour(200, 40, 60);
        const QString path = m_dir.filePath(name);
        QImage image(fileSize.isValid() ? fileSize : QSize(1, 1), QImage::Format_RGB32);
        image.fill(colour);
        QVERIFY(fileSize.isValid() ? image.save(path, nullptr, 90)
                                   : test_util::writeFile(path, "hello"));
        PhotoView view;
        view.resize(360, 640);
        view.show();
        QVERIFY(QTest::qWaitForWindowExposed(&view));
        QCOMPARE(view.showFile(path, fullSize), fileSize.isValid());
        if (!fileSize.isValid()) {
            QCOMPARE(view.grab().toImage().pixelColor(180, 320), QColor(Qt::black));
            return;
        }
        QCOMPARE(view.pictureSize(), fullSize.isValid() ? fullSize : fileSize);
        // Fitted and centred: its colour in the middle, black bars above.
        const QImage fittedShot = view.grab().toImage();
        QVERIFY(near(fittedShot.pixelColor(180, 320), colour));
        QCOMPARE(fittedShot.pixelColor(180, 2), QColor(Qt::black));
        if (quickFirst)
            QTRY_VERIFY_WITH_TIMEOUT(view.hasFullResolution(), 10000);
        view.toggleZoomAt(QPointF(180, 320));
        const QImage zoomedShot = view.grab().toImage();
        // Closer: the picture now reaches both sides.
        QVERIFY(near(zoomedShot.pixelColor(1, 320), colour));
        QVERIFY(near(zoomedShot.pixelColor(358, 320), colour));
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
        QTRY_VERIFY_WITH_TIMEOUT(view.position() == 0 && !view.isPlaying(), 20000);
        QCOMPARE(time->text(), QStringLiteral("0:00 / 0:02"));
    }

    // Both viewers are one screen class: the video's case stands for the photo's.
    void escReturnsToTheChat()
    {
        ShellScreens screens(true, 0.5f);
        // A long chat read halfway up.
        auto *chat = new QScrollArea;
        chat->setWidget(new QWidget);
        chat->widget()->setFixedHeight(5000);
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

QTEST_MAIN(TestViewers)
#include "test_viewers.moc"
