#include "platform/instance_channel.h"

#include <QCoreApplication>
#include <QLocalSocket>
#include <QProcess>
#include <QSignalSpy>
#include <QUuid>
#include <QtTest>

namespace {

QString uniqueName()
{
    return QStringLiteral("vexa-test-") + QUuid::createUuid().toString(QUuid::Id128).left(12);
}

} // namespace

class TestInstanceChannel : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    // The running instance is this process; a real second process sends. An
    // empty request and a second instance: test_startup.
    void urlFromAnotherProcess()
    {
        const QString url = QString::fromUtf8("tg://msg?text=h\xc3\xa9llo");
        InstanceChannel primary(uniqueName());
        QString error;
        QVERIFY2(primary.listen(&error), qPrintable(error));
        QSignalSpy urls(&primary, &InstanceChannel::urlReceived);
        QProcess sender;
        sender.start(QCoreApplication::applicationDirPath() + "/platform_helper",
                     {"send", primary.serverName(), url});
        // This process must keep its event loop running to answer.
        QTRY_VERIFY_WITH_TIMEOUT(sender.state() == QProcess::NotRunning, 10000);
        QCOMPARE(sender.exitCode(), 0);
        QCOMPARE(urls, QList<QVariantList>{{url}});
    }

    void refused_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<bool>("raw"); // written to the socket by a client that is not ours
        // The sender's error, or the listener's reply to a raw client (empty: it hangs up).
        QTest::addColumn<QByteArray>("expected");
        const QByteArray noBreak(InstanceChannel::MaxMessageBytes, 'a');
        const auto row = [](const char *name, const QByteArray &bytes, bool raw,
                            const char *expected) {
            QTest::newRow(name) << bytes << raw << QByteArray(expected);
        };
        row("line feed", "tg://a\nquit", false, "line break");
        row("too long", noBreak, false, "too long");
        row("nobody listening", "tg://x", false, "no running instance");
        row("raw carriage return", "tg://a\rb\n", true, "bad\n");
        row("raw, no line break within the limit", noBreak + "aa\n", true, "");
    }

    void refused()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(bool, raw);
        QFETCH(QByteArray, expected);
        InstanceChannel primary(uniqueName());
        QString error;
        QVERIFY(expected.startsWith("no running") || primary.listen(&error));
        QSignalSpy urls(&primary, &InstanceChannel::urlReceived);
        if (raw) {
            QLocalSocket client;
            client.connectToServer(primary.serverName());
            QVERIFY(client.waitForConnected(2000));
            QSignalSpy closed(&client, &QLocalSocket::disconnected);
            client.write(bytes);
            QTRY_VERIFY_WITH_TIMEOUT(client.bytesAvailable() > 0 || closed.count() > 0, 5000);
            QCOMPARE(client.readAll(), expected);
            QVERIFY(!expected.isEmpty() || closed.count() == 1);
        } else {
            InstanceChannel second(primary.serverName());
            QVERIFY(!second.sendToRunning(QString::fromUtf8(bytes), 500, &error));
            QVERIFY2(error.contains(expected), qPrintable(error));
        }
        QCOMPARE(urls.count(), 0);
    }
};

QTEST_GUILESS_MAIN(TestInstanceChannel)
#include "test_instance_channel.moc"
