#include "shell/ui/shell_screens.h"

#include "shell/style_sheet.h"
#include "shell/theme.h"
#include "shell/ui/screen_parts.h"
#include "shell/ui/screens.h"
#include "shell/ui_scale.h"

#include <QPlainTextEdit>
#include <QScrollBar>
#include <QStackedWidget>
#include <QVBoxLayout>
#include <QVariant>

ShellScreens::ShellScreens(bool darkTheme, float uiScale, QWidget *parent)
    : QWidget(parent), m_dark(darkTheme), m_scale(uiScale)
{
    auto *v = screen_parts::screenRoot(this, QStringLiteral("shell_root"), ThemeGroup::A);

    m_stack = new QStackedWidget(this);
    m_stack->setObjectName(QStringLiteral("screen_stack"));
    m_main = new MainScreen(m_scale, m_stack);
    m_conversation = new QWidget(m_stack); // until the chat screen is placed
    m_chatInfo = new ChatInfoScreen(m_scale, m_stack);
    m_menu = new MenuScreen(m_scale, m_dark, m_stack);
    m_filesCache = new FilesCacheScreen(m_scale, m_stack);
    m_photo = new MediaViewerScreen(MediaViewerScreen::Kind::Photo, m_scale, m_stack);
    m_video = new MediaViewerScreen(MediaViewerScreen::Kind::Video, m_scale, m_stack);
    for (QWidget *w : {static_cast<QWidget *>(m_main), static_cast<QWidget *>(m_conversation),
                       static_cast<QWidget *>(m_chatInfo), static_cast<QWidget *>(m_menu),
                       static_cast<QWidget *>(m_filesCache), static_cast<QWidget *>(m_photo),
                       static_cast<QWidget *>(m_video)})
        m_stack->addWidget(w);
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

    applyTheme(m_dark);
}

void ShellScreens::setChatScreen(QWidget *screen)
{
    const bool shown = m_stack->currentWidget() == m_conversation;
    const int at = m_stack->indexOf(m_conversation);
    m_stack->removeWidget(m_conversation);
    delete m_conversation;
    m_conversation = screen;
    m_stack->insertWidget(at, screen);
    if (shown)
        m_stack->setCurrentWidget(screen);
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
    QWidget *w = m_stack->currentWidget();
    for (Screen s : {Screen::Main, Screen::Conversation, Screen::ChatInfo, Screen::Menu,
                     Screen::FilesCache, Screen::Photo, Screen::Video}) {
        if (pageFor(s) == w)
            return s;
    }
    return Screen::Main;
}

void ShellScreens::showScreen(Screen screen)
{
    const Screen now = currentScreen();
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
    m_stack->setCurrentWidget(pageFor(screen));
    Q_EMIT screenChanged(screen);
}

void ShellScreens::goBack()
{
    const Screen to = m_history.isEmpty() ? Screen::Main : m_history.takeLast();
    m_stack->setCurrentWidget(pageFor(to));
    Q_EMIT screenChanged(to);
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
