// The controller's wiring of the window: the narrow and the wide layout, what
// of the open chat is in view, the keyboard shortcuts and the window's size,
// place and splitter across starts.

#include "ui_main/ui/ui_tdlib_spike.h"

#include "chats/chat_filter.h"
#include "conversation/chat_session.h"
#include "conversation/message_search.h"
#include "events/event_dispatcher.h"
#include "platform/array_data_model.h"
#include "platform/ui/list_view.h"
#include "platform/ui/phone_window.h"
#include "shell/message_notifier.h"
#include "shell/ui/screens.h"
#include "shell/ui/shell_screens.h"
#include "shell/window_state.h"

#include <QEvent>
#include <QGuiApplication>
#include <QProcessEnvironment>
#include <QScreen>
#include <QScrollBar>
#include <QtMath>

namespace {

// Window widths (logical pixels) from which the list and the chat show side
// by side: a little above the 720-pixel phone, so that the phone stays one.
constexpr int kWideBreakpoint = 760;

bool hasEnvironment(const QStringList &environment, const QString &key)
{
    const QString prefix = key + QLatin1Char('=');
    for (const QString &entry : environment)
        if (entry.startsWith(prefix))
            return true;
    return false;
}

} // namespace

void UiTdlibSpike::connectWindow()
{
    // The breakpoint in the screen's design pixels at the window's zoom.
    m_screens->setBreakpoint(qCeil(kWideBreakpoint / m_window->baseZoom()));
    m_screens->setSignInWidth(m_window->designSize().width());
    connect(m_screens, &ShellScreens::screenChanged, this, &UiTdlibSpike::updateChatVisibility);
    connect(m_screens, &ShellScreens::wideChanged, this, &UiTdlibSpike::updateChatVisibility);
    connect(m_session, &ChatSession::chatOpened, this, &UiTdlibSpike::updateChatVisibility);
    connect(m_session, &ChatSession::chatClosed, this, &UiTdlibSpike::updateChatVisibility);
    m_window->installEventFilter(this);

    connect(m_screens, &ShellScreens::chatSearchRequested, this,
            &UiTdlibSpike::onChatSearchShortcut);
    connect(m_screens, &ShellScreens::messageSearchRequested, m_search, [this] {
        if (m_session->chatId() != 0)
            m_search->open();
    });
    connect(m_screens, &ShellScreens::adjacentChatRequested, this, &UiTdlibSpike::openAdjacentChat);
    connect(m_screens, &ShellScreens::chatAtRequested, this, &UiTdlibSpike::openDisplayedChat);
    connect(m_screens, &ShellScreens::messagePageRequested, this, &UiTdlibSpike::scrollPage);
    // Closing the last window ends the event loop; the state is saved then.
    connect(m_screens, &ShellScreens::quitRequested, m_window.get(), &QWidget::close);
    connect(m_screens->mainScreen(), &MainScreen::searchStepRequested, this,
            &UiTdlibSpike::stepChatSearchMark);
    restoreWindowState();
}

bool UiTdlibSpike::isChatVisible() const
{
    return m_screens && m_session && m_session->chatId() != 0 && m_screens->isConversationShown() &&
           m_window && !m_window->isMinimized();
}

void UiTdlibSpike::updateChatVisibility()
{
    if (!m_session || !m_screens)
        return;
    const bool visible = isChatVisible();
    m_session->setChatInView(visible);
    if (visible && !m_chatWasVisible) {
        // Back in view: the header's presence may have changed meanwhile,
        // and what was notified for the chat is seen now.
        m_dispatcher->updateChatHeaderSubtitleForCurrentChat();
        m_notifier->onChatShown(m_session->chatId());
    }
    m_chatWasVisible = visible;
    updateChatListMark();
}

void UiTdlibSpike::updateChatListMark()
{
    // The row under the keyboard while searching, else the open chat when
    // the list is beside it.
    qint64 marked = 0;
    if (m_searchMark >= 0)
        marked = displayedChatRow(m_searchMark).value(QStringLiteral("id")).toLongLong();
    else if (m_screens->isWide() && m_session->chatId() != 0)
        marked = m_session->chatId();
    if (m_chatListView->property("ui_marked_chat_id").toLongLong() == marked)
        return;
    m_chatListView->setProperty("ui_marked_chat_id", marked);
    m_chatListView->updateVisibleItems();
}

int UiTdlibSpike::displayedChatCount() const
{
    return m_chatListView->dataModel() == m_chatFilter ? m_chatFilter->rowCount()
                                                       : m_chatRows->size();
}

QVariantMap UiTdlibSpike::displayedChatRow(int row) const
{
    if (row < 0 || row >= displayedChatCount())
        return {};
    return m_chatListView->dataModel() == m_chatFilter ? m_chatFilter->rowAt(row)
                                                       : m_chatRows->value(row);
}

void UiTdlibSpike::openDisplayedChat(int row)
{
    const QVariantMap chat = displayedChatRow(row);
    if (chat.isEmpty() || !m_dispatcher->isAuthorized())
        return;
    m_chatListView->scrollToItem({row});
    openChatFromRow(chat);
}

void UiTdlibSpike::onChatSearchShortcut()
{
    if (!m_dispatcher->isAuthorized())
        return;
    const ShellScreens::Screen now = m_screens->currentScreen();
    if (now == ShellScreens::Screen::Photo || now == ShellScreens::Screen::Video)
        m_screens->goBack();
    // A narrow window shows the list alone: the chat is left for it.
    if (!m_screens->isWide() && m_screens->currentScreen() != ShellScreens::Screen::Main) {
        if (m_session->chatId() != 0)
            onBackToChats();
        else
            m_screens->showMainScreen();
    }
    openChatSearch();
}

void UiTdlibSpike::stepChatSearchMark(int delta)
{
    const int count = displayedChatCount();
    if (count == 0)
        return;
    m_searchMark =
        m_searchMark < 0 ? (delta > 0 ? 0 : count - 1) : qBound(0, m_searchMark + delta, count - 1);
    m_chatListView->scrollToItem({m_searchMark});
    updateChatListMark();
}

void UiTdlibSpike::openAdjacentChat(int delta)
{
    const int count = displayedChatCount();
    if (count == 0)
        return;
    int at = -1;
    const QString open = QString::number(m_session->chatId());
    for (int i = 0; i < count && at < 0 && m_session->chatId() != 0; ++i)
        if (displayedChatRow(i).value(QStringLiteral("id")).toString() == open)
            at = i;
    const int to = at < 0 ? 0 : qBound(0, at + delta, count - 1);
    if (to != at)
        openDisplayedChat(to);
}

void UiTdlibSpike::scrollPage(int direction)
{
    // The messages when the chat is in view, else the list when it is.
    ListView *list = isChatVisible() ? m_messageListView : nullptr;
    if (!list && (m_screens->isWide() || m_screens->currentScreen() == ShellScreens::Screen::Main))
        list = m_chatListView;
    if (!list)
        return;
    list->verticalScrollBar()->triggerAction(direction < 0 ? QAbstractSlider::SliderPageStepSub
                                                           : QAbstractSlider::SliderPageStepAdd);
}

void UiTdlibSpike::restoreWindowState()
{
    WindowState state;
    if (read_window_state(window_state_path(m_folders.dataDir), &state)) {
        m_window->resize(state.size);
        if (state.hasPos) {
            // Only onto a screen that is still there.
            for (QScreen *screen : QGuiApplication::screens())
                if (screen->availableGeometry().contains(state.pos)) {
                    m_window->move(state.pos);
                    break;
                }
        }
        if (state.leftPane > 0)
            m_screens->setLeftPaneWidth(state.leftPane);
        if (state.maximized)
            m_window->setWindowState(m_window->windowState() | Qt::WindowMaximized);
        return;
    }
    // A desktop start (no emulated display asked for): the list beside the
    // chat if the screen has room for it.
    if (hasEnvironment(m_environment, QStringLiteral("VEXA_DISPLAY")) ||
        hasEnvironment(m_environment, QStringLiteral("VEXA_ZOOM")))
        return;
    QScreen *screen = QGuiApplication::primaryScreen();
    if (screen)
        m_window->resize(first_window_size(m_window->size(), screen->availableGeometry()));
}

void UiTdlibSpike::saveWindowState()
{
    if (!m_window)
        return;
    WindowState state;
    const bool maximized = m_window->isMaximized();
    state.size = maximized ? m_window->normalGeometry().size() : m_window->size();
    state.pos = maximized ? m_window->normalGeometry().topLeft() : m_window->pos();
    state.hasPos = true;
    state.maximized = maximized;
    state.leftPane = m_screens->leftPaneWidth();
    QString error;
    if (!write_window_state(window_state_path(m_folders.dataDir), state, &error))
        appendLog(QStringLiteral("ui: window state not saved: ") + error + QLatin1Char('\n'));
}
