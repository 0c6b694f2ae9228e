#include "shell/ui/screens.h"

#include "chats/avatars.h"
#include "events/event_dispatcher.h"
#include "media/ui/photo_view.h"
#include "media/ui/video_view.h"
#include "platform/osicons.h"
#include "shell/theme.h"
#include "shell/ui/screen_parts.h"
#include "shell/ui_scale.h"

#include <QEvent>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QMouseEvent>
#include <QPixmap>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QScrollArea>
#include <QToolButton>
#include <QVBoxLayout>
#include <QVariant>

using namespace screen_parts;

namespace {

// The own avatar has the chat list's size and corner radius.
constexpr int kMeAvatarSize = 144;
constexpr int kMeAvatarRadius = 24;

QLineEdit *field(const QString &hint, const QString &objectName, float scale, QWidget *parent)
{
    auto *f = new QLineEdit(parent);
    f->setObjectName(objectName);
    f->setPlaceholderText(hint);
    set_control_role(f, ControlRole::Field);
    f->setMinimumHeight(scaled_px(92, scale));
    return f;
}

// One "Name ........ value" line of the chat info card.
QLabel *infoRow(QVBoxLayout *into, const QString &name, const QString &objectName, float scale,
                QWidget *parent)
{
    auto *row = new QWidget(parent);
    auto *v = new QVBoxLayout(row);
    v->setContentsMargins(0, scaled_px(10, scale), 0, scaled_px(10, scale));
    v->setSpacing(scaled_px(4, scale));
    QLabel *n =
        label(name, objectName + QStringLiteral("_name"), ThemeGroup::D, TextSize::Secondary, row);
    QLabel *value = label(QStringLiteral("—"), objectName, ThemeGroup::C, TextSize::Body, row);
    value->setTextFormat(Qt::PlainText);
    value->setTextInteractionFlags(Qt::TextSelectableByMouse);
    value->setWordWrap(true);
    v->addWidget(n);
    v->addWidget(value);
    into->addWidget(row);
    return value;
}

} // namespace

// ---------------------------------------------------------------- SignInForm

SignInForm::SignInForm(float scale, QWidget *parent) : QWidget(parent)
{
    setObjectName(QStringLiteral("sign_in_form"));
    auto *v = new QVBoxLayout(this);
    v->setContentsMargins(0, 0, 0, 0);
    v->setSpacing(scaled_px(18, scale));

    v->addWidget(label(QStringLiteral("Sign in to Telegram"), QStringLiteral("sign_in_heading"),
                       ThemeGroup::C, TextSize::Heading, this));
    auto *hint = label(QStringLiteral("Enter your phone number, then the code you receive."),
                       QStringLiteral("sign_in_hint"), ThemeGroup::D, TextSize::Secondary, this);
    hint->setWordWrap(true);
    v->addWidget(hint);
    v->addSpacing(scaled_px(8, scale));

    // Each field spans the width; its buttons sit under it on the right.
    auto addField = [&](QLineEdit *f, std::initializer_list<QPushButton *> buttons) {
        v->addWidget(f);
        auto *row = new QHBoxLayout;
        row->setSpacing(scaled_px(16, scale));
        row->addStretch(1);
        for (QPushButton *b : buttons) {
            b->setMinimumWidth(scaled_px(220, scale));
            row->addWidget(b);
        }
        v->addLayout(row);
        v->addSpacing(scaled_px(12, scale));
    };
    // A field and its button submit the same text.
    auto submits = [this](QLineEdit *f, QPushButton *b,
                          void (SignInForm::*signal)(const QString &)) {
        auto emitText = [this, f, signal] { (this->*signal)(f->text()); };
        connect(b, &QPushButton::clicked, this, emitText);
        connect(f, &QLineEdit::returnPressed, this, emitText);
    };

    m_phone = field(QStringLiteral("Phone (+E.164)"), QStringLiteral("phone_field"), scale, this);
    m_phone->setInputMethodHints(Qt::ImhDialableCharactersOnly);
    auto *sendPhone = button(QStringLiteral("Send phone"), QStringLiteral("send_phone_button"),
                             ControlRole::Primary, scale, this);
    addField(m_phone, {sendPhone});
    submits(m_phone, sendPhone, &SignInForm::phoneSubmitted);

    m_code = field(QStringLiteral("Code"), QStringLiteral("code_field"), scale, this);
    m_code->setInputMethodHints(Qt::ImhDigitsOnly);
    auto *sendCode = button(QStringLiteral("Send code"), QStringLiteral("send_code_button"),
                            ControlRole::Primary, scale, this);
    auto *resendCode = button(QStringLiteral("Resend code"), QStringLiteral("resend_code_button"),
                              ControlRole::Plain, scale, this);
    addField(m_code, {resendCode, sendCode});
    submits(m_code, sendCode, &SignInForm::codeSubmitted);
    announce(resendCode, this, &SignInForm::resendRequested);

    m_password =
        field(QStringLiteral("2FA password"), QStringLiteral("password_field"), scale, this);
    m_password->setEchoMode(QLineEdit::Password);
    auto *sendPassword =
        button(QStringLiteral("Send password"), QStringLiteral("send_password_button"),
               ControlRole::Primary, scale, this);
    addField(m_password, {sendPassword});
    submits(m_password, sendPassword, &SignInForm::passwordSubmitted);
}

void SignInForm::suggestPhoneNumber(const QString &phone)
{
    if (!phone.isEmpty() && m_phone->text().isEmpty())
        m_phone->setText(phone);
}

// ---------------------------------------------------------------- MainScreen

MainScreen::MainScreen(float scale, QWidget *parent) : QWidget(parent)
{
    auto *v = screenRoot(this, QStringLiteral("main_screen"), ThemeGroup::A);

    QWidget *bar = header(QStringLiteral("main_header"), QStringLiteral("Vexa"),
                          QStringLiteral("main_title"), false, scale, this, &m_title, nullptr);
    m_reload =
        iconButton(QStringLiteral("ic_refresh.png"), QStringLiteral("reload_button"), scale, bar);
    m_reload->setToolTip(QStringLiteral("Reload chats"));
    m_reload->hide(); // there is no list to reload before sign-in
    auto *search =
        iconButton(QStringLiteral("icon_search.png"), QStringLiteral("search_button"), scale, bar);
    auto *menu = iconButton(QStringLiteral("menu.png"), QStringLiteral("menu_button"), scale, bar);
    for (QToolButton *b : {m_reload, search, menu})
        bar->layout()->addWidget(b);
    announce(m_reload, this, &MainScreen::reloadChatsRequested);
    announce(search, this, &MainScreen::searchRequested);
    announce(menu, this, &MainScreen::menuRequested);
    v->addWidget(bar);

    QWidget *statusBar = panel(QStringLiteral("status_bar"), ThemeGroup::A, this);
    auto *sl = new QHBoxLayout(statusBar);
    sl->setContentsMargins(scaled_px(28, scale), 0, scaled_px(28, scale), scaled_px(12, scale));
    m_status = label(QStringLiteral("Starting…"), QStringLiteral("status_label"), ThemeGroup::D,
                     TextSize::Secondary, statusBar);
    m_status->setTextFormat(Qt::PlainText);
    m_debug =
        label(QString(), QStringLiteral("debug_label"), ThemeGroup::D, TextSize::Small, statusBar);
    m_debug->setTextFormat(Qt::PlainText);
    m_debug->hide();
    sl->addWidget(m_status, 1);
    sl->addWidget(m_debug);
    v->addWidget(statusBar);

    // Body: the sign-in form on a panel, replaced by the chat list later. It
    // scrolls so that the open log view can take its share of the screen.
    auto *formScroll = new QScrollArea(this);
    formScroll->setObjectName(QStringLiteral("sign_in_scroll"));
    formScroll->setWidgetResizable(true);
    formScroll->setFrameShape(QFrame::NoFrame);
    formScroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    QWidget *formBody = panel(QStringLiteral("sign_in_panel"), ThemeGroup::E, formScroll);
    m_formPanel = formScroll;
    auto *fp = new QVBoxLayout(formBody);
    fp->setContentsMargins(scaled_px(36, scale), scaled_px(48, scale), scaled_px(36, scale),
                           scaled_px(36, scale));
    m_form = new SignInForm(scale, formBody);
    fp->addWidget(m_form);
    m_connection = label(QString(), QStringLiteral("connection_label"), ThemeGroup::D,
                         TextSize::Secondary, formBody);
    m_connection->setTextFormat(Qt::PlainText);
    m_connection->setAlignment(Qt::AlignHCenter);
    m_connection->hide();
    fp->addWidget(m_connection);
    fp->addStretch(1);
    formScroll->setWidget(formBody);
    v->addWidget(m_formPanel, 1);
    connect(m_form, &SignInForm::phoneSubmitted, this, &MainScreen::phoneSubmitted);
    connect(m_form, &SignInForm::codeSubmitted, this, &MainScreen::codeSubmitted);
    connect(m_form, &SignInForm::resendRequested, this, &MainScreen::resendRequested);
    connect(m_form, &SignInForm::passwordSubmitted, this, &MainScreen::passwordSubmitted);

    m_listHost = panel(QStringLiteral("chat_list_host"), ThemeGroup::E, this);
    paintOpaque(m_listHost);
    m_listLayout = new QVBoxLayout(m_listHost);
    m_listLayout->setContentsMargins(0, 0, 0, 0);
    m_listLayout->setSpacing(0);
    m_listHost->hide();
    v->addWidget(m_listHost, 1);

    // The search field, over the chat list while it is open (made after the
    // form, whose phone field comes first among the screen's fields).
    m_searchBar = panel(QStringLiteral("chat_search_bar"), ThemeGroup::A, this);
    auto *sv = new QVBoxLayout(m_searchBar);
    sv->setContentsMargins(scaled_px(28, scale), 0, scaled_px(16, scale), scaled_px(12, scale));
    sv->setSpacing(scaled_px(6, scale));
    auto *sh = new QHBoxLayout;
    sh->setSpacing(scaled_px(12, scale));
    m_searchField = field(QStringLiteral("Search chats"), QStringLiteral("chat_search_field"),
                          scale, m_searchBar);
    m_searchField->installEventFilter(this);
    auto *closeSearchButton = iconButton(QStringLiteral("ic_close.png"),
                                         QStringLiteral("chat_search_close"), scale, m_searchBar);
    closeSearchButton->setToolTip(QStringLiteral("Close search"));
    sh->addWidget(m_searchField, 1);
    sh->addWidget(closeSearchButton);
    sv->addLayout(sh);
    m_searchHint = label(QString(), QStringLiteral("chat_search_hint"), ThemeGroup::D,
                         TextSize::Secondary, m_searchBar);
    m_searchHint->setTextFormat(Qt::PlainText);
    m_searchHint->setWordWrap(true);
    m_searchHint->hide();
    sv->addWidget(m_searchHint);
    m_searchBar->hide();
    v->insertWidget(v->indexOf(statusBar) + 1, m_searchBar);
    connect(m_searchField, &QLineEdit::textChanged, this, &MainScreen::searchTextChanged);
    // An empty text still goes: Enter opens a chat marked with the arrows.
    connect(m_searchField, &QLineEdit::returnPressed, this,
            [this] { Q_EMIT serverSearchRequested(m_searchField->text().trimmed()); });
    connect(closeSearchButton, &QToolButton::clicked, this, &MainScreen::closeSearch);
}

void MainScreen::openSearch()
{
    if (!m_authorised)
        return;
    m_searchBar->show();
    m_searchField->setFocus(Qt::OtherFocusReason);
}

void MainScreen::closeSearch()
{
    m_searchBar->hide();
    {
        // The list is whole again through searchClosed, not an empty text.
        const QSignalBlocker quiet(m_searchField);
        m_searchField->clear();
    }
    setSearchHint(QString());
    Q_EMIT searchClosed();
}

bool MainScreen::isSearchOpen() const
{
    return !m_searchBar->isHidden();
}

QString MainScreen::searchText() const
{
    return m_searchField->text();
}

void MainScreen::setSearchHint(const QString &text)
{
    showText(m_searchHint, text);
}

bool MainScreen::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m_searchField && event->type() == QEvent::KeyPress) {
        const auto *key = static_cast<QKeyEvent *>(event);
        if (key->key() == Qt::Key_Escape) {
            closeSearch();
            return true;
        }
        if ((key->key() == Qt::Key_Up || key->key() == Qt::Key_Down) &&
            key->modifiers() == Qt::NoModifier) {
            Q_EMIT searchStepRequested(key->key() == Qt::Key_Up ? -1 : 1);
            return true;
        }
    }
    return QWidget::eventFilter(watched, event);
}

void MainScreen::setStatusText(const QString &text)
{
    m_status->setText(text);
}

QString MainScreen::statusText() const
{
    return m_status->text();
}

void MainScreen::setDebugText(const QString &text)
{
    showText(m_debug, text);
}

void MainScreen::setConnectionState(const QString &state)
{
    // Ready, or a state this build does not know, says nothing: only a
    // connection that is not there yet is worth the user's attention.
    QString text;
    if (state == QLatin1String("WaitingForNetwork"))
        text = QStringLiteral("Waiting for network…");
    else if (state == QLatin1String("ConnectingToProxy"))
        text = QStringLiteral("Connecting to proxy…");
    else if (state == QLatin1String("Connecting"))
        text = QStringLiteral("Connecting…");
    else if (state == QLatin1String("Updating"))
        text = QStringLiteral("Updating…");
    showText(m_connection, text);
    updateTitle();
}

void MainScreen::updateTitle()
{
    // The form has its own line; the chat list has only the title.
    const QString text = m_connection->text();
    m_title->setText(m_authorised && !text.isEmpty() ? text : QStringLiteral("Vexa"));
}

void MainScreen::suggestPhoneNumber(const QString &phone)
{
    m_form->suggestPhoneNumber(phone);
}

void MainScreen::setChatListView(QWidget *view)
{
    m_listLayout->addWidget(view);
}

void MainScreen::setAuthorised(bool authorised)
{
    const bool changed = authorised != m_authorised;
    m_authorised = authorised;
    m_formPanel->setVisible(!authorised);
    m_listHost->setVisible(authorised);
    m_reload->setVisible(authorised);
    updateTitle();
    if (changed)
        Q_EMIT authorisedChanged(authorised);
}

// ----------------------------------------------------------- ChatInfoScreen

bool ChatInfoScreen::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m_members->parentWidget() && event->type() == QEvent::MouseButtonRelease &&
        static_cast<QMouseEvent *>(event)->button() == Qt::LeftButton) {
        Q_EMIT membersRequested();
        return true;
    }
    return QWidget::eventFilter(watched, event);
}

ChatInfoScreen::ChatInfoScreen(float scale, QWidget *parent) : QWidget(parent)
{
    auto *v = screenRoot(this, QStringLiteral("chat_info_screen"), ThemeGroup::A);
    QToolButton *back = nullptr;
    v->addWidget(header(QStringLiteral("info_header"), QStringLiteral("Info"),
                        QStringLiteral("info_title"), true, scale, this, nullptr, &back));
    announce(back, this, &ChatInfoScreen::backRequested);

    auto *scroll = new QScrollArea(this);
    scroll->setObjectName(QStringLiteral("info_scroll"));
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    QWidget *body = panel(QStringLiteral("info_body"), ThemeGroup::A, scroll);
    QVBoxLayout *bv = cardColumn(body, scale);

    QVBoxLayout *top = nullptr;
    QWidget *topCard = card(QStringLiteral("info_top_card"), scale, body, &top);
    auto *who = new QHBoxLayout;
    who->setSpacing(scaled_px(24, scale));
    m_letter = label(QStringLiteral("?"), QStringLiteral("info_avatar_letter"), std::nullopt,
                     std::nullopt, topCard);
    m_letter->setProperty("shape", QStringLiteral("letter"));
    m_letter->setAlignment(Qt::AlignCenter);
    m_letter->setFixedSize(scaled_px(80, scale), scaled_px(80, scale));
    auto *names = new QVBoxLayout;
    m_chatTitle = label(QString(), QStringLiteral("info_chat_title"), ThemeGroup::C,
                        TextSize::Heading, topCard);
    m_chatTitle->setTextFormat(Qt::PlainText);
    m_chatTitle->setWordWrap(true);
    m_chatKind = label(QString(), QStringLiteral("info_chat_kind"), ThemeGroup::D,
                       TextSize::Secondary, topCard);
    names->addWidget(m_chatTitle);
    names->addWidget(m_chatKind);
    who->addWidget(m_letter);
    who->addLayout(names, 1);
    top->addLayout(who);
    bv->addWidget(topCard);

    QVBoxLayout *details = nullptr;
    QWidget *detailsCard = card(QStringLiteral("info_details_card"), scale, body, &details);
    m_about =
        infoRow(details, QStringLiteral("About"), QStringLiteral("info_about"), scale, detailsCard);
    m_username = infoRow(details, QStringLiteral("Username"), QStringLiteral("info_username"),
                         scale, detailsCard);
    m_phone =
        infoRow(details, QStringLiteral("Phone"), QStringLiteral("info_phone"), scale, detailsCard);
    m_members = infoRow(details, QStringLiteral("Members"), QStringLiteral("info_members"), scale,
                        detailsCard);
    m_membersCaption = m_members->parentWidget()->findChild<QLabel *>(
        QStringLiteral("info_members_name"), Qt::FindDirectChildrenOnly);
    // The member count is a control: its row answers a tap.
    m_members->setTextInteractionFlags(Qt::NoTextInteraction);
    m_members->parentWidget()->setCursor(Qt::PointingHandCursor);
    m_members->parentWidget()->installEventFilter(this);
    m_online = infoRow(details, QStringLiteral("Online"), QStringLiteral("info_online"), scale,
                       detailsCard);
    m_link =
        infoRow(details, QStringLiteral("Link"), QStringLiteral("info_link"), scale, detailsCard);
    m_inviteLink = infoRow(details, QStringLiteral("Invite link"),
                           QStringLiteral("info_invite_link"), scale, detailsCard);
    m_notifications = infoRow(details, QStringLiteral("Notifications"),
                              QStringLiteral("info_notifications"), scale, detailsCard);
    m_id = infoRow(details, QStringLiteral("ID"), QStringLiteral("info_id"), scale, detailsCard);
    m_copyLink = button(QStringLiteral("Copy link"), QStringLiteral("info_copy_link_button"),
                        ControlRole::Row, scale, detailsCard);
    auto *copyId = button(QStringLiteral("Copy ID"), QStringLiteral("info_copy_id_button"),
                          ControlRole::Row, scale, detailsCard);
    auto *mute =
        button(QStringLiteral("Switch notifications"), QStringLiteral("info_notifications_button"),
               ControlRole::Row, scale, detailsCard);
    for (QPushButton *b : {m_copyLink, copyId, mute})
        details->addWidget(b);
    announce(m_copyLink, this, &ChatInfoScreen::copyLinkRequested);
    announce(copyId, this, &ChatInfoScreen::copyIdRequested);
    announce(mute, this, &ChatInfoScreen::notificationsToggleRequested);
    bv->addWidget(detailsCard);

    QVBoxLayout *actions = nullptr;
    QWidget *actionsCard = card(QStringLiteral("info_actions_card"), scale, body, &actions);
    m_clear = button(QStringLiteral("Clear history"), QStringLiteral("info_clear_history_button"),
                     ControlRole::Row, scale, actionsCard);
    m_join = button(QStringLiteral("Join"), QStringLiteral("info_join_button"), ControlRole::Row,
                    scale, actionsCard);
    m_leave = button(QStringLiteral("Leave"), QStringLiteral("info_leave_button"), ControlRole::Row,
                     scale, actionsCard);
    auto *remove = button(QStringLiteral("Delete chat"), QStringLiteral("info_delete_chat_button"),
                          ControlRole::Row, scale, actionsCard);
    for (QPushButton *b : {m_clear, m_join, m_leave, remove})
        actions->addWidget(b);
    announce(m_clear, this, &ChatInfoScreen::clearHistoryRequested);
    announce(m_join, this, &ChatInfoScreen::joinRequested);
    announce(m_leave, this, &ChatInfoScreen::leaveRequested);
    announce(remove, this, &ChatInfoScreen::deleteChatRequested);
    bv->addWidget(actionsCard);
    bv->addStretch(1);
    scroll->setWidget(body);
    v->addWidget(scroll, 1);
}

void ChatInfoScreen::setDetails(const ChatDetails &d)
{
    // A fact the chat does not have hides its row rather than showing a dash.
    auto show = [](QLabel *value, const QString &text) {
        value->setText(text);
        value->parentWidget()->setVisible(!text.isEmpty());
    };
    m_chatTitle->setText(d.title);
    m_chatKind->setText(d.kind);
    show(m_about, d.about);
    show(m_username, d.username);
    show(m_phone, d.phone);
    if (m_membersCaption)
        m_membersCaption->setText(d.membersCaption);
    m_members->setText(d.members.isEmpty() ? QStringLiteral("—") : d.members);
    m_members->parentWidget()->setVisible(!d.membersCaption.isEmpty());
    show(m_online, d.online);
    show(m_link, d.link);
    show(m_inviteLink, d.inviteLink);
    show(m_notifications, d.notifications);
    m_id->setText(d.id != 0 ? QString::number(d.id) : QStringLiteral("—"));
    QPixmap photo;
    if (!d.avatarPath.isEmpty())
        photo.load(d.avatarPath);
    if (photo.isNull()) {
        m_letter->setPixmap(QPixmap());
        m_letter->setText(avatar_initial(d.title));
        m_letter->setStyleSheet(QString());
    } else {
        m_letter->setPixmap(
            photo.scaled(m_letter->size(), Qt::KeepAspectRatio, Qt::SmoothTransformation));
        // The photo brings its own rounded corners.
        m_letter->setStyleSheet(QStringLiteral("background: transparent;"));
    }
    m_clear->setVisible(d.canClearHistory);
    m_join->setVisible(d.canJoin);
    m_leave->setVisible(d.canLeave);
    // Only a public username makes a link worth copying.
    m_copyLink->setVisible(d.canCopyLink);
}

// --------------------------------------------------------------- MenuScreen

MenuScreen::MenuScreen(float scale, bool darkTheme, QWidget *parent)
    : QWidget(parent), m_scale(scale)
{
    auto *v = screenRoot(this, QStringLiteral("menu_screen"), ThemeGroup::A);
    QToolButton *back = nullptr;
    v->addWidget(header(QStringLiteral("menu_header"), QStringLiteral("Menu"),
                        QStringLiteral("menu_title"), true, scale, this, nullptr, &back));
    announce(back, this, &MenuScreen::backRequested);

    QWidget *body = panel(QStringLiteral("menu_body"), ThemeGroup::A, this);
    QVBoxLayout *bv = cardColumn(body, scale);

    // Own profile: avatar on the left, name, user name and phone beside it.
    QVBoxLayout *me = nullptr;
    m_meCard = card(QStringLiteral("menu_me_card"), scale, body, &me);
    auto *who = new QHBoxLayout;
    who->setSpacing(scaled_px(28, scale));
    const int side = scaled_px(kMeAvatarSize, scale);
    m_meAvatar =
        label(QString(), QStringLiteral("me_avatar"), std::nullopt, std::nullopt, m_meCard);
    m_meAvatar->setFixedSize(side, side);
    m_meLetter = label(QString(), QStringLiteral("me_avatar_letter"), std::nullopt, std::nullopt,
                       m_meAvatar);
    m_meLetter->setAlignment(Qt::AlignCenter);
    m_meLetter->setGeometry(0, 0, side, side);
    auto *lines = new QVBoxLayout;
    lines->setSpacing(scaled_px(4, scale));
    m_meName =
        label(QString(), QStringLiteral("me_name"), ThemeGroup::C, TextSize::Heading, m_meCard);
    m_meUsername = label(QString(), QStringLiteral("me_username"), ThemeGroup::H,
                         TextSize::Secondary, m_meCard);
    m_mePhone =
        label(QString(), QStringLiteral("me_phone"), ThemeGroup::D, TextSize::Secondary, m_meCard);
    m_meName->setWordWrap(true);
    for (QLabel *l : {m_meName, m_meUsername, m_mePhone}) {
        l->setTextFormat(Qt::PlainText);
        l->setTextInteractionFlags(Qt::TextSelectableByMouse);
        lines->addWidget(l);
    }
    lines->insertStretch(0, 1);
    lines->addStretch(1);
    who->addWidget(m_meAvatar);
    who->addLayout(lines, 1);
    me->addLayout(who);
    bv->addWidget(m_meCard);
    setProfile(OwnProfile());

    QVBoxLayout *updates = nullptr;
    QWidget *updatesCard = card(QStringLiteral("menu_updates_card"), scale, body, &updates);
    auto *checkUpdates =
        button(QStringLiteral("Check updates"), QStringLiteral("check_updates_button"),
               ControlRole::Row, scale, updatesCard);
    m_updateStatus = label(QString(), QStringLiteral("update_status_label"), ThemeGroup::D,
                           TextSize::Secondary, updatesCard);
    m_updateStatus->setWordWrap(true);
    m_updateStatus->hide();
    updates->addWidget(checkUpdates);
    updates->addWidget(m_updateStatus);
    bv->addWidget(updatesCard);

    QVBoxLayout *cache = nullptr;
    QWidget *cacheCard = card(QStringLiteral("menu_cache_card"), scale, body, &cache);
    auto *filesCache = button(QStringLiteral("Files cache"), QStringLiteral("files_cache_button"),
                              ControlRole::Row, scale, cacheCard);
    m_cacheSize =
        label(QStringLiteral("Size not calculated yet"), QStringLiteral("cache_size_label"),
              ThemeGroup::D, TextSize::Secondary, cacheCard);
    m_cacheSize->setContentsMargins(scaled_px(28, scale), 0, 0, 0);
    auto *recalc =
        button(QStringLiteral("Recalculate size"), QStringLiteral("recalculate_size_button"),
               ControlRole::Row, scale, cacheCard);
    auto *clearCache = button(QStringLiteral("Clear cache"), QStringLiteral("clear_cache_button"),
                              ControlRole::Row, scale, cacheCard);
    cache->addWidget(filesCache);
    cache->addWidget(m_cacheSize);
    cache->addWidget(recalc);
    cache->addWidget(clearCache);
    bv->addWidget(cacheCard);

    QVBoxLayout *look = nullptr;
    QWidget *lookCard = card(QStringLiteral("menu_look_card"), scale, body, &look);
    m_theme = button(theme_button_text(darkTheme), QStringLiteral("theme_button"), ControlRole::Row,
                     scale, lookCard);
    m_logToggle = button(QStringLiteral("Debug log"), QStringLiteral("log_toggle_button"),
                         ControlRole::Row, scale, lookCard);
    m_logToggle->setCheckable(true);
    auto *shortcuts = button(QStringLiteral("Keyboard shortcuts"),
                             QStringLiteral("shortcuts_button"), ControlRole::Row, scale, lookCard);
    look->addWidget(m_theme);
    look->addWidget(m_logToggle);
    look->addWidget(shortcuts);
    announce(shortcuts, this, &MenuScreen::shortcutsRequested);
    bv->addWidget(lookCard);
    bv->addStretch(1);
    v->addWidget(body, 1);

    announce(checkUpdates, this, &MenuScreen::checkUpdatesRequested);
    announce(filesCache, this, &MenuScreen::filesCacheRequested);
    announce(recalc, this, &MenuScreen::recalculateCacheRequested);
    announce(clearCache, this, &MenuScreen::clearCacheRequested);
    announce(m_theme, this, &MenuScreen::themeToggleRequested);
    // The check mark follows the log view, not the click.
    connect(m_logToggle, &QPushButton::clicked, this, [this] {
        m_logToggle->setChecked(!m_logToggle->isChecked());
        Q_EMIT debugLogToggleRequested();
    });
}

void MenuScreen::setDarkTheme(bool dark)
{
    m_theme->setText(theme_button_text(dark));
}

void MenuScreen::setDebugLogOn(bool on)
{
    m_logToggle->setChecked(on);
}

void MenuScreen::setUpdateStatus(const QString &text)
{
    showText(m_updateStatus, text);
}

void MenuScreen::setCacheSizeText(const QString &text)
{
    m_cacheSize->setText(text);
}

void MenuScreen::setProfile(const OwnProfile &profile)
{
    const QString name = profile.displayName.trimmed();
    QString user = profile.username.trimmed();
    while (user.startsWith(QLatin1Char('@')))
        user.remove(0, 1);
    QString number = profile.phone.trimmed();
    if (!number.isEmpty() && !number.startsWith(QLatin1Char('+')))
        number.prepend(QLatin1Char('+'));

    const bool signedIn =
        profile.id != 0 || !name.isEmpty() || !user.isEmpty() || !number.isEmpty();
    m_meName->setText(name);
    m_meName->setVisible(!name.isEmpty());
    m_meUsername->setText(user.isEmpty() ? QString() : QStringLiteral("@") + user);
    m_meUsername->setVisible(!user.isEmpty());
    m_mePhone->setText(number);
    m_mePhone->setVisible(!number.isEmpty());

    // The round PNG when it loads; until then (or if it is unreadable) the
    // tile in the colour the chat list gives the same id and name.
    const int side = m_meAvatar->width();
    const QString avatarPath = profile.avatarPath;
    const QPixmap photo = signedIn && !avatarPath.isEmpty() ? QPixmap(avatarPath) : QPixmap();
    if (!photo.isNull()) {
        m_meAvatar->setPixmap(
            photo.scaled(side, side, Qt::KeepAspectRatioByExpanding, Qt::SmoothTransformation));
        m_meAvatar->setProperty("image_path", avatarPath);
        m_meLetter->clear();
        m_meLetter->setProperty("tile_color", QString());
        m_meLetter->hide();
    } else {
        m_meAvatar->clear();
        m_meAvatar->setProperty("image_path", QString());
        const QString initialFrom = !name.isEmpty() ? name : user;
        const QColor color = placeholder_avatar_color(profile.id, name);
        m_meLetter->setText(avatar_initial(initialFrom));
        m_meLetter->setProperty("tile_color", signedIn ? color.name() : QString());
        m_meLetter->setStyleSheet(QStringLiteral("background-color: %1; color: #FFFFFF;"
                                                 " border-radius: %2px; font-size: %3px;"
                                                 " font-weight: 600;")
                                      .arg(color.name())
                                      .arg(side * kMeAvatarRadius / kMeAvatarSize)
                                      .arg(scaled_px(64, m_scale)));
        m_meLetter->setVisible(signedIn);
    }
    if (!signedIn)
        m_meLetter->clear();
    m_meCard->setVisible(signedIn);
}

// --------------------------------------------------------- FilesCacheScreen

FilesCacheScreen::FilesCacheScreen(float scale, QWidget *parent) : QWidget(parent)
{
    auto *v = screenRoot(this, QStringLiteral("files_cache_screen"), ThemeGroup::A);
    QToolButton *back = nullptr;
    v->addWidget(header(QStringLiteral("files_cache_header"), QStringLiteral("Files cache"),
                        QStringLiteral("files_cache_title"), true, scale, this, nullptr, &back));
    announce(back, this, &FilesCacheScreen::backRequested);
    QWidget *body = panel(QStringLiteral("files_cache_body"), ThemeGroup::A, this);
    QVBoxLayout *bv = cardColumn(body, scale);

    QVBoxLayout *sizes = nullptr;
    QWidget *sizesCard = card(QStringLiteral("files_cache_card"), scale, body, &sizes);
    m_summary =
        label(QStringLiteral("Size not calculated yet"), QStringLiteral("files_cache_summary"),
              ThemeGroup::C, TextSize::Heading, sizesCard);
    m_summary->setWordWrap(true);
    sizes->addWidget(m_summary);
    m_lines = new QWidget(sizesCard);
    m_lines->setObjectName(QStringLiteral("files_cache_lines"));
    auto *lv = new QVBoxLayout(m_lines);
    lv->setContentsMargins(0, scaled_px(8, scale), 0, 0);
    lv->setSpacing(scaled_px(10, scale));
    sizes->addWidget(m_lines);
    m_progress = label(QString(), QStringLiteral("files_cache_progress"), ThemeGroup::D,
                       TextSize::Secondary, sizesCard);
    m_progress->setWordWrap(true);
    m_progress->hide();
    sizes->addWidget(m_progress);
    bv->addWidget(sizesCard);

    QVBoxLayout *actions = nullptr;
    QWidget *actionsCard = card(QStringLiteral("files_cache_actions"), scale, body, &actions);
    m_recalc =
        button(QStringLiteral("Recalculate size"), QStringLiteral("files_cache_recalculate_button"),
               ControlRole::Row, scale, actionsCard);
    m_clear = button(QStringLiteral("Clear cache"), QStringLiteral("files_cache_clear_button"),
                     ControlRole::Row, scale, actionsCard);
    actions->addWidget(m_recalc);
    actions->addWidget(m_clear);
    auto *note =
        label(QStringLiteral("Clearing keeps the files you saved and whatever is "
                             "playing; cleared media downloads again when opened."),
              QStringLiteral("files_cache_note"), ThemeGroup::D, TextSize::Secondary, actionsCard);
    note->setWordWrap(true);
    actions->addWidget(note);
    bv->addWidget(actionsCard);
    bv->addStretch(1);
    v->addWidget(body, 1);
    announce(m_recalc, this, &FilesCacheScreen::recalculateCacheRequested);
    announce(m_clear, this, &FilesCacheScreen::clearCacheRequested);
}

void FilesCacheScreen::setSummary(const QString &text)
{
    m_summary->setText(text);
}

void FilesCacheScreen::setBreakdown(const QList<QPair<QString, QString>> &lines)
{
    QLayout *layout = m_lines->layout();
    while (QLayoutItem *item = layout->takeAt(0)) {
        delete item->widget();
        delete item;
    }
    int n = 0;
    for (const auto &line : lines) {
        auto *row = new QWidget(m_lines);
        row->setObjectName(QStringLiteral("files_cache_line_%1").arg(n++));
        auto *h = new QHBoxLayout(row);
        h->setContentsMargins(0, 0, 0, 0);
        QLabel *name = label(line.first, QStringLiteral("files_cache_kind"), ThemeGroup::C,
                             TextSize::Body, row);
        QLabel *size = label(line.second, QStringLiteral("files_cache_kind_size"), ThemeGroup::D,
                             TextSize::Body, row);
        size->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
        // A long kind name wraps; its size stays whole beside it.
        name->setWordWrap(true);
        size->setSizePolicy(QSizePolicy::Minimum, QSizePolicy::Preferred);
        h->addWidget(name, 1);
        h->addWidget(size);
        layout->addWidget(row);
    }
}

void FilesCacheScreen::setProgress(bool busy, const QString &text)
{
    m_recalc->setEnabled(!busy);
    m_clear->setEnabled(!busy);
    showText(m_progress, text);
}

// -------------------------------------------------------- MediaViewerScreen

MediaViewerScreen::MediaViewerScreen(Kind kind, float scale, QWidget *parent)
    : QWidget(parent), m_kind(kind)
{
    const bool photo = kind == Kind::Photo;
    auto *v =
        screenRoot(this, photo ? QStringLiteral("photo_viewer") : QStringLiteral("video_viewer"),
                   ThemeGroup::A);
    set_viewer_colours(this);
    // Esc reaches the screen whatever was touched last.
    setFocusPolicy(Qt::StrongFocus);
    QToolButton *back = nullptr;
    QWidget *bar =
        header(objectName() + QStringLiteral("_header"),
               photo ? QStringLiteral("Photo") : QStringLiteral("Video"),
               objectName() + QStringLiteral("_title"), true, scale, this, &m_title, &back);
    set_background_group(bar, ThemeGroup::G);
    set_viewer_colours(m_title);
    announce(back, this, &MediaViewerScreen::backRequested);
    v->addWidget(bar);
    m_save = button(QStringLiteral("Save"), objectName() + QStringLiteral("_save_button"),
                    ControlRole::Plain, scale, bar);
    m_save->setFocusPolicy(Qt::NoFocus);
    m_save->setEnabled(false);
    m_save->hide();
    bar->layout()->addWidget(m_save);
    announce(m_save, this, &MediaViewerScreen::saveRequested);
    if (photo) {
        m_photo = new PhotoView(this);
        v->addWidget(m_photo, 1);
    } else {
        m_video = new VideoView(this);
        m_video->setControlSizes(scaled_px(88, scale), scaled_px(48, scale));
        set_viewer_colours(m_video);
        for (QLabel *l : m_video->findChildren<QLabel *>()) {
            set_viewer_colours(l);
            set_text_size(l, TextSize::Secondary);
        }
        v->addWidget(m_video, 1);
    }
    m_progress = label(QString(), objectName() + QStringLiteral("_progress"), std::nullopt,
                       TextSize::Secondary, this);
    set_viewer_colours(m_progress);
    m_progress->setAlignment(Qt::AlignCenter);
    // A fixed line: the picture does not move when it empties.
    m_progress->setFixedHeight(scaled_px(56, scale));
    v->addWidget(m_progress);
}

void MediaViewerScreen::setTitle(const QString &title)
{
    m_title->setText(title);
}

bool MediaViewerScreen::showPhoto(const QString &path, const QSize &fullSize)
{
    if (!m_photo)
        return false;
    return m_photo->showFile(path, fullSize);
}

void MediaViewerScreen::setDownloadProgress(bool downloading, qint64 done, qint64 total)
{
    if (!m_progress)
        return;
    if (!downloading) {
        m_progress->clear();
        return;
    }
    m_progress->setText(
        total > 0
            ? QStringLiteral("Downloading… %1%").arg(qBound<qint64>(0, done * 100 / total, 100))
            : QStringLiteral("Downloading…"));
}

void MediaViewerScreen::setSaveEnabled(bool enabled)
{
    // Shown only when it can act: the button style has no disabled look.
    if (m_save) {
        m_save->setEnabled(enabled);
        m_save->setVisible(enabled);
    }
}

void MediaViewerScreen::playVideo(const QString &path)
{
    if (!m_video)
        return;
    m_video->open(path);
    setDownloadProgress(false, 0, 0);
    setSaveEnabled(true);
}

void MediaViewerScreen::clearMedia()
{
    if (m_photo)
        m_photo->clear();
    if (m_video)
        m_video->stop();
    setDownloadProgress(false, 0, 0);
    setSaveEnabled(false);
}

void MediaViewerScreen::keyPressEvent(QKeyEvent *event)
{
    if (event->key() == Qt::Key_Escape) {
        Q_EMIT backRequested();
        return;
    }
    if (m_video && event->key() == Qt::Key_Space) {
        m_video->togglePlay();
        return;
    }
    QWidget::keyPressEvent(event);
}

void MediaViewerScreen::showEvent(QShowEvent *event)
{
    QWidget::showEvent(event);
    setFocus(Qt::OtherFocusReason);
}

void MediaViewerScreen::hideEvent(QHideEvent *event)
{
    QWidget::hideEvent(event);
    // A video does not play on behind the chat.
    if (m_video && !event->spontaneous())
        m_video->stop();
}
