// Video still plays when the client keeps Qt's GL integration switched off:
// a real X server (Xvfb), the xcb platform, the media module's player
// decoding a small VP8 file made by ffmpeg, frames converted to images in
// software. No GL driver may be mapped meanwhile, and QtMultimedia only
// once something plays.
#include "common/test_util.h"
#include "platform/av_player.h"
#include "platform/gl_integration.h"

#include <QApplication>
#include <QLabel>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

namespace {

// The first line of this process's memory map that names one of the texts.
QByteArray mappedLine(const QList<QByteArray> &texts)
{
    for (const QByteArray &line : test_util::readAll(QStringLiteral("/proc/self/maps")).split('\n'))
        for (const QByteArray &text : texts)
            if (line.contains(text))
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
        const QList<QByteArray> media = {"libQt5Multimedia", "libgstreamer"};
        const QByteArray early = mappedLine(media);
        QVERIFY2(early.isEmpty(), early.constData());
        QList<QImage> frames;
        QString error;
        AvPlayer *player = AvPlayer::create(&view, &error);
        QVERIFY2(player, qPrintable(error));
        QVERIFY(!mappedLine(media).isEmpty());
        player->setFrameHandler([&](const QImage &frame) {
            frames << frame;
            view.setPixmap(QPixmap::fromImage(frame));
        });
        bool ended = false;
        connect(player, &AvPlayer::mediaStatusChanged, this,
                [&](int status) { ended = ended || status == AvPlayer::EndOfMedia; });
        player->setMuted(true);
        player->setSource(QUrl::fromLocalFile(video));
        player->play();
        QTRY_VERIFY_WITH_TIMEOUT(ended || player->error() != 0, 30000);
        QCOMPARE(player->error(), 0);

        // Ten frames in the clip; a sink may drop a late one, not most of them.
        QVERIFY2(frames.size() >= 5, qPrintable(QString::number(frames.size())));
        QCOMPARE(frames.last().size(), QSize(64, 48));
        const QColor centre = frames.last().pixelColor(32, 24);
        QVERIFY2(centre.red() > 215 && centre.green() < 40 && centre.blue() < 40,
                 qPrintable(centre.name()));

        const QByteArray gl = mappedLine({"/dri/", "libLLVM"});
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
