// The window in its two layouts, with the real demo backend as a child: the
// open chat survives crossing the breakpoint, back closes it beside the list,
// read receipts follow what is in view, the keyboard shortcuts, and the
// window's state across a restart.
#include "chats/chat_list_model.h"
#include "common/test_util.h"
#include "conversation/chat_session.h"
#include "conversation/composer.h"
#include "conversation/message_search.h"
#include "conversation/ui/chat_screen.h"
#include "events/event_dispatcher.h"
#include "platform/array_data_model.h"
#include "platform/ui/list_view.h"
#include "platform/ui/phone_window.h"
#include "shell/ui/screens.h"
#include "shell/ui/shell_screens.h"
#include "ui_main/ui/ui_tdlib_spike.h"

#include <QApplication>
#include <QPlainTextEdit>
#include <QTemporaryDir>
#include <QtTest>

#include <memory>

using namespace test_util;

// What a shortcut did.
enum class Effect
{
    ChatSearch,
    MessageSearch,
    OpensRow,
    Scrolls,
    Quits
};
Q_DECLARE_METATYPE(Effect)

class TestWideLayout : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void init();

    void crossingKeepsTheChatAndBackLeavesTheList_data();
    void crossingKeepsTheChatAndBackLeavesTheList();
    void readsFollowTheVisiblePane_data();
    void readsFollowTheVisiblePane();
    void shortcuts_data();
    void shortcuts();
    void windowStateSurvivesARestart();

private:
    void start();
    void setWide(bool wide);
    // Opens the chat at row of the full list and waits for its messages.
    void openRow(int row);
    QString unreadOf(qint64 chatId) const;
    // The row of the first private chat (whose people answer).
    int privateRow() const;
    qint64 firstVisibleId() const
    {
        ListView *list = m_spike->messageListView();
        return m_spike->messageRows()
            ->value(list->firstVisibleItem().value(0).toInt())
            .value("id")
            .toLongLong();
    }
    QPlainTextEdit *composerField() const
    {
        return m_spike->chatScreen()->findChild<QPlainTextEdit *>();
    }

    QTemporaryDir m_dir;
    std::unique_ptr<UiTdlibSpike> m_spike;
};

void TestWideLayout::start()
{
    QStringList env = cleanEnvironment();
    env << "VEXA_DATA_DIR=" + m_dir.filePath("data")
        << "VEXA_SHARED_DIR=" + m_dir.filePath("shared") << "VEXA_ZOOM=1"
        << "DEMO_SPEED=0";
    m_spike = std::make_unique<UiTdlibSpike>(m_dir.filePath("app"), env);
    m_spike->window()->show();
    QVERIFY(QTest::qWaitForWindowExposed(m_spike->window()));
}

void TestWideLayout::initTestCase()
{
    // Ctrl+Q closes the window; the test goes on after it.
    QApplication::setQuitOnLastWindowClosed(false);
    QVERIFY(QDir().mkpath(m_dir.filePath("app")));
    QVERIFY(installExecutable(DEMO_BACKEND_PATH, m_dir.filePath("app/td_backend")));
    start();
    ShellScreens *screens = m_spike->screens();
    MainScreen *main = screens->mainScreen();
    // Signing in on a wide window: one phone-wide column in the middle,
    // nothing beside it; the two panes once signed in.
    m_spike->window()->resize(1600, 1000);
    const auto centredColumn = [&] {
        const QRect r(main->mapTo(screens, QPoint(0, 0)), main->size());
        return r.width() == m_spike->window()->designSize().width() &&
               qAbs(r.center().x() - screens->rect().center().x()) <= 1;
    };
    QTRY_VERIFY(screens->width() == 1600 && centredColumn());
    QString state;
    connect(m_spike->dispatcher(), &EventDispatcher::authStateChanged,
            [&state](const QString &s, bool) { state = s; });
    QVERIFY2(waitFor([&] { return state.contains("Phone"); }, 20000), qPrintable(state));
    QVERIFY(!screens->isWide() && !m_spike->chatScreen()->parentWidget()->isVisible());
    m_spike->onSendPhone("+15550100");
    QVERIFY2(waitFor([&] { return state.contains("Code"); }, 20000), qPrintable(state));
    m_spike->onSendCode("22222");
    QVERIFY(waitFor([&] { return main->isAuthorised(); }, 20000));
    QTRY_VERIFY(main->width() < 800 && m_spike->chatScreen()->parentWidget()->isVisible());
    QVERIFY(waitFor([&] { return m_spike->chatList()->size() >= 60; }, 20000));
}

void TestWideLayout::init()
{
    m_spike->window()->show();
    m_spike->window()->activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(m_spike->window()));
    if (m_spike->chatSession()->chatId() != 0)
        m_spike->onBackToChats();
    m_spike->screens()->showMainScreen();
    if (m_spike->screens()->mainScreen()->isSearchOpen())
        m_spike->screens()->mainScreen()->closeSearch();
}

void TestWideLayout::setWide(bool wide)
{
    m_spike->window()->resize(wide ? 1400 : 720, 1000);
    QTRY_COMPARE(m_spike->screens()->isWide(), wide);
}

void TestWideLayout::openRow(int row)
{
    m_spike->openChatFromRow(m_spike->chatList()->rowAt(row));
    QTRY_VERIFY_WITH_TIMEOUT(m_spike->messageRows()->size() >= 20, 10000);
    QTRY_VERIFY(!m_spike->messageListView()->visibleRows().isEmpty());
}

QString TestWideLayout::unreadOf(qint64 chatId) const
{
    const int row = m_spike->chatList()->findChatIndexById(chatId);
    return m_spike->chatList()->rowAt(row).value("unread_count").toString();
}

int TestWideLayout::privateRow() const
{
    for (int i = 0; i < m_spike->chatList()->size(); ++i)
        if (m_spike->chatList()->rowAt(i).value("chat_type") == "private")
            return i;
    return -1;
}

void TestWideLayout::crossingKeepsTheChatAndBackLeavesTheList_data()
{
    QTest::addColumn<bool>("startWide");
    QTest::newRow("narrow to wide") << false;
    QTest::newRow("wide to narrow") << true;
}

// The same widgets carry the chat across: the row at the top of the view,
// the half-written text and the reply. Esc then closes the chat, and the
// chat list is where it was.
void TestWideLayout::crossingKeepsTheChatAndBackLeavesTheList()
{
    QFETCH(bool, startWide);
    setWide(startWide);
    ListView *chats = m_spike->chatListView();
    chats->scrollToItem({10});
    QTRY_VERIFY(chats->scrollOffset() > 0);
    const qint64 listOffset = chats->scrollOffset();
    openRow(privateRow());
    ListView *list = m_spike->messageListView();
    list->scrollToItem({3});
    QTRY_COMPARE(list->firstVisibleItem().value(0).toInt(), 3);
    const qint64 top = firstVisibleId();
    const qint64 replyTo = m_spike->messageRows()->value(5).value("id").toLongLong();
    m_spike->composer()->setReplyToMessageId(replyTo);
    QPlainTextEdit *field = composerField();
    field->setFocus();
    QTest::keyClicks(field, "half written");

    setWide(!startWide);
    QVERIFY(m_spike->isChatVisible());
    QCOMPARE(chats->isVisible(), !startWide);
    QCOMPARE(field->toPlainText(), QString("half written"));
    QCOMPARE(m_spike->composer()->replyToMessageId(), replyTo);
    QTRY_COMPARE(firstVisibleId(), top);

    field->clear();
    m_spike->composer()->clearReply();
    QTest::keyClick(field, Qt::Key_Escape);
    QCOMPARE(m_spike->chatSession()->chatId(), qint64(0));
    QVERIFY(chats->isVisible() && !m_spike->chatScreen()->isVisible());
    QCOMPARE(chats->scrollOffset(), listOffset);
}

void TestWideLayout::readsFollowTheVisiblePane_data()
{
    QTest::addColumn<bool>("wide");
    QTest::newRow("wide") << true;
    QTest::newRow("narrow") << false;
}

// The answer to a message arrives while the chat's information covers the
// chat: it stays unread until the chat is back in view.
void TestWideLayout::readsFollowTheVisiblePane()
{
    QFETCH(bool, wide);
    setWide(wide);
    const int row = privateRow();
    const qint64 chatId = m_spike->chatList()->rowAt(row).value("id").toLongLong();
    openRow(row);
    QTRY_COMPARE(unreadOf(chatId), QString("0"));
    m_spike->screens()->showScreen(ShellScreens::Screen::ChatInfo);
    m_spike->composer()->setText("are you there?");
    m_spike->composer()->onSendMessage();
    QTRY_VERIFY_WITH_TIMEOUT(unreadOf(chatId).toInt() > 0, 15000);
    m_spike->screens()->goBack();
    QTRY_COMPARE_WITH_TIMEOUT(unreadOf(chatId), QString("0"), 10000);
}

void TestWideLayout::shortcuts_data()
{
    QTest::addColumn<QString>("keys");
    QTest::addColumn<bool>("wide");
    // Where the keyboard is: in the chat (the composer) or in the list.
    QTest::addColumn<bool>("inChat");
    QTest::addColumn<Effect>("effect");
    QTest::addColumn<int>("row");
    QTest::newRow("Ctrl+K beside the chat") << "Ctrl+K" << true << true << Effect::ChatSearch << 0;
    QTest::newRow("Ctrl+K narrow leaves the chat")
        << "Ctrl+K" << false << true << Effect::ChatSearch << 0;
    QTest::newRow("Ctrl+F in the chat") << "Ctrl+F" << true << true << Effect::MessageSearch << 0;
    QTest::newRow("Ctrl+F in the list") << "Ctrl+F" << true << false << Effect::ChatSearch << 0;
    QTest::newRow("search, Down, Down, Down, Up, Enter")
        << "Ctrl+K, Down, Down, Down, Up, Return" << false << false << Effect::OpensRow << 1;
    QTest::newRow("Alt+Up") << "Alt+Up" << false << true << Effect::OpensRow << 2;
    QTest::newRow("Ctrl+Tab") << "Ctrl+Tab" << true << true << Effect::OpensRow << 4;
    QTest::newRow("Ctrl+Shift+Tab")
        << "Ctrl+Shift+Backtab" << true << true << Effect::OpensRow << 2;
    QTest::newRow("Ctrl+9") << "Ctrl+9" << false << true << Effect::OpensRow << 8;
    // For scrolling, row is the direction.
    QTest::newRow("Page Up") << "PgUp" << true << true << Effect::Scrolls << -1;
    QTest::newRow("Page Down") << "PgDown" << false << true << Effect::Scrolls << 1;
    QTest::newRow("Ctrl+Q") << "Ctrl+Q" << true << false << Effect::Quits << 0;
}

// Each shortcut with the fourth chat of the list open, typed where the
// keyboard is (Up in the composer: test_chat_screen).
void TestWideLayout::shortcuts()
{
    QFETCH(QString, keys);
    QFETCH(bool, wide);
    QFETCH(bool, inChat);
    QFETCH(Effect, effect);
    QFETCH(int, row);
    setWide(wide);
    openRow(3);
    ListView *messages = m_spike->messageListView();
    if (effect == Effect::Scrolls && row > 0) {
        messages->scrollToItem({0});
        QTRY_VERIFY(messages->isAtBeginning());
    }
    const qint64 before = messages->scrollOffset();
    if (inChat)
        composerField()->setFocus();
    else
        m_spike->chatListView()->setFocus();
    QTRY_VERIFY(QApplication::focusWidget());
    for (const QString &k : keys.split(", ")) {
        const int key = QKeySequence(k)[0];
        QTest::keyClick(QApplication::focusWidget(), Qt::Key(key & ~Qt::KeyboardModifierMask),
                        Qt::KeyboardModifiers(key & Qt::KeyboardModifierMask));
    }

    MainScreen *main = m_spike->screens()->mainScreen();
    QVariantMap shown;
    switch (effect) {
    case Effect::ChatSearch:
        QVERIFY(main->isSearchOpen() && main->isAncestorOf(QApplication::focusWidget()));
        QCOMPARE(m_spike->chatSession()->chatId() != 0, wide);
        break;
    case Effect::MessageSearch:
        QVERIFY(m_spike->messageSearch()->isActive());
        break;
    case Effect::OpensRow:
        // A row of the list as shown (filtered while searching).
        shown = m_spike->chatListView()->dataModel()->index(row, 0).data(Qt::UserRole).toMap();
        QTRY_COMPARE(m_spike->chatSession()->chatId(), shown.value("id").toLongLong());
        break;
    case Effect::Scrolls:
        QTRY_VERIFY((messages->scrollOffset() - before) * row > 0);
        break;
    case Effect::Quits:
        QVERIFY(!m_spike->window()->isVisible());
        break;
    }
    m_spike->messageSearch()->close();
}

// Size, place and the list's width come back at the next start on the
// same data folder.
void TestWideLayout::windowStateSurvivesARestart()
{
    setWide(true);
    m_spike->window()->resize(1234, 777);
    m_spike->window()->move(20, 30);
    m_spike->screens()->setLeftPaneWidth(555);
    QTRY_COMPARE(m_spike->window()->size(), QSize(1234, 777));
    const QPoint pos = m_spike->window()->pos();
    m_spike.reset();
    start();
    QCOMPARE(m_spike->window()->size(), QSize(1234, 777));
    QCOMPARE(m_spike->window()->pos(), pos);
    // The panes wait for the account.
    QTRY_VERIFY_WITH_TIMEOUT(m_spike->screens()->isWide(), 20000);
    QCOMPARE(m_spike->screens()->leftPaneWidth(), 555);
}

QTEST_MAIN(TestWideLayout)
#include "test_wide_layout.moc"
