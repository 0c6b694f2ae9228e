// The open chat's pinned bar and list, its overflow menu and the search in
// its messages, through the real controller: events go in through the
// events file, commands come out through a recording channel, and the user
// acts on the real widgets.
#include "backend_link/event_intake.h"
#include "chats/chat_list_model.h"
#include "common/recording_commands.h"
#include "common/test_util.h"
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
    // The message with this id is on screen.
    bool shown(qint64 id) const;

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
    if (!waitFor([&] { return m_commands.count("open 1") == 1; }))
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

void TestPinnedPanel::pinnedBarAndList()
{
    QVERIFY(openChat());
    ChatScreen *chat = m_spike->chatScreen();
    feed(R"({"type":"pinned_message","chat_id":1,"text":"note 25","content_type":"messageText"})");
    feed(R"({"type":"pinned_list_begin","chat_id":1})");
    feed(R"({"type":"pinned_list_item","chat_id":1,"id":25,"text":"note 25"})");
    feed(R"({"type":"pinned_list_item","chat_id":1,"id":2,"text":"note 2"})");
    feed(R"({"type":"pinned_list_end","chat_id":1})");
    QVERIFY(chat->isPinnedBarVisible());
    // The walk's order: test_pinned_messages.
    Q_EMIT chat->pinnedBarTapped();
    QVERIFY(waitFor([&] { return shown(25); }));

    // The list draws every pin whole; a tap on a row goes to its message.
    Q_EMIT chat->pinnedExpandToggled();
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
}

// Through the overflow menu (what its other entries do: test_chat_details).
void TestPinnedPanel::searchInTheChat()
{
    QVERIFY(openChat());
    ChatScreen *chat = m_spike->chatScreen();
    chat->findChild<QAbstractButton *>("chat_more_button")->click();
    QListWidget *menu =
        m_spike->window()->findChild<SystemListDialog *>("chat_overflow_dialog")->listWidget();
    QTest::mouseClick(menu->viewport(), Qt::LeftButton, Qt::NoModifier,
                      menu->visualItemRect(menu->item(0)).center());
    auto *field = chat->findChild<QLineEdit *>("chat_search_field");
    QTest::keyClicks(field, QStringLiteral("lunch"));
    // Enter and Up go back in time, Shift+Enter and Down forward.
    QTest::keyClick(field, Qt::Key_Return);
    QTest::keyClick(field, Qt::Key_Up);
    QCOMPARE(chat->searchStatus(), QStringLiteral("3 of 6"));
    QVERIFY(waitFor([&] { return shown(20); }));
    QTest::keyClick(field, Qt::Key_Return, Qt::ShiftModifier);
    QTest::keyClick(field, Qt::Key_Down);
    QCOMPARE(chat->searchStatus(), QStringLiteral("1 of 6"));
    // Past the oldest loaded match it offers an older page.
    for (int i = 0; i < 6; ++i)
        QTest::keyClick(field, Qt::Key_Return);
    auto *older = chat->findChild<QAbstractButton *>("chat_search_older_pages");
    QVERIFY(older->isVisible());
    older->click();
    QCOMPARE(m_commands.count("history_more 1 1 50"), 1);
    QTest::keyClick(field, Qt::Key_Escape);
    QVERIFY(!chat->isSearchVisible());
}

QTEST_MAIN(TestPinnedPanel)
#include "test_pinned_panel.moc"
