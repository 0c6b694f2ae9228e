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
};

void TestPinnedMessages::bar_data()
{
    // "events => bar text (none: hidden), list rows, list requests"; "P" stands for
    // "pinned_message chat_id=", "I" for "pinned_list_item chat_id=", "B" for
    // "pinned_list_begin chat_id=".
    QTest::addColumn<QString>("testCase");
    for (const char *r :
         {"P5 text=a\nb\rc => a~b~c 0 1",
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
    Pins p;
    p.feed(events);
    QCOMPARE(p.pinned.barText(), QString(want.at(0)).replace(QLatin1Char('~'), QLatin1Char(' ')));
    QCOMPARE(p.pinned.isBarVisible(), !want.at(0).isEmpty());
    QCOMPARE(p.rows.size(), want.at(1).toInt());
    QCOMPARE(p.lines,
             QVector<QString>(want.at(2).toInt(), QStringLiteral("pinned_list 5 100")).toList());

    // Another chat starts with nothing.
    p.pinned.setChatId(7);
    QVERIFY(!p.pinned.isBarVisible());
    QCOMPARE(p.rows.size(), 0);
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
