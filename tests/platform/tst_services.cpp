#include "platform/clipboard.h"
#include "platform/invoker.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QMimeData>
#include <QtTest>

class TestServices : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void systemClipboard_data();
    void systemClipboard();
    void recordingClipboard();
    void desktopInvoker();
    void recordingInvoker();
};

void TestServices::systemClipboard_data()
{
    QTest::addColumn<QString>("mime");
    QTest::addColumn<QByteArray>("data");
    QTest::newRow("text") << "text/plain" << QByteArray("https://t.me/somebody");
    QTest::newRow("utf-8 text") << "text/plain" << QByteArray("gr\xc3\xbc\xc3\x9f dich");
    QTest::newRow("other type") << "application/x-vexa-id" << QByteArray("-100123");
}

void TestServices::systemClipboard()
{
    QFETCH(QString, mime);
    QFETCH(QByteArray, data);
    SystemClipboard cb;
    QVERIFY(cb.insert(mime, data));
    const QMimeData *md = QGuiApplication::clipboard()->mimeData();
    QVERIFY(md);
    if (mime == "text/plain") {
        QCOMPARE(cb.text(), QString::fromUtf8(data));
        QCOMPARE(md->text(), QString::fromUtf8(data));
    } else {
        QCOMPARE(md->data(mime), data);
    }
    QVERIFY(!cb.insert(QString(), data));
}

void TestServices::recordingClipboard()
{
    RecordingClipboard cb;
    cb.setText("one");
    cb.insert("application/x-other", "x");
    QCOMPARE(cb.text(), QStringLiteral("one"));
    QCOMPARE(cb.entries().size(), 2);
    QCOMPARE(cb.entries().at(1).mimeType, QStringLiteral("application/x-other"));
}

void TestServices::desktopInvoker()
{
    DesktopInvoker inv;
    // No headless services on this system: always "no reply".
    QVERIFY(!inv.invokeService("vexa.backend", "start", "text/plain"));
    QVERIFY(!inv.openUrl(QUrl(), "text/plain", "Share"));
}

void TestServices::recordingInvoker()
{
    RecordingInvoker inv;
    QVERIFY(inv.openUrl(QUrl::fromLocalFile("/tmp/a.pdf"), "application/pdf", "Share"));
    inv.setOpenResult(false);
    QVERIFY(!inv.openUrl(QUrl("https://t.me/x"), "text/html", ""));
    QVERIFY(!inv.invokeService("target", "action", "mime"));
    inv.setServiceResult(true);
    QVERIFY(inv.invokeService("target", "action", "mime"));
    QCOMPARE(inv.requests().size(), 4);
    QCOMPARE(inv.requests().at(0).kind, RecordingInvoker::Request::OpenUrl);
    QCOMPARE(inv.requests().at(0).mimeType, QStringLiteral("application/pdf"));
    QCOMPARE(inv.requests().at(0).transferMode, QStringLiteral("Share"));
    QCOMPARE(inv.requests().at(2).kind, RecordingInvoker::Request::InvokeService);
    QCOMPARE(inv.requests().at(2).target, QStringLiteral("target"));
}

QTEST_MAIN(TestServices)
#include "tst_services.moc"
