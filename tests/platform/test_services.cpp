#include "platform/clipboard.h"

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
    }
};

QTEST_MAIN(TestServices)
#include "test_services.moc"
