#include "platform/array_data_model.h"
#include "platform/ui/list_view.h"

#include <QScrollBar>
#include <QSignalSpy>
#include <QtTest>

namespace {

struct RowWidget : QWidget
{
    QSize sizeHint() const override { return QSize(100, h); }
    int h = 10, id = -1, settled = 10;
};

// Heights between 30 and 119 pixels that differ from row to row.
int heightFor(int id)
{
    return 30 + (id * 37) % 90;
}

QList<QVariantMap> makeRows(int n, int firstId = 0)
{
    QList<QVariantMap> rows;
    for (int i = firstId; i < firstId + n; ++i)
        rows.append({{"id", i}, {"h", heightFor(i)}});
    return rows;
}

// A 300x400 list over rows of makeRows(); it is its own item provider and
// counts the widgets it creates and the rows it binds.
struct Fixture : ListItemProvider
{
    ArrayDataModel model;
    ListView view;
    QList<int> updates;     // rows bound, in order
    bool tallFirst = false; // a row first measures three times its height, as a picture bubble
                            // does before its picture is scaled
    QSet<int> measured;

    Fixture(int rows, int estimate = 0)
    {
        if (estimate > 0)
            view.setEstimatedRowHeight(estimate);
        view.setListItemProvider(this);
        model.append(makeRows(rows));
        view.setDataModel(&model);
        view.resize(300, 400);
        view.show();
        view.layoutNow();
    }
    QWidget *createItem(ListView *, const QString &) override { return new RowWidget; }
    void updateItem(ListView *, QWidget *item, const QString &, const QVariantList &path,
                    const QVariantMap &data) override
    {
        auto *w = static_cast<RowWidget *>(item);
        w->id = data.value("id").toInt();
        w->h = w->settled = data.value("h").toInt();
        if (tallFirst && !measured.contains(w->id)) {
            measured.insert(w->id);
            w->h *= 3;
        }
        updates.append(path.value(0).toInt());
    }
    RowWidget *item(int row) const { return static_cast<RowWidget *>(view.itemWidget(row)); }
    int yOf(int row) const { return item(row) ? item(row)->geometry().top() : INT_MIN; }
    QVariantList first() const { return view.firstVisibleItem(); }
    bool atTop() const { return view.isAtBeginning() && first() == QVariantList{0} && yOf(0) == 0; }
    bool endsView(int row) const
    {
        return item(row) && item(row)->geometry().bottom() + 1 == view.viewport()->height();
    }
    void scrollBy(int dy)
    {
        view.verticalScrollBar()->setValue(view.verticalScrollBar()->value() + dy);
    }
    // The rows in view must cover the viewport without gaps, in order, and
    // every widget must show its row's data.
    void checkTiling() const
    {
        const QList<int> rows = view.visibleRows();
        QVERIFY(!rows.isEmpty());
        int y = yOf(rows.first());
        QVERIFY(y <= 0);
        for (int i = 0; i < rows.size(); ++i) {
            RowWidget *w = item(rows.at(i));
            QCOMPARE(rows.at(i), rows.first() + i);
            QCOMPARE(w->geometry().top(), y);
            QCOMPARE(w->height(), heightFor(model.value(rows.at(i)).value("id").toInt()));
            QCOMPARE(w->id, model.value(rows.at(i)).value("id").toInt());
            y += w->height();
        }
        QVERIFY(y >= view.viewport()->height() || rows.last() == model.size() - 1);
    }
};

} // namespace

class TestListView : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    // Scrolling up over rows measured again at another height while they sit at the top,
    // partly scrolled past: what is below stays put, so each step moves the view by the step.
    void remeasuredTopRowKeepsTheRestInPlace()
    {
        Fixture f(200);
        f.tallFirst = true;
        const auto settle = [&f](int row) {
            RowWidget *w = f.item(row);
            if (w && w->h != w->settled) {
                w->h = w->settled;
                w->updateGeometry(); // the row asks to be measured again
            }
            QCoreApplication::sendPostedEvents();
            f.view.layoutNow();
        };
        f.view.scrollToItem({150}, false);
        f.view.layoutNow();
        for (int row : f.view.visibleRows())
            settle(row);
        for (int step = 0; step < 40; ++step) {
            const int ref = f.view.visibleRows().value(1);
            QVERIFY(f.item(ref));
            const int before = f.yOf(ref);
            f.scrollBy(-20);
            f.view.layoutNow();
            settle(f.view.visibleRows().value(0)); // its picture arrives
            QCOMPARE(f.yOf(ref), before + 20);
        }
    }

    // Scrolling thousands of rows reuses the widgets of one screen or so.
    void onlyVisibleRowsGetWidgets()
    {
        Fixture f(5000);
        const QList<int> visible = f.view.visibleRows();
        // Rows are at least 30 px: a 400 px viewport never needs more than 15.
        QVERIFY(visible.first() == 0 && visible.size() <= 15);
        for (int i = 0; i < 400 && !f.view.isAtEnd(); ++i)
            f.scrollBy(173);
        QVERIFY(f.first().value(0).toInt() > 500 && f.updates.size() > 500);
        f.checkTiling();
        QVERIFY(f.view.createdItemCount() <= visible.size() + 16);
    }

    void scrollTo_data()
    {
        QTest::addColumn<int>("row"); // -1: the end
        QTest::addColumn<bool>("animated");
        QTest::newRow("middle") << 5000 << false;
        QTest::newRow("last row stops at the end") << 9999 << false;
        QTest::newRow("animated to end") << -1 << true;
    }

    // The edges and the first row in view are told once per change.
    void scrollTo()
    {
        QFETCH(int, row);
        QFETCH(bool, animated);
        Fixture f(10000, 60);
        QString edges;
        connect(&f.view, &ListView::atBeginningChanged, [&](bool on) { edges += on ? "B" : "b"; });
        connect(&f.view, &ListView::atEndChanged, [&](bool on) { edges += on ? "E" : "e"; });
        QSignalSpy first(&f.view, &ListView::firstVisibleItemChanged);
        if (row < 0)
            f.view.scrollToPosition(ListView::End, animated);
        else
            f.view.scrollToItem({row}, animated);
        if (animated) {
            QCOMPARE(f.view.scrollOffset(), qint64(0)); // nothing has moved yet
            QTRY_VERIFY(f.endsView(9999));
            QVERIFY(first.count() >= 2); // it passed through rows on the way
        }
        f.checkTiling();
        const bool end = row < 0 || row == 9999;
        QVERIFY(end ? f.view.isAtEnd() && f.endsView(9999) : f.first() == QVariantList{row});
        QCOMPARE(first.last().at(0).toList(), f.first());
        QCOMPARE(f.view.verticalScrollBar()->value(), int(f.view.scrollOffset()));
        f.scrollBy(-1);
        f.scrollBy(-1);
        f.view.scrollToPosition(ListView::Beginning, false);
        QVERIFY(f.atTop());
        QCOMPARE(edges, QString(end ? "bEeB" : "bB"));
    }

    // "start by edit a b sticky expect": the row scrolled to the top (-1: the
    // end), then scrolled by pixels; the edit; sticky to both edges (1/0);
    // keep+N: the first row in view moves N rows on, keeping its widget and
    // its place; top/end: the list shows its first/last row; empty.
    void modelEdits_data()
    {
        QTest::addColumn<QString>("steps");
        for (const char *r :
             {"401 7 insert 400 1 0 keep+1", "401 7 remove 10 50 0 keep-50",
              "0 0 remove 0 1000 0 empty", "0 0 move 500 0 0 top", "50 0 reset 5 0 0 top",
              "0 0 insert 0 2 1 top", "0 5 insert 0 2 1 keep+2", "-1 0 append 3 0 1 end",
              "-1 -200 append 3 0 1 keep+0"})
            QTest::newRow(r) << QString(r);
    }

    // Widgets in view show their rows' data after the model changes under
    // them; a control inside a row reports the row's new index.
    void modelEdits()
    {
        QFETCH(QString, steps);
        const QStringList words = steps.split(' ');
        const int start = words[0].toInt(), a = words[3].toInt(), b = words[4].toInt();
        const QString op = words[2], expect = words[6];
        Fixture f(1000);
        f.view.setStickToBeginning(words[5] == "1");
        f.view.setStickToEnd(words[5] == "1");
        if (start < 0)
            f.view.scrollToPosition(ListView::End, false);
        else
            f.view.scrollToItem({start}, false);
        f.scrollBy(words[1].toInt());
        const int before = f.first().value(0).toInt(), y = f.yOf(before);
        const int created = f.view.createdItemCount();
        RowWidget *w = f.item(before);
        auto *button = new QWidget(w);
        f.updates.clear();
        if (op == "insert")
            f.model.insert(a, makeRows(b, 100000));
        else if (op == "remove")
            f.model.removeRange(a, b);
        else if (op == "move")
            f.model.move(a, b);
        else if (op == "append")
            f.model.append(makeRows(a, 100000));
        else
            f.model.setRows(makeRows(a, 1000));
        f.view.layoutNow();
        if (expect == "empty") {
            QVERIFY(f.view.visibleRows().isEmpty() && f.view.isAtBeginning() && f.view.isAtEnd());
            return;
        }
        f.checkTiling(); // heights follow the ids, widgets their rows
        if (expect == "end") {
            QVERIFY(f.view.isAtEnd() && f.endsView(f.model.size() - 1));
        } else if (expect == "top") {
            QVERIFY(f.atTop());
        } else {
            const int moved = before + expect.mid(4).toInt();
            QCOMPARE(f.first(), QVariantList{moved});
            QCOMPARE(f.yOf(moved), y);
            QCOMPARE(f.item(moved), w);
            QCOMPARE(f.view.indexPathForWidget(button), QVariantList{moved});
            QCOMPARE(f.view.createdItemCount(), created);
            // Moved, not changed: the widget is not bound again.
            QVERIFY(!f.updates.contains(moved));
        }
    }

    // Rows above the anchor are estimated (50 px) until they scroll into
    // view; their real heights must not shift the row the user looks at.
    void heightsMeasuredLateDoNotJump()
    {
        Fixture f(1000, 50);
        f.view.scrollToItem({600}, false);
        for (int step = 1; step <= 20; ++step) {
            f.scrollBy(-10);
            QCOMPARE(f.yOf(600), 10 * step);
            f.checkTiling();
        }
    }

    // A replaced row in view is bound again, alone; its new height pushes
    // the rows below.
    void replaceRedraws()
    {
        Fixture f(1000);
        f.updates.clear();
        const int yBelow = f.yOf(2);
        f.model.replace(1, {{"id", 1}, {"h", 150}});
        QTRY_VERIFY(f.updates.contains(1));
        QCoreApplication::processEvents();
        QCOMPARE(f.updates, QList<int>{1});
        QCOMPARE(f.yOf(2), yBelow + 150 - heightFor(1));
    }

    // A drag scrolls by the distance dragged; released while moving, the list
    // glides on.
    void dragAndFlick()
    {
        Fixture f(1000);
        QWidget *vp = f.view.viewport();
        QTest::mousePress(vp, Qt::LeftButton, Qt::NoModifier, QPoint(50, 350));
        for (int y = 330; y >= 150; y -= 30) {
            QMouseEvent move(QEvent::MouseMove, QPoint(50, y), Qt::NoButton, Qt::LeftButton,
                             Qt::NoModifier);
            QApplication::sendEvent(vp, &move);
        }
        QCOMPARE(f.view.scrollOffset(), qint64(200));
        QTest::mouseRelease(vp, Qt::LeftButton, Qt::NoModifier, QPoint(50, 150));
        QTRY_VERIFY(f.view.scrollOffset() > 400);
        f.checkTiling();
    }

    // Asked for the end while another screen is in front, shown later and
    // smaller, it still opens at the end.
    void endRequestedWhileHidden()
    {
        QWidget holder;
        holder.resize(300, 1000);
        Fixture f(500);
        f.view.setParent(&holder);
        f.view.setGeometry(0, 0, 300, 1000);
        holder.show();
        QVERIFY(QTest::qWaitForWindowExposed(&holder));
        f.view.hide();
        f.view.scrollToPosition(ListView::End, false);
        f.view.setGeometry(0, 0, 300, 400);
        f.view.show();
        QTRY_VERIFY(f.view.isAtEnd());
        QVERIFY(f.endsView(499));
    }
};

QTEST_MAIN(TestListView)
#include "test_list_view.moc"
