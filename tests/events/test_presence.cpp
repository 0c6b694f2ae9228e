#include "events/presence.h"

#include "common/test_util.h"

#include <QtTest>

using test_util::localSecs;

class TestPresence : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void statusText_data()
    {
        QTest::addColumn<QString>("type");
        QTest::addColumn<qint64>("wasOnline");
        QTest::addColumn<QString>("expected");
        // "now" is 2026-03-15 18:00 local time; the subtitles made from these and the member counts
        // are the dispatcher's cases, as are the sender rows updated from a "user" event.
        auto row = [](const char *type, qint64 at, const char *text) {
            QTest::newRow(*text ? text : type) << type << at << text;
        };
        row("  Online ", 0, "online");
        row("LAST_MONTH", 0, "last seen within a month");
        row("empty", 0, "last seen long ago");
        row("offline", 0, "offline");
        row("offline", localSecs(2026, 3, 15, 9, 5), "last seen at 09:05");
        row("offline", localSecs(2026, 3, 14, 23, 59), "last seen 2026-03-14 23:59");
        row("bot", 0, "");
    }
    void statusText()
    {
        QFETCH(QString, type);
        QFETCH(qint64, wasOnline);
        QFETCH(QString, expected);
        const QDateTime now(QDate(2026, 3, 15), QTime(18, 0), Qt::LocalTime);
        QCOMPARE(Presence::formatUserStatusText(type, wasOnline, 123456, now), expected);
    }
};

QTEST_GUILESS_MAIN(TestPresence)
#include "test_presence.moc"
