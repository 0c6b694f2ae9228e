// Video still plays when the client keeps Qt's GL integration switched off:
// a real X server (Xvfb), the xcb platform, a real QMediaPlayer decoding a
// small VP8 file made by ffmpeg, frames delivered to a video surface and
// converted to images in software. No GL driver may be mapped meanwhile.
#include "common/test_util.h"
#include "platform/gl_integration.h"
#include "platform/software_video_surface.h"

#include <QApplication>
#include <QLabel>
#include <QMediaPlayer>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

namespace {

// The first line of this process's memory map that names a GL driver.
QByteArray glDriverLine()
{
    for (const QByteArray &line : test_util::readAll(QStringLiteral("/proc/self/maps")).split('\n'))
        if (line.contains("/dri/") || line.contains("libLLVM"))
            return line;
    return QByteArray();
}

} // namespace

class TestVideoWithoutGl : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // A red clip: swapped colour channels would show it blue.
    void framesArrive()
    {
        if (QGuiApplication::platformName() != QLatin1String("xcb"))
            QSKIP("needs an X server (the test runs under xvfb-run)");
        QTemporaryDir dir;
        const QString video = dir.filePath(QStringLiteral("clip.webm"));
        QProcess encode;
        encode.setProcessChannelMode(QProcess::MergedChannels);
        encode.start(QStringLiteral("ffmpeg"), {"-nostdin", "-v", "error", "-f", "lavfi", "-i",
                                                QStringLiteral("color=c=red:s=64x48:r=10:d=1"),
                                                "-c:v", "libvpx", "-b:v", "200k", video});
        QVERIFY(encode.waitForFinished(60000));
        QVERIFY2(encode.exitCode() == 0, encode.readAll().constData());

        // A window on the X server: creating one is what makes a GL
        // integration load its driver.
        QLabel view;
        view.resize(64, 48);
        view.show();
        QVERIFY(QTest::qWaitForWindowExposed(&view));
        QList<QImage> frames;
        SoftwareVideoSurface sink([&](const QImage &frame) {
            frames << frame;
            view.setPixmap(QPixmap::fromImage(frame));
        });
        QMediaPlayer player;
        player.setVideoOutput(&sink);
        player.setMuted(true);
        player.setMedia(QUrl::fromLocalFile(video));
        player.play();
        QTRY_VERIFY_WITH_TIMEOUT(player.mediaStatus() == QMediaPlayer::EndOfMedia ||
                                     player.error() != QMediaPlayer::NoError,
                                 30000);
        QCOMPARE(player.error(), QMediaPlayer::NoError);

        // Ten frames in the clip; a sink may drop a late one, not most of them.
        QVERIFY2(frames.size() >= 5, qPrintable(QString::number(frames.size())));
        QCOMPARE(frames.last().size(), QSize(64, 48));
        const QColor centre = frames.last().pixelColor(32, 24);
        QVERIFY2(centre.red() > 215 && centre.green() < 40 && centre.blue() < 40,
                 qPrintable(centre.name()));

        const QByteArray gl = glDriverLine();
        QVERIFY2(gl.isEmpty(), gl.constData());
    }
};

int main(int argc, char *argv[])
{
    // Exactly as the client starts: no integration chosen by the caller.
    qunsetenv("QT_XCB_GL_INTEGRATION");
    avoid_gl_integration(false);
    QApplication app(argc, argv);
    TestVideoWithoutGl test;
    return QTest::qExec(&test, argc, argv);
}

#include "test_video_without_gl.moc"
