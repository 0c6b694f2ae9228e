#include "shell/ui/shell_screens.h"

#include "platform/ui/system_dialogs.h"
#include "shell/style_sheet.h"
#include "shell/theme.h"
#include "shell/ui/screen_parts.h"
#include "shell/ui/screens.h"
#include "shell/ui_scale.h"

#include <QLabel>
#include <QPlainTextEdit>
#include <QResizeEvent>
#include <QScrollBar>
#include <QShortcut>
#include <QSplitter>
#include <QStackedWidget>
#include <QVBoxLayout>
#include <QVariant>

#include <functional>

ShellScreens::ShellScreens(bool darkTheme, float uiScale, QWidget *parent)
    : QWidget(parent), m_dark(darkTheme), m_scale(uiScale)
{
    auto *v = screen_parts::screenRoot(this, QStringLiteral("shell_root"), ThemeGroup::A);

    m_stack = new QStackedWidget(this);
    m_stack->setObjectName(QStringLiteral("screen_stack"));
    // The list and the right-hand pages share one splitter in both layouts;
    // the narrow one hides the side that is not current.
    m_split = new QSplitter(Qt::Horizontal, m_stack);
    m_split->setObjectName(QStringLiteral("wide_splitter"));
    m_split->setChildrenCollapsible(false);
    m_split->setHandleWidth(scaled_px(4, m_scale));
    m_main = new MainScreen(m_scale, m_split);
    m_right = new QStackedWidget(m_split);
    m_right->setObjectName(QStringLiteral("right_pane"));
    m_split->addWidget(m_main);
    m_split->addWidget(m_right);
    m_split->setStretchFactor(0, 0);
    m_split->setStretchFactor(1, 1);
    m_pickHint = screen_parts::label(QStringLiteral("Select a chat to start messaging"),
                                     QStringLiteral("pick_chat_hint"), ThemeGroup::D,
                                     TextSize::Body, m_right);
    m_pickHint->setAlignment(Qt::AlignCenter);
    m_pickHint->setWordWrap(true); // a narrow right pane at a large scale factor
    m_pickHint->setAttribute(Qt::WA_StyledBackground, true);
    m_pickHint->setAutoFillBackground(true);
    set_background_group(m_pickHint, ThemeGroup::B);
    m_conversation = new QWidget(m_right); // until the chat screen is placed
    m_chatInfo = new ChatInfoScreen(m_scale, m_right);
    m_menu = new MenuScreen(m_scale, m_dark, m_right);
    m_filesCache = new FilesCacheScreen(m_scale, m_right);
    for (QWidget *w : {static_cast<QWidget *>(m_pickHint), static_cast<QWidget *>(m_conversation),
                       static_cast<QWidget *>(m_chatInfo), static_cast<QWidget *>(m_menu),
                       static_cast<QWidget *>(m_filesCache)})
        m_right->addWidget(w);
    m_photo = new MediaViewerScreen(MediaViewerScreen::Kind::Photo, m_scale, m_stack);
    m_video = new MediaViewerScreen(MediaViewerScreen::Kind::Video, m_scale, m_stack);
    for (QWidget *w : {static_cast<QWidget *>(m_split), static_cast<QWidget *>(m_photo),
                       static_cast<QWidget *>(m_video)})
        m_stack->addWidget(w);
    connect(m_split, &QSplitter::splitterMoved, this, [this] {
        if (m_wide)
            m_leftWidth = m_split->sizes().value(0);
    });
    v->addWidget(m_stack, 1);

    m_logView = new QPlainTextEdit(this);
    m_logView->setObjectName(QStringLiteral("log_view"));
    m_logView->setReadOnly(true);
    set_background_group(m_logView, ThemeGroup::E);
    set_text_group(m_logView, ThemeGroup::F);
    set_text_size(m_logView, TextSize::Log);
    m_logView->setFrameShape(QFrame::NoFrame);
    m_logView->setFixedHeight(scaled_px(360, m_scale));
    m_logView->setLineWrapMode(QPlainTextEdit::WidgetWidth);
    m_logView->hide();
    v->addWidget(m_logView);

    // Navigation that needs no controller decision.
    connect(m_main, &MainScreen::authorisedChanged, this, &ShellScreens::updateLayout);
    connect(m_main, &MainScreen::menuRequested, this, [this] { showScreen(Screen::Menu); });
    connect(m_menu, &MenuScreen::backRequested, this, &ShellScreens::goBack);
    connect(m_menu, &MenuScreen::filesCacheRequested, this,
            [this] { showScreen(Screen::FilesCache); });
    connect(m_menu, &MenuScreen::debugLogToggleRequested, this,
            &ShellScreens::debugLogToggleRequested);
    connect(m_filesCache, &FilesCacheScreen::backRequested, this, &ShellScreens::goBack);
    connect(m_chatInfo, &ChatInfoScreen::backRequested, this, &ShellScreens::goBack);
    connect(m_photo, &MediaViewerScreen::backRequested, this, &ShellScreens::goBack);
    connect(m_video, &MediaViewerScreen::backRequested, this, &ShellScreens::goBack);
    connect(m_menu, &MenuScreen::shortcutsRequested, this, &ShellScreens::showShortcutsHelp);

    addShortcuts();
    present();
    updateLayout();
    applyTheme(m_dark);
}

QList<QPair<QString, QString>> ShellScreens::keyboardShortcuts()
{
    return {
        {QStringLiteral("Ctrl+K"), QStringLiteral("Search chats")},
        {QStringLiteral("Ctrl+F"),
         QStringLiteral("Search in the open chat while the keyboard is in it (always in a narrow "
                        "window); elsewhere search chats")},
        {QStringLiteral("Up, Down, Enter"),
         QStringLiteral("In chat search: move through the chats found, open the marked one")},
        {QStringLiteral("Alt+Up, Alt+Down"), QStringLiteral("Open the chat above or below")},
        {QStringLiteral("Ctrl+Tab, Ctrl+Shift+Tab"),
         QStringLiteral("Open the chat below or above")},
        {QStringLiteral("Ctrl+1 … Ctrl+9"), QStringLiteral("Open the first nine chats")},
        {QStringLiteral("Page Up, Page Down"), QStringLiteral("Scroll the messages")},
        {QStringLiteral("Up"), QStringLiteral("In an empty message field: edit your last message")},
        {QStringLiteral("Enter, Shift+Enter"), QStringLiteral("Send; a new line")},
        {QStringLiteral("Esc"),
         QStringLiteral("Cancel a search, an edit, a reply or a selection, else close the chat")},
        {QStringLiteral("Tab, Shift+Tab"), QStringLiteral("Move the keyboard focus")},
        {QStringLiteral("Ctrl+Q"), QStringLiteral("Quit")},
    };
}

void ShellScreens::showShortcutsHelp()
{
    if (m_help)
        return;
    auto *dialog = new SystemDialog(QStringLiteral("Close"), QString(), this);
    dialog->setObjectName(QStringLiteral("shortcuts_dialog"));
    dialog->setTitle(QStringLiteral("Keyboard shortcuts"));
    QString body;
    for (const auto &entry : keyboardShortcuts())
        body += entry.first + QStringLiteral(": ") + entry.second + QLatin1Char('\n');
    dialog->setBody(body.trimmed());
    connect(dialog, &SystemUiDialog::finished, dialog, &QObject::deleteLater);
    m_help = dialog;
    dialog->show();
}

void ShellScreens::addShortcuts()
{
    const auto add = [this](const QKeySequence &keys, const std::function<void()> &action) {
        auto *shortcut = new QShortcut(keys, this);
        connect(shortcut, &QShortcut::activated, this, action);
        connect(shortcut, &QShortcut::activatedAmbiguously, this, action);
    };
    add(QKeySequence(Qt::CTRL + Qt::Key_K), [this] { Q_EMIT chatSearchRequested(); });
    add(QKeySequence(Qt::CTRL + Qt::Key_F), [this] { onFindShortcut(); });
    add(QKeySequence(Qt::ALT + Qt::Key_Up), [this] { Q_EMIT adjacentChatRequested(-1); });
    add(QKeySequence(Qt::ALT + Qt::Key_Down), [this] { Q_EMIT adjacentChatRequested(1); });
    add(QKeySequence(Qt::CTRL + Qt::Key_Tab), [this] { Q_EMIT adjacentChatRequested(1); });
    // Shift+Tab arrives as Backtab, with or without the Shift modifier.
    add(QKeySequence(Qt::CTRL + Qt::SHIFT + Qt::Key_Backtab),
        [this] { Q_EMIT adjacentChatRequested(-1); });
    add(QKeySequence(Qt::CTRL + Qt::SHIFT + Qt::Key_Tab),
        [this] { Q_EMIT adjacentChatRequested(-1); });
    for (int n = 1; n <= 9; ++n)
        add(QKeySequence(Qt::CTRL + Qt::Key_0 + n), [this, n] { Q_EMIT chatAtRequested(n - 1); });
    add(QKeySequence(Qt::Key_PageUp), [this] { Q_EMIT messagePageRequested(-1); });
    add(QKeySequence(Qt::Key_PageDown), [this] { Q_EMIT messagePageRequested(1); });
    add(QKeySequence(Qt::CTRL + Qt::Key_Q), [this] { Q_EMIT quitRequested(); });
}

void ShellScreens::onFindShortcut()
{
    // In a narrow window the open chat is all there is; in a wide one Ctrl+F
    // searches where the keyboard is.
    QWidget *focus = window()->focusWidget();
    const bool inChat =
        isConversationShown() &&
        (!m_wide || (focus && (focus == m_conversation || m_conversation->isAncestorOf(focus))));
    if (inChat)
        Q_EMIT messageSearchRequested();
    else
        Q_EMIT chatSearchRequested();
}

void ShellScreens::setBreakpoint(int width)
{
    m_breakpoint = qMax(1, width);
    updateLayout();
}

void ShellScreens::setSignInWidth(int width)
{
    m_signInWidth = qMax(1, width);
    updateLayout();
}

void ShellScreens::setLeftPaneWidth(int width)
{
    m_leftWidth = qMax(0, width);
    if (m_wide && m_leftWidth > 0)
        m_split->setSizes({m_leftWidth, qMax(1, m_split->width() - m_leftWidth)});
}

void ShellScreens::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    updateLayout();
}

void ShellScreens::updateLayout()
{
    // Signed out, the screens (and the log under them) are one column in
    // the middle.
    const bool signedIn = m_main->isAuthorised();
    const int side = signedIn ? 0 : qMax(0, width() - m_signInWidth);
    layout()->setContentsMargins(side / 2, 0, side - side / 2, 0);
    const bool wide = signedIn && width() >= m_breakpoint;
    if (wide == m_wide)
        return;
    m_wide = wide;
    present();
    if (m_wide) {
        // A list as wide as it was left, or about a third of the window but
        // room for its rows, and never more than half. Leaving the sign-in
        // column widens the stack only when the layout runs, so it runs now.
        layout()->activate();
        const int total = qMax(1, m_split->width());
        if (m_leftWidth <= 0)
            m_leftWidth = qMin(total / 2, qMax(scaled_px(480, m_scale), total * 36 / 100));
        m_split->setSizes({m_leftWidth, qMax(1, total - m_leftWidth)});
    }
    Q_EMIT wideChanged(m_wide);
}

bool ShellScreens::inRightPane(Screen screen) const
{
    return screen == Screen::Conversation || screen == Screen::ChatInfo || screen == Screen::Menu ||
           screen == Screen::FilesCache;
}

void ShellScreens::present()
{
    if (m_current == Screen::Photo || m_current == Screen::Video) {
        m_stack->setCurrentWidget(pageFor(m_current));
        return;
    }
    m_right->setCurrentWidget(inRightPane(m_current) ? pageFor(m_current) : m_pickHint);
    m_main->setVisible(m_wide || m_current == Screen::Main);
    m_right->setVisible(m_wide || m_current != Screen::Main);
    m_stack->setCurrentWidget(m_split);
}

void ShellScreens::setChatScreen(QWidget *screen)
{
    const int at = m_right->indexOf(m_conversation);
    m_right->removeWidget(m_conversation);
    delete m_conversation;
    m_conversation = screen;
    m_right->insertWidget(at, screen);
    present();
}

QWidget *ShellScreens::pageFor(Screen screen) const
{
    switch (screen) {
    case Screen::Main:
        return m_main;
    case Screen::Conversation:
        return m_conversation;
    case Screen::ChatInfo:
        return m_chatInfo;
    case Screen::Menu:
        return m_menu;
    case Screen::FilesCache:
        return m_filesCache;
    case Screen::Photo:
        return m_photo;
    case Screen::Video:
        return m_video;
    }
    return m_main;
}

ShellScreens::Screen ShellScreens::currentScreen() const
{
    return m_current;
}

void ShellScreens::showScreen(Screen screen)
{
    const Screen now = m_current;
    if (now == screen)
        return;
    if (screen == Screen::Main) {
        m_history.clear();
    } else {
        // A page already in the history is returned to, not stacked twice.
        const int at = m_history.indexOf(screen);
        if (at >= 0)
            m_history.erase(m_history.begin() + at, m_history.end());
        else
            m_history.append(now);
    }
    m_current = screen;
    present();
    Q_EMIT screenChanged(screen);
}

void ShellScreens::goBack()
{
    m_current = m_history.isEmpty() ? Screen::Main : m_history.takeLast();
    present();
    Q_EMIT screenChanged(m_current);
}

void ShellScreens::showMainScreen()
{
    showScreen(Screen::Main);
}

void ShellScreens::applyTheme(bool dark)
{
    m_dark = dark;
    setPalette(shell_palette(m_dark));
    QFont f = font();
    f.setPixelSize(shell_font_pixel_size(m_scale));
    setFont(f);
    setStyleSheet(shell_style_sheet(m_dark, m_scale));
    m_menu->setDarkTheme(m_dark);
}

void ShellScreens::setLogViewVisible(bool visible)
{
    m_logView->setVisible(visible);
    m_menu->setDebugLogOn(visible);
}

void ShellScreens::setLogText(const QString &text)
{
    m_logView->setPlainText(text);
    QScrollBar *bar = m_logView->verticalScrollBar();
    bar->setValue(bar->maximum());
}

bool ShellScreens::isLogViewVisible() const
{
    return !m_logView->isHidden();
}
