#include "chats/avatar_download_queue.h"
#include "chats/avatars.h"
#include "common/test_util.h"

#include <QElapsedTimer>
#include <QImage>
#include <QTemporaryDir>
#include <QtTest>

using namespace test_util;

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
    // Ids 1 to 3 are checked through the chat rows; here the halves of a
    // 64-bit id, and the title when there is no id.
    void placeholderColor()
    {
        QCOMPARE(placeholder_avatar_color(-1, "x"), placeholder_avatar_color(1, "y"));
        QCOMPARE(placeholder_avatar_color((qint64(1) << 32) | 3, "x"), QColor(0, 191, 165));
        QSet<QRgb> seen;
        for (int i = 0; i < 200; ++i)
            seen.insert(placeholder_avatar_color(0, QStringLiteral("t%1").arg(i)).rgba());
        QCOMPARE(seen.size(), 8);
    }
    void timeText_data()
    {
        QTest::addColumn<qint64>("date");
        QTest::addColumn<QString>("expected");
        // "now" is Sunday 2026-03-15 12:00 local time.
        QTest::newRow("none") << qint64(0) << "";
        QTest::newRow("today: hours and minutes, no seconds")
            << localSecs(2026, 3, 15, 9, 37) + 45 << "~37";
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
    }
    void roundedAvatar()
    {
        QTemporaryDir dir;
        const QString source = dir.filePath(QStringLiteral("photo.png"));
        QVERIFY(writeImage(source, 300, 200, QColor(200, 30, 40)));
        // The round shape itself is checked on the demo's photos.
        const QString out = ensureRoundedAvatarPng(9, source, dir.path());
        const QImage img(out);
        QCOMPARE(img.size(), QSize(144, 144));
        QCOMPARE(qAlpha(img.pixel(0, 0)), 0);
        QVERIFY(qAbs(img.pixelColor(72, 72).red() - 200) <= 2);
        // A fresh cache file is reused as it is: a planted marker, newer than the source, stays.
        QVERIFY(writeImage(out, 144, 144, QColor(0, 255, 0)) && touch(out, 60));
        QCOMPARE(ensureRoundedAvatarPng(9, source, dir.path()), out);
        QCOMPARE(QImage(out).pixelColor(72, 72), QColor(0, 255, 0));
        // A source newer than the cache (a new download) is drawn again.
        QVERIFY(writeImage(source, 200, 200, QColor(0, 0, 255)) && touch(source, 120));
        QCOMPARE(ensureRoundedAvatarPng(9, source, dir.path()), out);
        QVERIFY(QImage(out).pixelColor(72, 72).blue() > 250);
        // A file that is no picture comes back as it is, and nothing is cached for it.
        const QString notes = dir.filePath(QStringLiteral("notes.txt"));
        QVERIFY(writeFile(notes, "not a picture"));
        QCOMPARE(ensureRoundedAvatarPng(4, notes, dir.path()), notes);
        QVERIFY(!QFileInfo::exists(rounded_avatar_cache_path(notes, dir.path())));
    }
    // "w h r argb": a cached tile, or none for an unusable size.
    void bubbleBackground_data()
    {
        QTest::addColumn<QString>("tile");
        QTest::addColumn<bool>("drawn");
        QTest::newRow("avatar tile") << "144 144 24 ff2b7cff" << true;
        QTest::newRow("translucent, small components") << "10 2048 1 8001020a" << true;
        QTest::newRow("too wide") << "2049 80 12 ffffffff" << false;
    }
    void bubbleBackground()
    {
        QFETCH(QString, tile);
        QFETCH(bool, drawn);
        const QStringList v = tile.split(' ');
        const int w = v[0].toInt(), h = v[1].toInt(), r = v[2].toInt();
        const QColor color = QColor::fromRgba(v[3].toUInt(nullptr, 16));
        QTemporaryDir dir;
        const QString cache = dir.filePath(QStringLiteral("ui-cache"));
        const QString path = ensure_bubble_bg_png(w, h, r, color, cache);
        if (!drawn) {
            QVERIFY(path.isEmpty());
            return;
        }
        // Colours whose digits would run together unpadded get files of their own.
        QVERIFY(ensure_bubble_bg_png(w, h, r, QColor(1, 0x2a, 3), cache) !=
                ensure_bubble_bg_png(w, h, r, QColor(0x12, 0x0a, 3), cache));
        const QImage img(path);
        QCOMPARE(img.size(), QSize(w, h));
        if (r > 2)
            QCOMPARE(qAlpha(img.pixel(0, 0)), 0);
        QVERIFY(qAbs(img.pixelColor(w / 2, h / 2).alpha() - color.alpha()) <= 1);
    }
    void unreadBadge()
    {
        // Drawn again when the cache folder was emptied meanwhile.
        QTemporaryDir dir;
        const QString path = ensure_unread_badge_png(dir.path());
        QVERIFY(QFile::remove(path));
        QCOMPARE(ensure_unread_badge_png(dir.path()), path);
        QVERIFY(!QImage(path).isNull());
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
        for (qint64 id : {7, 7, 0, 8, -4, 7, 8})
            queue.enqueueAvatarDownload(id);
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
