#include "chats/chat_filter.h"
#include "common/test_util.h"
#include "platform/array_data_model.h"

#include <QtTest>

using namespace test_util;

class TestChatFilter : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void matching_data()
    {
        // "title|user name|query|found"
        QTest::addColumn<QString>("testCase");
        for (const char *r :
             {"Vexa Archive||vEXA|1", "Café Olé||cafe ole|1", "Jos\xC3\xA9||jose\xCC\x81|1",
              "Straße Łódź||strasse lodz|1", "Ada Lovelace||love ada|1", "Ada Lovelace||velace|0",
              "Ada Lovelace||ada byron|0", "Countess|ada_lovelace|@ada_lo|1",
              "Countess|ada_lovelace|countess lovelace|1", "مُحَمَّد علي||محمد|1",
              "O'Brien & Sons||brien sons|1", "Anything||  |1"})
            QTest::newRow(r) << QString::fromUtf8(r);
    }
    void matching()
    {
        QFETCH(QString, testCase);
        const QStringList f = testCase.split(QLatin1Char('|'));
        QCOMPARE(chat_search_matches(chat_search_haystack(f[0], f[1]), chat_search_words(f[2])),
                 f[3] == QLatin1String("1"));
    }
    void listFollowsQueryAndSource()
    {
        ArrayDataModel rows;
        rows.append({kv("id=1|title=Ada Lovelace"), kv("id=2|title=Alan Turing|username=turing"),
                     kv("id=3|title=Grace Hopper")});
        ChatFilterModel filter;
        filter.setSourceModel(&rows);
        const auto shown = [&filter] {
            QStringList ids;
            for (int i = 0; i < filter.rowCount(); ++i)
                ids << filter.rowAt(i).value("id").toString();
            return ids.join(' ');
        };
        filter.setQuery("tur");
        QCOMPARE(shown(), QStringLiteral("2"));
        // A renamed chat and a new one join the results as they change.
        rows.replace(2, kv("id=3|title=Grace Turner"));
        rows.insert(0, kv("id=4|title=Turbo"));
        QCOMPARE(shown(), QStringLiteral("4 2 3"));
        rows.replace(2, kv("id=2|title=Alan|username=alan"));
        QCOMPARE(shown(), QStringLiteral("4 3"));
        filter.setQuery(QString());
        QCOMPARE(filter.rowCount(), rows.size());
    }
};

QTEST_GUILESS_MAIN(TestChatFilter)
#include "test_chat_filter.moc"
