// JSON text that repeats a key: Qt's reader would lose the first value when it
// is an object or an array (found by fuzzing the event lines), so the intake
// drops such a line (test_event_intake).

#include "backend_link/json_keys.h"

#include <QtTest>

class TstJsonKeys : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void repeats_data()
    {
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<bool>("repeats");
        QTest::newRow("distinct keys") << QByteArray("{\"a\":1,\"b\":{\"c\":2}}") << false;
        QTest::newRow("object then number") << QByteArray("{\"a\":{\"b\":1},\"a\":2}") << true;
        QTest::newRow("in a nested object") << QByteArray("{\"x\":[{\"a\":[1],\"a\":2}]}") << true;
        QTest::newRow("sibling objects") << QByteArray("[{\"a\":1},{\"a\":2}]") << false;
        QTest::newRow("two depths") << QByteArray("{\"a\":{\"a\":1}}") << false;
        QTest::newRow("escaped spelling") << QByteArray("{\"a\":[],\"\\u0061\":1}") << true;
        QTest::newRow("keys inside strings")
            << QByteArray("{\"a\":\"\\\"a\\\":1\",\"b\":\"{\\\"a\\\":2}\"}") << false;
        QTest::newRow("not JSON") << QByteArray("{\"a\":{\"a") << false;
    }
    void repeats()
    {
        QFETCH(QByteArray, text);
        QFETCH(bool, repeats);
        QCOMPARE(json_repeats_key(text), repeats);
    }
};

QTEST_GUILESS_MAIN(TstJsonKeys)
#include "test_json_keys.moc"
