#include "conversation/pinned_messages.h"
#include "conversation_test_util.h"
#include "platform/array_data_model.h"

#include <QtTest>

namespace {

// Chat 5 open; what the pins ask for is recorded.
struct Pins
{
    ArrayDataModel rows;
    PinnedMessages pinned{&rows};
    QStringList lines;
    QList<qint64> jumps;

    Pins()
    {
        QObject::connect(&pinned, &PinnedMessages::sendLineRequested,
                         [this](const QString &l) { lines << l; });
        QObject::connect(&pinned, &PinnedMessages::jumpRequested,
                         [this](qint64 id) { jumps << id; });
        pinned.setChatId(5);
    }
    void feed(const QString &events)
    {
        for (const QVariantMap &e : evs(events))
            pinned.handleEvent(e);
    }
    // The bar's event and the list answer, items in the order given.
    void pin(const QList<int> &ids)
    {
        const int newest = ids.isEmpty() ? 0 : *std::max_element(ids.begin(), ids.end());
        feed(QStringLiteral("pinned_message chat_id=5 text=m%1").arg(newest));
        QString list = QStringLiteral("pinned_list_begin chat_id=5;");
        for (int id : ids)
            list += QStringLiteral("pinned_list_item chat_id=5 id=%1 text=m%1;").arg(id);
        feed(list + QStringLiteral("pinned_list_end chat_id=5"));
    }
};

QList<qint64> ids(const QString &csv)
{
    QList<qint64> out;
    for (const QString &s : csv.split(QLatin1Char(','), Qt::SkipEmptyParts))
        out << s.toLongLong();
    return out;
}

} // namespace

class TestPinnedMessages : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void bar_data();
    void bar();
    void walk_data();
    void walk();
    void listTapJumpsAndWalksOn();
    void expandAsksForTheList();
};

void TestPinnedMessages::bar_data()
{
    QTest::addColumn<QString>("events");
    QTest::addColumn<bool>("visible");
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("listRows");
    QTest::addColumn<int>("listRequests");
    QTest::newRow("pinned") << "pinned_message chat_id=5 text=hello" << true << "hello" << 0 << 1;
    QTest::newRow("line breaks cleaned")
        << "pinned_message chat_id=5 text=a\nb\rc" << true << "a b c" << 0 << 1;
    QTest::newRow("none hides and empties")
        << "pinned_message chat_id=5 text=x;pinned_list_begin chat_id=5;"
           "pinned_list_item chat_id=5 id=3 text=x;pinned_list_end chat_id=5;pinned_none chat_id=5"
        << false << "" << 0 << 1;
    QTest::newRow("other chat ignored")
        << "pinned_message chat_id=6 text=x;pinned_list_begin chat_id=6;"
           "pinned_list_item chat_id=6 id=3 text=x"
        << false << "" << 0 << 0;
    QTest::newRow("other chat's none ignored")
        << "pinned_message chat_id=5 text=x;pinned_none chat_id=6" << true << "x" << 0 << 1;
    QTest::newRow("changed pin asks again")
        << "pinned_message chat_id=5 text=x;pinned_message chat_id=5 text=y" << true << "y" << 0
        << 2;
    QTest::newRow("list filled, duplicates and bad ids dropped")
        << "pinned_message chat_id=5 text=x;pinned_list_begin chat_id=5;"
           "pinned_list_item chat_id=5 id=3 text=x;pinned_list_item chat_id=5 id=3 text=x;"
           "pinned_list_item chat_id=5 id=0 text=z;pinned_list_item chat_id=5 id=9 text=y;"
           "pinned_list_end chat_id=5"
        << true << "x" << 2 << 1;
    QTest::newRow("list begin empties")
        << "pinned_message chat_id=5 text=x;pinned_list_item chat_id=5 id=3 text=x;"
           "pinned_list_begin chat_id=5"
        << true << "x" << 0 << 1;
}

void TestPinnedMessages::bar()
{
    QFETCH(QString, events);
    QFETCH(bool, visible);
    QFETCH(QString, text);
    QFETCH(int, listRows);
    QFETCH(int, listRequests);
    Pins p;
    QSignalSpy layout(&p.pinned, &PinnedMessages::layoutChanged);
    p.feed(events);
    QCOMPARE(p.pinned.isBarVisible(), visible);
    QCOMPARE(p.pinned.barText(), text);
    QCOMPARE(p.rows.size(), listRows);
    QCOMPARE(p.lines.size(), listRequests);
    for (const QString &line : qAsConst(p.lines))
        QCOMPARE(line, QStringLiteral("pinned_list 5 100"));
    QCOMPARE(layout.isEmpty(), listRequests == 0);

    // Another chat starts with nothing.
    p.pinned.setChatId(7);
    QVERIFY(!p.pinned.isBarVisible());
    QCOMPARE(p.rows.size(), 0);
}

void TestPinnedMessages::walk_data()
{
    QTest::addColumn<QString>("pins");
    QTest::addColumn<int>("taps");
    QTest::addColumn<QString>("jumps");
    QTest::addColumn<QString>("caption");
    QTest::newRow("one pin, again and again") << "40" << 3 << "40,40,40"
                                              << "Pinned message";
    QTest::newRow("newest to oldest") << "10,30,20" << 3 << "30,20,10"
                                      << "Pinned message 1 of 3";
    QTest::newRow("wraps to the newest") << "10,30,20" << 4 << "30,20,10,30"
                                         << "Pinned message 2 of 3";
    QTest::newRow("no list yet") << "" << 2 << ""
                                 << "Pinned message";
}

void TestPinnedMessages::walk()
{
    QFETCH(QString, pins);
    QFETCH(int, taps);
    QFETCH(QString, jumps);
    QFETCH(QString, caption);
    Pins p;
    QList<int> list;
    for (qint64 id : ids(pins))
        list << int(id);
    p.pin(list);
    for (int i = 0; i < taps; ++i)
        p.pinned.onPinnedBarTapped();
    QCOMPARE(p.jumps, ids(jumps));
    QCOMPARE(p.pinned.barCaption(), caption);
    // The bar shows the message the next tap goes to.
    if (p.pinned.barMessageId() > 0 && p.rows.size() > 1)
        QCOMPARE(p.pinned.barText(), QStringLiteral("m%1").arg(p.pinned.barMessageId()));
}

void TestPinnedMessages::listTapJumpsAndWalksOn()
{
    Pins p;
    p.pin({10, 20, 30});
    p.pinned.onTogglePinnedExpand();
    QVERIFY(p.pinned.isExpanded());
    // Rows run newest first: row 1 is message 20.
    p.pinned.onPinnedItemTapped(1);
    QCOMPARE(p.jumps, ids("20"));
    QVERIFY(!p.pinned.isExpanded());
    p.pinned.onPinnedBarTapped();
    p.pinned.onPinnedItemTapped(7);
    QCOMPARE(p.jumps, ids("20,10"));
}

void TestPinnedMessages::expandAsksForTheList()
{
    Pins p;
    // Nothing pinned: nothing to open.
    p.pinned.onTogglePinnedExpand();
    QVERIFY(!p.pinned.isExpanded());
    QVERIFY(p.lines.isEmpty());
    p.pin({3});
    p.lines.clear();
    p.pinned.onTogglePinnedExpand();
    p.pinned.onTogglePinnedExpand();
    QVERIFY(!p.pinned.isExpanded());
    QCOMPARE(p.lines, QStringList{QStringLiteral("pinned_list 5 100")});
    // Unpinned while open: the list closes.
    p.pinned.onTogglePinnedExpand();
    p.feed(QStringLiteral("pinned_none chat_id=5"));
    QVERIFY(!p.pinned.isExpanded());
}

QTEST_GUILESS_MAIN(TestPinnedMessages)
#include "test_pinned_messages.moc"
