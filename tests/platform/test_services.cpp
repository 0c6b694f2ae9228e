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
    void systemClipboard_data()
    {
        QTest::addColumn<QString>("mime");
        QTest::addColumn<QByteArray>("data");
        QTest::newRow("utf-8 text") << "text/plain" << QByteArray("gr\xc3\xbc\xc3\x9f dich");
        QTest::newRow("other type") << "application/x-vexa-id" << QByteArray("-100123");
    }

    void systemClipboard()
    {
        QFETCH(QString, mime);
        QFETCH(QByteArray, data);
        SystemClipboard cb;
        QVERIFY(cb.insert(mime, data));
        const QMimeData *md = QGuiApplication::clipboard()->mimeData();
        QVERIFY(md);
        QCOMPARE(md->data(mime), data);
        if (mime == "text/plain")
            QCOMPARE(cb.text(), QString::fromUtf8(data));
        QVERIFY(!cb.insert(QString(), data));
        // No headless services on this system: always "no reply".
        DesktopInvoker inv;
        QVERIFY(!inv.invokeService("vexa.backend", "start", "text/plain"));
        QVERIFY(!inv.openUrl(QUrl(), "text/plain", "Share"));
    }

    // The recording doubles keep what they were asked, in order.
    void doubles()
    {
        RecordingClipboard cb;
        cb.setText("one");
        cb.insert("application/x-other", "x");
        QCOMPARE(cb.text(), QStringLiteral("one"));
        QCOMPARE(cb.entries().size(), 2);
        QCOMPARE(cb.entries().at(1).mimeType, QStringLiteral("application/x-other"));

        RecordingInvoker inv;
        QVERIFY(inv.openUrl(QUrl("file:///tmp/a.pdf"), "application/pdf", "Share"));
        QVERIFY(!inv.invokeService("target", "action", "mime"));
        inv.setServiceResult(true);
        QVERIFY(inv.invokeService("target", "action", "mime"));
        QCOMPARE(inv.requests().size(), 3);
        const RecordingInvoker::Request &open = inv.requests().at(0), &call = inv.requests().at(1);
        QCOMPARE(open.kind, RecordingInvoker::Request::OpenUrl);
        QCOMPARE(open.url, QUrl("file:///tmp/a.pdf"));
        QCOMPARE(open.mimeType + open.transferMode, QStringLiteral("application/pdfShare"));
        QCOMPARE(call.kind, RecordingInvoker::Request::InvokeService);
        QCOMPARE(call.target + call.action + call.mimeType, QStringLiteral("targetactionmime"));
    }
};

QTEST_MAIN(TestServices)
#include "test_services.moc"
