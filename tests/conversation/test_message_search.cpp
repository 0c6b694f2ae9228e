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
    void steps_data()
    {
        QTest::addColumn<QString>("query");
        // n: next (older), p: previous (newer), o: search older pages; then the
        // rows change: a: a match arrives at the end and one is edited to match,
        // d: the oldest row goes.
        QTest::addColumn<QString>("steps");
        // The older pages the history answers with, newest first; "-": no more.
        QTest::addColumn<QString>("pages");
        QTest::addColumn<qint64>("current");
        QTest::addColumn<QString>("status");
        QTest::addColumn<bool>("offered");
        const auto row = [](const char *query, const char *steps, const char *pages, qint64 current,
                            const char *status, bool offered) {
            QTest::newRow(qPrintable(QStringLiteral("%1 %2 %3").arg(query, steps, pages)))
                << query << steps << pages << current << QString::fromUtf8(status) << offered;
        };
        row("hello", "", "", 13, "1 of 3", false);
        row("hello", "nnn", "", 10, "3 of 3", true);
        row("hello", "nnnp", "", 12, "2 of 3", false);
        row("hello", "nna", "", 10, "5 of 5", false);
        row("hello", "nnad", "", 15, "1 of 4", false);
        row("absent", "n", "", 0, "No results", true);
        row("  ", "n", "", 0, "", false);
        row(" hell ", "", "", 14, "1 of 4", false);
        row("hello", "nnno", "4:x;3:x;2:hello", 2, "4 of 4", false);
        row("hello", "nnno", "9:x;8:x;7:x;6:x;5:x;4:hello", 10, "3 of 3", true);
        row("hello", "nnno", "4:x;-", 10, "3 of 3 · start of chat", false);
    }

    void steps()
    {
        QFETCH(QString, query);
        QFETCH(QString, steps);
        QFETCH(QString, pages);
        QFETCH(qint64, current);
        QFETCH(QString, status);
        QFETCH(bool, offered);
        ArrayDataModel model;
        model.setRows(messages("10:hello world,11:nothing,12:HeLLo again,13:bye hello,14:hell"));
        MessageSearch search(&model);
        QSignalSpy shown(&search, &MessageSearch::currentChanged);
        QStringList left = pages.split(QLatin1Char(';'), Qt::SkipEmptyParts);
        QObject::connect(&search, &MessageSearch::loadOlderRequested, &search, [&] {
            const QString page = left.isEmpty() ? QStringLiteral("-") : left.takeFirst();
            if (page == QLatin1String("-")) {
                search.setOlderAvailable(false);
                return;
            }
            model.insert(0, messages(page));
            search.onOlderPageLoaded();
        });
        search.setQuery(query);
        for (QChar c : steps) {
            if (c == QLatin1Char('n'))
                search.next();
            else if (c == QLatin1Char('p'))
                search.previous();
            else if (c == QLatin1Char('o'))
                search.searchOlder();
            else if (c == QLatin1Char('d'))
                model.removeAt(0);
            else {
                model.append(messages("15:a hello"));
                model.replace(1, messages("11:hellos").first());
            }
        }
        QCOMPARE(search.currentMessageId(), current);
        QCOMPARE(search.statusText(), status);
        QCOMPARE(search.isOlderOffered(), offered);
        QVERIFY(!search.isWaitingForOlder());
        // Every match stepped to was asked to be shown.
        if (current > 0 && !steps.contains(QLatin1Char('d')))
            QCOMPARE(shown.last().value(0).toLongLong(), current);
    }
};

QTEST_GUILESS_MAIN(TestMessageSearch)
#include "test_message_search.moc"
