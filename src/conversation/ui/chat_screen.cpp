#include "conversation/ui/chat_screen.h"

#include "chats/avatars.h"
#include "platform/osicons.h"
#include "platform/ui/sharp_pixmaps.h"
#include "shell/style_sheet.h"
#include "shell/theme.h"
#include "shell/ui/screen_parts.h"
#include "shell/ui_scale.h"

#include <QEvent>
#include <QGraphicsOpacityEffect>
#include <QHBoxLayout>
#include <QIcon>
#include <QImage>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QMouseEvent>
#include <QPainter>
#include <QPixmap>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QToolButton>
#include <QVBoxLayout>

using namespace screen_parts;

namespace {

constexpr int kHeaderAvatarPx = 80;

// A rounded bar filled to the microphone's level.
class LevelBar : public QWidget
{
public:
    using QWidget::QWidget;
    void setLevel(qreal level)
    {
        level = qBound<qreal>(0, level, 1);
        if (qFuzzyCompare(level + 1, m_level + 1))
            return;
        m_level = level;
        setProperty("level", level);
        update();
    }

protected:
    void paintEvent(QPaintEvent *) override
    {
        QPainter p(this);
        p.setRenderHint(QPainter::Antialiasing);
        p.setPen(Qt::NoPen);
        const qreal r = height() / 2.0;
        p.setBrush(QColor(128, 128, 128, 90));
        p.drawRoundedRect(rect(), r, r);
        p.setBrush(QColor(0x6c, 0xb4, 0xf8));
        p.drawRoundedRect(QRectF(0, 0, qMax(qreal(height()), width() * m_level), height()), r, r);
    }

private:
    qreal m_level = 0;
};

// A chevron pointing up or down, for the steps of the search and the pinned
// list's toggle (the icon set has none); px: the icon side in device pixels.
QIcon chevronIcon(bool up, const QColor &color, int px)
{
    QPixmap pm(px, px);
    pm.fill(Qt::transparent);
    QPainter p(&pm);
    p.setRenderHint(QPainter::Antialiasing);
    QPen pen(color, px / 10.0, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin);
    p.setPen(pen);
    const qreal y0 = up ? px * 0.62 : px * 0.38, y1 = up ? px * 0.38 : px * 0.62;
    const QPointF points[] = {{px * 0.25, y0}, {px * 0.5, y1}, {px * 0.75, y0}};
    p.drawPolyline(points, 3);
    return QIcon(pm);
}

QToolButton *chevronButton(const QString &objectName, float scale, QWidget *parent)
{
    auto *b = new QToolButton(parent);
    b->setObjectName(objectName);
    set_control_role(b, ControlRole::Icon);
    b->setCursor(Qt::PointingHandCursor);
    b->setFocusPolicy(Qt::NoFocus);
    b->setFixedSize(scaled_px(72, scale), scaled_px(72, scale));
    b->setIconSize(QSize(scaled_px(44, scale), scaled_px(44, scale)));
    return b;
}

} // namespace

ChatScreen::ChatScreen(float scale, const QString &uiCacheDir, QWidget *parent)
    : QWidget(parent), m_scale(scale), m_uiCacheDir(uiCacheDir)
{
    auto *v = screenRoot(this, QStringLiteral("conversation_screen"), ThemeGroup::A);

    // Header: back, avatar, title with subtitle, info and overflow (search in
    // the chat is one of the overflow's entries). The avatar and the titles
    // open the info page too, as the title bar of a chat does elsewhere.
    QWidget *bar = panel(QStringLiteral("chat_header"), ThemeGroup::A, this);
    bar->setFixedHeight(scaled_px(112, scale));
    auto *row = new QHBoxLayout(bar);
    row->setContentsMargins(scaled_px(8, scale), 0, scaled_px(8, scale), 0);
    row->setSpacing(scaled_px(8, scale));
    auto *back =
        iconButton(QStringLiteral("ic_back.png"), QStringLiteral("chat_back_button"), scale, bar);
    row->addWidget(back);
    const int avatarPx = scaled_px(kHeaderAvatarPx, scale);
    m_avatar = new QLabel(bar);
    m_avatar->setObjectName(QStringLiteral("chat_avatar"));
    m_avatar->setFixedSize(avatarPx, avatarPx);
    m_avatar->setScaledContents(true);
    m_avatarLetter = new QLabel(m_avatar);
    m_avatarLetter->setObjectName(QStringLiteral("chat_avatar_letter"));
    m_avatarLetter->setGeometry(0, 0, avatarPx, avatarPx);
    m_avatarLetter->setAlignment(Qt::AlignCenter);
    QFont letterFont = m_avatarLetter->font();
    letterFont.setBold(true);
    letterFont.setPixelSize(avatarPx / 2);
    m_avatarLetter->setFont(letterFont);
    m_avatarLetter->setStyleSheet(QStringLiteral("color: white; background: transparent;"));
    row->addWidget(m_avatar);
    auto *titles = new QVBoxLayout;
    titles->setSpacing(0);
    m_title = label(QStringLiteral("Chat"), QStringLiteral("chat_title"), ThemeGroup::C,
                    TextSize::Heading, bar);
    m_title->setTextFormat(Qt::PlainText);
    m_subtitle =
        label(QString(), QStringLiteral("chat_subtitle"), ThemeGroup::D, TextSize::Small, bar);
    m_subtitle->setTextFormat(Qt::PlainText);
    m_subtitle->hide();
    // Long titles end in "…" instead of being cut mid-letter by the buttons.
    for (QLabel *l : {m_title, m_subtitle}) {
        l->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
        l->installEventFilter(this);
    }
    m_avatar->installEventFilter(this);
    titles->addStretch(1);
    titles->addWidget(m_title);
    titles->addWidget(m_subtitle);
    titles->addStretch(1);
    row->addLayout(titles, 1);
    auto *info =
        iconButton(QStringLiteral("ic_info.png"), QStringLiteral("chat_info_button"), scale, bar);
    auto *more =
        iconButton(QStringLiteral("ic_more.png"), QStringLiteral("chat_more_button"), scale, bar);
    row->addWidget(info);
    row->addWidget(more);
    announce(back, this, &ChatScreen::backRequested);
    announce(info, this, &ChatScreen::infoRequested);
    announce(more, this, &ChatScreen::moreRequested);
    v->addWidget(bar);

    // Search in the loaded messages: field, status, older and newer, the
    // offer to look further back, close.
    m_searchBar = panel(QStringLiteral("chat_search_bar"), ThemeGroup::E, this);
    auto *sh = new QHBoxLayout(m_searchBar);
    sh->setContentsMargins(scaled_px(16, scale), scaled_px(8, scale), scaled_px(8, scale),
                           scaled_px(8, scale));
    sh->setSpacing(scaled_px(8, scale));
    m_searchField = new QLineEdit(m_searchBar);
    m_searchField->setObjectName(QStringLiteral("chat_search_field"));
    set_control_role(m_searchField, ControlRole::Field);
    m_searchField->setPlaceholderText(QStringLiteral("Search in this chat"));
    m_searchField->setMaxLength(200);
    m_searchField->installEventFilter(this);
    connect(m_searchField, &QLineEdit::textEdited, this, &ChatScreen::searchTextChanged);
    m_searchStatus = label(QString(), QStringLiteral("chat_search_status"), ThemeGroup::D,
                           TextSize::Small, m_searchBar);
    m_searchMore = button(QStringLiteral("Older"), QStringLiteral("chat_search_older_pages"),
                          ControlRole::Plain, scale, m_searchBar);
    m_searchMore->setFocusPolicy(Qt::NoFocus);
    m_searchMore->setToolTip(QStringLiteral("Load older messages and search on"));
    m_searchMore->setSizePolicy(QSizePolicy::Minimum, QSizePolicy::Fixed);
    m_searchMore->hide();
    m_searchOlder = chevronButton(QStringLiteral("chat_search_older"), scale, m_searchBar);
    m_searchOlder->setToolTip(QStringLiteral("Older match (Enter)"));
    m_searchNewer = chevronButton(QStringLiteral("chat_search_newer"), scale, m_searchBar);
    m_searchNewer->setToolTip(QStringLiteral("Newer match (Shift+Enter)"));
    auto *searchClose = iconButton(QStringLiteral("ic_close.png"),
                                   QStringLiteral("chat_search_close"), scale, m_searchBar);
    m_barIcons.append({searchClose, QStringLiteral("ic_close.png")});
    sh->addWidget(m_searchField, 1);
    sh->addWidget(m_searchStatus);
    sh->addWidget(m_searchMore);
    sh->addWidget(m_searchOlder);
    sh->addWidget(m_searchNewer);
    sh->addWidget(searchClose);
    announce(m_searchOlder, this, &ChatScreen::searchNextRequested);
    announce(m_searchNewer, this, &ChatScreen::searchPreviousRequested);
    announce(m_searchMore, this, &ChatScreen::searchOlderRequested);
    announce(searchClose, this, &ChatScreen::searchClosed);
    m_searchBar->hide();
    v->addWidget(m_searchBar);

    // Pinned bar: a tap goes to the pinned message, the arrow opens the list.
    m_pinnedBar = panel(QStringLiteral("pinned_bar"), ThemeGroup::E, this);
    m_pinnedBar->setCursor(Qt::PointingHandCursor);
    auto *ph = new QHBoxLayout(m_pinnedBar);
    ph->setContentsMargins(scaled_px(16, scale), scaled_px(8, scale), scaled_px(8, scale),
                           scaled_px(8, scale));
    ph->setSpacing(scaled_px(16, scale));
    auto *accent = new QWidget(m_pinnedBar);
    accent->setObjectName(QStringLiteral("pinned_bar_accent"));
    accent->setFixedWidth(scaled_px(6, scale));
    accent->setStyleSheet(
        QStringLiteral("background: #4ea4f6; border-radius: %1px;").arg(scaled_px(3, scale)));
    auto *pinnedTexts = new QVBoxLayout;
    pinnedTexts->setSpacing(0);
    m_pinnedCaption = label(QStringLiteral("Pinned message"), QStringLiteral("pinned_caption"),
                            ThemeGroup::H, TextSize::Small, m_pinnedBar);
    m_pinnedLabel = label(QString(), QStringLiteral("pinned_text"), ThemeGroup::C,
                          TextSize::Secondary, m_pinnedBar);
    for (QLabel *l : {m_pinnedCaption, m_pinnedLabel}) {
        l->setTextFormat(Qt::PlainText);
        l->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
    }
    m_pinnedLabel->installEventFilter(this);
    pinnedTexts->addWidget(m_pinnedCaption);
    pinnedTexts->addWidget(m_pinnedLabel);
    m_pinnedExpand = chevronButton(QStringLiteral("pinned_expand_button"), scale, m_pinnedBar);
    m_pinnedExpand->setToolTip(QStringLiteral("All pinned messages"));
    announce(m_pinnedExpand, this, &ChatScreen::pinnedExpandToggled);
    ph->addWidget(accent);
    ph->addLayout(pinnedTexts, 1);
    ph->addWidget(m_pinnedExpand);
    m_pinnedBar->installEventFilter(this);
    m_pinnedBar->hide();
    v->addWidget(m_pinnedBar);
    m_pinnedListHost = panel(QStringLiteral("pinned_list_host"), ThemeGroup::E, this);
    m_pinnedListLayout = new QVBoxLayout(m_pinnedListHost);
    m_pinnedListLayout->setContentsMargins(0, 0, 0, 0);
    m_pinnedListHost->setFixedHeight(0);
    v->addWidget(m_pinnedListHost);

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
    m_barIcons.append({selClose, QStringLiteral("ic_close.png")});
    m_barIcons.append({m_selReply, QStringLiteral("ic_reply.png")});
    m_barIcons.append({m_selForward, QStringLiteral("ic_forward.png")});
    m_barIcons.append({m_selDelete, QStringLiteral("ic_delete.png")});
    sel->addWidget(selClose);
    sel->addWidget(m_selectionCount, 1);
    sel->addWidget(m_selReply);
    sel->addWidget(m_selForward);
    sel->addWidget(m_selDelete);
    announce(selClose, this, &ChatScreen::selectionClosed);
    announce(m_selReply, this, &ChatScreen::selectionReplyRequested);
    announce(m_selForward, this, &ChatScreen::selectionForwardRequested);
    announce(m_selDelete, this, &ChatScreen::selectionDeleteRequested);
    m_selectionBar->hide();
    setSelectionCount(0);
    v->addWidget(m_selectionBar);

    // Message list area; the to-bottom button floats over its lower right.
    m_listHost = panel(QStringLiteral("message_list_host"), ThemeGroup::B, this);
    paintOpaque(m_listHost);
    m_listLayout = new QVBoxLayout(m_listHost);
    m_listLayout->setContentsMargins(0, 0, 0, 0);
    m_listLayout->setSpacing(0);
    m_listHost->installEventFilter(this);
    m_toBottom = iconButton(QStringLiteral("ic_to_bottom.png"), QStringLiteral("jump_bottom_btn"),
                            scale, m_listHost);
    set_control_role(m_toBottom, ControlRole::Fab);
    m_toBottom->setFixedSize(scaled_px(80, scale), scaled_px(80, scale));
    m_toBottom->setIconSize(QSize(scaled_px(40, scale), scaled_px(40, scale)));
    m_toBottom->hide();
    announce(m_toBottom, this, &ChatScreen::toBottomRequested);
    v->addWidget(m_listHost, 1);

    auto makeBar = [&](const QString &name, QLabel **text, void (ChatScreen::*cancel)()) {
        QWidget *b = panel(name, ThemeGroup::E, this);
        auto *h = new QHBoxLayout(b);
        h->setContentsMargins(scaled_px(28, scale), scaled_px(8, scale), scaled_px(8, scale),
                              scaled_px(8, scale));
        *text = label(QString(), name + QStringLiteral("_label"), ThemeGroup::H,
                      TextSize::Secondary, b);
        (*text)->setTextFormat(Qt::PlainText);
        // A long preview ends in "…" instead of running under the close button.
        (*text)->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
        (*text)->installEventFilter(this);
        auto *close =
            iconButton(QStringLiteral("ic_close.png"), name + QStringLiteral("_close"), scale, b);
        announce(close, this, cancel);
        m_barIcons.append({close, QStringLiteral("ic_close.png")});
        h->addWidget(*text, 1);
        h->addWidget(close);
        b->hide();
        v->addWidget(b);
        return b;
    };
    m_replyBar = makeBar(QStringLiteral("reply_bar"), &m_replyLabel, &ChatScreen::replyCancelled);
    m_editBar = makeBar(QStringLiteral("edit_bar"), &m_editLabel, &ChatScreen::editCancelled);

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
    m_recordTime = label(QString(), QStringLiteral("record_time"), ThemeGroup::C,
                         TextSize::Secondary, m_recordPanel);
    // The level shows the user that the microphone hears them.
    m_recordLevel = new LevelBar(m_recordPanel);
    m_recordLevel->setObjectName(QStringLiteral("record_level"));
    m_recordLevel->setFixedSize(scaled_px(96, scale), scaled_px(12, scale));
    rp->setSpacing(scaled_px(16, scale));
    rp->addWidget(m_recordTime);
    rp->addWidget(m_recordLevel);
    m_recordLabel->setWordWrap(true);
    rp->addWidget(m_recordLabel, 1);
    rp->addWidget(m_recordLock);
    m_recordPanel->hide();
    v->addWidget(m_recordPanel);

    // Composer: attach, text, action (microphone or send).
    QWidget *comp = panel(QStringLiteral("composer"), ThemeGroup::A, this);
    m_composerRow = comp;
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
    m_composer->installEventFilter(this);
    connect(m_composer, &QPlainTextEdit::textChanged, this, [this] {
        if (!m_settingText)
            Q_EMIT composerTextChanged(m_composer->toPlainText());
    });
    m_action = iconButton(QStringLiteral("ic_microphone_unmute.png"),
                          QStringLiteral("composer_action_button"), scale, comp);
    announce(attach, this, &ChatScreen::attachRequested);
    m_action->installEventFilter(this);
    ch->addWidget(attach, 0, Qt::AlignBottom);
    ch->addWidget(m_composer, 1);
    ch->addWidget(m_action, 0, Qt::AlignBottom);
    v->addWidget(comp);
    m_pinnedExpand->setIcon(chevronIcon(false, m_iconColor, iconPixels(m_pinnedExpand)));
    m_searchOlder->setIcon(chevronIcon(true, m_iconColor, iconPixels(m_searchOlder)));
    m_searchNewer->setIcon(chevronIcon(false, m_iconColor, iconPixels(m_searchNewer)));
}

void ChatScreen::setTitle(const QString &title)
{
    m_fullTitle = title.isEmpty() ? QStringLiteral("Chat") : title;
    elide(m_title, m_fullTitle);
}

QString ChatScreen::title() const
{
    return m_fullTitle;
}

void ChatScreen::setSubtitle(const QString &text)
{
    m_fullSubtitle = text.trimmed();
    m_subtitle->setVisible(!m_fullSubtitle.isEmpty());
    elide(m_subtitle, m_fullSubtitle);
}

QString ChatScreen::subtitle() const
{
    return m_fullSubtitle;
}

void ChatScreen::setMessageListView(QWidget *view)
{
    m_listLayout->addWidget(view);
    m_toBottom->raise();
}

void ChatScreen::setActionIcon(const QString &iconPath)
{
    const int slash = iconPath.lastIndexOf(QLatin1Char('/'));
    setIcon(m_action, slash >= 0 ? iconPath.mid(slash + 1) : iconPath);
}

QString ChatScreen::composerText() const
{
    return m_composer->toPlainText();
}

void ChatScreen::setComposerText(const QString &text)
{
    if (m_composer->toPlainText() == text)
        return;
    m_settingText = true;
    m_composer->setPlainText(text);
    m_settingText = false;
    m_composer->moveCursor(QTextCursor::End);
}

void ChatScreen::setReplyPreview(const QString &text)
{
    m_fullReply = text;
    m_replyBar->setVisible(!text.isEmpty());
    elide(m_replyLabel, text);
}

void ChatScreen::setEditPreview(const QString &text)
{
    m_fullEdit = text;
    m_editBar->setVisible(!text.isEmpty());
    elide(m_editLabel, text);
}

void ChatScreen::setToBottomVisible(bool visible)
{
    m_toBottom->setVisible(visible);
    if (visible)
        placeToBottomButton();
}

void ChatScreen::setSelectionMode(bool on)
{
    m_selectionBar->setVisible(on);
}

void ChatScreen::setSelectionCount(int count)
{
    m_selectionCount->setText(QStringLiteral("%1 selected").arg(count));
}

void ChatScreen::setSelectionActions(bool reply, bool forward, bool remove)
{
    m_selReply->setEnabled(reply);
    m_selForward->setEnabled(forward);
    m_selDelete->setEnabled(remove);
}

void ChatScreen::setRecordPanel(const QString &text, bool showLockHint, bool locked)
{
    m_recordLabel->setText(text);
    m_recordLock->setVisible(showLockHint);
    auto *dim = qobject_cast<QGraphicsOpacityEffect *>(m_recordLock->graphicsEffect());
    if (!dim) {
        dim = new QGraphicsOpacityEffect(m_recordLock);
        m_recordLock->setGraphicsEffect(dim);
    }
    dim->setOpacity(locked ? 1.0 : 0.85);
    m_recordLock->setProperty("locked", locked);
    if (text.isEmpty())
        setRecordProgress(0, 0);
    m_recordPanel->setVisible(!text.isEmpty());
}

void ChatScreen::setRecordProgress(int seconds, qreal level)
{
    m_recordTime->setText(
        QStringLiteral("%1:%2").arg(seconds / 60).arg(seconds % 60, 2, 10, QLatin1Char('0')));
    static_cast<LevelBar *>(m_recordLevel)->setLevel(level);
}

void ChatScreen::setPinnedBar(bool visible, const QString &caption, const QString &text,
                              bool expanded)
{
    m_fullPinned = text;
    m_pinnedCaption->setText(caption);
    elide(m_pinnedLabel, text);
    m_pinnedExpanded = expanded;
    m_pinnedExpand->setIcon(chevronIcon(expanded, m_iconColor, iconPixels(m_pinnedExpand)));
    m_pinnedBar->setVisible(visible);
}

bool ChatScreen::isPinnedBarVisible() const
{
    return !m_pinnedBar->isHidden();
}

void ChatScreen::setPinnedListView(QWidget *view)
{
    // The list sits on the pinned bar's panel.
    set_background_group(view, ThemeGroup::E);
    m_pinnedListLayout->addWidget(view);
}

void ChatScreen::setPinnedListVisible(bool visible, int rows, int rowHeight)
{
    // Room for a few rows; the list scrolls beyond them.
    // Closed, the list keeps no height rather than being hidden: rows that
    // come while it is closed then draw when it opens, also on a zoomed
    // screen where the window repaints only what reports a change.
    m_pinnedListHost->setFixedHeight(
        visible && rows > 0 ? qMin(rows, kPinnedListRows) * qMax(1, rowHeight) : 0);
}

bool ChatScreen::isPinnedListVisible() const
{
    return m_pinnedListHost->maximumHeight() > 0 && !m_pinnedListHost->isHidden();
}

void ChatScreen::setSearchVisible(bool visible)
{
    if (visible == !m_searchBar->isHidden()) {
        if (visible)
            m_searchField->setFocus(Qt::OtherFocusReason);
        return;
    }
    m_searchBar->setVisible(visible);
    if (visible) {
        m_searchField->clear();
        m_searchField->setFocus(Qt::OtherFocusReason);
    } else {
        setSearchStatus(QString(), false, false);
        focusComposer();
    }
}

bool ChatScreen::isSearchVisible() const
{
    return !m_searchBar->isHidden();
}

void ChatScreen::setSearchStatus(const QString &status, bool offerOlder, bool waiting)
{
    m_searchStatus->setText(waiting ? QStringLiteral("Searching…") : status);
    m_searchMore->setVisible(offerOlder && !waiting);
}

QString ChatScreen::searchStatus() const
{
    return m_searchStatus->text();
}

void ChatScreen::setAvatar(qint64 chatId, const QString &title, const QString &avatarPath)
{
    const int px = m_avatar->width();
    QPixmap photo;
    if (!avatarPath.isEmpty())
        photo.load(avatarPath);
    if (!photo.isNull()) {
        m_avatar->setPixmap(photo);
        m_avatarLetter->hide();
    } else {
        const QColor color = placeholder_avatar_color(chatId, title);
        const QString tile = ensure_bubble_bg_png(px, px, px / 2, color, m_uiCacheDir);
        const qreal dpr = ui_device_pixel_ratio();
        if (tile.isEmpty())
            m_avatar->setPixmap(QPixmap());
        else
            m_avatar->setPixmap(dpr == 1.0 ? QPixmap(tile)
                                           : sharp_rounded_rect(QSize(px, px), px / 2, color, dpr));
        m_avatarLetter->setText(avatar_initial(title));
        m_avatarLetter->show();
    }
    m_avatar->setProperty("image_path", photo.isNull() ? QString() : avatarPath);
}

void ChatScreen::setComposerVisible(bool visible)
{
    m_composerRow->setVisible(visible);
}

bool ChatScreen::isComposerVisible() const
{
    return !m_composerRow->isHidden();
}

void ChatScreen::setDarkTheme(bool dark)
{
    // The bars are light panels in the bright theme: their white glyphs turn
    // dark there. An action that does not apply is drawn faint in both.
    const QColor on = dark ? QColor(Qt::white) : QColor(0x55, 0x5b, 0x63);
    const QColor off = dark ? QColor(0x7a, 0x80, 0x88) : QColor(0xc4, 0xc8, 0xcc);
    m_iconColor = on;
    m_pinnedExpand->setIcon(chevronIcon(m_pinnedExpanded, on, iconPixels(m_pinnedExpand)));
    m_searchOlder->setIcon(chevronIcon(true, on, iconPixels(m_searchOlder)));
    m_searchNewer->setIcon(chevronIcon(false, on, iconPixels(m_searchNewer)));
    for (const auto &[button, name] : qAsConst(m_barIcons)) {
        const int px = iconPixels(button);
        QIcon icon;
        icon.addPixmap(QPixmap::fromImage(tinted_osicon(name, on, QSize(px, px))), QIcon::Normal);
        icon.addPixmap(QPixmap::fromImage(tinted_osicon(name, off, QSize(px, px))),
                       QIcon::Disabled);
        button->setIcon(icon);
    }
}

void ChatScreen::setComposerReadOnly(bool readOnly)
{
    m_composer->setReadOnly(readOnly);
}

void ChatScreen::focusComposer()
{
    m_composer->setFocus(Qt::OtherFocusReason);
    m_composer->moveCursor(QTextCursor::End);
}

void ChatScreen::keyPressEvent(QKeyEvent *event)
{
    if (event->matches(QKeySequence::Find)) {
        Q_EMIT searchRequested();
        return;
    }
    if (event->key() != Qt::Key_Escape) {
        QWidget::keyPressEvent(event);
        return;
    }
    // The innermost thing the user started is cancelled first.
    if (!m_searchBar->isHidden())
        Q_EMIT searchClosed();
    else if (!m_editBar->isHidden())
        Q_EMIT editCancelled();
    else if (!m_replyBar->isHidden())
        Q_EMIT replyCancelled();
    else if (!m_selectionBar->isHidden())
        Q_EMIT selectionClosed();
    else
        Q_EMIT backRequested();
}

void ChatScreen::elide(QLabel *label, const QString &text)
{
    const int width = label->width();
    label->setText(width > 0 ? label->fontMetrics().elidedText(text, Qt::ElideRight, width) : text);
    label->setToolTip(label->text() == text ? QString() : text);
}

bool ChatScreen::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m_action) {
        using Touch = VoiceRecordGesture::Touch;
        const auto mouse = [event] { return static_cast<QMouseEvent *>(event); };
        switch (event->type()) {
        case QEvent::MouseButtonPress:
            if (mouse()->button() != Qt::LeftButton)
                return false;
            Q_EMIT actionTouched(Touch::Down, mouse()->windowPos());
            return true;
        case QEvent::MouseMove:
            Q_EMIT actionTouched(Touch::Move, mouse()->windowPos());
            return true;
        case QEvent::MouseButtonRelease:
            if (mouse()->button() != Qt::LeftButton)
                return false;
            Q_EMIT actionTouched(Touch::Up, mouse()->windowPos());
            return true;
        case QEvent::TouchCancel:
        case QEvent::UngrabMouse:
            Q_EMIT actionTouched(Touch::Cancel,
                                 m_action->mapTo(window(), m_action->rect().center()));
            return false;
        default:
            break;
        }
    }
    if (event->type() == QEvent::MouseButtonRelease &&
        (watched == m_avatar || watched == m_title || watched == m_subtitle) &&
        static_cast<QMouseEvent *>(event)->button() == Qt::LeftButton) {
        Q_EMIT infoRequested();
        return true;
    }
    if (event->type() == QEvent::MouseButtonRelease &&
        (watched == m_pinnedBar || watched == m_pinnedLabel) &&
        static_cast<QMouseEvent *>(event)->button() == Qt::LeftButton) {
        Q_EMIT pinnedBarTapped();
        return true;
    }
    if (watched == m_searchField && event->type() == QEvent::KeyPress) {
        auto *key = static_cast<QKeyEvent *>(event);
        const bool enter = key->key() == Qt::Key_Return || key->key() == Qt::Key_Enter;
        const bool shift = key->modifiers() & Qt::ShiftModifier;
        if ((enter && !shift) || key->key() == Qt::Key_Up) {
            Q_EMIT searchNextRequested();
            return true;
        }
        if ((enter && shift) || key->key() == Qt::Key_Down) {
            Q_EMIT searchPreviousRequested();
            return true;
        }
        if (key->key() == Qt::Key_Escape) {
            Q_EMIT searchClosed();
            return true;
        }
    }
    if (event->type() == QEvent::Resize) {
        if (watched == m_pinnedLabel)
            elide(m_pinnedLabel, m_fullPinned);
        if (watched == m_title)
            elide(m_title, m_fullTitle);
        else if (watched == m_replyLabel)
            elide(m_replyLabel, m_fullReply);
        else if (watched == m_editLabel)
            elide(m_editLabel, m_fullEdit);
        else if (watched == m_subtitle)
            elide(m_subtitle, m_fullSubtitle);
    }
    if (watched == m_composer && event->type() == QEvent::KeyPress) {
        auto *key = static_cast<QKeyEvent *>(event);
        if (key->matches(QKeySequence::Find)) {
            Q_EMIT searchRequested();
            return true;
        }
        const bool enter = key->key() == Qt::Key_Return || key->key() == Qt::Key_Enter;
        if (enter && !(key->modifiers() & Qt::ShiftModifier)) {
            Q_EMIT sendRequested();
            return true;
        }
        if (key->key() == Qt::Key_Up && key->modifiers() == Qt::NoModifier &&
            m_composer->toPlainText().isEmpty()) {
            Q_EMIT editLastRequested();
            return true;
        }
    }
    if (watched == m_listHost && (event->type() == QEvent::Resize || event->type() == QEvent::Show))
        placeToBottomButton();
    return QWidget::eventFilter(watched, event);
}

void ChatScreen::placeToBottomButton()
{
    const int margin = scaled_px(24, m_scale);
    m_toBottom->move(m_listHost->width() - m_toBottom->width() - margin,
                     m_listHost->height() - m_toBottom->height() - margin);
    m_toBottom->raise();
}
