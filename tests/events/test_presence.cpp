#include "events/presence.h"
#include "platform/array_data_model.h"

#include "common/test_util.h"

#include <QtTest>

using test_util::localSecs;

class TestPresence : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void statusText_data();
    void statusText();
    void subtitle_data();
    void subtitle();
    void senderUpdate_data();
    void senderUpdate();
};

void TestPresence::statusText_data()
{
    QTest::addColumn<QString>("type");
    QTest::addColumn<qint64>("wasOnline");
    QTest::addColumn<QString>("expected");
    // "now" is 2026-03-15 18:00 local time.
    QTest::newRow("online") << "online" << qint64(0) << "online";
    QTest::newRow("online padded, any case") << "  Online " << qint64(0) << "online";
    QTest::newRow("recently") << "recently" << qint64(0) << "last seen recently";
    QTest::newRow("last_week") << "last_week" << qint64(0) << "last seen within a week";
    QTest::newRow("last_month") << "LAST_MONTH" << qint64(0) << "last seen within a month";
    QTest::newRow("empty") << "empty" << qint64(0) << "last seen long ago";
    QTest::newRow("offline unknown time") << "offline" << qint64(0) << "offline";
    QTest::newRow("offline today")
        << "offline" << localSecs(2026, 3, 15, 9, 5) << "last seen at 09:05";
    QTest::newRow("offline yesterday")
        << "offline" << localSecs(2026, 3, 14, 23, 59) << "last seen 2026-03-14 23:59";
    QTest::newRow("offline long ago")
        << "offline" << localSecs(2024, 1, 2, 3, 4) << "last seen 2024-01-02 03:04";
    QTest::newRow("unknown type") << "bot" << qint64(0) << "";
}

void TestPresence::statusText()
{
    QFETCH(QString, type);
    QFETCH(qint64, wasOnline);
    QFETCH(QString, expected);
    const QDateTime now(QDate(2026, 3, 15), QTime(18, 0), Qt::LocalTime);
    QCOMPARE(Presence::formatUserStatusText(type, wasOnline, 123456, now), expected);
    // The expiry takes no part in the text.
    QCOMPARE(Presence::formatUserStatusText(type, wasOnline, 0, now), expected);
}

void TestPresence::subtitle_data()
{
    QTest::addColumn<QString>("chatType");
    QTest::addColumn<QVariantMap>("info");
    QTest::addColumn<QString>("expected");
    QTest::newRow("private with presence")
        << "private" << QVariantMap{{"peer_user_id", 42}} << "last seen recently";
    QTest::newRow("secret with presence")
        << "secret" << QVariantMap{{"peer_user_id", "42"}} << "last seen recently";
    QTest::newRow("private unknown peer") << "private" << QVariantMap{{"peer_user_id", 43}} << "";
    QTest::newRow("private no record") << "private" << QVariantMap{} << "";
    QTest::newRow("group with online")
        << "supergroup" << QVariantMap{{"member_count", 12}, {"online_count", 3}}
        << "12 members, 3 online";
    QTest::newRow("group none online")
        << "basic_group" << QVariantMap{{"member_count", 12}, {"online_count", 0}} << "12 members";
    QTest::newRow("group without members")
        << "supergroup" << QVariantMap{{"member_count", 0}, {"online_count", 5}} << "";
    QTest::newRow("channel") << "channel" << QVariantMap{{"member_count", 1500}}
                             << "1500 subscribers";
    QTest::newRow("channel without members") << "channel" << QVariantMap{} << "";
    QTest::newRow("unknown type") << "bot" << QVariantMap{{"member_count", 9}} << "";
}

void TestPresence::subtitle()
{
    QFETCH(QString, chatType);
    QFETCH(QVariantMap, info);
    QFETCH(QString, expected);
    Presence p;
    p.setStatusText(42, QStringLiteral(" last seen recently "));
    QCOMPARE(p.chatHeaderSubtitle(chatType, info), expected);
}

void TestPresence::senderUpdate_data()
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
    row("same name, no photo", 42, "Old", 0, 0, "Old|5|");
    row("empty name", 42, "", 0, 0, "Old|5|");
    row("new photo with round png", 42, "", 66, 2, "Old|66|/r/66.png");
    row("new photo not yet made", 42, "", 67, 2, "Old|67|");
    row("same photo", 42, "", 5, 0, "Old|5|");
    row("other user", 44, "Neo", 66, 0, "Old|5|");
    row("user 0 touches nothing", 0, "Neo", 66, 0, "Old|5|");
}

void TestPresence::senderUpdate()
{
    QFETCH(qint64, userId);
    QFETCH(QString, name);
    QFETCH(qint64, photo);
    QFETCH(int, changed);
    QFETCH(QString, after);
    Presence p;
    p.setAvatarPath(66, QStringLiteral("/r/66.png"));
    ArrayDataModel model;
    const QVariantMap mine{{"id", "1"},
                           {"sender_user_id", "42"},
                           {"sender_name", "Old"},
                           {"sender_photo_small_id", "5"}};
    const QVariantMap other{{"id", "2"}, {"text", "no sender"}};
    model.append(mine);
    model.append(other);
    QList<QVariantMap> buffered{mine};
    QCOMPARE(p.updateSenderInfoForUser(&model, &buffered, userId, name, photo), changed);
    const QVariantMap row = model.value(0);
    QCOMPARE(QStringList({row.value(QStringLiteral("sender_name")).toString(),
                          row.value(QStringLiteral("sender_photo_small_id")).toString(),
                          row.value(QStringLiteral("sender_avatar_path")).toString()})
                 .join(QLatin1Char('|')),
             after);
    QCOMPARE(buffered.at(0), row);
    QCOMPARE(model.value(1), other);
    // Without any rows nothing breaks.
    QCOMPARE(p.updateSenderInfoForUser(nullptr, nullptr, userId, name, photo), 0);
}

QTEST_GUILESS_MAIN(TestPresence)
#include "test_presence.moc"
