// The download queue, the file the user waits for, saving into the shared
// downloads folder, the notification and opening files by MIME type.

#include "common/audio.h"
#include "media/media_downloads.h"

#include <QElapsedTimer>
#include <QTemporaryDir>
#include <QtTest>

using namespace testaudio;

class TstMediaDownloads : public QObject
{
    Q_OBJECT
    QTemporaryDir m_dir;
    QElapsedTimer m_clock;
    Recorded m_rec;

    QString shared() const { return m_dir.filePath(QStringLiteral("shared")); }
    QString downloads() const { return shared() + QStringLiteral("/downloads/quillo"); }
    QString emptyDownloads() const
    {
        QDir(downloads()).removeRecursively();
        return downloads();
    }
    QString makeFile(const QString &relative, const QByteArray &content = "data")
    {
        const QString p = m_dir.filePath(relative);
        QDir().mkpath(QFileInfo(p).path());
        writeFile(p, content);
        return p;
    }

private Q_SLOTS:
    void initTestCase()
    {
        m_clock.start();
        m_rec.clock = &m_clock;
    }
    void init() { m_rec.clear(); }
    void pacingAndOrder_data()
    {
        QTest::addColumn<QString>("ids");    // queued in this order; "*": to the front
        QTest::addColumn<qint64>("awaited"); // the file the user waits for
        QTest::addColumn<QString>("expected");
        QTest::newRow("front first") << "1 2 3*" << qint64(0) << "download 3|download 1|download 2";
        QTest::newRow("once only") << "4 4* 5 4*" << qint64(0) << "download 4|download 5";
        QTest::newRow("ids below 1 ignored") << "0 -3* 6" << qint64(0) << "download 6";
        QTest::newRow("awaited file") << "20 21" << qint64(21) << "download 20|downloadp 21";
    }
    void pacingAndOrder()
    {
        QFETCH(QString, ids);
        QFETCH(qint64, awaited);
        QFETCH(QString, expected);
        MediaDownloads dl(m_rec.services(), downloads(), shared(), nullptr);
        if (awaited)
            dl.setFilePendingFileId(awaited);
        const qint64 start = m_clock.elapsed();
        for (const QString &id : ids.split(QLatin1Char(' ')))
            dl.enqueueMediaDownload(QString(id).remove(QLatin1Char('*')).toLongLong(),
                                    id.endsWith(QLatin1Char('*')));
        // The queue has drained once its timer stops.
        QTRY_VERIFY_WITH_TIMEOUT(!dl.timerActive(), 5000);
        QCOMPARE(m_rec.lines.join(QLatin1Char('|')), expected);
        // One request per 400 ms tick, the first one tick after queuing.
        for (int i = 0; i < m_rec.lineTimes.size(); ++i) {
            const qint64 gap = m_rec.lineTimes[i] - (i ? m_rec.lineTimes[i - 1] : start);
            QVERIFY2(gap >= 398, qPrintable(QString::number(gap)));
        }
    }
    // Each change refreshes the row the awaited file leaves and the one it
    // takes; clear() forgets the awaited file, the queue and what was queued.
    void pendingFileAndClear()
    {
        QObject view;
        MediaDownloads dl(m_rec.services(), downloads(), shared(), &view);
        QSignalSpy rows(&dl, &MediaDownloads::mediaRowsNeedRefresh);
        const auto published = [&view]() {
            return QList<qint64>{view.property("file_pending_file_id").toLongLong(),
                                 view.property("file_pending_downloaded").toLongLong(),
                                 view.property("file_pending_total").toLongLong()};
        };
        dl.setFilePendingFileId(30);
        dl.onFileProgress(30, 500, 1000);
        dl.onFileProgress(99, 7, 8); // another file
        dl.setFilePendingFileId(30); // unchanged: nothing happens
        QCOMPARE(published(), (QList<qint64>{30, 500, 1000}));
        dl.setFilePendingFileId(31);
        QCOMPARE(published(), (QList<qint64>{31, 0, 0}));
        dl.enqueueMediaDownload(40, false);
        dl.enqueueMediaDownload(31, true);
        dl.clear();
        QCOMPARE(published(), (QList<qint64>{0, 0, 0}));
        QCOMPARE(test_util::texts(rows), (QStringList{"30", "30", "30", "31", "31"}));
        dl.enqueueMediaDownload(40, false);
        QTRY_COMPARE_WITH_TIMEOUT(m_rec.lines, QStringList{"download 40"}, 3000);
    }
    void savedNames_data()
    {
        QTest::addColumn<QStringList>("existing");
        QTest::addColumn<QString>("source");
        QTest::addColumn<QString>("suggested");
        QTest::addColumn<QString>("viewer"); // saved from the photo or video viewer
        QTest::addColumn<QString>("expected");
        auto row = [](const char *name, const QStringList &existing, const char *source,
                      const char *suggested, const char *viewer, const char *expected) {
            QTest::newRow(name) << existing << source << suggested << viewer << expected;
        };
        row("numbered after two", {"report.pdf", "report (1).pdf"}, "src/c/x.pdf", "report.pdf", "",
            "report (2).pdf");
        row("no suffix", {"README"}, "src/d/README", "", "", "README (1)");
        row("double suffix", {"a.tar.gz"}, "src/e/a.tar.gz", "", "", "a.tar (1).gz");
        row("names without a name", {}, "src/f/  ", "  ", "", "file_77");
        row("path cut to its name", {}, "src/g/x", " ../../../escape.txt ", "", "escape.txt");
        row("photo, suffix lower-cased", {}, "src/h/42.PNG", "", "photo", "photo_77.png");
        row("photo without a suffix", {}, "src/i/43", "", "photo", "photo_77.jpg");
        row("video", {}, "src/j/44.webm", "", "video", "video_77.webm");
    }
    void savedNames()
    {
        QFETCH(QStringList, existing);
        QFETCH(QString, source);
        QFETCH(QString, suggested);
        QFETCH(QString, viewer);
        QFETCH(QString, expected);
        const QString folder = emptyDownloads();
        for (const QString &e : existing)
            QVERIFY(writeFile(folder + QLatin1Char('/') + e, "old"));
        const QString src = makeFile(source, "new content");
        MediaDownloads dl(m_rec.services(), folder, shared(), nullptr);
        const QString got = viewer.isEmpty() ? dl.copyFileToSharedDownloads(77, src, suggested)
                                             : dl.saveViewed(77, src, viewer == "video");
        QCOMPARE(got, folder + QLatin1Char('/') + expected);
        QCOMPARE(readAll(got), QByteArray("new content"));
        QVERIFY(QFileInfo::exists(src));
        QCOMPARE(QDir(folder).entryList(QDir::Files).size(), existing.size() + 1);
    }
    void saveRefusals()
    {
        const QString folder = emptyDownloads();
        MediaDownloads dl(m_rec.services(), folder, shared(), nullptr);
        const QString src = makeFile(QStringLiteral("src/z/song.mp3"));
        QCOMPARE(dl.copyFileToSharedDownloads(0, src, QString()), QString());
        QCOMPARE(dl.copyFileToSharedDownloads(5, m_dir.filePath("nothing.mp3"), QString()),
                 QString());
        QVERIFY(!QFileInfo::exists(folder));
        // A file already in the folder is returned as it is, with no copy.
        const QString first = dl.copyFileToSharedDownloads(5, src, QString());
        QCOMPARE(dl.copyFileToSharedDownloads(5, first, QString()), first);
        QCOMPARE(QDir(folder).entryList(QDir::Files), QStringList{"song.mp3"});
        // With every numbered name taken the copy fails and overwrites nothing.
        for (int n = 1; n <= 999; ++n)
            QVERIFY(writeFile(folder + QStringLiteral("/song (%1).mp3").arg(n), "taken"));
        QCOMPARE(dl.copyFileToSharedDownloads(5, src, QString()), QString());
        QCOMPARE(readAll(folder + QStringLiteral("/song (999).mp3")), QByteArray("taken"));
    }
    void notification()
    {
        const QString path = makeFile(QStringLiteral("data/cache/d.bin"));
        MediaDownloads dl(m_rec.services(), downloads(), shared(), nullptr);
        dl.postFileDownloadedNotification(path, QStringLiteral("  some/Nice name.doc "));
        dl.postFileDownloadedNotification(path + QStringLiteral(".gone"), QString());
        QCOMPARE(m_rec.toaster.shown(), QStringList{"File downloaded: Nice name.doc"});
    }
    void openFile_data()
    {
        QTest::addColumn<QString>("file");
        QTest::addColumn<QString>("mime");
        QTest::addColumn<QString>("mode");
        const auto row = [](const char *name, const char *file, const char *mime,
                            const char *mode) {
            QTest::newRow(name) << QString(file) << QString(mime) << QString(mode);
        };
        row("shared file in place", "shared/documents/x.PDF", "application/pdf", "1");
        row("private file as a copy", "data/cache/y.png", "image/png", "2");
        row("by the last suffix", "data/cache/z.tar.gz", "application/gzip", "2");
        row("unknown type", "data/cache/z.bin", "application/octet-stream", "2");
    }
    void openFile()
    {
        QFETCH(QString, file);
        QFETCH(QString, mime);
        QFETCH(QString, mode);
        const QString path = makeFile(file);
        MediaDownloads dl(m_rec.services(), downloads(), shared(), nullptr);
        dl.invokeOpenFile(path);
        dl.invokeOpenFile(path + QStringLiteral(".missing"));
        QCOMPARE(m_rec.invoker.requests().size(), 1);
        const RecordingInvoker::Request r = m_rec.invoker.requests().first();
        QCOMPARE(r.url, QUrl::fromLocalFile(path));
        QCOMPARE(r.mimeType, mime);
        QCOMPARE(r.transferMode, mode);
    }
    // A tap saves a file that is here, named by the file; one that is not is
    // awaited, then saved under its display name. The icon opens a file or
    // awaits it as well.
    void tapHandlers()
    {
        QObject view;
        const QString folder = emptyDownloads();
        MediaDownloads dl(m_rec.services(), folder, shared(), &view);
        QSignalSpy saved(&dl, &MediaDownloads::fileSharedPathChanged);
        const QString doc = makeFile(QStringLiteral("data/files/doc.txt"));
        dl.onFileTapped(doc, 0); // ignored
        dl.onFileTapped(doc, 60);
        dl.onFileIconTapped(doc, 61);
        QCOMPARE(m_rec.invoker.requests().size(), 1);
        dl.onFileIconTapped(QStringLiteral("/no/such/file"), 64);
        dl.onFileTapped(QString(), 63);
        QTRY_COMPARE_WITH_TIMEOUT(m_rec.lines, (QStringList{"download 64", "downloadp 63"}), 3000);
        const QString got = makeFile(QStringLiteral("data/tdlib/files/abc123"), "payload");
        QVERIFY(!dl.onPendingFileDownloaded(64, got, QStringLiteral("x.pdf"))); // not awaited
        QCOMPARE(view.property("file_pending_file_id").toLongLong(), 63LL);
        QVERIFY(dl.onPendingFileDownloaded(63, got, QStringLiteral("Invoice.pdf")));
        QCOMPARE(view.property("file_pending_file_id").toLongLong(), 0LL);
        QCOMPARE(readAll(folder + QStringLiteral("/Invoice.pdf")), QByteArray("payload"));
        QCOMPARE(m_rec.toaster.shown(),
                 (QStringList{"File saved: doc.txt", "File saved: Invoice.pdf"}));
        QCOMPARE(saved.count(), 2);
        QCOMPARE(saved.at(0).at(1).toString(), folder + QStringLiteral("/doc.txt"));
    }

    // A photo or video that is not here: its viewer opens at once, the file
    // is asked for with priority, progress and arrival reach the viewer; a
    // video is saved on arrival as any awaited file, a photo only when asked.
    void awaitedMediaArrives_data()
    {
        QTest::addColumn<bool>("video");
        QTest::newRow("photo") << false;
        QTest::newRow("video") << true;
    }
    void awaitedMediaArrives()
    {
        QFETCH(bool, video);
        const QString folder = emptyDownloads();
        MediaDownloads dl(m_rec.services(), folder, shared(), nullptr);
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
        const QString path = makeFile(video ? QStringLiteral("70.webm") : QStringLiteral("70.jpg"));
        QVERIFY(dl.onPendingFileDownloaded(70, path, QString()));
        QCOMPARE(arrived.count(), 1);
        QCOMPARE(arrived.at(0).at(1).toString(), path);
        QCOMPARE(QDir(folder).entryList(QDir::Files).size(), video ? 1 : 0);
        // Tapped again once it is here: opened on the file, nothing sent.
        m_rec.clear();
        tap(path);
        QCOMPARE(opened.count(), 2);
        QCOMPARE(opened.at(0).at(1).toString() + '|' + opened.at(1).at(1).toString(), '|' + path);
        QVERIFY(m_rec.lines.isEmpty());
    }
};

QTEST_GUILESS_MAIN(TstMediaDownloads)
#include "test_media_downloads.moc"
