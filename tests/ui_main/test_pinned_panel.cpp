// The open chat's pinned bar and list, its overflow menu and the search in
// its messages, through the real controller: events go in through the
// events file, commands come out through a recording channel, and the user
// acts on the real widgets.
#include "backend_link/event_intake.h"
#include "chats/chat_list_model.h"
#include "common/recording_commands.h"
#include "common/test_util.h"
#include "conversation/chat_session.h"
#include "conversation/message_search.h"
#include "conversation/pinned_messages.h"
#include "conversation/ui/chat_screen.h"
#include "platform/array_data_model.h"
#include "platform/ui/list_view.h"
#include "platform/ui/phone_window.h"
#include "platform/ui/system_dialogs.h"
#include "ui_main/ui/ui_tdlib_spike.h"

#include <QAbstractButton>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QTemporaryDir>
#include <QtTest>

#include <memory>

using namespace test_util;

class TestPinnedPanel : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void init();
    void cleanup();
    void pinnedBarAndList();
    void overflowMenu_data();
    void overflowMenu();
    void searchInTheChat();

private:
    // Signs in, opens chat 1 (of the given type) and loads messages 1..30;
    // message n says "note n", every fifth one "lunch n".
    bool openChat(const QString &chatType = QStringLiteral("private"));
    void feed(const QByteArray &json)
    {
        QVERIFY(writeFile(m_dir->filePath("data/backend_events.jsonl"), json + '\n', true));
        m_spike->eventIntake()->onPoll();
    }
    int sent(const QString &line) const { return m_commands.count(line); }
    // The message with this id is on screen.
    bool shown(qint64 id) const;
    SystemListDialog *overflow();

    std::unique_ptr<QTemporaryDir> m_dir;
    RecordingCommands m_commands;
    std::unique_ptr<UiTdlibSpike> m_spike;
};

void TestPinnedPanel::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    m_commands.clear();
    QVERIFY(QDir().mkpath(m_dir->filePath("app")));
}

void TestPinnedPanel::cleanup()
{
    m_spike.reset();
    m_dir.reset();
}

bool TestPinnedPanel::openChat(const QString &chatType)
{
    const QStringList env = cleanEnvironment()
                            << "VEXA_DATA_DIR=" + m_dir->filePath("data")
                            << "VEXA_SHARED_DIR=" + m_dir->filePath("shared") << "VEXA_ZOOM=1"
                            << "UI_USE_SERVICE_BACKEND=1";
    m_spike = std::make_unique<UiTdlibSpike>(m_dir->filePath("app"), env, &m_commands);
    m_spike->window()->resize(720, 1280);
    m_spike->window()->show();
    feed(R"({"type":"auth_state","state":"Ready"})");
    feed(R"({"type":"chats_begin"})");
    feed(QStringLiteral(R"({"type":"chat","id":1,"title":"Ann","order":"1","chat_type":"%1"})")
             .arg(chatType)
             .toUtf8());
    feed(R"({"type":"chats_end"})");
    if (!waitFor([&] { return m_spike->chatList()->size() == 1; }))
        return false;
    m_spike->openChatFromRow(m_spike->chatList()->rowAt(0));
    if (!waitFor([&] { return sent("open 1") == 1; }))
        return false;
    feed(R"({"type":"history_begin","chat_id":1,"clear":true})");
    for (int id = 1; id <= 30; ++id)
        feed(QStringLiteral(R"({"type":"message","chat_id":1,"id":%1,"text":"%2 %1"})")
                 .arg(id)
                 .arg(id % 5 == 0 ? QStringLiteral("lunch") : QStringLiteral("note"))
                 .toUtf8());
    feed(R"({"type":"history_end","chat_id":1,"clear":true})");
    return waitFor([&] { return shown(30); });
}

bool TestPinnedPanel::shown(qint64 id) const
{
    ListView *list = m_spike->messageListView();
    const QList<QVariantMap> &rows = m_spike->messageRows()->rows();
    for (int row : list->visibleRows()) {
        const QWidget *item = list->itemWidget(row);
        if (rows.value(row).value("id").toString().toLongLong() == id && item &&
            item->geometry().intersects(list->viewport()->rect()))
            return true;
    }
    return false;
}

SystemListDialog *TestPinnedPanel::overflow()
{
    return m_spike->window()->findChild<SystemListDialog *>("chat_overflow_dialog");
}

void TestPinnedPanel::pinnedBarAndList()
{
    QVERIFY(openChat());
    ChatScreen *chat = m_spike->chatScreen();
    QVERIFY(!chat->isPinnedBarVisible());
    // A pin shows the bar and asks for the whole list.
    feed(R"({"type":"pinned_message","chat_id":1,"text":"note\n25","content_type":"messageText"})");
    QVERIFY(chat->isPinnedBarVisible());
    QCOMPARE(sent("pinned_list 1 100"), 1);
    feed(R"({"type":"pinned_list_begin","chat_id":1})");
    feed(R"({"type":"pinned_list_item","chat_id":1,"id":25,"text":"note 25"})");
    feed(R"({"type":"pinned_list_item","chat_id":1,"id":2,"text":"note 2"})");
    feed(R"({"type":"pinned_list_end","chat_id":1})");

    // Taps on the bar go to the pins (their order: test_pinned_messages).
    for (qint64 id : {25, 2}) {
        Q_EMIT chat->pinnedBarTapped();
        QVERIFY2(waitFor([&] { return shown(id); }), qPrintable(QString::number(id)));
    }

    // The list shows every pin; a tap on a row goes to its message.
    Q_EMIT chat->pinnedExpandToggled();
    QCOMPARE(sent("pinned_list 1 100"), 2);
    ListView *pins = m_spike->pinnedListView();
    QVERIFY(waitFor([&] { return chat->isPinnedListVisible() && pins->itemWidget(1); }));
    QStringList texts;
    for (int row = 0; row < 2; ++row) {
        QWidget *item = pins->itemWidget(row);
        QVERIFY(pins->viewport()->rect().contains(item->geometry()));
        for (QLabel *l : item->findChildren<QLabel *>()) {
            QVERIFY(l->isVisible() && item->rect().contains(l->geometry()));
            if (!l->text().isEmpty())
                texts << l->text();
        }
    }
    QCOMPARE(texts, (QStringList{"note 25", "note 2"}));
    QTest::mouseClick(pins->itemWidget(1), Qt::LeftButton, Qt::NoModifier, QPoint(60, 10));
    QVERIFY(waitFor([&] { return shown(2); }));
    QVERIFY(!chat->isPinnedListVisible());
    // The last pin gone hides the bar.
    feed(R"({"type":"pinned_none","chat_id":1})");
    QVERIFY(!chat->isPinnedBarVisible());
    QVERIFY(!chat->isPinnedListVisible());
}

void TestPinnedPanel::overflowMenu_data()
{
    QTest::addColumn<QString>("chatType");
    QTest::addColumn<int>("entry");
    QTest::addColumn<QString>("command");
    // One entry at once, one through a confirmation; what each does: test_chat_details.
    QTest::newRow("mute") << "private" << 1 << "mute_toggle 1";
    QTest::newRow("leave") << "supergroup" << 3 << "leave 1";
}

void TestPinnedPanel::overflowMenu()
{
    QFETCH(QString, chatType);
    QFETCH(int, entry);
    QFETCH(QString, command);
    QVERIFY(openChat(chatType));
    feed(R"({"type":"chat_info","chat_id":1,"is_member":true})");
    ChatScreen *chat = m_spike->chatScreen();
    chat->findChild<QAbstractButton *>("chat_more_button")->click();
    QVERIFY(overflow() && overflow()->isOpen());
    // A tap on the entry; a confirmation, when one comes, is confirmed.
    QListWidget *list = overflow()->listWidget();
    QListWidgetItem *item = list->item(entry);
    QVERIFY(item);
    QTest::mouseClick(list->viewport(), Qt::LeftButton, Qt::NoModifier,
                      list->visualItemRect(item).center());
    auto *confirm = m_spike->window()->findChild<SystemDialog *>("chat_action_dialog");
    if (confirm && confirm->isOpen())
        confirm->finishWith(SystemUiResult::ConfirmButtonSelection);
    QVERIFY(waitFor([&] { return sent(command) == 1; }));
}

void TestPinnedPanel::searchInTheChat()
{
    QVERIFY(openChat());
    ChatScreen *chat = m_spike->chatScreen();
    chat->findChild<QAbstractButton *>("chat_more_button")->click();
    QListWidget *menu = overflow()->listWidget();
    QTest::mouseClick(menu->viewport(), Qt::LeftButton, Qt::NoModifier,
                      menu->visualItemRect(menu->item(0)).center());
    QVERIFY(chat->isSearchVisible());
    auto *field = chat->findChild<QLineEdit *>("chat_search_field");
    QTest::keyClicks(field, QStringLiteral("LUNCH"));
    QCOMPARE(chat->searchStatus(), QStringLiteral("1 of 6"));
    QVERIFY(waitFor([&] { return shown(30); }));
    // Enter and Up go back in time, Shift+Enter and Down forward.
    const QList<QPair<int, Qt::KeyboardModifiers>> keys = {{Qt::Key_Return, Qt::NoModifier},
                                                           {Qt::Key_Up, Qt::NoModifier},
                                                           {Qt::Key_Return, Qt::ShiftModifier},
                                                           {Qt::Key_Down, Qt::NoModifier}};
    const QStringList status = {"2 of 6", "3 of 6", "2 of 6", "1 of 6"};
    const QList<qint64> ids = {25, 20, 25, 30};
    for (int i = 0; i < keys.size(); ++i) {
        QTest::keyClick(field, Qt::Key(keys.at(i).first), keys.at(i).second);
        QCOMPARE(chat->searchStatus(), status.at(i));
        QVERIFY2(waitFor([&] { return shown(ids.at(i)); }), qPrintable(status.at(i)));
    }
    // Past the oldest loaded match the search offers to look further back:
    // it asks for an older page.
    auto *older = chat->findChild<QAbstractButton *>("chat_search_older_pages");
    for (int i = 0; i < 6; ++i)
        QTest::keyClick(field, Qt::Key_Return);
    QCOMPARE(chat->searchStatus(), QStringLiteral("6 of 6"));
    QVERIFY(older->isVisible());
    older->click();
    QCOMPARE(sent("history_more 1 1 50"), 1);
    // Esc closes the search and takes the marks off.
    QTest::keyClick(field, Qt::Key_Escape);
    QVERIFY(!chat->isSearchVisible());
    QCOMPARE(m_spike->messageSearch()->query(), QString());
}

QTEST_MAIN(TestPinnedPanel)
#include "test_pinned_panel.moc"
