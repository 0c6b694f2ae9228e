#include "chats/avatar_download_queue.h"
#include "chats/avatars.h"
#include "common/test_util.h"

using namespace test_util;

#include <QCryptographicHash>
#include <QElapsedTimer>
#include <QFile>
#include <QImage>
#include <QTemporaryDir>
#include <QtTest>

namespace {

bool writeImage(const QString &path, int w, int h, const QColor &color)
{
    QImage img(w, h, QImage::Format_RGB32);
    img.fill(color);
    return img.save(path, "PNG");
}

bool touch(const QString &path, int secsAhead)
{
    QFile f(path);
    return f.open(QIODevice::ReadWrite) &&
           f.setFileTime(QDateTime::currentDateTime().addSecs(secsAhead),
                         QFileDevice::FileModificationTime);
}

} // namespace

class TestAvatars : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void placeholderColor_data()
    {
        QTest::addColumn<qint64>("id");
        QTest::addColumn<QColor>("expected");
        // Palette entries worked out by hand from the mixer.
        QTest::newRow("1") << qint64(1) << QColor(43, 124, 255);
        QTest::newRow("3") << qint64(3) << QColor(216, 27, 96);
        QTest::newRow("100") << qint64(100) << QColor(84, 110, 122);
        QTest::newRow("-1 halves cancel") << qint64(-1) << QColor(43, 124, 255);
        QTest::newRow("halves xor to 2") << ((qint64(1) << 32) | 3) << QColor(0, 191, 165);
    }
    void placeholderColor()
    {
        QFETCH(qint64, id);
        QFETCH(QColor, expected);
        QCOMPARE(placeholder_avatar_color(id, QStringLiteral("ignored")), expected);
        // Without an id the title decides, and all eight entries are reachable.
        QSet<QRgb> seen;
        for (int i = 0; i < 200; ++i) {
            seen.insert(placeholder_avatar_color(0, QStringLiteral("t%1").arg(i)).rgba());
        }
        QCOMPARE(seen.size(), 8);
        QCOMPARE(placeholder_avatar_color(0, QStringLiteral("Al")),
                 placeholder_avatar_color(0, QStringLiteral("Al")));
    }
    void timeText_data()
    {
        QTest::addColumn<qint64>("date");
        QTest::addColumn<QString>("expected");
        // "now" is Sunday 2026-03-15 12:00 local time.
        QTest::newRow("none") << qint64(0) << "";
        QTest::newRow("negative") << qint64(-5) << "";
        QTest::newRow("today: hours and minutes, no seconds")
            << localSecs(2026, 3, 15, 9, 37) + 45 << "~37";
        QTest::newRow("yesterday") << localSecs(2026, 3, 14, 23, 59) << "Sat";
        QTest::newRow("seven days shows today's weekday") << localSecs(2026, 3, 8) << "Sun";
        QTest::newRow("eight days") << localSecs(2026, 3, 7) << "7 Mar";
        QTest::newRow("exactly a year") << localSecs(2025, 3, 15) << "15 Mar";
        QTest::newRow("a year and a day") << localSecs(2025, 3, 14) << "14 Mar 2025";
        QTest::newRow("tomorrow") << localSecs(2026, 3, 16) << "16 Mar";
    }
    void timeText()
    {
        QFETCH(qint64, date);
        QFETCH(QString, expected);
        const QString text =
            chat_list_time_text(date, QDateTime(QDate(2026, 3, 15), QTime(12, 0), Qt::LocalTime));
        if (expected.startsWith(QLatin1Char('~'))) {
            // The clock format is the locale's; only minutes, never seconds.
            QVERIFY2(text.contains(expected.mid(1)) && !text.contains(QLatin1String("45")),
                     qPrintable(text));
        } else {
            QCOMPARE(text, expected);
        }
        QCOMPARE(month_short_en(0) + month_short_en(1) + month_short_en(12) + month_short_en(13),
                 QStringLiteral("JanDec"));
    }
    void roundedAvatar_data()
    {
        QTest::addColumn<int>("width");
        QTest::addColumn<int>("height");
        QTest::newRow("wide") << 300 << 200;
        QTest::newRow("tall, small") << 50 << 100;
    }
    void roundedAvatar()
    {
        QFETCH(int, width);
        QFETCH(int, height);
        QTemporaryDir dir;
        const QString source = dir.filePath(QStringLiteral("photo.png"));
        QVERIFY(writeImage(source, width, height, QColor(200, 30, 40)));

        const QString out = ensureRoundedAvatarPng(5, source, dir.path());
        const QByteArray digest =
            QCryptographicHash::hash(source.toUtf8(), QCryptographicHash::Sha1);
        QCOMPARE(out, dir.path() + "/avatar-cache/" + digest.toHex() + "-144.png");
        const QImage img(out);
        QCOMPARE(img.size(), QSize(144, 144));
        QVERIFY(img.hasAlphaChannel());
        for (const QPoint corner :
             {QPoint(0, 0), QPoint(143, 0), QPoint(0, 143), QPoint(143, 143)}) {
            QCOMPARE(qAlpha(img.pixel(corner)), 0);
        }
        const QColor centre = img.pixelColor(72, 72);
        QCOMPARE(centre.alpha(), 255);
        QVERIFY(qAbs(centre.red() - 200) <= 2 && qAbs(centre.green() - 30) <= 2);
        // Points on the edges between the corners are inside the rounded shape.
        QCOMPARE(qAlpha(img.pixel(72, 0)), 255);
        QCOMPARE(qAlpha(img.pixel(0, 72)), 255);
    }
    void roundedAvatarUnusableInput_data()
    {
        QTest::addColumn<qint64>("fileId");
        QTest::addColumn<QString>("name"); // relative to the temp dir; "" = empty path
        QTest::newRow("file id 0") << qint64(0) << "photo.png";
        QTest::newRow("empty path") << qint64(4) << "";
        QTest::newRow("missing file") << qint64(4) << "missing.png";
        QTest::newRow("folder") << qint64(4) << "sub";
        QTest::newRow("not an image") << qint64(4) << "notes.txt";
    }
    void roundedAvatarUnusableInput()
    {
        QFETCH(qint64, fileId);
        QFETCH(QString, name);
        QTemporaryDir dir;
        QVERIFY(QDir(dir.path()).mkdir(QStringLiteral("sub")));
        QVERIFY(writeImage(dir.filePath(QStringLiteral("photo.png")), 20, 20, Qt::blue));
        QFile text(dir.filePath(QStringLiteral("notes.txt")));
        QVERIFY(text.open(QIODevice::WriteOnly) && text.write("not a picture") > 0);
        text.close();

        const QString path = name.isEmpty() ? QString() : dir.filePath(name);
        QCOMPARE(ensureRoundedAvatarPng(fileId, path, dir.path()), path);
        QVERIFY(!QFileInfo::exists(rounded_avatar_cache_path(path, dir.path())));
    }
    void roundedAvatarCacheFreshness()
    {
        QTemporaryDir dir;
        const QString source = dir.filePath(QStringLiteral("p.png"));
        QVERIFY(writeImage(source, 200, 200, QColor(0, 0, 255)));
        const QString out = ensureRoundedAvatarPng(9, source, dir.path());
        QVERIFY(out != source);
        // A fresh cache file is reused as it is: a planted marker, newer than
        // the source, stays.
        QVERIFY(writeImage(out, 144, 144, QColor(0, 255, 0)) && touch(out, 60));
        QCOMPARE(ensureRoundedAvatarPng(9, source, dir.path()), out);
        QCOMPARE(QImage(out).pixelColor(72, 72), QColor(0, 255, 0));
        // A source newer than the cache (a new download) is drawn again.
        QVERIFY(writeImage(source, 200, 200, QColor(255, 0, 0)) && touch(source, 120));
        QCOMPARE(ensureRoundedAvatarPng(9, source, dir.path()), out);
        const QColor centre = QImage(out).pixelColor(72, 72);
        QVERIFY(centre.red() > 250 && centre.green() < 5);
    }
    void bubbleBackground_data()
    {
        QTest::addColumn<int>("w");
        QTest::addColumn<int>("h");
        QTest::addColumn<int>("r");
        QTest::addColumn<QColor>("color");
        QTest::addColumn<QString>("expectedName");
        QTest::newRow("avatar tile")
            << 144 << 144 << 24 << QColor(43, 124, 255) << "bubble_bg_144x144_r24_cff2b7cff.png";
        QTest::newRow("translucent, small components")
            << 10 << 2048 << 1 << QColor(1, 2, 10, 128) << "bubble_bg_10x2048_r1_c8001020a.png";
        QTest::newRow("too wide") << 2049 << 80 << 12 << QColor(Qt::white) << "";
        QTest::newRow("zero height") << 20 << 0 << 12 << QColor(Qt::white) << "";
        QTest::newRow("zero radius") << 20 << 20 << 0 << QColor(Qt::white) << "";
    }
    void bubbleBackground()
    {
        QFETCH(int, w);
        QFETCH(int, h);
        QFETCH(int, r);
        QFETCH(QColor, color);
        QFETCH(QString, expectedName);
        QTemporaryDir dir;
        const QString cache = dir.filePath(QStringLiteral("ui-cache"));
        QImage drawn;
        const QString path = ensure_bubble_bg_png(w, h, r, color, cache, &drawn);
        if (expectedName.isEmpty()) {
            QVERIFY(path.isEmpty() && drawn.isNull());
            QVERIFY(!QFileInfo::exists(cache) || QDir(cache).isEmpty());
            return;
        }
        QCOMPARE(path, cache + QLatin1Char('/') + expectedName);
        const QImage img(path);
        QCOMPARE(img.size(), QSize(w, h));
        if (r > 2) {
            QCOMPARE(qAlpha(img.pixel(0, 0)), 0);
        }
        QVERIFY(qAbs(img.pixelColor(w / 2, h / 2).alpha() - color.alpha()) <= 1);
        // The image handed back is the one in the file.
        QCOMPARE(drawn.convertToFormat(QImage::Format_ARGB32),
                 img.convertToFormat(QImage::Format_ARGB32));
        // The second request reuses the file and draws nothing.
        drawn = QImage();
        const QDateTime made = QFileInfo(path).lastModified();
        QCOMPARE(ensure_bubble_bg_png(w, h, r, color, cache, &drawn), path);
        QVERIFY(drawn.isNull());
        QCOMPARE(QFileInfo(path).lastModified(), made);
    }
    void unreadBadge()
    {
        QTemporaryDir dir;
        const QString cache = dir.filePath(QStringLiteral("ui-cache"));
        const QString path = ensure_unread_badge_png(cache);
        QCOMPARE(path, cache + QStringLiteral("/unread_badge_bg_rr_56_r10_a128.png"));
        const QImage img(path);
        QCOMPARE(img.size(), QSize(56, 56));
        QCOMPARE(qAlpha(img.pixel(0, 0)), 0);
        const QColor mid = img.pixelColor(28, 28);
        QVERIFY(qAbs(mid.alpha() - 128) <= 1 && qAbs(mid.blue() - 255) <= 2);
        // Drawn again when the cache folder was emptied meanwhile.
        QVERIFY(QFile::remove(path));
        QCOMPARE(ensure_unread_badge_png(cache), path);
        QVERIFY(QFileInfo::exists(path));
    }
    void downloadQueue()
    {
        QStringList sent;
        QList<qint64> at;
        QElapsedTimer clock;
        AvatarDownloadQueue queue(
            [&](const QString &line) {
                sent.append(line);
                at.append(clock.elapsed());
            },
            nullptr);
        clock.start();
        for (qint64 id : {7, 7, 0, 8, -4, 7, 8}) {
            queue.enqueueAvatarDownload(id);
        }
        QTRY_COMPARE_WITH_TIMEOUT(sent.size(), 2, 5000);
        // Nothing more comes once the queue has drained: each photo once, no
        // invalid ids.
        QTRY_VERIFY_WITH_TIMEOUT(!queue.isTimerActive(), 5000);
        QCOMPARE(sent, (QStringList{"download 7", "download 8"}));
        // Paced: the first after one 400 ms tick, the next a tick later (coarse
        // timers may fire up to 5% early).
        QVERIFY2(at.at(0) >= 370 && at.at(1) - at.at(0) >= 370,
                 qPrintable(QStringLiteral("%1 %2").arg(at.at(0)).arg(at.at(1))));
    }
};

QTEST_MAIN(TestAvatars)
#include "test_avatars.moc"
