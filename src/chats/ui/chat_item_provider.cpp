#include "chats/ui/chat_item_provider.h"

#include "chats/avatars.h"
#include "chats/chat_list_model.h"
#include "platform/osicons.h"
#include "platform/ui/filled.h"

#include <QEvent>
#include <QFont>
#include <QHBoxLayout>
#include <QLabel>
#include <QPainter>
#include <QPixmap>
#include <QResizeEvent>
#include <QStyle>
#include <QVBoxLayout>

namespace {

// Font size values are percentages of the phone's body text.
constexpr int kBodyPx = 30;
constexpr int kLeftGap = 18;
constexpr int kAvatarGap = 14;
constexpr int kRightGap = 16;
constexpr int kBadgeGap = 12;
const QRgb kAvatarBackground = 0xFFD7E6FF;
const QRgb kPreviewColor = 0xFFB0B0B0;
const QRgb kDividerColor = 0x4D808080;

constexpr int kPinSize = 40;

// The "avatar" box: its tile background (the rounded-rectangle PNG) is
// painted as a shape rather than held as the PNG's pixels.
using AvatarTile = Filled<QLabel>;

// The pin icon in the preview's grey.
QPixmap pinPixmap()
{
    return QPixmap::fromImage(tinted_osicon(
        QStringLiteral("ic_pin.png"), QColor::fromRgba(kPreviewColor), QSize(kPinSize, kPinSize)));
}

int fontPx(int percent)
{
    return kBodyPx * percent / 100;
}

QWidget *fixedBox(QWidget *parent, int w, int h)
{
    auto *box = new QWidget(parent);
    if (w >= 0) {
        box->setFixedWidth(w);
    }
    if (h >= 0) {
        box->setFixedHeight(h);
    }
    return box;
}

void setBackground(QWidget *w, const QColor &color)
{
    QPalette pal = w->palette();
    pal.setColor(QPalette::Window, color);
    w->setPalette(pal);
    w->setAutoFillBackground(true);
}

void setTextColor(QLabel *label, const QColor &color)
{
    QPalette pal = label->palette();
    // Both roles: inside a scroll area's viewport labels may paint with Text.
    pal.setColor(QPalette::WindowText, color);
    pal.setColor(QPalette::Text, color);
    label->setPalette(pal);
}

} // namespace

ChatItemProvider::ChatItemProvider(const QString &uiCacheDir, QObject *parent)
    : QObject(parent), m_uiCacheDir(uiCacheDir),
      m_clock([] { return QDateTime::currentDateTime(); })
{
}

QWidget *ChatItemProvider::createItem(ListView *listView, const QString &type)
{
    Q_UNUSED(listView)
    Q_UNUSED(type)
    auto *item = new QWidget;
    item->setObjectName(QStringLiteral("chat_item"));
    auto *outer = new QVBoxLayout(item);
    outer->setContentsMargins(0, 0, 0, 0);
    outer->setSpacing(0);

    auto *row = fixedBox(item, -1, kRowHeight);
    row->setObjectName(QStringLiteral("chat_row"));
    row->setMinimumHeight(kRowHeight);
    row->setMaximumHeight(kRowHeight);
    row->installEventFilter(this);
    auto *rowLayout = new QHBoxLayout(row);
    rowLayout->setContentsMargins(0, 8, 0, 8);
    rowLayout->setSpacing(0);
    rowLayout->addWidget(fixedBox(row, kLeftGap, -1));

    // Avatar block: the 144 x 144 "avatar" sits 14 from the top of 172.
    auto *avatarBlock = fixedBox(row, kAvatarSize, 172);
    auto *avatar = new AvatarTile(avatarBlock);
    avatar->setObjectName(QStringLiteral("avatar"));
    avatar->setGeometry(0, 14, kAvatarSize, kAvatarSize);
    setBackground(avatar, QColor::fromRgba(kAvatarBackground));
    auto *avatarImg = new QLabel(avatar);
    avatarImg->setObjectName(QStringLiteral("avatar_img"));
    avatarImg->setGeometry(0, 0, kAvatarSize, kAvatarSize);
    avatarImg->setScaledContents(true);
    auto *letter = new QLabel(avatar);
    letter->setObjectName(QStringLiteral("avatar_letter"));
    letter->setGeometry(0, 0, kAvatarSize, kAvatarSize);
    letter->setFixedSize(kAvatarSize, kAvatarSize);
    letter->setAlignment(Qt::AlignCenter);
    QFont letterFont = letter->font();
    letterFont.setBold(true);
    letterFont.setPixelSize(fontPx(240));
    letter->setFont(letterFont);
    setTextColor(letter, Qt::white);
    rowLayout->addWidget(avatarBlock);
    rowLayout->addWidget(fixedBox(row, kAvatarGap, -1));

    // Text column: title and time, then preview and badge.
    auto *column = fixedBox(row, -1, 172);
    auto *columnLayout = new QVBoxLayout(column);
    columnLayout->setContentsMargins(0, 0, kRightGap, 0);
    columnLayout->setSpacing(0);

    auto *line1 = fixedBox(column, -1, 64);
    auto *line1Layout = new QHBoxLayout(line1);
    line1Layout->setContentsMargins(0, 0, 0, 0);
    auto *title = new QLabel(line1);
    title->setObjectName(QStringLiteral("title"));
    QFont titleFont = title->font();
    titleFont.setBold(true);
    titleFont.setPixelSize(fontPx(120));
    title->setFont(titleFont);
    title->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
    auto *time = new QLabel(line1);
    time->setObjectName(QStringLiteral("time"));
    QFont timeFont = time->font();
    timeFont.setPixelSize(fontPx(80));
    time->setFont(timeFont);
    setTextColor(time, QColor::fromRgba(kPreviewColor));
    line1Layout->addWidget(title, 1);
    line1Layout->addWidget(time, 0, Qt::AlignRight | Qt::AlignVCenter);
    columnLayout->addWidget(line1);

    auto *line2 = fixedBox(column, -1, 108);
    auto *line2Layout = new QHBoxLayout(line2);
    line2Layout->setContentsMargins(0, 0, 0, 0);
    line2Layout->setSpacing(kBadgeGap);
    auto *preview = new QLabel(line2);
    preview->setObjectName(QStringLiteral("preview"));
    preview->setWordWrap(true);
    preview->setAlignment(Qt::AlignLeft | Qt::AlignTop);
    QFont previewFont = preview->font();
    previewFont.setPixelSize(fontPx(100));
    preview->setFont(previewFont);
    setTextColor(preview, QColor::fromRgba(kPreviewColor));
    // At most two lines.
    preview->setMaximumHeight(QFontMetrics(previewFont).lineSpacing() * 2);
    preview->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
    line2Layout->addWidget(preview, 1, Qt::AlignTop);

    auto *badge = fixedBox(line2, kBadgeSize, kBadgeSize);
    badge->setObjectName(QStringLiteral("badge"));
    auto *badgeCircle = new QLabel(badge);
    badgeCircle->setObjectName(QStringLiteral("badge_circle"));
    badgeCircle->setGeometry(0, 0, kBadgeSize, kBadgeSize);
    const QString badgePng = ensure_unread_badge_png(m_uiCacheDir);
    if (!badgePng.isEmpty()) {
        badgeCircle->setPixmap(QPixmap(badgePng));
    }
    badgeCircle->setProperty("image_path", badgePng);
    auto *badgeNum = new QLabel(badge);
    badgeNum->setObjectName(QStringLiteral("badge_num"));
    badgeNum->setGeometry(0, 0, kBadgeSize, kBadgeSize);
    badgeNum->setAlignment(Qt::AlignCenter);
    QFont badgeFont = badgeNum->font();
    badgeFont.setPixelSize(fontPx(100));
    badgeNum->setFont(badgeFont);
    setTextColor(badgeNum, Qt::white);
    badge->hide();
    line2Layout->addWidget(badge, 0, Qt::AlignTop);

    // Pinned chats lead the list; the pin says why an old chat sits on top.
    auto *pin = new QLabel(line2);
    pin->setObjectName(QStringLiteral("pin"));
    pin->setFixedSize(kPinSize, kPinSize);
    if (m_pin.isNull()) {
        m_pin = pinPixmap();
    }
    pin->setPixmap(m_pin);
    pin->hide();
    line2Layout->addWidget(pin, 0, Qt::AlignTop);
    columnLayout->addWidget(line2);
    rowLayout->addWidget(column, 1);

    outer->addWidget(row);
    auto *divider = fixedBox(item, -1, 1);
    divider->setObjectName(QStringLiteral("divider"));
    setBackground(divider, QColor::fromRgba(kDividerColor));
    outer->addWidget(divider);
    return item;
}

void ChatItemProvider::updateItem(ListView *listView, QWidget *item, const QString &type,
                                  const QVariantList &indexPath, const QVariantMap &data)
{
    Q_UNUSED(type)
    Q_UNUSED(indexPath)
    if (!item) {
        return;
    }
    auto *title = item->findChild<QLabel *>(QStringLiteral("title"));
    auto *avatar = dynamic_cast<AvatarTile *>(item->findChild<QLabel *>(QStringLiteral("avatar")));
    auto *avatarImg = item->findChild<QLabel *>(QStringLiteral("avatar_img"));
    auto *letter = item->findChild<QLabel *>(QStringLiteral("avatar_letter"));
    auto *badge = item->findChild<QWidget *>(QStringLiteral("badge"));
    auto *badgeNum = item->findChild<QLabel *>(QStringLiteral("badge_num"));
    auto *time = item->findChild<QLabel *>(QStringLiteral("time"));
    auto *preview = item->findChild<QLabel *>(QStringLiteral("preview"));
    if (!title || !avatar || !avatarImg || !letter || !badge || !badgeNum || !time || !preview) {
        return;
    }

    const QString titleText = data.value(QStringLiteral("title")).toString();
    title->setText(titleText);
    // The list carries the theme; without a list the dark theme is assumed.
    const QVariant dark = listView ? listView->property("ui_dark_theme") : QVariant();
    const bool darkTheme = !dark.isValid() || dark.toBool();
    if (title->property("ui_dark_theme") != QVariant(darkTheme)) {
        setTextColor(title, darkTheme ? QColor(Qt::white) : QColor(0x20, 0x20, 0x20));
        title->setProperty("ui_dark_theme", darkTheme);
    }
    // The open chat beside the list, or the one the keyboard marks.
    const qint64 rowId = data.value(QStringLiteral("id")).toLongLong();
    const bool marked =
        listView && rowId != 0 && listView->property("ui_marked_chat_id").toLongLong() == rowId;
    if (item->property("ui_marked") != QVariant(marked)) {
        // Coloured by the shell's style sheet, which knows the theme.
        item->setAttribute(Qt::WA_StyledBackground, true);
        item->setProperty("ui_marked", marked);
        item->style()->unpolish(item);
        item->style()->polish(item);
    }

    const QString avatarPath = data.value(QStringLiteral("avatar_path")).toString();
    const qint64 id = data.value(QStringLiteral("id")).toLongLong();
    if (avatarPath.isEmpty()) {
        const QColor color = placeholder_avatar_color(id, titleText);
        const QString tile = ensure_bubble_bg_png(kAvatarSize, kAvatarSize, kChatAvatarRadiusPx,
                                                  color, m_uiCacheDir);
        avatar->clear();
        if (!tile.isEmpty()) {
            avatar->setAutoFillBackground(false);
            avatar->setFill(color, kChatAvatarRadiusPx);
        } else {
            avatar->setFill(Qt::transparent, 0);
            setBackground(avatar, color);
        }
        avatar->setProperty("background_path", tile);
        avatar->setProperty("background_color", color.name(QColor::HexArgb));
        avatarImg->clear();
        avatarImg->setProperty("image_path", QString());
        avatarImg->hide();
        letter->show();
    } else {
        // The round photo's corners show what is behind: nothing.
        avatar->clear();
        avatar->setFill(Qt::transparent, 0);
        avatar->setAutoFillBackground(false);
        avatar->setProperty("background_path", QString());
        avatar->setProperty("background_color", QString());
        avatarImg->setPixmap(QPixmap(avatarPath));
        avatarImg->setProperty("image_path", avatarPath);
        avatarImg->show();
        letter->hide();
    }

    letter->setText(avatar_initial(titleText));

    const int unread = data.value(QStringLiteral("unread_count")).toInt();
    if (unread <= 0) {
        badge->hide();
        badgeNum->clear();
    } else {
        badgeNum->setText(unread > 99 ? QStringLiteral("99+") : QString::number(unread));
        badge->show();
    }
    // The unread count matters more than the pin when both apply.
    if (auto *pin = item->findChild<QLabel *>(QStringLiteral("pin"))) {
        pin->setVisible(unread <= 0 &&
                        data.value(QStringLiteral("pinned")).toString() == QLatin1String("true"));
    }

    time->setText(
        chat_list_time_text(data.value(QStringLiteral("last_date")).toLongLong(), m_clock()));

    QString previewText = data.value(QStringLiteral("last_text")).toString();
    if (previewText.isEmpty()) {
        previewText =
            chat_list_content_label(data.value(QStringLiteral("last_content_type")).toString());
    }
    preview->setText(previewText);
    preview->setProperty("content_type", data.value(QStringLiteral("last_content_type")));
    applyPreviewWidth(item);
}

void ChatItemProvider::applyPreviewWidth(QWidget *item)
{
    auto *row = item->findChild<QWidget *>(QStringLiteral("chat_row"));
    auto *preview = item->findChild<QLabel *>(QStringLiteral("preview"));
    auto *badge = item->findChild<QWidget *>(QStringLiteral("badge"));
    if (!row || !preview || !badge) {
        return;
    }
    const int rowWidth = row->property("row_width").toInt();
    if (rowWidth <= 0) {
        return;
    }
    int width = rowWidth - kLeftGap - kAvatarSize - kAvatarGap - kRightGap;
    if (!badge->isHidden()) {
        width -= kBadgeSize + kBadgeGap;
    }
    auto *pin = item->findChild<QWidget *>(QStringLiteral("pin"));
    if (pin && !pin->isHidden()) {
        width -= kPinSize + kBadgeGap;
    }
    width = qMax(width, 1);
    preview->setMinimumWidth(width);
    preview->setMaximumWidth(width);
    // Set again so that it wraps to the new width.
    const QString text = preview->text();
    preview->clear();
    preview->setText(text);
}

void ChatItemProvider::onChatItemLayoutFrameChanged(const QRectF &frame)
{
    if (!m_frameSender) {
        return;
    }
    const int width = qRound(frame.width());
    if (m_frameSender->property("row_width").toInt() == width) {
        return;
    }
    m_frameSender->setProperty("row_width", width);
    if (QWidget *item = m_frameSender->parentWidget()) {
        applyPreviewWidth(item);
    }
}

bool ChatItemProvider::eventFilter(QObject *watched, QEvent *event)
{
    if (event->type() == QEvent::Resize) {
        auto *row = qobject_cast<QWidget *>(watched);
        if (row) {
            m_frameSender = row;
            onChatItemLayoutFrameChanged(QRectF(row->geometry()));
            m_frameSender = nullptr;
        }
    }
    return QObject::eventFilter(watched, event);
}
