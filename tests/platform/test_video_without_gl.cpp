// Video still plays when the client keeps Qt's GL integration switched off:
// a real X server (Xvfb), the xcb platform, a real QMediaPlayer decoding a
// small VP8 file made by ffmpeg, frames delivered to a video surface and
// converted to images in software. No GL driver may be mapped meanwhile.
#include "platform/gl_integration.h"
#include "platform/software_video_surface.h"

#include <QApplication>
#include <QFile>
#include <QLabel>
#include <QMediaPlayer>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <QVideoSurfaceFormat>

namespace {

bool glDriverMapped(QString *which)
{
    QFile maps(QStringLiteral("/proc/self/maps"));
    if (!maps.open(QIODevice::ReadOnly))
        return false;
    for (const QByteArray &line : maps.readAll().split('\n')) {
        if (line.contains("/dri/") || line.contains("libLLVM")) {
            *which = QString::fromLocal8Bit(line);
            return true;
        }
    }
    return false;
}

} // namespace

class TestVideoWithoutGl : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // A red clip: swapped colour channels would show it blue.
    void framesArrive()
    {
        const QColor expected(Qt::red);
        if (QGuiApplication::platformName() != QLatin1String("xcb"))
            QSKIP("needs an X server (the test runs under xvfb-run)");
        const QString ffmpeg = QStandardPaths::findExecutable(QStringLiteral("ffmpeg"));
        if (ffmpeg.isEmpty())
            QSKIP("ffmpeg is not installed");
        QCOMPARE(qgetenv("QT_XCB_GL_INTEGRATION"), QByteArray("none"));

        QTemporaryDir dir;
        QVERIFY(dir.isValid());
        const QString video = dir.filePath(QStringLiteral("clip.webm"));
        QProcess encode;
        encode.setProcessChannelMode(QProcess::MergedChannels);
        encode.start(ffmpeg, {"-nostdin", "-v", "error", "-f", "lavfi", "-i",
                              QStringLiteral("color=c=red:s=64x48:r=10:d=1"), "-c:v", "libvpx",
                              "-b:v", "200k", video});
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
        bool ended = false;
        connect(&player, &QMediaPlayer::mediaStatusChanged, this, [&](QMediaPlayer::MediaStatus s) {
            ended = ended || s == QMediaPlayer::EndOfMedia;
        });
        player.setMedia(QUrl::fromLocalFile(video));
        player.play();
        QTRY_VERIFY_WITH_TIMEOUT(ended || player.error() != QMediaPlayer::NoError, 30000);
        QCOMPARE(player.error(), QMediaPlayer::NoError);

        // Ten frames in the clip; a sink may drop a late one, not most of them.
        QVERIFY2(frames.size() >= 5, qPrintable(QString::number(frames.size())));
        const QImage last = frames.last();
        QCOMPARE(last.size(), QSize(64, 48));
        const QColor centre = last.pixelColor(32, 24);
        QVERIFY2(qAbs(centre.red() - expected.red()) < 40 &&
                     qAbs(centre.green() - expected.green()) < 40 &&
                     qAbs(centre.blue() - expected.blue()) < 40,
                 qPrintable(centre.name()));

        QString mapped;
        QVERIFY2(!glDriverMapped(&mapped), qPrintable(mapped));
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
