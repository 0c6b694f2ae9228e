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

// Runs the helper process to its end and gives its exit code.
int runHelper(const QStringList &args)
{
    QProcess p;
    p.start(QCoreApplication::applicationDirPath() + "/platform_helper", args);
    return p.waitForFinished(10000) && p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1;
}

} // namespace

class TestInstanceChannel : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void serverNameDependsOnDataDir()
    {
        const QString a = InstanceChannel::server_name_for("/tmp/a");
        QCOMPARE(InstanceChannel::server_name_for("/tmp/a/"), a);
        QVERIFY(a != InstanceChannel::server_name_for("/tmp/b"));
        QVERIFY(a.startsWith("vexa-"));
    }

    void urlsFromAnotherProcess_data()
    {
        QTest::addColumn<QString>("url"); // empty: asks for the window only
        QTest::newRow("tg link") << "tg://resolve?domain=someone";
        QTest::newRow("unicode") << QString::fromUtf8("tg://msg?text=h\xc3\xa9llo");
        QTest::newRow("empty") << "";
    }

    // The running instance is this process; a real second process sends.
    void urlsFromAnotherProcess()
    {
        QFETCH(QString, url);
        InstanceChannel primary(uniqueName());
        QString error;
        QVERIFY2(primary.listen(&error), qPrintable(error));
        QSignalSpy urls(&primary, &InstanceChannel::urlReceived);
        QSignalSpy raise(&primary, &InstanceChannel::activationRequested);
        QProcess sender;
        sender.start(QCoreApplication::applicationDirPath() + "/platform_helper",
                     {"send", primary.serverName(), url});
        // This process must keep its event loop running to answer.
        QTRY_VERIFY_WITH_TIMEOUT(sender.state() == QProcess::NotRunning, 10000);
        QCOMPARE(sender.exitCode(), 0);
        QCOMPARE(raise.count(), url.isEmpty() ? 1 : 0);
        QCOMPARE(urls.count(), url.isEmpty() ? 0 : 1);
        if (!url.isEmpty())
            QCOMPARE(urls.at(0).at(0).toString(), url);
    }

    void refused_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<bool>("raw"); // written to the socket by a client that is not ours
        // The sender's error, or the listener's reply to a raw client (empty: it hangs up).
        QTest::addColumn<QByteArray>("expected");
        const QByteArray noBreak(InstanceChannel::MaxMessageBytes, 'a');
        QTest::newRow("line feed")
            << QByteArray("tg://a\nquit") << false << QByteArray("line break");
        QTest::newRow("carriage return")
            << QByteArray("tg://a\rq") << false << QByteArray("line break");
        QTest::newRow("too long") << noBreak << false << QByteArray("too long");
        QTest::newRow("nobody listening")
            << QByteArray("tg://x") << false << QByteArray("no running instance");
        QTest::newRow("raw carriage return")
            << QByteArray("tg://a\rb\n") << true << QByteArray("bad\n");
        QTest::newRow("raw, no line break within the limit") << noBreak + "aa\n"
                                                             << true << QByteArray();
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

    // Both sides as separate processes, as `vexa URL` does it.
    void handsOverToListeningProcess()
    {
        const QString name = uniqueName();
        QProcess primary;
        primary.start(QCoreApplication::applicationDirPath() + "/platform_helper",
                      {"listen", name});
        QByteArray out;
        QTRY_VERIFY_WITH_TIMEOUT((out += primary.readAllStandardOutput()).contains("ready\n"),
                                 10000);
        QCOMPARE(runHelper({"send", name, "tg://join?invite=abc"}), 0);
        QTRY_VERIFY_WITH_TIMEOUT(
            (out += primary.readAllStandardOutput()).contains("url tg://join?invite=abc\n"), 10000);
        // A second listener on the same name refuses and leaves the first working.
        QCOMPARE(runHelper({"listen", name}), 1);
        QCOMPARE(runHelper({"send", name, "tg://again"}), 0);
        QTRY_VERIFY_WITH_TIMEOUT(
            (out += primary.readAllStandardOutput()).contains("url tg://again\n"), 10000);
        primary.terminate();
        QVERIFY(primary.waitForFinished(5000));
    }
};

QTEST_GUILESS_MAIN(TestInstanceChannel)
#include "test_instance_channel.moc"
