#include "chats/chat_filter.h"
#include "common/test_util.h"
#include "platform/array_data_model.h"

#include <QtTest>

using namespace test_util;

class TestChatFilter : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void matching_data();
    void matching();
    void listFollowsQueryAndSource();
};

void TestChatFilter::matching_data()
{
    QTest::addColumn<QString>("title");
    QTest::addColumn<QString>("username");
    QTest::addColumn<QString>("query");
    QTest::addColumn<bool>("found");
    QTest::newRow("case") << "Vexa Archive"
                          << ""
                          << "vEXA" << true;
    QTest::newRow("accent in title") << "Café Olé"
                                     << ""
                                     << "cafe ole" << true;
    QTest::newRow("accent in query") << "Cafe"
                                     << ""
                                     << "Café" << true;
    QTest::newRow("composed and decomposed alike")
        << QString::fromUtf8("Jos\xC3\xA9") << "" << QString::fromUtf8("jose\xCC\x81") << true;
    QTest::newRow("sharp s and stroke") << "Straße Łódź"
                                        << ""
                                        << "strasse lodz" << true;
    QTest::newRow("word start, any order") << "Ada Lovelace"
                                           << ""
                                           << "love ada" << true;
    QTest::newRow("inside a word") << "Ada Lovelace"
                                   << ""
                                   << "velace" << false;
    QTest::newRow("every word needed") << "Ada Lovelace"
                                       << ""
                                       << "ada byron" << false;
    QTest::newRow("username with @") << "Countess"
                                     << "ada_lovelace"
                                     << "@ada_lo" << true;
    QTest::newRow("username part") << "Countess"
                                   << "ada_lovelace"
                                   << "lovelace" << true;
    QTest::newRow("title and username together") << "Countess"
                                                 << "ada_lovelace"
                                                 << "countess lovelace" << true;
    QTest::newRow("arabic without harakat")
        << QString::fromUtf8("مُحَمَّد علي") << "" << QString::fromUtf8("محمد") << true;
    QTest::newRow("hebrew with points")
        << QString::fromUtf8("שָׁלוֹם עולם") << "" << QString::fromUtf8("שלום") << true;
    QTest::newRow("rtl second word")
        << QString::fromUtf8("مرحبا بالعالم") << "" << QString::fromUtf8("بالع") << true;
    QTest::newRow("punctuation splits words") << "O'Brien & Sons"
                                              << ""
                                              << "brien sons" << true;
    QTest::newRow("blank query finds all") << "Anything"
                                           << ""
                                           << "  " << true;
    QTest::newRow("emoji title") << "Vexa Archive ⚡"
                                 << ""
                                 << "archive" << true;
}

void TestChatFilter::matching()
{
    QFETCH(QString, title);
    QFETCH(QString, username);
    QFETCH(QString, query);
    QFETCH(bool, found);
    QCOMPARE(chat_search_matches(chat_search_haystack(title, username), chat_search_words(query)),
             found);
}

void TestChatFilter::listFollowsQueryAndSource()
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
    QCOMPARE(shown(), QStringLiteral("1 2 3"));
    filter.setQuery("a");
    QCOMPARE(shown(), QStringLiteral("1 2"));
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

QTEST_GUILESS_MAIN(TestChatFilter)
#include "test_chat_filter.moc"
