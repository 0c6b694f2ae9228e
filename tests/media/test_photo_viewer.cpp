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

// "toggle X Y", "zoom F X Y", "pan DX DY", "view W H", joined by ";".
void apply(ZoomPan *zp, QSizeF image, const QString &actions)
{
    for (const QString &action : actions.split(QLatin1Char(';'), Qt::SkipEmptyParts)) {
        const QStringList a = action.simplified().split(QLatin1Char(' '));
        const auto n = [&a](int i) { return a.at(i).toDouble(); };
        if (a.first() == QLatin1String("toggle"))
            zp->toggleAt(QPointF(n(1), n(2)));
        else if (a.first() == QLatin1String("zoom"))
            zp->zoomAt(n(1), QPointF(n(2), n(3)));
        else if (a.first() == QLatin1String("pan"))
            zp->panBy(QPointF(n(1), n(2)));
        else if (a.first() == QLatin1String("view"))
            zp->setSizes(image, QSizeF(n(1), n(2)));
    }
}

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

    void zoomAndPan_data()
    {
        QTest::addColumn<QSizeF>("image");
        QTest::addColumn<QSizeF>("view");
        QTest::addColumn<QString>("actions");
        QTest::addColumn<QRectF>("expected"); // the picture in view coordinates
        QTest::addColumn<bool>("fitted");
        const QSizeF camera(4000, 3000);
        const QSizeF phone(600, 1000);
        QTest::newRow("landscape fits the width, centred")
            << camera << phone << "" << QRectF(0, 275, 600, 450) << true;
        QTest::newRow("portrait fits the height")
            << QSizeF(300, 600) << QSizeF(600, 400) << "" << QRectF(200, 0, 200, 400) << true;
        QTest::newRow("small picture grows to fit")
            << QSizeF(100, 50) << QSizeF(400, 400) << "" << QRectF(0, 100, 400, 200) << true;
        QTest::newRow("double click: one to one about the point")
            << camera << phone << "toggle 300 500" << QRectF(-1700, -1000, 4000, 3000) << false;
        QTest::newRow("double click twice: fitted again")
            << camera << phone << "toggle 300 500; toggle 10 10" << QRectF(0, 275, 600, 450)
            << true;
        QTest::newRow("double click on a small picture: two and a half times")
            << QSizeF(100, 50) << QSizeF(400, 400) << "toggle 200 200"
            << QRectF(-300, -50, 1000, 500) << false;
        QTest::newRow("wheel keeps the point under it; narrow axis stays centred")
            << camera << phone << "zoom 2 0 275" << QRectF(0, 50, 1200, 900) << false;
        QTest::newRow("drag stops at the edges")
            << camera << phone << "toggle 300 500; pan 5000 -5000" << QRectF(0, -2000, 4000, 3000)
            << false;
        QTest::newRow("never smaller than fitted")
            << camera << phone << "zoom 0.1 300 500" << QRectF(0, 275, 600, 450) << true;
        QTest::newRow("never closer than four to one")
            << camera << phone << "zoom 1000 0 0" << QRectF(0, 0, 16000, 12000) << false;
        QTest::newRow("turned view: fitted stays fitted")
            << camera << phone << "view 1000 600" << QRectF(100, 0, 800, 600) << true;
        QTest::newRow("turned view: zoomed keeps the centre point")
            << camera << phone << "toggle 300 500; view 1000 600"
            << QRectF(-1500, -1200, 4000, 3000) << false;
    }
    void zoomAndPan()
    {
        QFETCH(QSizeF, image);
        QFETCH(QSizeF, view);
        QFETCH(QString, actions);
        QFETCH(QRectF, expected);
        QFETCH(bool, fitted);
        ZoomPan zp;
        zp.setSizes(image, view);
        apply(&zp, image, actions);
        const QRectF got = zp.imageRect();
        QVERIFY2(qAbs(got.x() - expected.x()) < 0.01 && qAbs(got.y() - expected.y()) < 0.01 &&
                     qAbs(got.width() - expected.width()) < 0.01 &&
                     qAbs(got.height() - expected.height()) < 0.01,
                 qPrintable(QStringLiteral("%1,%2 %3x%4")
                                .arg(got.x())
                                .arg(got.y())
                                .arg(got.width())
                                .arg(got.height())));
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
        QTest::newRow("missing file") << "missing.png" << QSize() << QSize() << false << false;
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
            QVERIFY(view.path().isEmpty());
            QCOMPARE(view.grab().toImage().pixelColor(180, 320), QColor(Qt::black));
            return;
        }
        const QSize laidOut = fullSize.isValid() ? fullSize : fileSize;
        QCOMPARE(view.pictureSize(), laidOut);
        // Fitted and centred: the picture's colour in the middle, black
        // bars above and below.
        const QImage fittedShot = view.grab().toImage();
        QVERIFY(near(fittedShot.pixelColor(180, 320), colour));
        QCOMPARE(fittedShot.pixelColor(180, 2), QColor(Qt::black));
        if (quickFirst)
            QTRY_VERIFY_WITH_TIMEOUT(view.hasFullResolution(), 10000);
        view.toggleZoomAt(QPointF(180, 320));
        QVERIFY(!view.zoomPan().isFitted());
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
        QObject listView;
        const QString downloads = m_dir.filePath(QStringLiteral("shared/downloads/quillo"));
        QDir(downloads).removeRecursively();
        MediaDownloads dl(m_rec.services(), downloads, m_dir.filePath(QStringLiteral("shared")),
                          &listView);
        QSignalSpy opened(&dl, video ? &MediaDownloads::videoViewerRequested
                                     : &MediaDownloads::photoViewerRequested);
        QSignalSpy progress(&dl, &MediaDownloads::pendingProgress);
        QSignalSpy arrived(&dl,
                           video ? &MediaDownloads::videoArrived : &MediaDownloads::photoArrived);
        QSignalSpy saved(&dl, &MediaDownloads::fileSharedPathChanged);
        const auto tap = [&](const QString &path) {
            if (video)
                dl.onVideoTapped(path, 70);
            else
                dl.onPhotoTapped(path, 70);
        };

        tap(QString());
        QCOMPARE(opened.count(), 1);
        QCOMPARE(opened.at(0).at(1).toString(), QString());
        QCOMPARE(listView.property("file_pending_file_id").toLongLong(), 70LL);
        QTRY_COMPARE_WITH_TIMEOUT(m_rec.lines, QStringList{QStringLiteral("downloadp 70")}, 3000);

        dl.onFileProgress(70, 500, 2000);
        dl.onFileProgress(71, 1, 2); // another file's progress is not the viewer's
        QCOMPARE(progress.count(), 1);
        QCOMPARE(progress.at(0).at(2).toLongLong(), 2000LL);

        const QString path =
            m_dir.filePath(video ? QStringLiteral("70.webm") : QStringLiteral("70.jpg"));
        QVERIFY(writeFile(path, "media bytes"));
        QVERIFY(dl.onPendingFileDownloaded(70, path, QString()));
        QCOMPARE(arrived.count(), 1);
        QCOMPARE(arrived.at(0).at(1).toString(), path);
        QCOMPARE(dl.filePendingFileId(), 0LL);
        QCOMPARE(saved.count(), video ? 1 : 0);
        QCOMPARE(QDir(downloads).entryList(QDir::Files).size(), video ? 1 : 0);

        // Tapped again once it is here: opened on the file, nothing sent.
        m_rec.clear();
        tap(path);
        QCOMPARE(opened.count(), 2);
        QCOMPARE(opened.at(1).at(1).toString(), path);
        QVERIFY(m_rec.lines.isEmpty());
    }

    void saveNames_data()
    {
        QTest::addColumn<QString>("source");
        QTest::addColumn<bool>("video");
        QTest::addColumn<QStringList>("expected"); // one per Save
        QTest::newRow("photo, saved twice")
            << "cache/41.jpg" << false << QStringList{"photo_41.jpg", "photo_41 (1).jpg"};
        QTest::newRow("suffix lower-cased")
            << "cache/42.PNG" << false << QStringList{"photo_42.png"};
        QTest::newRow("no suffix") << "cache/43" << false << QStringList{"photo_43.jpg"};
        QTest::newRow("video") << "cache/44.webm" << true << QStringList{"video_44.webm"};
    }
    void saveNames()
    {
        QFETCH(QString, source);
        QFETCH(bool, video);
        QFETCH(QStringList, expected);
        const QString downloads = m_dir.filePath(QStringLiteral("save/downloads/quillo"));
        QDir(downloads).removeRecursively();
        MediaDownloads dl(m_rec.services(), downloads, m_dir.filePath(QStringLiteral("save")),
                          nullptr);
        const QString path = m_dir.filePath(source);
        QDir().mkpath(QFileInfo(path).path());
        QVERIFY(writeFile(path, "picture bytes"));
        const qint64 id = QFileInfo(path).baseName().toLongLong();
        QStringList names;
        QStringList toasts;
        for (int i = 0; i < expected.size(); ++i) {
            const QString copy = dl.saveViewed(id, path, video);
            QVERIFY(QFileInfo(copy).isFile());
            names << QFileInfo(copy).fileName();
            toasts << QStringLiteral("File saved: %1").arg(names.last());
        }
        QCOMPARE(names, expected);
        QCOMPARE(m_rec.toaster.shown(), toasts);
        QVERIFY(QFileInfo(path).isFile()); // the source stays
        QVERIFY(
            dl.saveViewed(id, m_dir.filePath(QStringLiteral("cache/none.jpg")), video).isEmpty());
    }
};

QTEST_MAIN(TestPhotoViewer)
#include "test_photo_viewer.moc"
