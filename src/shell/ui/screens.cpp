#include "shell/ui/screens.h"

#include "chats/avatars.h"
#include "shell/osicons.h"
#include "shell/ui/screen_parts.h"
#include "shell/ui_scale.h"

#include <QEvent>
#include <QHBoxLayout>
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
    f->setProperty("role", QStringLiteral("field"));
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
    QLabel *n = label(name, objectName + QStringLiteral("_name"), "D", "secondary", row);
    QLabel *value = label(QStringLiteral("—"), objectName, "C", "body", row);
    value->setTextInteractionFlags(Qt::TextSelectableByMouse);
    value->setWordWrap(true);
    v->addWidget(n);
    v->addWidget(value);
    into->addWidget(row);
    return value;
}

QWidget *card(const QString &objectName, float scale, QWidget *parent, QVBoxLayout **layout)
{
    QWidget *c = panel(objectName, "E", parent);
    c->setProperty("shape", QStringLiteral("card"));
    auto *v = new QVBoxLayout(c);
    v->setContentsMargins(scaled_px(28, scale), scaled_px(16, scale), scaled_px(28, scale),
                          scaled_px(16, scale));
    v->setSpacing(scaled_px(8, scale));
    *layout = v;
    return c;
}

} // namespace

// ---------------------------------------------------------------- SignInForm

SignInForm::SignInForm(float scale, QWidget *parent) : QWidget(parent)
{
    setObjectName(QStringLiteral("sign_in_form"));
    auto *v = new QVBoxLayout(this);
    v->setContentsMargins(0, 0, 0, 0);
    v->setSpacing(scaled_px(18, scale));

    auto *intro = label(QStringLiteral("Sign in to Telegram"), QStringLiteral("sign_in_heading"),
                        "C", "heading", this);
    v->addWidget(intro);
    auto *hint = label(QStringLiteral("Enter your phone number, then the code you receive."),
                       QStringLiteral("sign_in_hint"), "D", "secondary", this);
    hint->setWordWrap(true);
    v->addWidget(hint);
    v->addSpacing(scaled_px(8, scale));

    // Each field spans the width; its button sits under it on the right.
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

    phone_ = field(QStringLiteral("Phone (+E.164)"), QStringLiteral("phone_field"), scale, this);
    phone_->setInputMethodHints(Qt::ImhDialableCharactersOnly);
    sendPhone_ = button(QStringLiteral("Send phone"), QStringLiteral("send_phone_button"),
                        "primary", scale, this);
    addField(phone_, {sendPhone_});

    code_ = field(QStringLiteral("Code"), QStringLiteral("code_field"), scale, this);
    code_->setInputMethodHints(Qt::ImhDigitsOnly);
    sendCode_ = button(QStringLiteral("Send code"), QStringLiteral("send_code_button"), "primary",
                       scale, this);
    resendCode_ = button(QStringLiteral("Resend code"), QStringLiteral("resend_code_button"),
                         "plain", scale, this);
    addField(code_, {resendCode_, sendCode_});

    password_ =
        field(QStringLiteral("2FA password"), QStringLiteral("password_field"), scale, this);
    password_->setEchoMode(QLineEdit::Password);
    sendPassword_ = button(QStringLiteral("Send password"), QStringLiteral("send_password_button"),
                           "primary", scale, this);
    addField(password_, {sendPassword_});
}

// ---------------------------------------------------------------- MainScreen

MainScreen::MainScreen(float scale, QWidget *parent) : QWidget(parent)
{
    auto *v = screenRoot(this, QStringLiteral("main_screen"), "A");

    QWidget *bar = header(QStringLiteral("main_header"), QStringLiteral("Vexa"),
                          QStringLiteral("main_title"), false, scale, this, &title_, nullptr);
    search_ =
        iconButton(QStringLiteral("icon_search.png"), QStringLiteral("search_button"), scale, bar);
    menu_ = iconButton(QStringLiteral("menu.png"), QStringLiteral("menu_button"), scale, bar);
    bar->layout()->addWidget(search_);
    bar->layout()->addWidget(menu_);
    v->addWidget(bar);

    QWidget *statusBar = panel(QStringLiteral("status_bar"), "A", this);
    auto *sl = new QHBoxLayout(statusBar);
    sl->setContentsMargins(scaled_px(28, scale), 0, scaled_px(28, scale), scaled_px(12, scale));
    status_ = label(QStringLiteral("Starting…"), QStringLiteral("status_label"), "D", "secondary",
                    statusBar);
    status_->setTextFormat(Qt::PlainText);
    sl->addWidget(status_);
    v->addWidget(statusBar);

    // Body: the sign-in form on a panel, replaced by the chat list later. It
    // scrolls so that the open log view can take its share of the screen.
    auto *formScroll = new QScrollArea(this);
    formScroll->setObjectName(QStringLiteral("sign_in_scroll"));
    formScroll->setWidgetResizable(true);
    formScroll->setFrameShape(QFrame::NoFrame);
    formScroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    QWidget *formBody = panel(QStringLiteral("sign_in_panel"), "E", formScroll);
    formPanel_ = formScroll;
    auto *fp = new QVBoxLayout(formBody);
    fp->setContentsMargins(scaled_px(36, scale), scaled_px(48, scale), scaled_px(36, scale),
                           scaled_px(36, scale));
    form_ = new SignInForm(scale, formBody);
    fp->addWidget(form_);
    fp->addStretch(1);
    formScroll->setWidget(formBody);
    v->addWidget(formPanel_, 1);

    listHost_ = panel(QStringLiteral("chat_list_host"), "E", this);
    listLayout_ = new QVBoxLayout(listHost_);
    listLayout_->setContentsMargins(0, 0, 0, 0);
    listLayout_->setSpacing(0);
    listHost_->hide();
    v->addWidget(listHost_, 1);
}

void MainScreen::setChatListView(QWidget *view)
{
    listLayout_->addWidget(view);
}

void MainScreen::setAuthorised(bool authorised)
{
    authorised_ = authorised;
    formPanel_->setVisible(!authorised);
    listHost_->setVisible(authorised);
}

// ------------------------------------------------------- ConversationScreen

ConversationScreen::ConversationScreen(float scale, QWidget *parent)
    : QWidget(parent), scale_(scale)
{
    auto *v = screenRoot(this, QStringLiteral("conversation_screen"), "A");

    // Header: back, title with subtitle, search, info and overflow.
    QWidget *bar = panel(QStringLiteral("chat_header"), "A", this);
    bar->setFixedHeight(scaled_px(112, scale));
    auto *row = new QHBoxLayout(bar);
    row->setContentsMargins(scaled_px(8, scale), 0, scaled_px(8, scale), 0);
    row->setSpacing(scaled_px(8, scale));
    back_ =
        iconButton(QStringLiteral("ic_back.png"), QStringLiteral("chat_back_button"), scale, bar);
    row->addWidget(back_);
    auto *titles = new QVBoxLayout;
    titles->setSpacing(0);
    title_ = label(QStringLiteral("Chat"), QStringLiteral("chat_title"), "C", "heading", bar);
    title_->setTextFormat(Qt::PlainText);
    subtitle_ = label(QString(), QStringLiteral("chat_subtitle"), "D", "small", bar);
    subtitle_->setTextFormat(Qt::PlainText);
    subtitle_->hide();
    titles->addStretch(1);
    titles->addWidget(title_);
    titles->addWidget(subtitle_);
    titles->addStretch(1);
    row->addLayout(titles, 1);
    search_ = iconButton(QStringLiteral("icon_search.png"), QStringLiteral("chat_search_button"),
                         scale, bar);
    info_ =
        iconButton(QStringLiteral("ic_info.png"), QStringLiteral("chat_info_button"), scale, bar);
    more_ =
        iconButton(QStringLiteral("ic_more.png"), QStringLiteral("chat_more_button"), scale, bar);
    row->addWidget(search_);
    row->addWidget(info_);
    row->addWidget(more_);
    v->addWidget(bar);

    // Selection bar, shown in selection mode instead of nothing.
    selectionBar_ = panel(QStringLiteral("selection_bar"), "E", this);
    selectionBar_->setFixedHeight(scaled_px(104, scale));
    auto *sel = new QHBoxLayout(selectionBar_);
    sel->setContentsMargins(scaled_px(8, scale), 0, scaled_px(8, scale), 0);
    selClose_ = iconButton(QStringLiteral("ic_close.png"), QStringLiteral("selection_close_button"),
                           scale, selectionBar_);
    selectionCount_ = label(QStringLiteral("0 selected"), QStringLiteral("selection_count"), "C",
                            "body", selectionBar_);
    selReply_ = iconButton(QStringLiteral("ic_reply.png"), QStringLiteral("selection_reply_button"),
                           scale, selectionBar_);
    selForward_ = iconButton(QStringLiteral("ic_forward.png"),
                             QStringLiteral("selection_forward_button"), scale, selectionBar_);
    selDelete_ = iconButton(QStringLiteral("ic_delete.png"),
                            QStringLiteral("selection_delete_button"), scale, selectionBar_);
    sel->addWidget(selClose_);
    sel->addWidget(selectionCount_, 1);
    sel->addWidget(selReply_);
    sel->addWidget(selForward_);
    sel->addWidget(selDelete_);
    selectionBar_->hide();
    v->addWidget(selectionBar_);

    // Message list area; the to-bottom button floats over its lower right.
    listHost_ = panel(QStringLiteral("message_list_host"), "B", this);
    listLayout_ = new QVBoxLayout(listHost_);
    listLayout_->setContentsMargins(0, 0, 0, 0);
    listLayout_->setSpacing(0);
    listHost_->installEventFilter(this);
    toBottom_ = iconButton(QStringLiteral("ic_to_bottom.png"), QStringLiteral("to_bottom_button"),
                           scale, listHost_);
    toBottom_->setProperty("role", QStringLiteral("fab"));
    toBottom_->setFixedSize(scaled_px(80, scale), scaled_px(80, scale));
    toBottom_->setIconSize(QSize(scaled_px(40, scale), scaled_px(40, scale)));
    toBottom_->hide();
    v->addWidget(listHost_, 1);

    auto makeBar = [&](const QString &name, QLabel **text, QToolButton **close) {
        QWidget *b = panel(name, "E", this);
        auto *h = new QHBoxLayout(b);
        h->setContentsMargins(scaled_px(28, scale), scaled_px(8, scale), scaled_px(8, scale),
                              scaled_px(8, scale));
        *text = label(QString(), name + QStringLiteral("_label"), "H", "secondary", b);
        (*text)->setTextFormat(Qt::PlainText);
        *close =
            iconButton(QStringLiteral("ic_close.png"), name + QStringLiteral("_close"), scale, b);
        h->addWidget(*text, 1);
        h->addWidget(*close);
        b->hide();
        v->addWidget(b);
        return b;
    };
    replyBar_ = makeBar(QStringLiteral("reply_bar"), &replyLabel_, &replyClose_);
    editBar_ = makeBar(QStringLiteral("edit_bar"), &editLabel_, &editClose_);

    recordPanel_ = panel(QStringLiteral("record_panel"), "E", this);
    auto *rp = new QHBoxLayout(recordPanel_);
    rp->setContentsMargins(scaled_px(28, scale), scaled_px(12, scale), scaled_px(28, scale),
                           scaled_px(12, scale));
    recordLabel_ = label(QString(), QStringLiteral("record_label"), "I", "secondary", recordPanel_);
    recordLock_ =
        label(QString(), QStringLiteral("record_lock_hint"), nullptr, nullptr, recordPanel_);
    recordLock_->setPixmap(QPixmap(osicon_path(QStringLiteral("ic_lock.png")))
                               .scaled(scaled_px(40, scale), scaled_px(40, scale),
                                       Qt::KeepAspectRatio, Qt::SmoothTransformation));
    rp->addWidget(recordLabel_, 1);
    rp->addWidget(recordLock_);
    recordPanel_->hide();
    v->addWidget(recordPanel_);

    // Composer: attach, text, action (microphone or send).
    QWidget *comp = panel(QStringLiteral("composer"), "A", this);
    auto *ch = new QHBoxLayout(comp);
    ch->setContentsMargins(scaled_px(8, scale), scaled_px(12, scale), scaled_px(8, scale),
                           scaled_px(12, scale));
    ch->setSpacing(scaled_px(8, scale));
    attach_ =
        iconButton(QStringLiteral("ic_attach.png"), QStringLiteral("attach_button"), scale, comp);
    composer_ = new QPlainTextEdit(comp);
    composer_->setObjectName(QStringLiteral("composer_field"));
    composer_->setProperty("role", QStringLiteral("field"));
    composer_->setPlaceholderText(QStringLiteral("Message"));
    composer_->setFixedHeight(scaled_px(92, scale));
    composer_->setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    composer_->setTabChangesFocus(true);
    action_ = iconButton(QStringLiteral("ic_microphone_unmute.png"),
                         QStringLiteral("composer_action_button"), scale, comp);
    ch->addWidget(attach_, 0, Qt::AlignBottom);
    ch->addWidget(composer_, 1);
    ch->addWidget(action_, 0, Qt::AlignBottom);
    v->addWidget(comp);
}

void ConversationScreen::setSubtitle(const QString &text)
{
    subtitle_->setText(text);
    subtitle_->setVisible(!text.isEmpty());
}

void ConversationScreen::setMessageListView(QWidget *view)
{
    listLayout_->addWidget(view);
    toBottom_->raise();
}

void ConversationScreen::setActionIcon(const QString &iconPath)
{
    const int slash = iconPath.lastIndexOf(QLatin1Char('/'));
    setIcon(action_, slash >= 0 ? iconPath.mid(slash + 1) : iconPath);
}

bool ConversationScreen::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == listHost_ && (event->type() == QEvent::Resize || event->type() == QEvent::Show))
        placeToBottomButton();
    return QWidget::eventFilter(watched, event);
}

void ConversationScreen::placeToBottomButton()
{
    const int margin = scaled_px(24, scale_);
    toBottom_->move(listHost_->width() - toBottom_->width() - margin,
                    listHost_->height() - toBottom_->height() - margin);
    toBottom_->raise();
}

// ----------------------------------------------------------- ChatInfoScreen

ChatInfoScreen::ChatInfoScreen(float scale, QWidget *parent) : QWidget(parent)
{
    auto *v = screenRoot(this, QStringLiteral("chat_info_screen"), "A");
    v->addWidget(header(QStringLiteral("info_header"), QStringLiteral("Info"),
                        QStringLiteral("info_title"), true, scale, this, nullptr, &back_));

    auto *scroll = new QScrollArea(this);
    scroll->setObjectName(QStringLiteral("info_scroll"));
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    QWidget *body = panel(QStringLiteral("info_body"), "A", scroll);
    QVBoxLayout *bv = cardColumn(body, scale);

    QVBoxLayout *top = nullptr;
    QWidget *topCard = card(QStringLiteral("info_top_card"), scale, body, &top);
    auto *who = new QHBoxLayout;
    who->setSpacing(scaled_px(24, scale));
    letter_ =
        label(QStringLiteral("?"), QStringLiteral("info_avatar_letter"), nullptr, nullptr, topCard);
    letter_->setProperty("shape", QStringLiteral("letter"));
    letter_->setAlignment(Qt::AlignCenter);
    letter_->setFixedSize(scaled_px(80, scale), scaled_px(80, scale));
    auto *names = new QVBoxLayout;
    chatTitle_ = label(QString(), QStringLiteral("info_chat_title"), "C", "heading", topCard);
    chatTitle_->setTextFormat(Qt::PlainText);
    chatTitle_->setWordWrap(true);
    chatKind_ = label(QString(), QStringLiteral("info_chat_kind"), "D", "secondary", topCard);
    names->addWidget(chatTitle_);
    names->addWidget(chatKind_);
    who->addWidget(letter_);
    who->addLayout(names, 1);
    top->addLayout(who);
    bv->addWidget(topCard);

    QVBoxLayout *details = nullptr;
    QWidget *detailsCard = card(QStringLiteral("info_details_card"), scale, body, &details);
    members_ = infoRow(details, QStringLiteral("Members"), QStringLiteral("info_members"), scale,
                       detailsCard);
    link_ =
        infoRow(details, QStringLiteral("Link"), QStringLiteral("info_link"), scale, detailsCard);
    notifications_ = infoRow(details, QStringLiteral("Notifications"),
                             QStringLiteral("info_notifications"), scale, detailsCard);
    id_ = infoRow(details, QStringLiteral("ID"), QStringLiteral("info_id"), scale, detailsCard);
    bv->addWidget(detailsCard);

    QVBoxLayout *actions = nullptr;
    QWidget *actionsCard = card(QStringLiteral("info_actions_card"), scale, body, &actions);
    clear_ = button(QStringLiteral("Clear history"), QStringLiteral("info_clear_history_button"),
                    "row", scale, actionsCard);
    join_ = button(QStringLiteral("Join"), QStringLiteral("info_join_button"), "row", scale,
                   actionsCard);
    leave_ = button(QStringLiteral("Leave"), QStringLiteral("info_leave_button"), "row", scale,
                    actionsCard);
    delete_ = button(QStringLiteral("Delete chat"), QStringLiteral("info_delete_chat_button"),
                     "row", scale, actionsCard);
    for (QPushButton *b : {clear_, join_, leave_, delete_})
        actions->addWidget(b);
    bv->addWidget(actionsCard);
    bv->addStretch(1);
    scroll->setWidget(body);
    v->addWidget(scroll, 1);
}

// --------------------------------------------------------------- MenuScreen

MenuScreen::MenuScreen(float scale, bool darkTheme, QWidget *parent)
    : QWidget(parent), scale_(scale)
{
    auto *v = screenRoot(this, QStringLiteral("menu_screen"), "A");
    v->addWidget(header(QStringLiteral("menu_header"), QStringLiteral("Menu"),
                        QStringLiteral("menu_title"), true, scale, this, nullptr, &back_));

    QWidget *body = panel(QStringLiteral("menu_body"), "A", this);
    QVBoxLayout *bv = cardColumn(body, scale);

    // Own profile: avatar on the left, name, user name and phone beside it.
    QVBoxLayout *me = nullptr;
    meCard_ = card(QStringLiteral("menu_me_card"), scale, body, &me);
    auto *who = new QHBoxLayout;
    who->setSpacing(scaled_px(28, scale));
    const int side = scaled_px(kMeAvatarSize, scale);
    meAvatar_ = label(QString(), QStringLiteral("me_avatar"), nullptr, nullptr, meCard_);
    meAvatar_->setFixedSize(side, side);
    meLetter_ = label(QString(), QStringLiteral("me_avatar_letter"), nullptr, nullptr, meAvatar_);
    meLetter_->setAlignment(Qt::AlignCenter);
    meLetter_->setGeometry(0, 0, side, side);
    auto *lines = new QVBoxLayout;
    lines->setSpacing(scaled_px(4, scale));
    meName_ = label(QString(), QStringLiteral("me_name"), "C", "heading", meCard_);
    meUsername_ = label(QString(), QStringLiteral("me_username"), "H", "secondary", meCard_);
    mePhone_ = label(QString(), QStringLiteral("me_phone"), "D", "secondary", meCard_);
    meName_->setWordWrap(true);
    for (QLabel *l : {meName_, meUsername_, mePhone_}) {
        l->setTextFormat(Qt::PlainText);
        l->setTextInteractionFlags(Qt::TextSelectableByMouse);
        lines->addWidget(l);
    }
    lines->insertStretch(0, 1);
    lines->addStretch(1);
    who->addWidget(meAvatar_);
    who->addLayout(lines, 1);
    me->addLayout(who);
    bv->addWidget(meCard_);
    updateMenuMeHeader(0, QString(), QString(), QString(), QString());

    QVBoxLayout *updates = nullptr;
    QWidget *updatesCard = card(QStringLiteral("menu_updates_card"), scale, body, &updates);
    checkUpdates_ = button(QStringLiteral("Check updates"), QStringLiteral("check_updates_button"),
                           "row", scale, updatesCard);
    updateStatus_ =
        label(QString(), QStringLiteral("update_status_label"), "D", "secondary", updatesCard);
    updateStatus_->setWordWrap(true);
    updateStatus_->hide();
    updates->addWidget(checkUpdates_);
    updates->addWidget(updateStatus_);
    bv->addWidget(updatesCard);

    QVBoxLayout *cache = nullptr;
    QWidget *cacheCard = card(QStringLiteral("menu_cache_card"), scale, body, &cache);
    filesCache_ = button(QStringLiteral("Files cache"), QStringLiteral("files_cache_button"), "row",
                         scale, cacheCard);
    cacheSize_ = label(QStringLiteral("Size not calculated yet"),
                       QStringLiteral("cache_size_label"), "D", "secondary", cacheCard);
    cacheSize_->setContentsMargins(scaled_px(28, scale), 0, 0, 0);
    recalc_ = button(QStringLiteral("Recalculate size"), QStringLiteral("recalculate_size_button"),
                     "row", scale, cacheCard);
    clearCache_ = button(QStringLiteral("Clear cache"), QStringLiteral("clear_cache_button"), "row",
                         scale, cacheCard);
    cache->addWidget(filesCache_);
    cache->addWidget(cacheSize_);
    cache->addWidget(recalc_);
    cache->addWidget(clearCache_);
    bv->addWidget(cacheCard);

    QVBoxLayout *look = nullptr;
    QWidget *lookCard = card(QStringLiteral("menu_look_card"), scale, body, &look);
    theme_ = button(darkTheme ? QStringLiteral("Theme: Dark") : QStringLiteral("Theme: Bright"),
                    QStringLiteral("theme_button"), "row", scale, lookCard);
    logToggle_ = button(QStringLiteral("Debug log"), QStringLiteral("log_toggle_button"), "row",
                        scale, lookCard);
    logToggle_->setCheckable(true);
    look->addWidget(theme_);
    look->addWidget(logToggle_);
    bv->addWidget(lookCard);
    bv->addStretch(1);
    v->addWidget(body, 1);
}

void MenuScreen::updateMenuMeHeader(qint64 id, const QString &displayName, const QString &username,
                                    const QString &phone, const QString &avatarPath)
{
    const QString name = displayName.trimmed();
    QString user = username.trimmed();
    while (user.startsWith(QLatin1Char('@')))
        user.remove(0, 1);
    QString number = phone.trimmed();
    if (!number.isEmpty() && !number.startsWith(QLatin1Char('+')))
        number.prepend(QLatin1Char('+'));

    const bool signedIn = id != 0 || !name.isEmpty() || !user.isEmpty() || !number.isEmpty();
    meName_->setText(name);
    meName_->setVisible(!name.isEmpty());
    meUsername_->setText(user.isEmpty() ? QString() : QStringLiteral("@") + user);
    meUsername_->setVisible(!user.isEmpty());
    mePhone_->setText(number);
    mePhone_->setVisible(!number.isEmpty());

    // The round PNG when it loads; until then (or if it is unreadable) the
    // tile in the colour the chat list gives the same id and name.
    const int side = meAvatar_->width();
    const QPixmap photo = signedIn && !avatarPath.isEmpty() ? QPixmap(avatarPath) : QPixmap();
    if (!photo.isNull()) {
        meAvatar_->setPixmap(
            photo.scaled(side, side, Qt::KeepAspectRatioByExpanding, Qt::SmoothTransformation));
        meAvatar_->setProperty("image_path", avatarPath);
        meLetter_->clear();
        meLetter_->setProperty("tile_color", QString());
        meLetter_->hide();
    } else {
        meAvatar_->clear();
        meAvatar_->setProperty("image_path", QString());
        const QString initialFrom = !name.isEmpty() ? name : user;
        const QColor color = placeholder_avatar_color(id, name);
        meLetter_->setText(initialFrom.isEmpty() ? QStringLiteral("?")
                                                 : initialFrom.left(1).toUpper());
        meLetter_->setProperty("tile_color", signedIn ? color.name() : QString());
        meLetter_->setStyleSheet(QStringLiteral("background-color: %1; color: #FFFFFF;"
                                                " border-radius: %2px; font-size: %3px;"
                                                " font-weight: 600;")
                                     .arg(color.name())
                                     .arg(side * kMeAvatarRadius / kMeAvatarSize)
                                     .arg(scaled_px(64, scale_)));
        meLetter_->setVisible(signedIn);
    }
    if (!signedIn)
        meLetter_->clear();
    meCard_->setVisible(signedIn);
}

// --------------------------------------------------------- FilesCacheScreen

FilesCacheScreen::FilesCacheScreen(float scale, QWidget *parent) : QWidget(parent)
{
    auto *v = screenRoot(this, QStringLiteral("files_cache_screen"), "A");
    v->addWidget(header(QStringLiteral("files_cache_header"), QStringLiteral("Files cache"),
                        QStringLiteral("files_cache_title"), true, scale, this, nullptr, &back_));
    QWidget *body = panel(QStringLiteral("files_cache_body"), "E", this);
    auto *bv = new QVBoxLayout(body);
    bv->setContentsMargins(scaled_px(28, scale), scaled_px(20, scale), scaled_px(28, scale), 0);
    summary_ = label(QString(), QStringLiteral("files_cache_summary"), "D", "secondary", body);
    summary_->setWordWrap(true);
    bv->addWidget(summary_);
    listHost_ = new QWidget(body);
    listHost_->setObjectName(QStringLiteral("files_cache_list_host"));
    auto *lh = new QVBoxLayout(listHost_);
    lh->setContentsMargins(0, 0, 0, 0);
    bv->addWidget(listHost_, 1);
    v->addWidget(body, 1);
}

// -------------------------------------------------------- MediaViewerScreen

MediaViewerScreen::MediaViewerScreen(Kind kind, float scale, QWidget *parent)
    : QWidget(parent), kind_(kind)
{
    const bool photo = kind == Kind::Photo;
    auto *v = screenRoot(
        this, photo ? QStringLiteral("photo_viewer") : QStringLiteral("video_viewer"), "viewer");
    QWidget *bar =
        header(objectName() + QStringLiteral("_header"),
               photo ? QStringLiteral("Photo") : QStringLiteral("Video"),
               objectName() + QStringLiteral("_title"), true, scale, this, &title_, &back_);
    bar->setProperty("bg", QStringLiteral("G"));
    title_->setProperty("fg", QStringLiteral("viewer"));
    v->addWidget(bar);
    if (photo) {
        image_ = label(QString(), QStringLiteral("photo_image"), nullptr, nullptr, this);
        image_->setAlignment(Qt::AlignCenter);
        image_->setMinimumSize(1, 1);
        v->addWidget(image_, 1);
    } else {
        videoHost_ = new QWidget(this);
        videoHost_->setObjectName(QStringLiteral("video_host"));
        auto *vh = new QVBoxLayout(videoHost_);
        vh->setContentsMargins(0, 0, 0, 0);
        v->addWidget(videoHost_, 1);
        auto *controls = panel(QStringLiteral("video_controls"), "G", this);
        auto *ch = new QHBoxLayout(controls);
        play_ = iconButton(QStringLiteral("ic_play.png"), QStringLiteral("video_play_button"),
                           scale, controls);
        ch->addStretch(1);
        ch->addWidget(play_);
        ch->addStretch(1);
        v->addWidget(controls);
    }
}

bool MediaViewerScreen::showImageFile(const QString &path)
{
    if (!image_)
        return false;
    imagePath_ = path;
    refitImage();
    return !image_->pixmap(Qt::ReturnByValue).isNull();
}

void MediaViewerScreen::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    refitImage();
}

void MediaViewerScreen::refitImage()
{
    if (!image_ || imagePath_.isEmpty())
        return;
    QPixmap pm(imagePath_);
    if (pm.isNull()) {
        image_->clear();
        return;
    }
    image_->setPixmap(pm.scaled(image_->size(), Qt::KeepAspectRatio, Qt::SmoothTransformation));
}
