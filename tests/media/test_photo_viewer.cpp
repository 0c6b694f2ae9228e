// The photo viewer: where the picture lies as it is fitted, zoomed and
// dragged; real picture files shown (a camera-sized JPEG first from a quick
// decode); an awaited photo's or video's priority download and arrival;
// the viewers' Save names.

#include "common/audio.h"
#include "media/media_downloads.h"
#include "media/ui/photo_view.h"
#include "media/zoom_pan.h"

#include <QImage>
#include <QTemporaryDir>
#include <QtTest>

using namespace testaudio;

namespace {

QString solidPicture(const QTemporaryDir &dir, const QString &name, QSize size, QColor colour)
{
    QImage image(size, QImage::Format_RGB32);
    image.fill(colour);
    const QString path = dir.filePath(name);
    return image.save(path, nullptr, 90) ? path : QString();
}

bool near(QColor a, QColor b)
{
    return qAbs(a.red() - b.red()) < 24 && qAbs(a.green() - b.green()) < 24 &&
           qAbs(a.blue() - b.blue()) < 24;
}

} // namespace

class TestPhotoViewer : public QObject
{
    Q_OBJECT
    QTemporaryDir m_dir;
    Recorded m_rec;

private Q_SLOTS:
    void initTestCase() { QVERIFY(m_dir.isValid()); }
    void init() { m_rec.clear(); }

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
        row("portrait fits the height", "sizes 300 600 600 400", {200, 0, 200, 400}, true);
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
        const QRectF source = zp.visibleSource();
        const QRectF back(got.topLeft() + source.topLeft() * zp.scale(),
                          source.size() * zp.scale());
        QVERIFY(QRectF(QPointF(), zp.viewSize()).adjusted(-0.01, -0.01, 0.01, 0.01).contains(back));
    }

    void showsRealFiles_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QSize>("fileSize");
        QTest::addColumn<QSize>("fullSize"); // given when the file stands in
        QTest::addColumn<bool>("shown");
        QTest::addColumn<bool>("quickFirst"); // the full resolution follows
        QTest::newRow("camera JPEG")
            << "camera.jpg" << QSize(4000, 3000) << QSize() << true << true;
        QTest::newRow("small PNG") << "small.png" << QSize(300, 200) << QSize() << true << false;
        QTest::newRow("thumbnail in the photo's place")
            << "thumb.png" << QSize(40, 30) << QSize(4000, 3000) << true << false;
        QTest::newRow("not a picture") << "notes.txt" << QSize() << QSize() << false << false;
    }
    void showsRealFiles()
    {
        QFETCH(QString, name);
        QFETCH(QSize, fileSize);
        QFETCH(QSize, fullSize);
        QFETCH(bool, shown);
        QFETCH(bool, quickFirst);
        const QColor colour(200, 40, 60);
        QString path = m_dir.filePath(name);
        if (fileSize.isValid())
            path = solidPicture(m_dir, name, fileSize, colour);
        else if (name.endsWith(QLatin1String(".txt")))
            QVERIFY(writeFile(path, "hello"));
        QVERIFY(!path.isEmpty());
        PhotoView view;
        view.resize(360, 640);
        view.show();
        QVERIFY(QTest::qWaitForWindowExposed(&view));
        QCOMPARE(view.showFile(path, fullSize), shown);
        if (!shown) {
            QCOMPARE(view.grab().toImage().pixelColor(180, 320), QColor(Qt::black));
            return;
        }
        QCOMPARE(view.pictureSize(), fullSize.isValid() ? fullSize : fileSize);
        // Fitted and centred: the picture's colour in the middle, black
        // bars above and below.
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

    // A photo or video that is not here: its viewer opens at once on what
    // there is, the file is asked for with priority, progress and arrival
    // reach the viewer; a video is saved on arrival as any awaited file, a
    // photo only when asked.
    void awaitedMediaArrives_data()
    {
        QTest::addColumn<bool>("video");
        QTest::newRow("photo") << false;
        QTest::newRow("video") << true;
    }
    void awaitedMediaArrives()
    {
        QFETCH(bool, video);
        const QString downloads = m_dir.filePath(QStringLiteral("shared/downloads/quillo"));
        QDir(downloads).removeRecursively();
        MediaDownloads dl(m_rec.services(), downloads, m_dir.filePath(QStringLiteral("shared")),
                          nullptr);
        QSignalSpy opened(&dl, video ? &MediaDownloads::videoViewerRequested
                                     : &MediaDownloads::photoViewerRequested);
        QSignalSpy progress(&dl, &MediaDownloads::pendingProgress);
        QSignalSpy arrived(&dl,
                           video ? &MediaDownloads::videoArrived : &MediaDownloads::photoArrived);
        const auto tap = [&](const QString &path) {
            if (video)
                dl.onVideoTapped(path, 70);
            else
                dl.onPhotoTapped(path, 70);
        };
        tap(QString());
        QTRY_COMPARE_WITH_TIMEOUT(m_rec.lines, QStringList{QStringLiteral("downloadp 70")}, 3000);
        dl.onFileProgress(70, 500, 2000);
        QCOMPARE(progress.count(), 1);
        const QString path =
            m_dir.filePath(video ? QStringLiteral("70.webm") : QStringLiteral("70.jpg"));
        QVERIFY(writeFile(path, "media bytes"));
        QVERIFY(dl.onPendingFileDownloaded(70, path, QString()));
        QCOMPARE(arrived.count(), 1);
        QCOMPARE(arrived.at(0).at(1).toString(), path);
        QCOMPARE(QDir(downloads).entryList(QDir::Files).size(), video ? 1 : 0);
        // Tapped again once it is here: opened on the file, nothing sent.
        m_rec.clear();
        tap(path);
        QCOMPARE(opened.count(), 2);
        QCOMPARE(opened.at(0).at(1).toString() + '|' + opened.at(1).at(1).toString(), '|' + path);
        QVERIFY(m_rec.lines.isEmpty());
    }

    // Numbering of taken names and the toast: test_media_downloads.
    void saveNames_data()
    {
        QTest::addColumn<QString>("source");
        QTest::addColumn<bool>("video");
        QTest::addColumn<QString>("expected");
        QTest::newRow("photo, suffix lower-cased") << "cache/42.PNG" << false << "photo_42.png";
        QTest::newRow("no suffix") << "cache/43" << false << "photo_43.jpg";
        QTest::newRow("video") << "cache/44.webm" << true << "video_44.webm";
    }
    void saveNames()
    {
        QFETCH(QString, source);
        QFETCH(bool, video);
        QFETCH(QString, expected);
        const QString downloads = m_dir.filePath(QStringLiteral("save/downloads/quillo"));
        MediaDownloads dl(m_rec.services(), downloads, m_dir.filePath(QStringLiteral("save")),
                          nullptr);
        const QString path = m_dir.filePath(source);
        QDir().mkpath(QFileInfo(path).path());
        QVERIFY(writeFile(path, "picture bytes"));
        const qint64 id = QFileInfo(path).baseName().toLongLong();
        QCOMPARE(dl.saveViewed(id, path, video), downloads + QLatin1Char('/') + expected);
        QCOMPARE(readAll(downloads + QLatin1Char('/') + expected), QByteArray("picture bytes"));
    }
};

QTEST_MAIN(TestPhotoViewer)
#include "test_photo_viewer.moc"
