// The pinned list as the user sees it: the real list view drawn by the
// pinned item provider over the pins' model, reloaded as the backend sends
// it again, and a tapped row going to its message.
#include "conversation/pinned_messages.h"
#include "conversation/ui/pinned_item_provider.h"
#include "conversation_test_util.h"
#include "platform/array_data_model.h"
#include "platform/ui/list_view.h"

#include <QLabel>
#include <QVBoxLayout>
#include <QtTest>

class TestPinnedList : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void rowsShowAndTapsJump_data();
    void rowsShowAndTapsJump();
};

void TestPinnedList::rowsShowAndTapsJump_data()
{
    QTest::addColumn<int>("loads");
    // The list is loaded while the panel is closed, then opened and loaded again.
    QTest::addColumn<bool>("hiddenWhileLoading");
    QTest::newRow("first load") << 1 << false;
    QTest::newRow("loaded again") << 3 << false;
    QTest::newRow("loaded while closed") << 2 << true;
}

void TestPinnedList::rowsShowAndTapsJump()
{
    QFETCH(int, loads);
    QFETCH(bool, hiddenWhileLoading);
    ArrayDataModel rows;
    PinnedMessages pinned(&rows);
    PinnedItemProvider provider(1.0f);
    // The list is built on its own, then put in the panel under the chat
    // header, which stays closed at first.
    auto *viewPtr = new ListView;
    ListView &view = *viewPtr;
    view.setDataModel(&rows);
    view.setListItemProvider(&provider);
    QWidget panel;
    panel.resize(600, 800);
    auto *column = new QVBoxLayout(&panel);
    auto *host = new QWidget(&panel);
    auto *layout = new QVBoxLayout(host);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(viewPtr);
    column->addWidget(host);
    column->addStretch(1);
    host->hide();
    panel.show();
    QVERIFY(QTest::qWaitForWindowExposed(&panel));
    QObject::connect(&view, &ListView::triggered, &pinned, [&](const QVariantList &path) {
        pinned.onPinnedItemTapped(path.value(0).toInt());
    });
    QSignalSpy jumps(&pinned, &PinnedMessages::jumpRequested);
    const auto open = [host] {
        host->setFixedHeight(3 * 60);
        host->show();
    };
    if (!hiddenWhileLoading)
        open();
    pinned.setChatId(5);
    const QString list = QStringLiteral(
        "pinned_list_begin chat_id=5;"
        "pinned_list_item chat_id=5 id=6 content_type=messageText text=Working~from~home;"
        "pinned_list_item chat_id=5 id=2 content_type=messagePhoto text=;"
        "pinned_list_item chat_id=5 id=1 content_type=messageDocument text=plan.pdf;"
        "pinned_list_end chat_id=5");
    for (const QVariantMap &e : evs(QStringLiteral("pinned_message chat_id=5 text=x")))
        pinned.handleEvent(e);
    for (int i = 0; i < loads; ++i) {
        for (const QVariantMap &e : evs(list))
            pinned.handleEvent(e);
        if (hiddenWhileLoading && host->isHidden()) {
            open();
            // The opened list is drawn before the next answer comes.
            QTRY_COMPARE(view.visibleRows().size(), 3);
        }
    }

    const QStringList expected = {QStringLiteral("Working from home"), QStringLiteral("Photo"),
                                  QStringLiteral("File: plan.pdf")};
    QTRY_COMPARE(view.visibleRows().size(), 3);
    for (int row = 0; row < 3; ++row) {
        QWidget *item = view.itemWidget(row);
        QVERIFY(item && item->isVisible());
        auto *text = item->findChild<QLabel *>();
        QVERIFY(text);
        QStringList shown;
        for (QLabel *l : item->findChildren<QLabel *>()) {
            // Laid out inside its row, where the row is in view.
            QVERIFY(l->isVisible() && !l->geometry().isEmpty());
            QVERIFY(item->rect().contains(l->geometry()));
            QVERIFY(view.viewport()->rect().intersects(item->geometry()));
            if (!l->text().isEmpty())
                shown << l->text();
        }
        QCOMPARE(shown, QStringList{expected.at(row)});
    }
    QTest::mouseClick(view.itemWidget(1), Qt::LeftButton, Qt::NoModifier, QPoint(40, 10));
    QCOMPARE(jumps.count(), 1);
    QCOMPARE(jumps.first().first().toLongLong(), qint64(2));
}

QTEST_MAIN(TestPinnedList)
#include "test_pinned_list.moc"
