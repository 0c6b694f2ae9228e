#include "common/notification_server.h"
#include "common/test_util.h"
#include "platform/desktop_notifications.h"

#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

using namespace test_util;

// The notification client against a notification server on the private
// session bus the test runs on.
class TestNotifications : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void showReplaceAndClick();
    void noServiceFails();
};

void TestNotifications::showReplaceAndClick()
{
    NotificationServerHost host;
    QVERIFY(host.start());
    const QList<RecordedNotification> &calls = host.server.calls;
    QTemporaryDir dir;
    const QString avatar = dir.filePath("a.png");
    QVERIFY(writeFile(avatar, "png"));

    DesktopNotifications notes(QDBusConnection::sessionBus());
    QSignalSpy activated(&notes, &DesktopNotifications::activated);
    notes.show(7, "Ann", "hello", avatar);
    // Two more before the first answer: the last one replaces it.
    notes.show(7, "Ann", "second", avatar);
    notes.show(7, "Ann", "third", avatar, true);
    notes.show(8, "Bob", "hi", dir.filePath("missing.png"));
    QTRY_COMPARE(calls.size(), 3);

    QCOMPARE(calls[0].summary, QStringLiteral("Ann"));
    QCOMPARE(calls[0].body, QStringLiteral("hello"));
    QCOMPARE(calls[0].replacesId, 0u);
    QCOMPARE(calls[0].hints.value("image-path").toString(), avatar);
    QVERIFY(calls[0].actions.contains("default"));
    QVERIFY(!calls[0].hints.contains("suppress-sound"));
    const RecordedNotification bob = calls[1].summary == "Bob" ? calls[1] : calls[2];
    const RecordedNotification third = calls[1].summary == "Bob" ? calls[2] : calls[1];
    QCOMPARE(bob.replacesId, 0u);
    QVERIFY(!bob.hints.contains("image-path"));
    QCOMPARE(third.body, QStringLiteral("third"));
    QCOMPARE(third.replacesId, calls[0].id);
    QVERIFY(third.hints.value("suppress-sound").toBool());

    host.click(bob.id);
    QVERIFY(activated.wait());
    QCOMPARE(activated.takeFirst().at(0).toLongLong(), 8);
}

void TestNotifications::noServiceFails()
{
    DesktopNotifications notes(QDBusConnection::sessionBus());
    QSignalSpy failed(&notes, &DesktopNotifications::failed);
    notes.show(1, "Ann", "hello", QString());
    QVERIFY(failed.wait());
}

QTEST_GUILESS_MAIN(TestNotifications)
#include "test_notifications.moc"
