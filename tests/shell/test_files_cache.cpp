#include "common/test_util.h"
#include "shell/files_cache.h"

#include <QTemporaryDir>
#include <QtTest>

using namespace test_util;

namespace {

// "path:bytes" entries written under root.
bool writeFiles(const QString &root, const QStringList &entries)
{
    for (const QString &e : entries) {
        const int colon = e.lastIndexOf(':');
        if (!writeFile(root + '/' + e.left(colon), QByteArray(e.mid(colon + 1).toInt(), 'x')))
            return false;
    }
    return true;
}

// "Photos=3/300 Files=1/10": files and bytes of each kind that has any.
QString usageText(const CacheUsage &u)
{
    QStringList parts;
    for (int k = 0; k < kCacheKindCount; ++k)
        if (u.files[size_t(k)] > 0)
            parts << QStringLiteral("%1=%2/%3")
                         .arg(cache_kind_label(CacheKind(k)).section(' ', 0, 0))
                         .arg(u.files[size_t(k)])
                         .arg(u.bytes[size_t(k)]);
    return parts.join(' ');
}

// Runs one job to its end; the usage it reports.
CacheUsage runToEnd(FilesCache &cache, bool clearing)
{
    QSignalSpy done(&cache, &FilesCache::measured);
    clearing ? cache.clear() : cache.measure();
    return done.wait(20000) ? done.first().first().value<CacheUsage>() : CacheUsage();
}

} // namespace

class TestFilesCache : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void measuresByKind_data()
    {
        QTest::addColumn<QStringList>("files");
        QTest::addColumn<QString>("usage");
        // One folder per kind and root: the rest of the folder table is not restated here.
        QTest::newRow("each kind")
            << QStringList{"cache/voice-wav/7.wav:100",
                           "cache/tdlib-files/voice/7.oga:10",
                           "cache/tdlib-files/photos/1.png:200",
                           "cache/tdlib-files/videos/3.mp4:3000",
                           "cache/tdlib-files/documents/5_report.pdf:50",
                           "avatar-cache/abc-144.png:4",
                           "ui-cache/bubble_bg_1x1_r1_cffffffff.png:1"}
            << "Voice=2/110 Photos=1/200 Videos=1/3000 Files=1/50 Avatars=2/5";
        QTest::newRow("what is not the cache")
            << QStringList{"cache/tdlib-files/uploads/1_mine.jpg:500", "cache/voice-out/rec.ogg:50",
                           "tdlib-db/db.sqlite:700", "backend_events.jsonl:80",
                           "cache/tdlib-files/photos/deep/er/1.png:5"}
            << "Photos=1/5";
    }

    void measuresByKind()
    {
        QFETCH(QStringList, files);
        QFETCH(QString, usage);
        QTemporaryDir dir;
        QVERIFY(writeFiles(dir.path(), files));
        FilesCache cache(files_cache_folders(dir.path()));
        QCOMPARE(usageText(runToEnd(cache, false)), usage);
    }

    void clearingSparesSavedAndPlaying()
    {
        QTemporaryDir dir;
        const QString data = dir.filePath("data");
        const QString shared = dir.filePath("shared");
        QVERIFY(writeFiles(data, {"cache/tdlib-files/documents/1_a.pdf:100",
                                  "cache/tdlib-files/photos/2.png:200", "cache/voice-wav/3.wav:300",
                                  "avatar-cache/x-144.png:4",
                                  "cache/tdlib-files/uploads/4_mine.jpg:50"}));
        QVERIFY(writeFiles(shared, {"downloads/quillo/a.pdf:100"}));
        // A shared folder that lies inside the cache and the voice note playing
        // stay; a link to a saved file goes, its target stays.
        const QString savedInside = data + "/cache/tdlib-files/documents/saved";
        QVERIFY(writeFiles(savedInside, {"b.pdf:70"}));
        QVERIFY(QFile::link(shared + "/downloads/quillo/a.pdf",
                            data + "/cache/tdlib-files/photos/link.pdf"));
        FilesCache cache(files_cache_folders(data));
        cache.setSparedFolders({shared + "/downloads/quillo", savedInside});
        cache.setInUseLookup([&] { return QStringList{data + "/cache/voice-wav/3.wav"}; });
        QSignalSpy cleared(&cache, &FilesCache::cleared);
        const CacheUsage kept = runToEnd(cache, true);
        QCOMPARE(cleared.size(), 1);
        QCOMPARE(usageText(cleared.first().at(0).value<CacheUsage>()),
                 QStringLiteral("Photos=2/200 Files=1/100 Avatars=1/4"));
        QCOMPARE(cleared.first().at(1).toInt(), 2);
        QCOMPARE(usageText(kept), QStringLiteral("Voice=1/300 Files=1/70"));
        QCOMPARE(readAll(shared + "/downloads/quillo/a.pdf").size(), 100);
        QVERIFY(QFileInfo::exists(data + "/cache/tdlib-files/uploads/4_mine.jpg"));
    }
};

QTEST_GUILESS_MAIN(TestFilesCache)
#include "test_files_cache.moc"
