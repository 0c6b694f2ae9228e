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

    void refusedBySender_data()
    {
        QTest::addColumn<QString>("url");
        QTest::addColumn<QString>("why");
        QTest::newRow("line feed") << "tg://a\nquit" << QString("line break");
        QTest::newRow("carriage return") << "tg://a\rquit" << QString("line break");
        QTest::newRow("too long") << QString(InstanceChannel::MaxMessageBytes, QLatin1Char('a'))
                                  << QString("too long");
        QTest::newRow("nobody listening") << "tg://x" << QString("no running instance");
    }

    void refusedBySender()
    {
        QFETCH(QString, url);
        QFETCH(QString, why);
        InstanceChannel primary(uniqueName());
        QString error;
        QVERIFY(why.startsWith("no running") || primary.listen(&error));
        QSignalSpy urls(&primary, &InstanceChannel::urlReceived);
        InstanceChannel second(primary.serverName());
        QVERIFY(!second.sendToRunning(url, 500, &error));
        QVERIFY2(error.contains(why), qPrintable(error));
        QTest::qWait(50);
        QCOMPARE(urls.count(), 0);
    }

    // A client that is not ours writes straight to the socket.
    void refusedByListener_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<QByteArray>("reply"); // empty: the listener hangs up
        QTest::newRow("carriage return") << QByteArray("tg://a\rb\n") << QByteArray("bad\n");
        QTest::newRow("no line break within the limit")
            << QByteArray(InstanceChannel::MaxMessageBytes + 100, 'a') + '\n'
            << QByteArray();
    }

    void refusedByListener()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(QByteArray, reply);
        InstanceChannel primary(uniqueName());
        QString error;
        QVERIFY(primary.listen(&error));
        QSignalSpy urls(&primary, &InstanceChannel::urlReceived);
        QLocalSocket raw;
        raw.connectToServer(primary.serverName());
        QVERIFY(raw.waitForConnected(2000));
        QSignalSpy closed(&raw, &QLocalSocket::disconnected);
        raw.write(bytes);
        QTRY_VERIFY_WITH_TIMEOUT(raw.bytesAvailable() > 0 || closed.count() > 0, 5000);
        QCOMPARE(raw.readAll(), reply);
        if (reply.isEmpty())
            QCOMPARE(closed.count(), 1);
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
#include "tst_instance_channel.moc"
