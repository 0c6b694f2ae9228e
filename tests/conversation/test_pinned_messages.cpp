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
    // "events => bar text (none: hidden), list rows, list requests"; "P" stands for
    // "pinned_message chat_id=", "I" for "pinned_list_item chat_id=", "B" for
    // "pinned_list_begin chat_id=".
    QTest::addColumn<QString>("testCase");
    for (const char *r :
         {"P5 text=hello => hello 0 1", "P5 text=a\nb\rc => a~b~c 0 1",
          "P5 text=x;B5;I5 id=3 text=x;pinned_list_end chat_id=5;"
          "pinned_none chat_id=5 =>  0 1",
          "P6 text=x;B6;I6 id=3 text=x =>  0 0", "P5 text=x;pinned_none chat_id=6 => x 0 1",
          "P5 text=x;P5 text=y => y 0 2",
          "P5 text=x;B5;I5 id=3 text=x;I5 id=3 text=x;I5 id=0 text=z;"
          "I5 id=9 text=y;pinned_list_end chat_id=5 => x 2 1",
          "P5 text=x;I5 id=3 text=x;B5 => x 0 1"})
        QTest::newRow(r) << QString(r);
}

void TestPinnedMessages::bar()
{
    QFETCH(QString, testCase);
    QString events = testCase.section(QStringLiteral(" => "), 0, 0);
    events.replace(QLatin1String("P"), QLatin1String("pinned_message chat_id="))
        .replace(QLatin1String("I"), QLatin1String("pinned_list_item chat_id="))
        .replace(QLatin1String("B"), QLatin1String("pinned_list_begin chat_id="));
    const QStringList want = testCase.section(QStringLiteral(" => "), 1).split(QLatin1Char(' '));
    const QString text = QString(want.at(0)).replace(QLatin1Char('~'), QLatin1Char(' '));
    const bool visible = !text.isEmpty();
    const int listRows = want.at(1).toInt(), listRequests = want.at(2).toInt();
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
    const auto row = [](const char *pins, int taps, const char *jumps, const char *caption) {
        QTest::newRow(jumps) << pins << taps << jumps << caption;
    };
    row("40", 3, "40,40,40", "Pinned message");
    row("10,30,20", 3, "30,20,10", "Pinned message 1 of 3");
    row("10,30,20", 4, "30,20,10,30", "Pinned message 2 of 3");
    row("", 2, "", "Pinned message");
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
