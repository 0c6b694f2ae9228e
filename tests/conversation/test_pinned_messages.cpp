#include "conversation/pinned_messages.h"
#include "conversation_test_util.h"

#include <QtTest>

namespace {

// Chat 5 open; what the pins ask for is recorded.
struct Pins
{
    ArrayDataModel rows;
    PinnedMessages pinned{&rows};
    QStringList lines;
    QStringList jumps;

    Pins()
    {
        QObject::connect(&pinned, &PinnedMessages::sendLineRequested,
                         [this](const QString &l) { lines << l; });
        QObject::connect(&pinned, &PinnedMessages::jumpRequested,
                         [this](qint64 id) { jumps << QString::number(id); });
        pinned.setChatId(5);
    }
    void feed(const QString &events)
    {
        for (const QVariantMap &e : evs(events))
            pinned.handleEvent(e);
    }
    // The bar's event and the list answer, items in the order given ("10,30,20"); "-" neither.
    void pin(const QString &csv)
    {
        if (csv == QLatin1String("-"))
            return;
        QString list = QStringLiteral("pinned_list_begin chat_id=5;");
        qint64 newest = 0;
        for (const QString &id : csv.split(QLatin1Char(','), Qt::SkipEmptyParts)) {
            newest = qMax(newest, id.toLongLong());
            list += QStringLiteral("pinned_list_item chat_id=5 id=%1 text=m%1;").arg(id);
        }
        feed(QStringLiteral("pinned_message chat_id=5 text=m%1").arg(newest));
        feed(list + QStringLiteral("pinned_list_end chat_id=5"));
    }
};

} // namespace

class TestPinnedMessages : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void bar_data();
    void bar();
    void walk_data();
    void walk();
    void expandAsksAgainAndUnpinCloses();
};

void TestPinnedMessages::bar_data()
{
    // Events fed in order, then what shows: the bar's text (empty: hidden), the list's rows and
    // how many times the list was asked for.
    QTest::addColumn<QString>("events");
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("rows");
    QTest::addColumn<int>("asked");
    const QString bar = QStringLiteral("pinned_message chat_id=5 text=");
    const QString begin = QStringLiteral("pinned_list_begin chat_id=5;");
    const QString item = QStringLiteral("pinned_list_item chat_id=5 id=");
    const QString end = QStringLiteral("pinned_list_end chat_id=5");
    QTest::newRow("line breaks") << bar + "a\nb\rc"
                                 << "a b c" << 0 << 1;
    QTest::newRow("unpinned") << bar + "x;" + begin + item + "3 text=x;" + end +
                                     ";pinned_none chat_id=5"
                              << "" << 0 << 1;
    QTest::newRow("other chat") << "pinned_message chat_id=6 text=x;pinned_list_begin chat_id=6;"
                                   "pinned_list_item chat_id=6 id=3 text=x"
                                << "" << 0 << 0;
    QTest::newRow("other chat unpinned") << bar + "x;pinned_none chat_id=6"
                                         << "x" << 0 << 1;
    QTest::newRow("replaced") << bar + "x;" + bar + "y"
                              << "y" << 0 << 2;
    QTest::newRow("repeats and zero ids")
        << bar + "x;" + begin + item + "3 text=x;" + item + "3 text=x;" + item + "0 text=z;" +
               item + "9 text=y;" + end
        << "x" << 2 << 1;
    QTest::newRow("item before begin") << bar + "x;" + item + "3 text=x;" + begin << "x" << 0 << 1;
}

void TestPinnedMessages::bar()
{
    QFETCH(QString, events);
    QFETCH(QString, text);
    QFETCH(int, rows);
    QFETCH(int, asked);
    Pins p;
    p.feed(events);
    QCOMPARE(p.pinned.barText(), text);
    QCOMPARE(p.pinned.isBarVisible(), !text.isEmpty());
    QCOMPARE(p.rows.size(), rows);
    QCOMPARE(p.lines, QVector<QString>(asked, QStringLiteral("pinned_list 5 100")).toList());

    // Another chat starts with nothing.
    p.pinned.setChatId(7);
    QVERIFY(!p.pinned.isBarVisible());
    QCOMPARE(p.rows.size(), 0);
}

void TestPinnedMessages::expandAsksAgainAndUnpinCloses()
{
    Pins p;
    p.pin(QStringLiteral("3"));
    p.lines.clear();
    p.pinned.onTogglePinnedExpand();
    QVERIFY(p.pinned.isExpanded());
    QCOMPARE(p.lines, QStringList{QStringLiteral("pinned_list 5 100")});
    p.feed(QStringLiteral("pinned_none chat_id=5"));
    QVERIFY(!p.pinned.isExpanded());
}

void TestPinnedMessages::walk_data()
{
    // "b" a tap on the bar, "e" on its expand button, "l1" on row 1 of the list.
    QTest::addColumn<QString>("pins");
    QTest::addColumn<QString>("taps");
    QTest::addColumn<QString>("jumps");
    QTest::addColumn<QString>("caption");
    const auto row = [](const char *pins, const char *taps, const char *jumps,
                        const char *caption) {
        QTest::addRow("%s: %s", pins, taps) << pins << taps << jumps << caption;
    };
    row("40", "b b b", "40,40,40", "Pinned message");
    row("10,30,20", "b b b", "30,20,10", "Pinned message 1 of 3");
    row("10,30,20", "b b b b", "30,20,10,30", "Pinned message 2 of 3");
    row("", "b b", "", "Pinned message");
    row("-", "e b", "", "Pinned message");
    // Rows run newest first; the walk goes on from the row tapped, which closes the list.
    row("10,20,30", "e l1 b l7", "20,10", "Pinned message 1 of 3");
}

void TestPinnedMessages::walk()
{
    QFETCH(QString, pins);
    QFETCH(QString, taps);
    QFETCH(QString, jumps);
    QFETCH(QString, caption);
    Pins p;
    p.pin(pins);
    for (const QString &tap : taps.split(QLatin1Char(' '))) {
        if (tap == QLatin1String("b"))
            p.pinned.onPinnedBarTapped();
        else if (tap == QLatin1String("e"))
            p.pinned.onTogglePinnedExpand();
        else
            p.pinned.onPinnedItemTapped(tap.mid(1).toInt());
    }
    QCOMPARE(p.jumps.join(QLatin1Char(',')), jumps);
    QCOMPARE(p.pinned.barCaption(), caption);
    QVERIFY(!p.pinned.isExpanded());
    // The bar shows the message the next tap goes to.
    if (p.pinned.barMessageId() > 0 && p.rows.size() > 1)
        QCOMPARE(p.pinned.barText(), QStringLiteral("m%1").arg(p.pinned.barMessageId()));
}

QTEST_GUILESS_MAIN(TestPinnedMessages)
#include "test_pinned_messages.moc"
