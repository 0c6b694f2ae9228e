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
    QList<int> updates;
    int totalCreated() const
    {
        int n = 0;
        for (int c : created)
            n += c;
        return n;
    }
};

// Heights between 30 and 119 pixels that differ from row to row.
int heightFor(int i)
{
    return 30 + (i * 37) % 90;
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
    int vh() const { return view.viewport()->height(); }
    int yOf(int row) const
    {
        QWidget *w = view.itemWidget(row);
        return w ? w->geometry().top() : INT_MIN;
    }
    int rowOf(QWidget *w) const { return static_cast<RowWidget *>(w)->row; }
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
        QWidget *w = f.view.itemWidget(rows.at(i));
        if (i > 0)
            QCOMPARE(rows.at(i), rows.at(i - 1) + 1);
        QCOMPARE(w->geometry().top(), y);
        QCOMPARE(w->height(), heightFor(f.model.value(rows.at(i)).value("id").toInt()));
        QCOMPARE(f.rowOf(w), rows.at(i));
        QVERIFY(w->isVisible());
        y += w->height();
    }
    QVERIFY(y >= f.vh() || rows.last() == f.model.size() - 1);
}

} // namespace

class TestListView : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void onlyVisibleRowsGetWidgets_data();
    void onlyVisibleRowsGetWidgets();
    void widgetsAreRecycled();
    void scrollToItem_data();
    void scrollToItem();
    void endsAndSignals();
    void animatedScrollLands_data();
    void animatedScrollLands();
    void insertAboveKeepsPosition_data();
    void insertAboveKeepsPosition();
    void heightsAboveMeasuredLateDoNotJump();
    void replaceRedraws_data();
    void replaceRedraws();
    void typeChangeSwapsWidget();
    void removeRows_data();
    void removeRows();
    void tapTriggersDragDoesNot();
    void viewPropertiesReachProvider();
    void stickToEndFollowsAppends();
    void resetAndEmptyModel();
    void itemGrowingLaterIsRemeasured();
    void movedRowsShowTheirData_data();
    void movedRowsShowTheirData();
    void endRequestedWhileHidden();
    void removeAboveKeepsPosition();
    void indexPathForChildWidget();
    void handlersMayScroll();
    void stickToBeginning_data();
    void stickToBeginning();
    void flick_data();
    void flick();
};

void TestListView::onlyVisibleRowsGetWidgets_data()
{
    QTest::addColumn<int>("rows");
    QTest::newRow("few rows") << 3;
    QTest::newRow("one screen") << 8;
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
    QCOMPARE(f.provider.totalCreated(), visible.size());
    QCOMPARE(f.view.createdItemCount(), visible.size());
}

void TestListView::widgetsAreRecycled()
{
    Fixture f(2000);
    const int afterFirstScreen = f.provider.totalCreated();
    QScrollBar *sb = f.view.verticalScrollBar();
    for (int i = 0; i < 400 && !f.view.isAtEnd(); ++i)
        sb->setValue(sb->value() + 173);
    QVERIFY(f.view.firstVisibleItem().value(0).toInt() > 500);
    checkTiling(f);
    // Scrolling hundreds of rows reuses the widgets of one screen or so.
    QVERIFY2(f.provider.totalCreated() <= afterFirstScreen + 16,
             qPrintable(QString::number(f.provider.totalCreated())));
    QVERIFY(f.provider.updates.size() > 500);
}

void TestListView::scrollToItem_data()
{
    QTest::addColumn<int>("row");
    QTest::addColumn<bool>("atTop"); // false: near the end, the view stops at the end
    QTest::newRow("first") << 0 << true;
    QTest::newRow("a few down") << 10 << true;
    QTest::newRow("middle") << 5000 << true;
    QTest::newRow("last but one screen") << 9990 << true;
    QTest::newRow("last") << 9999 << false;
}

void TestListView::scrollToItem()
{
    QFETCH(int, row);
    QFETCH(bool, atTop);
    Fixture f(10000, 60);
    f.view.scrollToItem({row}, false);
    checkTiling(f);
    QVERIFY(f.view.itemWidget(row));
    if (atTop) {
        QCOMPARE(f.yOf(row), 0);
        QCOMPARE(f.view.firstVisibleItem(), QVariantList{row});
    } else {
        QVERIFY(f.view.isAtEnd());
        QCOMPARE(f.view.itemWidget(row)->geometry().bottom() + 1, f.vh());
    }
    QCOMPARE(f.view.verticalScrollBar()->value(), int(f.view.scrollOffset()));
}

void TestListView::endsAndSignals()
{
    Fixture f(300);
    QVERIFY(f.view.isAtBeginning());
    QVERIFY(!f.view.isAtEnd());
    QSignalSpy begin(&f.view, &ListView::atBeginningChanged);
    QSignalSpy end(&f.view, &ListView::atEndChanged);
    QSignalSpy first(&f.view, &ListView::firstVisibleItemChanged);

    f.view.scrollToPosition(ListView::End, false);
    QCOMPARE(end.count(), 1);
    QCOMPARE(end.last().at(0).toBool(), true);
    QCOMPARE(begin.count(), 1);
    QCOMPARE(begin.last().at(0).toBool(), false);
    QVERIFY(f.view.itemWidget(299));
    QCOMPARE(f.view.itemWidget(299)->geometry().bottom() + 1, f.vh());
    QCOMPARE(first.count(), 1);
    QCOMPARE(first.last().at(0).toList(), f.view.firstVisibleItem());
    checkTiling(f);

    // Scrolling up one pixel leaves the end; once more does not repeat it.
    QScrollBar *sb = f.view.verticalScrollBar();
    sb->setValue(sb->value() - 1);
    sb->setValue(sb->value() - 1);
    QCOMPARE(end.count(), 2);
    QCOMPARE(end.last().at(0).toBool(), false);

    f.view.scrollToPosition(ListView::Beginning, false);
    QCOMPARE(begin.count(), 2);
    QCOMPARE(begin.last().at(0).toBool(), true);
    QCOMPARE(f.view.firstVisibleItem(), QVariantList{0});
    QCOMPARE(f.yOf(0), 0);
}

void TestListView::animatedScrollLands_data()
{
    QTest::addColumn<int>("target"); // -1: the end
    QTest::newRow("item") << 700;
    QTest::newRow("end") << -1;
}

void TestListView::animatedScrollLands()
{
    QFETCH(int, target);
    Fixture f(1000, 50);
    QSignalSpy first(&f.view, &ListView::firstVisibleItemChanged);
    if (target < 0)
        f.view.scrollToPosition(ListView::End, true);
    else
        f.view.scrollToItem({target}, true);
    // Animated: nothing has moved yet.
    QCOMPARE(f.view.scrollOffset(), qint64(0));
    if (target < 0) {
        QTRY_VERIFY(f.view.isAtEnd());
        QTRY_VERIFY(f.view.itemWidget(999) &&
                    f.view.itemWidget(999)->geometry().bottom() + 1 == f.vh());
    } else {
        QTRY_COMPARE(f.view.firstVisibleItem(), QVariantList{target});
        QTRY_COMPARE(f.yOf(target), 0);
    }
    // It passed through rows on the way.
    QVERIFY(first.count() >= 2);
    checkTiling(f);
}

void TestListView::insertAboveKeepsPosition_data()
{
    QTest::addColumn<int>("insertAt");
    QTest::addColumn<int>("count");
    QTest::newRow("at the top") << 0 << 20;
    QTest::newRow("just above") << 400 << 1;
    QTest::newRow("many above") << 100 << 300;
}

void TestListView::insertAboveKeepsPosition()
{
    QFETCH(int, insertAt);
    QFETCH(int, count);
    Fixture f(1000);
    f.view.scrollToItem({401}, false);
    QScrollBar *sb = f.view.verticalScrollBar();
    sb->setValue(sb->value() + 7); // row 401 now starts 7 px above the top
    QCOMPARE(f.yOf(401), -7);
    QWidget *before = f.view.itemWidget(401);
    const int createdBefore = f.provider.totalCreated();

    QList<QVariantMap> older = makeRows(count, 100000);
    f.model.insert(insertAt, older);
    f.view.layoutNow();

    const int moved = 401 + count;
    QCOMPARE(f.yOf(moved), -7);
    QCOMPARE(f.view.itemWidget(moved), before);
    QCOMPARE(f.view.firstVisibleItem(), QVariantList{moved});
    QCOMPARE(f.provider.totalCreated(), createdBefore);
    checkTiling(f);
}

// Rows above the anchor are estimated (50 px) until they scroll into view;
// their real heights must not shift the row the user looks at.
void TestListView::heightsAboveMeasuredLateDoNotJump()
{
    Fixture f(1000, 50);
    f.view.scrollToItem({600}, false);
    QCOMPARE(f.yOf(600), 0);
    QScrollBar *sb = f.view.verticalScrollBar();
    for (int step = 1; step <= 20; ++step) {
        sb->setValue(sb->value() - 10);
        QCOMPARE(f.yOf(600), 10 * step);
        checkTiling(f);
    }
}

void TestListView::replaceRedraws_data()
{
    QTest::addColumn<int>("row");
    QTest::addColumn<int>("newHeight"); // 0: the same map
    QTest::addColumn<bool>("redrawn");
    QTest::newRow("same map, in view") << 2 << 0 << true;
    QTest::newRow("taller, in view") << 1 << 150 << true;
    QTest::newRow("same map, out of view") << 500 << 0 << false;
}

void TestListView::replaceRedraws()
{
    QFETCH(int, row);
    QFETCH(int, newHeight);
    QFETCH(bool, redrawn);
    Fixture f(1000);
    f.provider.updates.clear();
    QVariantMap data = f.model.value(row);
    if (newHeight > 0)
        data["h"] = newHeight;
    const int yBelow = f.yOf(row + 1);
    f.model.replace(row, data);
    QTRY_COMPARE(f.provider.updates.contains(row), redrawn);
    QTest::qWait(20);
    QCOMPARE(f.provider.updates.count(row), redrawn ? 1 : 0);
    QCOMPARE(f.provider.updates.size(), redrawn ? 1 : 0);
    if (redrawn && newHeight > 0) {
        QCOMPARE(f.view.itemWidget(row)->height(), newHeight);
        QCOMPARE(f.yOf(row + 1), yBelow + newHeight - heightFor(row));
    }
}

void TestListView::typeChangeSwapsWidget()
{
    Fixture f(50);
    QWidget *old = f.view.itemWidget(1);
    QVariantMap data = f.model.value(1);
    data["type"] = "header";
    f.model.replace(1, data);
    f.view.layoutNow();
    QWidget *now = f.view.itemWidget(1);
    QVERIFY(now != old);
    QCOMPARE(static_cast<RowWidget *>(now)->type, QStringLiteral("header"));
    QCOMPARE(f.provider.created.value("header"), 1);
    checkTiling(f);
}

void TestListView::removeRows_data()
{
    QTest::addColumn<int>("first");
    QTest::addColumn<int>("count");
    QTest::newRow("first row") << 0 << 1;
    QTest::newRow("middle of view") << 2 << 3;
    QTest::newRow("below view") << 200 << 50;
    QTest::newRow("everything") << 0 << 300;
}

void TestListView::removeRows()
{
    QFETCH(int, first);
    QFETCH(int, count);
    Fixture f(300);
    const QVariant idAfter = f.model.value(first + count).value("id");
    f.model.removeRange(first, count);
    f.view.layoutNow();
    if (f.model.size() == 0) {
        QVERIFY(f.view.visibleRows().isEmpty());
        QVERIFY(f.view.isAtBeginning());
        QVERIFY(f.view.isAtEnd());
        return;
    }
    checkTiling(f);
    QCOMPARE(f.model.value(first).value("id"), idAfter);
    for (int r : f.view.visibleRows())
        QCOMPARE(static_cast<RowWidget *>(f.view.itemWidget(r))->h,
                 f.model.value(r).value("h").toInt());
}

void TestListView::tapTriggersDragDoesNot()
{
    Fixture f(100);
    QSignalSpy trig(&f.view, &ListView::triggered);
    QWidget *w = f.view.itemWidget(3);
    QTest::mouseClick(w, Qt::LeftButton, Qt::NoModifier, QPoint(20, 5));
    QCOMPARE(trig.count(), 1);
    QCOMPARE(trig.at(0).at(0).toList(), QVariantList{3});

    // A drag scrolls by the distance dragged and triggers nothing.
    QWidget *vp = f.view.viewport();
    QTest::mousePress(vp, Qt::LeftButton, Qt::NoModifier, QPoint(50, 300));
    QMouseEvent move(QEvent::MouseMove, QPoint(50, 200), Qt::NoButton, Qt::LeftButton,
                     Qt::NoModifier);
    QApplication::sendEvent(vp, &move);
    QTest::mouseRelease(vp, Qt::LeftButton, Qt::NoModifier, QPoint(50, 200));
    QCOMPARE(trig.count(), 1);
    QCOMPARE(f.view.scrollOffset(), qint64(100));
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

void TestListView::stickToEndFollowsAppends()
{
    Fixture f(100);
    f.view.setStickToEnd(true);
    f.view.scrollToPosition(ListView::End, false);
    f.model.append(makeRows(3, 100));
    f.view.layoutNow();
    QVERIFY(f.view.isAtEnd());
    QCOMPARE(f.view.itemWidget(102)->geometry().bottom() + 1, f.vh());

    // Scrolled away from the end, appends leave the view alone.
    QScrollBar *sb = f.view.verticalScrollBar();
    sb->setValue(sb->value() - 200);
    const QVariantList firstBefore = f.view.firstVisibleItem();
    f.model.append(makeRows(3, 103));
    f.view.layoutNow();
    QVERIFY(!f.view.isAtEnd());
    QCOMPARE(f.view.firstVisibleItem(), firstBefore);
}

void TestListView::resetAndEmptyModel()
{
    Fixture f(100);
    f.view.scrollToItem({50}, false);
    f.model.setRows(makeRows(5, 1000));
    f.view.layoutNow();
    QCOMPARE(f.view.visibleRows(), (QList<int>{0, 1, 2, 3, 4}));
    QVERIFY(f.view.isAtBeginning());
    QVERIFY(f.view.isAtEnd()); // 5 short rows fit
    f.model.clear();
    f.view.layoutNow();
    QVERIFY(f.view.visibleRows().isEmpty());
    QCOMPARE(f.view.firstVisibleItem(), QVariantList());
}

// An item whose content grows after updateItem (an image arriving) asks
// for a new layout; rows below move down, rows above stay.
void TestListView::itemGrowingLaterIsRemeasured()
{
    Fixture f(100);
    auto *w = static_cast<RowWidget *>(f.view.itemWidget(1));
    const int y2 = f.yOf(2);
    const int y0 = f.yOf(0);
    w->h += 40;
    w->updateGeometry();
    QTRY_COMPARE(f.view.itemWidget(1)->height(), heightFor(1) + 40);
    QCOMPARE(f.yOf(2), y2 + 40);
    QCOMPARE(f.yOf(0), y0);
}

void TestListView::movedRowsShowTheirData_data()
{
    QTest::addColumn<int>("from");
    QTest::addColumn<int>("to");
    QTest::newRow("down within view") << 0 << 3;
    QTest::newRow("up within view") << 4 << 0;
    QTest::newRow("from far below to top") << 500 << 0;
    QTest::newRow("from top to far below") << 1 << 700;
}

void TestListView::movedRowsShowTheirData()
{
    QFETCH(int, from);
    QFETCH(int, to);
    Fixture f(1000);
    const QVariant movedId = f.model.value(from).value("id");
    f.model.move(from, to);
    QCOMPARE(f.model.value(to).value("id"), movedId);
    f.view.layoutNow();
    checkTiling(f); // heights follow the ids, widgets their rows
    if (to < 3)
        QCOMPARE(static_cast<RowWidget *>(f.view.itemWidget(to))->h, heightFor(movedId.toInt()));
}

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
    view->hide(); // another screen is in front
    view->scrollToPosition(ListView::End, false);
    // Shown later and smaller, it still opens at the end.
    view->setGeometry(0, 0, 300, 400);
    view->show();
    QTRY_VERIFY(view->isAtEnd());
    QWidget *last = view->itemWidget(499);
    QVERIFY(last);
    QCOMPARE(last->geometry().bottom() + 1, view->viewport()->height());
}

void TestListView::removeAboveKeepsPosition()
{
    Fixture f(1000);
    f.view.scrollToItem({300}, false);
    QWidget *before = f.view.itemWidget(300);
    f.model.removeRange(10, 50);
    f.view.layoutNow();
    QCOMPARE(f.view.itemWidget(250), before);
    QCOMPARE(f.yOf(250), 0);
    QCOMPARE(f.view.firstVisibleItem(), QVariantList{250});
    checkTiling(f);
}

void TestListView::indexPathForChildWidget()
{
    Fixture f(100);
    auto *button = new QWidget(f.view.itemWidget(4));
    QCOMPARE(f.view.indexPathForWidget(button), QVariantList{4});
    QCOMPARE(f.view.indexPathForWidget(f.view.itemWidget(2)), QVariantList{2});
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
    f.view.verticalScrollBar()->setValue(scrolledBy);
    f.model.insert(0, makeRows(2, 900));
    f.view.layoutNow();
    QCOMPARE(f.view.firstVisibleItem(), QVariantList{expectedFirst});
    QCOMPARE(f.yOf(expectedFirst), -scrolledBy);
    checkTiling(f);
}

void TestListView::flick_data()
{
    QTest::addColumn<int>("pauseMs");
    QTest::addColumn<bool>("glides");
    QTest::newRow("released while moving") << 0 << true;
    QTest::newRow("held still before release") << 200 << false;
}

void TestListView::flick()
{
    QFETCH(int, pauseMs);
    QFETCH(bool, glides);
    Fixture f(1000);
    QWidget *vp = f.view.viewport();
    QTest::mousePress(vp, Qt::LeftButton, Qt::NoModifier, QPoint(50, 350));
    for (int y = 330; y >= 150; y -= 30) {
        QMouseEvent move(QEvent::MouseMove, QPoint(50, y), Qt::NoButton, Qt::LeftButton,
                         Qt::NoModifier);
        QApplication::sendEvent(vp, &move);
    }
    QCOMPARE(f.view.scrollOffset(), qint64(200));
    if (pauseMs > 0)
        QTest::qWait(pauseMs);
    QTest::mouseRelease(vp, Qt::LeftButton, Qt::NoModifier, QPoint(50, 150));
    if (glides) {
        QTRY_VERIFY(f.view.scrollOffset() > 400);
    } else {
        QTest::qWait(100);
        QCOMPARE(f.view.scrollOffset(), qint64(200));
    }
    checkTiling(f);
}

QTEST_MAIN(TestListView)
#include "tst_list_view.moc"
