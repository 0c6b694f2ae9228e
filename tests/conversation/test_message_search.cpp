#include "conversation/message_search.h"
#include "platform/array_data_model.h"

#include <QtTest>

namespace {

// "id:text,id:text" oldest first, as the message model holds them.
QList<QVariantMap> messages(const QString &testCase)
{
    QList<QVariantMap> rows;
    for (const QString &part : testCase.split(QLatin1Char(','), Qt::SkipEmptyParts)) {
        const int colon = part.indexOf(QLatin1Char(':'));
        rows.append({{QStringLiteral("id"), part.left(colon)},
                     {QStringLiteral("text"), part.mid(colon + 1)}});
    }
    return rows;
}

} // namespace

class TestMessageSearch : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void steps_data();
    void steps();
    void rowsThatComeKeepTheMatch();
    void olderPages_data();
    void olderPages();
};

void TestMessageSearch::steps_data()
{
    QTest::addColumn<QString>("query");
    // n: next (older), p: previous (newer).
    QTest::addColumn<QString>("steps");
    QTest::addColumn<qint64>("current");
    QTest::addColumn<QString>("status");
    QTest::addColumn<bool>("offered");
    const auto row = [](const char *query, const char *steps, qint64 current, const char *status,
                        bool offered) {
        QTest::newRow(qPrintable(QStringLiteral("%1 %2").arg(query, steps)))
            << query << steps << current << status << offered;
    };
    row("hello", "", 4, "1 of 3", false);
    row("hello", "nn", 1, "3 of 3", false);
    row("hello", "nnn", 1, "3 of 3", true);
    row("hello", "nnnp", 3, "2 of 3", false);
    row("hello", "pp", 4, "1 of 3", false);
    row("absent", "n", 0, "No results", true);
    row("  ", "n", 0, "", false);
    row(" hell ", "", 5, "1 of 4", false);
}

void TestMessageSearch::steps()
{
    QFETCH(QString, query);
    QFETCH(QString, steps);
    QFETCH(qint64, current);
    QFETCH(QString, status);
    QFETCH(bool, offered);
    ArrayDataModel model;
    model.setRows(messages("1:hello world,2:nothing,3:HeLLo again,4:bye hello,5:hell"));
    MessageSearch search(&model);
    QSignalSpy shown(&search, &MessageSearch::currentChanged);
    search.open();
    search.setQuery(query);
    for (QChar c : steps)
        c == QLatin1Char('n') ? search.next() : search.previous();
    QCOMPARE(search.currentMessageId(), current);
    QCOMPARE(search.statusText(), status);
    QCOMPARE(search.isOlderOffered(), offered);
    // Every new current match was asked to be shown.
    if (current > 0)
        QCOMPARE(shown.last().value(0).toLongLong(), current);
    search.close();
    QCOMPARE(search.statusText(), QString());
    QVERIFY(!search.isActive());
}

void TestMessageSearch::rowsThatComeKeepTheMatch()
{
    ArrayDataModel model;
    model.setRows(messages("1:cat,2:dog,3:cat"));
    MessageSearch search(&model);
    search.setQuery(QStringLiteral("cat"));
    search.next();
    QCOMPARE(search.currentMessageId(), qint64(1));
    // A new matching message arrives at the end, one is edited to match.
    model.append(messages("4:a cat"));
    model.replace(1, messages("2:catalogue").first());
    QCOMPARE(search.currentMessageId(), qint64(1));
    QCOMPARE(search.statusText(), QStringLiteral("4 of 4"));
    // The current match goes away: the newest one is current.
    model.removeAt(0);
    QCOMPARE(search.currentMessageId(), qint64(4));
    QCOMPARE(search.statusText(), QStringLiteral("1 of 3"));
}

void TestMessageSearch::olderPages_data()
{
    QTest::addColumn<QString>("pages");
    QTest::addColumn<int>("requests");
    QTest::addColumn<qint64>("current");
    QTest::addColumn<bool>("offered");
    QTest::addColumn<QString>("status");
    // Each page goes in front of the rows; "-" is an empty page (no more).
    const auto row = [](const char *pages, int requests, qint64 current, bool offered,
                        const char *status) {
        QTest::newRow(pages) << pages << requests << current << offered
                             << QString::fromUtf8(status);
    };
    row("1:cat", 1, 1, false, "2 of 2");
    row("4:x;3:x;2:cat", 3, 2, false, "2 of 2");
    row("9:x;8:x;7:x;6:x;5:x;4:cat", MessageSearch::kPagesPerLook, 10, true, "1 of 1");
    row("4:x;-", 2, 10, false, "1 of 1 · start of chat");
}

void TestMessageSearch::olderPages()
{
    QFETCH(QString, pages);
    QFETCH(int, requests);
    QFETCH(qint64, current);
    QFETCH(bool, offered);
    QFETCH(QString, status);
    ArrayDataModel model;
    model.setRows(messages("10:cat,11:dog"));
    MessageSearch search(&model);
    QStringList left = pages.split(QLatin1Char(';'));
    int asked = 0;
    // The history answers each request with its next page.
    QObject::connect(&search, &MessageSearch::loadOlderRequested, &search, [&] {
        ++asked;
        const QString page = left.isEmpty() ? QStringLiteral("-") : left.takeFirst();
        if (page == QLatin1String("-")) {
            search.setOlderAvailable(false);
            return;
        }
        model.insert(0, messages(page));
        search.onOlderPageLoaded();
    });
    search.setQuery(QStringLiteral("cat"));
    search.next();
    QVERIFY(search.isOlderOffered());
    search.searchOlder();
    QCOMPARE(asked, requests);
    QCOMPARE(search.currentMessageId(), current);
    QCOMPARE(search.isOlderOffered(), offered);
    QCOMPARE(search.statusText(), status);
    QVERIFY(!search.isWaitingForOlder());
}

QTEST_GUILESS_MAIN(TestMessageSearch)
#include "test_message_search.moc"
