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

QString helper()
{
    return QCoreApplication::applicationDirPath() + "/platform_helper";
}

} // namespace

class TestInstanceChannel : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void serverNameDependsOnDataDir();
    void urlsFromAnotherProcess_data();
    void urlsFromAnotherProcess();
    void rejectedUrls_data();
    void rejectedUrls();
    void nobodyListening();
    void secondListenerRefused();
    void oversizedMessageIsDropped();
    void carriageReturnFromRawClientRefused();
    void handsOverToListeningProcess();
};

void TestInstanceChannel::serverNameDependsOnDataDir()
{
    const QString a = InstanceChannel::server_name_for("/tmp/a");
    QCOMPARE(InstanceChannel::server_name_for("/tmp/a/"), a);
    QVERIFY(a != InstanceChannel::server_name_for("/tmp/b"));
    QVERIFY(a.startsWith("vexa-"));
}

void TestInstanceChannel::urlsFromAnotherProcess_data()
{
    QTest::addColumn<QString>("url");
    QTest::addColumn<bool>("activation");
    QTest::newRow("tg link") << "tg://resolve?domain=someone" << false;
    QTest::newRow("unicode") << QString::fromUtf8("tg://msg?text=h\xc3\xa9llo") << false;
    QTest::newRow("empty asks for the window") << "" << true;
}

// The running instance is this process; a real second process sends.
void TestInstanceChannel::urlsFromAnotherProcess()
{
    QFETCH(QString, url);
    QFETCH(bool, activation);
    InstanceChannel primary(uniqueName());
    QString error;
    QVERIFY2(primary.listen(&error), qPrintable(error));
    QSignalSpy urls(&primary, &InstanceChannel::urlReceived);
    QSignalSpy raise(&primary, &InstanceChannel::activationRequested);

    QProcess sender;
    sender.start(helper(), {"send", primary.serverName(), url});
    QVERIFY(sender.waitForStarted(5000));
    QTRY_VERIFY_WITH_TIMEOUT(sender.state() == QProcess::NotRunning, 10000);
    QCOMPARE(sender.exitCode(), 0);
    if (activation) {
        QCOMPARE(raise.count(), 1);
        QCOMPARE(urls.count(), 0);
    } else {
        QCOMPARE(urls.count(), 1);
        QCOMPARE(urls.at(0).at(0).toString(), url);
        QCOMPARE(raise.count(), 0);
    }
}

void TestInstanceChannel::rejectedUrls_data()
{
    QTest::addColumn<QString>("url");
    QTest::newRow("line feed") << "tg://a\nquit";
    QTest::newRow("carriage return") << "tg://a\rquit";
    QTest::newRow("too long") << QString(InstanceChannel::MaxMessageBytes, QLatin1Char('a'));
}

void TestInstanceChannel::rejectedUrls()
{
    QFETCH(QString, url);
    InstanceChannel primary(uniqueName());
    QString error;
    QVERIFY(primary.listen(&error));
    QSignalSpy urls(&primary, &InstanceChannel::urlReceived);
    InstanceChannel second(primary.serverName());
    QVERIFY(!second.sendToRunning(url, 1000, &error));
    QVERIFY(!error.isEmpty());
    QTest::qWait(50);
    QCOMPARE(urls.count(), 0);
}

void TestInstanceChannel::nobodyListening()
{
    InstanceChannel lone(uniqueName());
    QString error;
    QVERIFY(!lone.sendToRunning("tg://x", 500, &error));
    QVERIFY(error.contains("no running instance"));
}

void TestInstanceChannel::secondListenerRefused()
{
    InstanceChannel first(uniqueName());
    QString error;
    QVERIFY(first.listen(&error));
    InstanceChannel second(first.serverName());
    QVERIFY(!second.listen(&error));
    QVERIFY(error.contains("another instance"));
    QVERIFY(first.isListening());
}

void TestInstanceChannel::oversizedMessageIsDropped()
{
    InstanceChannel primary(uniqueName());
    QString error;
    QVERIFY(primary.listen(&error));
    QSignalSpy urls(&primary, &InstanceChannel::urlReceived);

    QLocalSocket raw;
    raw.connectToServer(primary.serverName());
    QVERIFY(raw.waitForConnected(2000));
    QSignalSpy closed(&raw, &QLocalSocket::disconnected);
    // No line break within the limit: the server hangs up.
    raw.write(QByteArray(InstanceChannel::MaxMessageBytes + 100, 'a'));
    raw.write("\n");
    QTRY_VERIFY_WITH_TIMEOUT(closed.count() > 0, 5000);
    QCOMPARE(urls.count(), 0);
}

void TestInstanceChannel::carriageReturnFromRawClientRefused()
{
    InstanceChannel primary(uniqueName());
    QString error;
    QVERIFY(primary.listen(&error));
    QSignalSpy urls(&primary, &InstanceChannel::urlReceived);
    QLocalSocket raw;
    raw.connectToServer(primary.serverName());
    QVERIFY(raw.waitForConnected(2000));
    raw.write("tg://a\rb\n");
    QTRY_VERIFY_WITH_TIMEOUT(
        raw.bytesAvailable() > 0 || raw.state() != QLocalSocket::ConnectedState, 5000);
    QCOMPARE(raw.readAll(), QByteArray("bad\n"));
    QCOMPARE(urls.count(), 0);
}

// Both sides as separate processes, as `vexa URL` does it.
void TestInstanceChannel::handsOverToListeningProcess()
{
    const QString name = uniqueName();
    QProcess primary;
    primary.start(helper(), {"listen", name});
    QVERIFY(primary.waitForStarted(5000));
    QByteArray out;
    QTRY_VERIFY_WITH_TIMEOUT((out += primary.readAllStandardOutput()).contains("ready\n"), 10000);

    QProcess second;
    second.start(helper(), {"send", name, "tg://join?invite=abc"});
    QVERIFY(second.waitForFinished(10000));
    QCOMPARE(second.exitCode(), 0);
    QTRY_VERIFY_WITH_TIMEOUT(
        (out += primary.readAllStandardOutput()).contains("url tg://join?invite=abc\n"), 10000);

    // A second listener on the same name must refuse while the first runs.
    QProcess third;
    third.start(helper(), {"listen", name});
    QVERIFY(third.waitForFinished(10000));
    QCOMPARE(third.exitCode(), 1);

    primary.terminate();
    QVERIFY(primary.waitForFinished(5000));
}

QTEST_GUILESS_MAIN(TestInstanceChannel)
#include "tst_instance_channel.moc"
