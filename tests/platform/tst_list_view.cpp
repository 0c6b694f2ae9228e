#include "platform/array_data_model.h"
#include "platform/ui/list_view.h"

#include <QScrollBar>
#include <QSignalSpy>
#include <QtTest>

namespace {

// A row widget whose height comes from the row's "h" value.
class RowWidget : public QWidget
{
public:
    QSize sizeHint() const override { return QSize(100, h); }
    int h = 10;
    int row = -1;
    QString type;
    QString theme;
};

class CountingProvider : public ListItemProvider
{
public:
    QWidget *createItem(ListView *, const QString &type) override
    {
        auto *w = new RowWidget;
        w->type = type;
        ++created[type];
        ++total;
        return w;
    }
    void updateItem(ListView *lv, QWidget *item, const QString &type, const QVariantList &path,
                    const QVariantMap &data) override
    {
        auto *w = static_cast<RowWidget *>(item);
        QVERIFY(w->type == type);
        w->row = path.value(0).toInt();
        w->h = data.value("h").toInt();
        w->theme = lv->property("theme").toString();
        updates.append(w->row);
    }
    QString itemType(const QVariantMap &data, const QVariantList &) override
    {
        return data.value("type", "item").toString();
    }
    QHash<QString, int> created;
    int total = 0;
    QList<int> updates;
};

// Heights between 30 and 119 pixels that differ from row to row.
int heightFor(int id)
{
    return 30 + (id * 37) % 90;
}

QList<QVariantMap> makeRows(int n, int firstId = 0)
{
    QList<QVariantMap> rows;
    for (int i = 0; i < n; ++i)
        rows.append({{"id", firstId + i}, {"h", heightFor(firstId + i)}});
    return rows;
}

struct Fixture
{
    ArrayDataModel model;
    CountingProvider provider;
    ListView view;
    Fixture(int rows, int estimate = 0)
    {
        if (estimate > 0)
            view.setEstimatedRowHeight(estimate);
        view.setListItemProvider(&provider);
        model.append(makeRows(rows));
        view.setDataModel(&model);
        view.resize(300, 400);
        view.show();
        view.layoutNow();
    }
    int yOf(int row) const
    {
        QWidget *w = view.itemWidget(row);
        return w ? w->geometry().top() : INT_MIN;
    }
    // Whether the row's widget ends exactly at the viewport's bottom.
    bool endsView(int row) const
    {
        QWidget *w = view.itemWidget(row);
        return w && w->geometry().bottom() + 1 == view.viewport()->height();
    }
    void scrollBy(int dy)
    {
        QScrollBar *sb = view.verticalScrollBar();
        sb->setValue(sb->value() + dy);
    }
    void drag(int fromY, int toY, int pauseMs = 0)
    {
        QWidget *vp = view.viewport();
        QTest::mousePress(vp, Qt::LeftButton, Qt::NoModifier, QPoint(50, fromY));
        for (int y = fromY; y != toY;) {
            y += qBound(-30, toY - y, 30);
            QMouseEvent move(QEvent::MouseMove, QPoint(50, y), Qt::NoButton, Qt::LeftButton,
                             Qt::NoModifier);
            QApplication::sendEvent(vp, &move);
        }
        if (pauseMs > 0)
            QTest::qWait(pauseMs);
        QTest::mouseRelease(vp, Qt::LeftButton, Qt::NoModifier, QPoint(50, toY));
    }
};

// The rows in view must cover the viewport without gaps, in order, and
// every widget must show the row it is bound to.
void checkTiling(const Fixture &f)
{
    const QList<int> rows = f.view.visibleRows();
    QVERIFY(!rows.isEmpty());
    int y = f.yOf(rows.first());
    QVERIFY(y <= 0);
    for (int i = 0; i < rows.size(); ++i) {
        auto *w = static_cast<RowWidget *>(f.view.itemWidget(rows.at(i)));
        QCOMPARE(rows.at(i), rows.first() + i);
        QCOMPARE(w->geometry().top(), y);
        QCOMPARE(w->height(), heightFor(f.model.value(rows.at(i)).value("id").toInt()));
        QCOMPARE(w->row, rows.at(i));
        QVERIFY(w->isVisible());
        y += w->height();
    }
    QVERIFY(y >= f.view.viewport()->height() || rows.last() == f.model.size() - 1);
}

} // namespace

class TestListView : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void onlyVisibleRowsGetWidgets_data();
    void onlyVisibleRowsGetWidgets();
    void widgetsAreRecycled();
    void scrollTo_data();
    void scrollTo();
    void endsAndSignals();
    void changesAboveKeepPosition_data();
    void changesAboveKeepPosition();
    void heightsMeasuredLateDoNotJump();
    void replaceRedraws_data();
    void replaceRedraws();
    void modelChanges_data();
    void modelChanges();
    void dragAndFlick_data();
    void dragAndFlick();
    void tapTriggers();
    void viewPropertiesReachProvider();
    void stickToEnd();
    void stickToBeginning_data();
    void stickToBeginning();
    void endRequestedWhileHidden();
    void indexPathForChildWidget();
    void handlersMayScroll();
};

void TestListView::onlyVisibleRowsGetWidgets_data()
{
    QTest::addColumn<int>("rows");
    QTest::newRow("few rows") << 3;
    QTest::newRow("ten thousand") << 10000;
}

void TestListView::onlyVisibleRowsGetWidgets()
{
    QFETCH(int, rows);
    Fixture f(rows);
    checkTiling(f);
    const QList<int> visible = f.view.visibleRows();
    QCOMPARE(visible.first(), 0);
    // Rows are at least 30 px: a 400 px viewport never needs more than 15.
    QVERIFY(visible.size() <= qMin(rows, 15));
    QCOMPARE(f.provider.total, visible.size());
    QCOMPARE(f.view.createdItemCount(), visible.size());
}

void TestListView::widgetsAreRecycled()
{
    Fixture f(2000);
    const int afterFirstScreen = f.provider.total;
    for (int i = 0; i < 400 && !f.view.isAtEnd(); ++i)
        f.scrollBy(173);
    QVERIFY(f.view.firstVisibleItem().value(0).toInt() > 500);
    checkTiling(f);
    // Scrolling hundreds of rows reuses the widgets of one screen or so.
    QVERIFY2(f.provider.total <= afterFirstScreen + 16,
             qPrintable(QString::number(f.provider.total)));
    QVERIFY(f.provider.updates.size() > 500);
}

void TestListView::scrollTo_data()
{
    QTest::addColumn<int>("row"); // -1: the end
    QTest::addColumn<bool>("animated");
    QTest::newRow("middle") << 5000 << false;
    QTest::newRow("last but one screen") << 9990 << false;
    // Near the end the view stops at the end.
    QTest::newRow("last") << 9999 << false;
    QTest::newRow("animated to item") << 700 << true;
    QTest::newRow("animated to end") << -1 << true;
}

void TestListView::scrollTo()
{
    QFETCH(int, row);
    QFETCH(bool, animated);
    Fixture f(10000, 60);
    QSignalSpy first(&f.view, &ListView::firstVisibleItemChanged);
    if (row < 0)
        f.view.scrollToPosition(ListView::End, animated);
    else
        f.view.scrollToItem({row}, animated);
    if (animated) {
        QCOMPARE(f.view.scrollOffset(), qint64(0)); // nothing has moved yet
        QTRY_VERIFY(row < 0 ? f.endsView(9999) : f.yOf(row) == 0);
        QVERIFY(first.count() >= 2); // it passed through rows on the way
    }
    checkTiling(f);
    if (row < 0 || row == 9999) {
        QVERIFY(f.view.isAtEnd());
        QVERIFY(f.endsView(9999));
    } else {
        QCOMPARE(f.yOf(row), 0);
        QCOMPARE(f.view.firstVisibleItem(), QVariantList{row});
    }
    QCOMPARE(f.view.verticalScrollBar()->value(), int(f.view.scrollOffset()));
}

void TestListView::endsAndSignals()
{
    Fixture f(300);
    QVERIFY(f.view.isAtBeginning() && !f.view.isAtEnd());
    QSignalSpy begin(&f.view, &ListView::atBeginningChanged);
    QSignalSpy end(&f.view, &ListView::atEndChanged);
    QSignalSpy first(&f.view, &ListView::firstVisibleItemChanged);
    f.view.scrollToPosition(ListView::End, false);
    QCOMPARE(end.count(), 1);
    QCOMPARE(end.last().at(0).toBool(), true);
    QCOMPARE(begin.count(), 1);
    QCOMPARE(begin.last().at(0).toBool(), false);
    QVERIFY(f.endsView(299));
    QCOMPARE(first.count(), 1);
    QCOMPARE(first.last().at(0).toList(), f.view.firstVisibleItem());
    checkTiling(f);
    // Scrolling up one pixel leaves the end; once more does not repeat it.
    f.scrollBy(-1);
    f.scrollBy(-1);
    QCOMPARE(end.count(), 2);
    QCOMPARE(end.last().at(0).toBool(), false);
    f.view.scrollToPosition(ListView::Beginning, false);
    QCOMPARE(begin.count(), 2);
    QCOMPARE(begin.last().at(0).toBool(), true);
    QCOMPARE(f.view.firstVisibleItem(), QVariantList{0});
    QCOMPARE(f.yOf(0), 0);
}

void TestListView::changesAboveKeepPosition_data()
{
    QTest::addColumn<int>("at");
    QTest::addColumn<int>("count"); // negative: removed
    QTest::newRow("insert at the top") << 0 << 20;
    QTest::newRow("insert just above") << 400 << 1;
    QTest::newRow("insert many above") << 100 << 300;
    QTest::newRow("remove above") << 10 << -50;
}

// The row the user looks at keeps its widget and its place, 7 px cut off.
void TestListView::changesAboveKeepPosition()
{
    QFETCH(int, at);
    QFETCH(int, count);
    Fixture f(1000);
    f.view.scrollToItem({401}, false);
    f.scrollBy(7);
    QCOMPARE(f.yOf(401), -7);
    QWidget *before = f.view.itemWidget(401);
    const int createdBefore = f.provider.total;
    if (count > 0)
        f.model.insert(at, makeRows(count, 100000));
    else
        f.model.removeRange(at, -count);
    f.view.layoutNow();
    const int moved = 401 + count;
    QCOMPARE(f.yOf(moved), -7);
    QCOMPARE(f.view.itemWidget(moved), before);
    QCOMPARE(f.view.firstVisibleItem(), QVariantList{moved});
    QCOMPARE(f.provider.total, createdBefore);
    checkTiling(f);
}

// Rows above the anchor are estimated (50 px) until they scroll into view;
// their real heights must not shift the row the user looks at. A row whose
// content grows later (an image arriving) pushes only the rows below.
void TestListView::heightsMeasuredLateDoNotJump()
{
    Fixture f(1000, 50);
    f.view.scrollToItem({600}, false);
    QCOMPARE(f.yOf(600), 0);
    for (int step = 1; step <= 20; ++step) {
        f.scrollBy(-10);
        QCOMPARE(f.yOf(600), 10 * step);
        checkTiling(f);
    }
    const QList<int> rows = f.view.visibleRows();
    auto *w = static_cast<RowWidget *>(f.view.itemWidget(rows.at(1)));
    const int above = f.yOf(rows.at(0)), below = f.yOf(rows.at(2)), oldHeight = w->height();
    w->h += 40;
    w->updateGeometry();
    QTRY_COMPARE(w->height(), oldHeight + 40);
    QCOMPARE(f.yOf(rows.at(2)), below + 40);
    QCOMPARE(f.yOf(rows.at(0)), above);
}

void TestListView::replaceRedraws_data()
{
    QTest::addColumn<int>("row");
    QTest::addColumn<int>("newHeight"); // 0: the same map
    QTest::addColumn<QString>("type");
    QTest::addColumn<bool>("redrawn");
    QTest::newRow("same map, in view") << 2 << 0 << "item" << true;
    QTest::newRow("taller, in view") << 1 << 150 << "item" << true;
    QTest::newRow("same map, out of view") << 500 << 0 << "item" << false;
    QTest::newRow("new type swaps the widget") << 1 << 0 << "header" << true;
}

void TestListView::replaceRedraws()
{
    QFETCH(int, row);
    QFETCH(int, newHeight);
    QFETCH(QString, type);
    QFETCH(bool, redrawn);
    Fixture f(1000);
    f.provider.updates.clear();
    QWidget *old = f.view.itemWidget(row);
    QVariantMap data = f.model.value(row);
    if (newHeight > 0)
        data["h"] = newHeight;
    if (type != "item")
        data["type"] = type;
    const int yBelow = f.yOf(row + 1);
    f.model.replace(row, data);
    QTRY_COMPARE(f.provider.updates.contains(row), redrawn);
    QTest::qWait(20);
    QCOMPARE(f.provider.updates, redrawn ? QList<int>{row} : QList<int>{});
    if (!redrawn)
        return;
    QCOMPARE(f.view.itemWidget(row)->height(), data.value("h").toInt());
    QCOMPARE(f.yOf(row + 1), yBelow + data.value("h").toInt() - heightFor(row));
    QCOMPARE(f.view.itemWidget(row) != old, type != "item");
    QCOMPARE(f.provider.created.value("header"), type == "header" ? 1 : 0);
}

void TestListView::modelChanges_data()
{
    QTest::addColumn<QString>("op");
    QTest::addColumn<int>("a");
    QTest::addColumn<int>("b");
    QTest::newRow("remove in view") << "remove" << 2 << 3;
    QTest::newRow("remove below view") << "remove" << 200 << 50;
    QTest::newRow("remove everything") << "remove" << 0 << 1000;
    QTest::newRow("move within view") << "move" << 4 << 0;
    QTest::newRow("move from far below to top") << "move" << 500 << 0;
    QTest::newRow("move from top to far below") << "move" << 1 << 700;
    QTest::newRow("reset to five rows") << "reset" << 5 << 0;
    QTest::newRow("clear") << "reset" << 0 << 0;
}

// Widgets in view show their rows' data after the model changes under them.
void TestListView::modelChanges()
{
    QFETCH(QString, op);
    QFETCH(int, a);
    QFETCH(int, b);
    Fixture f(1000);
    f.view.scrollToItem({op == "reset" ? 50 : 0}, false);
    if (op == "remove")
        f.model.removeRange(a, b);
    else if (op == "move")
        f.model.move(a, b);
    else
        f.model.setRows(makeRows(a, 1000));
    f.view.layoutNow();
    if (f.model.isEmpty()) {
        QVERIFY(f.view.visibleRows().isEmpty());
        QVERIFY(f.view.isAtBeginning() && f.view.isAtEnd());
        QCOMPARE(f.view.firstVisibleItem(), QVariantList());
        return;
    }
    checkTiling(f); // heights follow the ids, widgets their rows
    QCOMPARE(f.view.firstVisibleItem(), QVariantList{0});
    if (op == "reset")
        QVERIFY(f.view.isAtEnd()); // five short rows fit
}

void TestListView::dragAndFlick_data()
{
    QTest::addColumn<int>("pauseMs");
    QTest::addColumn<bool>("glides");
    QTest::newRow("released while moving") << 0 << true;
    QTest::newRow("held still before release") << 200 << false;
}

// A drag scrolls by the distance dragged and triggers nothing; released
// while moving, the list glides on.
void TestListView::dragAndFlick()
{
    QFETCH(int, pauseMs);
    QFETCH(bool, glides);
    Fixture f(1000);
    QSignalSpy trig(&f.view, &ListView::triggered);
    f.drag(350, 150, pauseMs);
    QCOMPARE(trig.count(), 0);
    if (glides) {
        QTRY_VERIFY(f.view.scrollOffset() > 400);
    } else {
        QTest::qWait(100);
        QCOMPARE(f.view.scrollOffset(), qint64(200));
    }
    checkTiling(f);
}

void TestListView::tapTriggers()
{
    Fixture f(100);
    QSignalSpy trig(&f.view, &ListView::triggered);
    QTest::mouseClick(f.view.itemWidget(3), Qt::LeftButton, Qt::NoModifier, QPoint(20, 5));
    QCOMPARE(trig.count(), 1);
    QCOMPARE(trig.at(0).at(0).toList(), QVariantList{3});
}

void TestListView::viewPropertiesReachProvider()
{
    Fixture f(20);
    f.view.setProperty("theme", "dark");
    f.view.updateVisibleItems();
    f.view.layoutNow();
    for (int r : f.view.visibleRows())
        QCOMPARE(static_cast<RowWidget *>(f.view.itemWidget(r))->theme, QStringLiteral("dark"));
}

void TestListView::stickToEnd()
{
    Fixture f(100);
    f.view.setStickToEnd(true);
    f.view.scrollToPosition(ListView::End, false);
    f.model.append(makeRows(3, 100));
    f.view.layoutNow();
    QVERIFY(f.view.isAtEnd() && f.endsView(102));
    // Scrolled away from the end, appends leave the view alone.
    f.scrollBy(-200);
    const QVariantList firstBefore = f.view.firstVisibleItem();
    f.model.append(makeRows(3, 103));
    f.view.layoutNow();
    QVERIFY(!f.view.isAtEnd());
    QCOMPARE(f.view.firstVisibleItem(), firstBefore);
}

void TestListView::stickToBeginning_data()
{
    QTest::addColumn<bool>("stick");
    QTest::addColumn<int>("scrolledBy");
    QTest::addColumn<int>("expectedFirst");
    QTest::newRow("off: rows in view stay") << false << 0 << 2;
    QTest::newRow("on, at the top: new rows show") << true << 0 << 0;
    QTest::newRow("on, scrolled a little: rows stay") << true << 5 << 2;
}

void TestListView::stickToBeginning()
{
    QFETCH(bool, stick);
    QFETCH(int, scrolledBy);
    QFETCH(int, expectedFirst);
    Fixture f(100);
    f.view.setStickToBeginning(stick);
    f.scrollBy(scrolledBy);
    f.model.insert(0, makeRows(2, 900));
    f.view.layoutNow();
    QCOMPARE(f.view.firstVisibleItem(), QVariantList{expectedFirst});
    QCOMPARE(f.yOf(expectedFirst), -scrolledBy);
    checkTiling(f);
}

// Asked for the end while another screen is in front, shown later and
// smaller, it still opens at the end.
void TestListView::endRequestedWhileHidden()
{
    ArrayDataModel model;
    CountingProvider provider;
    QWidget holder;
    auto *view = new ListView(&holder);
    view->setListItemProvider(&provider);
    model.append(makeRows(500));
    view->setDataModel(&model);
    holder.resize(300, 1000);
    view->setGeometry(0, 0, 300, 1000);
    holder.show();
    QVERIFY(QTest::qWaitForWindowExposed(&holder));
    view->hide();
    view->scrollToPosition(ListView::End, false);
    view->setGeometry(0, 0, 300, 400);
    view->show();
    QTRY_VERIFY(view->isAtEnd());
    QWidget *last = view->itemWidget(499);
    QVERIFY(last);
    QCOMPARE(last->geometry().bottom() + 1, view->viewport()->height());
}

void TestListView::indexPathForChildWidget()
{
    Fixture f(100);
    auto *button = new QWidget(f.view.itemWidget(4));
    QCOMPARE(f.view.indexPathForWidget(button), QVariantList{4});
    // After rows are inserted above, the same control reports its new row.
    f.model.insert(0, makeRows(3, 5000));
    f.view.layoutNow();
    QCOMPARE(f.view.indexPathForWidget(button), QVariantList{7});
    QWidget stranger;
    QCOMPARE(f.view.indexPathForWidget(&stranger), QVariantList());
    QCOMPARE(f.view.indexPathForWidget(nullptr), QVariantList());
}

// A signal handler that scrolls (for example back to the top when the user
// leaves it) must take effect at once.
void TestListView::handlersMayScroll()
{
    Fixture f(500);
    connect(&f.view, &ListView::atBeginningChanged, &f.view, [&f](bool atBeginning) {
        if (!atBeginning)
            f.view.scrollToPosition(ListView::Beginning, false);
    });
    f.view.scrollToItem({300}, false);
    QVERIFY(f.view.isAtBeginning());
    QCOMPARE(f.view.firstVisibleItem(), QVariantList{0});
    QCOMPARE(f.yOf(0), 0);
    checkTiling(f);
}

QTEST_MAIN(TestListView)
#include "tst_list_view.moc"
