#include "shell/ui/screens.h"

#include "chats/avatars.h"
#include "events/event_dispatcher.h"
#include "platform/osicons.h"
#include "shell/theme.h"
#include "shell/ui/screen_parts.h"
#include "shell/ui_scale.h"

#include <QEvent>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
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

// A button's click announced as a signal of the screen.
template<typename Screen>
void announce(QAbstractButton *b, Screen *screen, void (Screen::*signal)())
{
    QObject::connect(b, &QAbstractButton::clicked, screen,
                     [screen, signal] { (screen->*signal)(); });
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
                          QStringLiteral("main_title"), false, scale, this, nullptr, nullptr);
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
    fp->addStretch(1);
    formScroll->setWidget(formBody);
    v->addWidget(m_formPanel, 1);
    connect(m_form, &SignInForm::phoneSubmitted, this, &MainScreen::phoneSubmitted);
    connect(m_form, &SignInForm::codeSubmitted, this, &MainScreen::codeSubmitted);
    connect(m_form, &SignInForm::resendRequested, this, &MainScreen::resendRequested);
    connect(m_form, &SignInForm::passwordSubmitted, this, &MainScreen::passwordSubmitted);

    m_listHost = panel(QStringLiteral("chat_list_host"), ThemeGroup::E, this);
    m_listLayout = new QVBoxLayout(m_listHost);
    m_listLayout->setContentsMargins(0, 0, 0, 0);
    m_listLayout->setSpacing(0);
    m_listHost->hide();
    v->addWidget(m_listHost, 1);
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
    m_authorised = authorised;
    m_formPanel->setVisible(!authorised);
    m_listHost->setVisible(authorised);
    m_reload->setVisible(authorised);
}

// ------------------------------------------------------- ConversationScreen

ConversationScreen::ConversationScreen(float scale, QWidget *parent)
    : QWidget(parent), m_scale(scale)
{
    auto *v = screenRoot(this, QStringLiteral("conversation_screen"), ThemeGroup::A);

    // Header: back, title with subtitle, search, info and overflow.
    QWidget *bar = panel(QStringLiteral("chat_header"), ThemeGroup::A, this);
    bar->setFixedHeight(scaled_px(112, scale));
    auto *row = new QHBoxLayout(bar);
    row->setContentsMargins(scaled_px(8, scale), 0, scaled_px(8, scale), 0);
    row->setSpacing(scaled_px(8, scale));
    auto *back =
        iconButton(QStringLiteral("ic_back.png"), QStringLiteral("chat_back_button"), scale, bar);
    row->addWidget(back);
    auto *titles = new QVBoxLayout;
    titles->setSpacing(0);
    m_title = label(QStringLiteral("Chat"), QStringLiteral("chat_title"), ThemeGroup::C,
                    TextSize::Heading, bar);
    m_title->setTextFormat(Qt::PlainText);
    m_subtitle =
        label(QString(), QStringLiteral("chat_subtitle"), ThemeGroup::D, TextSize::Small, bar);
    m_subtitle->setTextFormat(Qt::PlainText);
    m_subtitle->hide();
    titles->addStretch(1);
    titles->addWidget(m_title);
    titles->addWidget(m_subtitle);
    titles->addStretch(1);
    row->addLayout(titles, 1);
    auto *search = iconButton(QStringLiteral("icon_search.png"),
                              QStringLiteral("chat_search_button"), scale, bar);
    auto *info =
        iconButton(QStringLiteral("ic_info.png"), QStringLiteral("chat_info_button"), scale, bar);
    auto *more =
        iconButton(QStringLiteral("ic_more.png"), QStringLiteral("chat_more_button"), scale, bar);
    row->addWidget(search);
    row->addWidget(info);
    row->addWidget(more);
    announce(back, this, &ConversationScreen::backRequested);
    announce(search, this, &ConversationScreen::searchRequested);
    announce(info, this, &ConversationScreen::infoRequested);
    announce(more, this, &ConversationScreen::moreRequested);
    v->addWidget(bar);

    // Selection bar, shown in selection mode above the list.
    m_selectionBar = panel(QStringLiteral("selection_bar"), ThemeGroup::E, this);
    m_selectionBar->setFixedHeight(scaled_px(104, scale));
    auto *sel = new QHBoxLayout(m_selectionBar);
    sel->setContentsMargins(scaled_px(8, scale), 0, scaled_px(8, scale), 0);
    auto *selClose = iconButton(QStringLiteral("ic_close.png"),
                                QStringLiteral("selection_close_button"), scale, m_selectionBar);
    m_selectionCount = label(QString(), QStringLiteral("selection_count"), ThemeGroup::C,
                             TextSize::Body, m_selectionBar);
    m_selReply = iconButton(QStringLiteral("ic_reply.png"),
                            QStringLiteral("selection_reply_button"), scale, m_selectionBar);
    m_selForward = iconButton(QStringLiteral("ic_forward.png"),
                              QStringLiteral("selection_forward_button"), scale, m_selectionBar);
    m_selDelete = iconButton(QStringLiteral("ic_delete.png"),
                             QStringLiteral("selection_delete_button"), scale, m_selectionBar);
    sel->addWidget(selClose);
    sel->addWidget(m_selectionCount, 1);
    sel->addWidget(m_selReply);
    sel->addWidget(m_selForward);
    sel->addWidget(m_selDelete);
    announce(selClose, this, &ConversationScreen::selectionClosed);
    announce(m_selReply, this, &ConversationScreen::selectionReplyRequested);
    announce(m_selForward, this, &ConversationScreen::selectionForwardRequested);
    announce(m_selDelete, this, &ConversationScreen::selectionDeleteRequested);
    m_selectionBar->hide();
    setSelectionCount(0);
    v->addWidget(m_selectionBar);

    // Message list area; the to-bottom button floats over its lower right.
    m_listHost = panel(QStringLiteral("message_list_host"), ThemeGroup::B, this);
    m_listLayout = new QVBoxLayout(m_listHost);
    m_listLayout->setContentsMargins(0, 0, 0, 0);
    m_listLayout->setSpacing(0);
    m_listHost->installEventFilter(this);
    m_toBottom = iconButton(QStringLiteral("ic_to_bottom.png"), QStringLiteral("to_bottom_button"),
                            scale, m_listHost);
    set_control_role(m_toBottom, ControlRole::Fab);
    m_toBottom->setFixedSize(scaled_px(80, scale), scaled_px(80, scale));
    m_toBottom->setIconSize(QSize(scaled_px(40, scale), scaled_px(40, scale)));
    m_toBottom->hide();
    announce(m_toBottom, this, &ConversationScreen::toBottomRequested);
    v->addWidget(m_listHost, 1);

    auto makeBar = [&](const QString &name, QLabel **text, void (ConversationScreen::*cancel)()) {
        QWidget *b = panel(name, ThemeGroup::E, this);
        auto *h = new QHBoxLayout(b);
        h->setContentsMargins(scaled_px(28, scale), scaled_px(8, scale), scaled_px(8, scale),
                              scaled_px(8, scale));
        *text = label(QString(), name + QStringLiteral("_label"), ThemeGroup::H,
                      TextSize::Secondary, b);
        (*text)->setTextFormat(Qt::PlainText);
        auto *close =
            iconButton(QStringLiteral("ic_close.png"), name + QStringLiteral("_close"), scale, b);
        announce(close, this, cancel);
        h->addWidget(*text, 1);
        h->addWidget(close);
        b->hide();
        v->addWidget(b);
        return b;
    };
    m_replyBar =
        makeBar(QStringLiteral("reply_bar"), &m_replyLabel, &ConversationScreen::replyCancelled);
    m_editBar =
        makeBar(QStringLiteral("edit_bar"), &m_editLabel, &ConversationScreen::editCancelled);

    m_recordPanel = panel(QStringLiteral("record_panel"), ThemeGroup::E, this);
    auto *rp = new QHBoxLayout(m_recordPanel);
    rp->setContentsMargins(scaled_px(28, scale), scaled_px(12, scale), scaled_px(28, scale),
                           scaled_px(12, scale));
    m_recordLabel = label(QString(), QStringLiteral("record_label"), ThemeGroup::I,
                          TextSize::Secondary, m_recordPanel);
    m_recordLock = label(QString(), QStringLiteral("record_lock_hint"), std::nullopt, std::nullopt,
                         m_recordPanel);
    m_recordLock->setPixmap(QPixmap(osicon_path(QStringLiteral("ic_lock.png")))
                                .scaled(scaled_px(40, scale), scaled_px(40, scale),
                                        Qt::KeepAspectRatio, Qt::SmoothTransformation));
    rp->addWidget(m_recordLabel, 1);
    rp->addWidget(m_recordLock);
    m_recordPanel->hide();
    v->addWidget(m_recordPanel);

    // Composer: attach, text, action (microphone or send).
    QWidget *comp = panel(QStringLiteral("composer"), ThemeGroup::A, this);
    auto *ch = new QHBoxLayout(comp);
    ch->setContentsMargins(scaled_px(8, scale), scaled_px(12, scale), scaled_px(8, scale),
                           scaled_px(12, scale));
    ch->setSpacing(scaled_px(8, scale));
    auto *attach =
        iconButton(QStringLiteral("ic_attach.png"), QStringLiteral("attach_button"), scale, comp);
    m_composer = new QPlainTextEdit(comp);
    m_composer->setObjectName(QStringLiteral("composer_field"));
    set_control_role(m_composer, ControlRole::Field);
    m_composer->setPlaceholderText(QStringLiteral("Message"));
    m_composer->setFixedHeight(scaled_px(92, scale));
    m_composer->setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    m_composer->setTabChangesFocus(true);
    m_action = iconButton(QStringLiteral("ic_microphone_unmute.png"),
                          QStringLiteral("composer_action_button"), scale, comp);
    announce(attach, this, &ConversationScreen::attachRequested);
    announce(m_action, this, &ConversationScreen::actionTriggered);
    ch->addWidget(attach, 0, Qt::AlignBottom);
    ch->addWidget(m_composer, 1);
    ch->addWidget(m_action, 0, Qt::AlignBottom);
    v->addWidget(comp);
}

void ConversationScreen::setTitle(const QString &title)
{
    m_title->setText(title.isEmpty() ? QStringLiteral("Chat") : title);
}

QString ConversationScreen::title() const
{
    return m_title->text();
}

void ConversationScreen::setSubtitle(const QString &text)
{
    showText(m_subtitle, text);
}

QString ConversationScreen::subtitle() const
{
    return m_subtitle->text();
}

void ConversationScreen::setMessageListView(QWidget *view)
{
    m_listLayout->addWidget(view);
    m_toBottom->raise();
}

void ConversationScreen::setActionIcon(const QString &iconPath)
{
    const int slash = iconPath.lastIndexOf(QLatin1Char('/'));
    setIcon(m_action, slash >= 0 ? iconPath.mid(slash + 1) : iconPath);
}

QString ConversationScreen::composerText() const
{
    return m_composer->toPlainText();
}

void ConversationScreen::setComposerText(const QString &text)
{
    m_composer->setPlainText(text);
}

void ConversationScreen::setReplyPreview(const QString &text)
{
    showText(m_replyLabel, text, m_replyBar);
}

void ConversationScreen::setEditPreview(const QString &text)
{
    showText(m_editLabel, text, m_editBar);
}

void ConversationScreen::setToBottomVisible(bool visible)
{
    m_toBottom->setVisible(visible);
    if (visible)
        placeToBottomButton();
}

void ConversationScreen::setSelectionMode(bool on)
{
    m_selectionBar->setVisible(on);
}

void ConversationScreen::setSelectionCount(int count)
{
    m_selectionCount->setText(QStringLiteral("%1 selected").arg(count));
}

void ConversationScreen::setSelectionActions(bool reply, bool forward, bool remove)
{
    m_selReply->setEnabled(reply);
    m_selForward->setEnabled(forward);
    m_selDelete->setEnabled(remove);
}

void ConversationScreen::setRecordPanel(const QString &text, bool showLockHint)
{
    m_recordLabel->setText(text);
    m_recordLock->setVisible(showLockHint);
    m_recordPanel->setVisible(!text.isEmpty());
}

bool ConversationScreen::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m_listHost && (event->type() == QEvent::Resize || event->type() == QEvent::Show))
        placeToBottomButton();
    return QWidget::eventFilter(watched, event);
}

void ConversationScreen::placeToBottomButton()
{
    const int margin = scaled_px(24, m_scale);
    m_toBottom->move(m_listHost->width() - m_toBottom->width() - margin,
                     m_listHost->height() - m_toBottom->height() - margin);
    m_toBottom->raise();
}

// ----------------------------------------------------------- ChatInfoScreen

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
    m_members = infoRow(details, QStringLiteral("Members"), QStringLiteral("info_members"), scale,
                        detailsCard);
    m_link =
        infoRow(details, QStringLiteral("Link"), QStringLiteral("info_link"), scale, detailsCard);
    m_notifications = infoRow(details, QStringLiteral("Notifications"),
                              QStringLiteral("info_notifications"), scale, detailsCard);
    m_id = infoRow(details, QStringLiteral("ID"), QStringLiteral("info_id"), scale, detailsCard);
    bv->addWidget(detailsCard);

    QVBoxLayout *actions = nullptr;
    QWidget *actionsCard = card(QStringLiteral("info_actions_card"), scale, body, &actions);
    auto *clear =
        button(QStringLiteral("Clear history"), QStringLiteral("info_clear_history_button"),
               ControlRole::Row, scale, actionsCard);
    m_join = button(QStringLiteral("Join"), QStringLiteral("info_join_button"), ControlRole::Row,
                    scale, actionsCard);
    m_leave = button(QStringLiteral("Leave"), QStringLiteral("info_leave_button"), ControlRole::Row,
                     scale, actionsCard);
    auto *remove = button(QStringLiteral("Delete chat"), QStringLiteral("info_delete_chat_button"),
                          ControlRole::Row, scale, actionsCard);
    for (QPushButton *b : {clear, m_join, m_leave, remove})
        actions->addWidget(b);
    announce(clear, this, &ChatInfoScreen::clearHistoryRequested);
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
    const QString dash = QStringLiteral("—");
    auto orDash = [&dash](const QString &s) { return s.isEmpty() ? dash : s; };
    m_chatTitle->setText(d.title);
    m_chatKind->setText(d.kind);
    m_members->setText(orDash(d.members));
    m_link->setText(orDash(d.link));
    m_notifications->setText(orDash(d.notifications));
    m_id->setText(d.id != 0 ? QString::number(d.id) : dash);
    m_letter->setText(avatar_initial(d.title));
    m_join->setVisible(d.canJoin);
    m_leave->setVisible(d.canLeave);
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
    look->addWidget(m_theme);
    look->addWidget(m_logToggle);
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
    QWidget *body = panel(QStringLiteral("files_cache_body"), ThemeGroup::E, this);
    auto *bv = new QVBoxLayout(body);
    bv->setContentsMargins(scaled_px(28, scale), scaled_px(20, scale), scaled_px(28, scale), 0);
    m_summary = label(QString(), QStringLiteral("files_cache_summary"), ThemeGroup::D,
                      TextSize::Secondary, body);
    m_summary->setWordWrap(true);
    bv->addWidget(m_summary);
    m_listHost = new QWidget(body);
    m_listHost->setObjectName(QStringLiteral("files_cache_list_host"));
    auto *lh = new QVBoxLayout(m_listHost);
    lh->setContentsMargins(0, 0, 0, 0);
    bv->addWidget(m_listHost, 1);
    v->addWidget(body, 1);
}

void FilesCacheScreen::setSummary(const QString &text)
{
    m_summary->setText(text);
}

void FilesCacheScreen::setListView(QWidget *view)
{
    m_listHost->layout()->addWidget(view);
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
    QToolButton *back = nullptr;
    QWidget *bar =
        header(objectName() + QStringLiteral("_header"),
               photo ? QStringLiteral("Photo") : QStringLiteral("Video"),
               objectName() + QStringLiteral("_title"), true, scale, this, &m_title, &back);
    set_background_group(bar, ThemeGroup::G);
    set_viewer_colours(m_title);
    announce(back, this, &MediaViewerScreen::backRequested);
    v->addWidget(bar);
    if (photo) {
        m_image = label(QString(), QStringLiteral("photo_image"), std::nullopt, std::nullopt, this);
        m_image->setAlignment(Qt::AlignCenter);
        m_image->setMinimumSize(1, 1);
        v->addWidget(m_image, 1);
    } else {
        m_videoHost = new QWidget(this);
        m_videoHost->setObjectName(QStringLiteral("video_host"));
        auto *vh = new QVBoxLayout(m_videoHost);
        vh->setContentsMargins(0, 0, 0, 0);
        v->addWidget(m_videoHost, 1);
        auto *controls = panel(QStringLiteral("video_controls"), ThemeGroup::G, this);
        auto *ch = new QHBoxLayout(controls);
        auto *play = iconButton(QStringLiteral("ic_play.png"), QStringLiteral("video_play_button"),
                                scale, controls);
        announce(play, this, &MediaViewerScreen::playRequested);
        ch->addStretch(1);
        ch->addWidget(play);
        ch->addStretch(1);
        v->addWidget(controls);
    }
}

void MediaViewerScreen::setTitle(const QString &title)
{
    m_title->setText(title);
}

bool MediaViewerScreen::showImageFile(const QString &path)
{
    if (!m_image)
        return false;
    m_imagePath = path;
    refitImage();
    return !m_image->pixmap(Qt::ReturnByValue).isNull();
}

void MediaViewerScreen::setVideoOutput(QWidget *output)
{
    if (m_videoHost)
        m_videoHost->layout()->addWidget(output);
}

void MediaViewerScreen::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    refitImage();
}

void MediaViewerScreen::refitImage()
{
    if (!m_image || m_imagePath.isEmpty())
        return;
    QPixmap pm(m_imagePath);
    if (pm.isNull()) {
        m_image->clear();
        return;
    }
    m_image->setPixmap(pm.scaled(m_image->size(), Qt::KeepAspectRatio, Qt::SmoothTransformation));
}
