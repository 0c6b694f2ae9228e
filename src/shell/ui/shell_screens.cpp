#include "shell/ui/shell_screens.h"

#include "shell/style_sheet.h"
#include "shell/theme.h"
#include "shell/ui/screen_parts.h"
#include "shell/ui/screens.h"
#include "shell/ui_scale.h"

#include <QPlainTextEdit>
#include <QPushButton>
#include <QStackedWidget>
#include <QToolButton>
#include <QVBoxLayout>
#include <QVariant>

ShellScreens::ShellScreens(bool darkTheme, float uiScale, QWidget *parent)
    : QWidget(parent), dark_(darkTheme), scale_(uiScale)
{
    auto *v = screen_parts::screenRoot(this, QStringLiteral("shell_root"), "A");

    stack_ = new QStackedWidget(this);
    stack_->setObjectName(QStringLiteral("screen_stack"));
    main_ = new MainScreen(scale_, stack_);
    conversation_ = new ConversationScreen(scale_, stack_);
    chatInfo_ = new ChatInfoScreen(scale_, stack_);
    menu_ = new MenuScreen(scale_, dark_, stack_);
    filesCache_ = new FilesCacheScreen(scale_, stack_);
    photo_ = new MediaViewerScreen(MediaViewerScreen::Kind::Photo, scale_, stack_);
    video_ = new MediaViewerScreen(MediaViewerScreen::Kind::Video, scale_, stack_);
    for (QWidget *w : {static_cast<QWidget *>(main_), static_cast<QWidget *>(conversation_),
                       static_cast<QWidget *>(chatInfo_), static_cast<QWidget *>(menu_),
                       static_cast<QWidget *>(filesCache_), static_cast<QWidget *>(photo_),
                       static_cast<QWidget *>(video_)})
        stack_->addWidget(w);
    v->addWidget(stack_, 1);

    logView_ = new QPlainTextEdit(this);
    logView_->setObjectName(QStringLiteral("log_view"));
    logView_->setReadOnly(true);
    logView_->setProperty("bg", QStringLiteral("E"));
    logView_->setProperty("fg", QStringLiteral("F"));
    logView_->setProperty("textsize", QStringLiteral("log"));
    logView_->setFrameShape(QFrame::NoFrame);
    logView_->setFixedHeight(scaled_px(360, scale_));
    logView_->setLineWrapMode(QPlainTextEdit::WidgetWidth);
    logView_->hide();
    v->addWidget(logView_);

    // Navigation that needs no controller decision.
    connect(main_->menuButton(), &QToolButton::clicked, this, [this] { showScreen(Screen::Menu); });
    connect(menu_->backButton(), &QToolButton::clicked, this, &ShellScreens::goBack);
    connect(menu_->filesCacheButton(), &QPushButton::clicked, this,
            [this] { showScreen(Screen::FilesCache); });
    connect(filesCache_->backButton(), &QToolButton::clicked, this, &ShellScreens::goBack);
    connect(conversation_->infoButton(), &QToolButton::clicked, this,
            [this] { showScreen(Screen::ChatInfo); });
    connect(chatInfo_->backButton(), &QToolButton::clicked, this, &ShellScreens::goBack);
    connect(photo_->backButton(), &QToolButton::clicked, this, &ShellScreens::goBack);
    connect(video_->backButton(), &QToolButton::clicked, this, &ShellScreens::goBack);
    connect(conversation_->backButton(), &QToolButton::clicked, this,
            &ShellScreens::backToChatsRequested);

    applyTheme(dark_);
}

QWidget *ShellScreens::pageFor(Screen screen) const
{
    switch (screen) {
    case Screen::Main:
        return main_;
    case Screen::Conversation:
        return conversation_;
    case Screen::ChatInfo:
        return chatInfo_;
    case Screen::Menu:
        return menu_;
    case Screen::FilesCache:
        return filesCache_;
    case Screen::Photo:
        return photo_;
    case Screen::Video:
        return video_;
    }
    return main_;
}

ShellScreens::Screen ShellScreens::currentScreen() const
{
    QWidget *w = stack_->currentWidget();
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
        history_.clear();
    } else {
        // A page already in the history is returned to, not stacked twice.
        const int at = history_.indexOf(screen);
        if (at >= 0)
            history_.erase(history_.begin() + at, history_.end());
        else
            history_.append(now);
    }
    stack_->setCurrentWidget(pageFor(screen));
    Q_EMIT screenChanged(screen);
}

void ShellScreens::goBack()
{
    const Screen to = history_.isEmpty() ? Screen::Main : history_.takeLast();
    stack_->setCurrentWidget(pageFor(to));
    Q_EMIT screenChanged(to);
}

void ShellScreens::showMainScreen()
{
    showScreen(Screen::Main);
}

void ShellScreens::applyTheme(bool dark)
{
    dark_ = dark;
    setPalette(shell_palette(dark_));
    QFont f = font();
    f.setPixelSize(shell_font_pixel_size(scale_));
    setFont(f);
    setStyleSheet(shell_style_sheet(dark_, scale_));
    menu_->themeButton()->setText(theme_button_text(dark_));
}

void ShellScreens::setLogViewVisible(bool visible)
{
    logView_->setVisible(visible);
    menu_->logToggleButton()->setChecked(visible);
}

bool ShellScreens::isLogViewVisible() const
{
    return !logView_->isHidden();
}
