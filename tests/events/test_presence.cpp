#include "events/presence.h"
#include "platform/array_data_model.h"

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
        // "now" is 2026-03-15 18:00 local time; the peer-of-open-chat and chat_info dispatcher
        // cases cover "online" and "last_week".
        auto row = [](const char *type, qint64 at, const char *text) {
            QTest::newRow(*text ? text : type) << type << at << text;
        };
        row("  Online ", 0, "online");
        row("recently", 0, "last seen recently");
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
    void subtitle_data()
    {
        QTest::addColumn<QString>("chatType");
        QTest::addColumn<QVariantMap>("info");
        QTest::addColumn<QString>("expected");
        // Groups with members online and channels: the dispatcher cases.
        auto row = [](const char *name, const char *type, const QVariantMap &info,
                      const char *text) { QTest::newRow(name) << type << info << text; };
        row("secret", "secret", {{"peer_user_id", "42"}}, "last seen recently");
        row("unknown peer", "private", {{"peer_user_id", 43}}, "");
        row("none online", "basic_group", {{"member_count", 12}, {"online_count", 0}},
            "12 members");
        row("group without members", "supergroup", {{"member_count", 0}, {"online_count", 5}}, "");
        row("channel without members", "channel", {}, "");
        row("unknown type", "bot", {{"member_count", 9}}, "");
    }
    void subtitle()
    {
        QFETCH(QString, chatType);
        QFETCH(QVariantMap, info);
        QFETCH(QString, expected);
        Presence p;
        p.setStatusText(42, QStringLiteral(" last seen recently "));
        QCOMPARE(p.chatHeaderSubtitle(chatType, info), expected);
    }
    void senderUpdate_data()
    {
        // The first message row is user 42's, "Old" with photo 5; a round PNG
        // exists for photo 66 only.
        QTest::addColumn<qint64>("userId");
        QTest::addColumn<QString>("name");
        QTest::addColumn<qint64>("photo");
        QTest::addColumn<int>("changed");
        QTest::addColumn<QString>("after"); // name|photo id|avatar path
        auto row = [](const char *n, qint64 user, const char *name, qint64 photo, int changed,
                      const char *after) {
            QTest::newRow(n) << user << name << photo << changed << after;
        };
        row("new name", 42, "Neo", 0, 2, "Neo|5|");
        row("empty name", 42, "", 0, 0, "Old|5|");
        row("new photo with round png", 42, "", 66, 2, "Old|66|/r/66.png");
        row("same photo", 42, "", 5, 0, "Old|5|");
        row("other user", 44, "Neo", 66, 0, "Old|5|");
    }
    void senderUpdate()
    {
        QFETCH(qint64, userId);
        QFETCH(QString, name);
        QFETCH(qint64, photo);
        QFETCH(int, changed);
        QFETCH(QString, after);
        Presence p;
        p.setAvatarPath(66, QStringLiteral("/r/66.png"));
        ArrayDataModel model;
        QVariantMap mine{{"id", "1"}, {"sender_user_id", "42"}, {"sender_name", "Old"}};
        mine.insert(QStringLiteral("sender_photo_small_id"), QStringLiteral("5"));
        const QVariantMap other{{"id", "2"}, {"text", "no sender"}};
        model.append(mine);
        model.append(other);
        QList<QVariantMap> buffered{mine};
        QCOMPARE(p.updateSenderInfoForUser(&model, &buffered, userId, name, photo), changed);
        const QVariantMap row = model.value(0);
        QStringList got;
        for (const char *key : {"sender_name", "sender_photo_small_id", "sender_avatar_path"})
            got << row.value(QLatin1String(key)).toString();
        QCOMPARE(got.join(QLatin1Char('|')), after);
        QCOMPARE(buffered.at(0), row);
        QCOMPARE(model.value(1), other);
    }
};

QTEST_GUILESS_MAIN(TestPresence)
#include "test_presence.moc"
