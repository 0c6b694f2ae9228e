#include "conversation/ui/message_item_provider.h"

#include "backend_link/text_cut.h"
#include "chats/avatars.h"
#include "conversation/message_text.h"
#include "media/ui/video_note_widgets.h"
#include "platform/osicons.h"
#include "platform/ui/filled.h"
#include "platform/ui/sharp_pixmaps.h"

#include <QAbstractTextDocumentLayout>
#include <QApplication>
#include <QHBoxLayout>
#include <QImageReader>
#include <QLabel>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QPixmapCache>
#include <QTextDocument>
#include <QTimer>
#include <QVBoxLayout>

#include <cmath>

namespace {

constexpr int kBodyPx = 30;
constexpr int kTimePx = 20;
constexpr int kSenderPx = 25;
constexpr int kSideMargin = 16;
constexpr int kRowPadding = 5;
constexpr int kAvatarPx = 64;
constexpr int kAvatarGap = 10;
constexpr int kBubblePadH = 16;
constexpr int kBubblePadV = 10;
constexpr int kBubbleRadius = 18;
constexpr int kMediaMaxPx = 480;
constexpr int kVideoNotePx = 240;
constexpr int kVideoNoteRingPx = 5;
constexpr int kIconBoxPx = 72;
constexpr int kStatusPx = 24;
// Share of the row a bubble may take.
constexpr double kBubbleShare = 0.78;

bool flag(const QVariantMap &row, const char *key)
{
    return row.value(QLatin1String(key)).toString() == QLatin1String("true");
}

qint64 id64(const QVariantMap &row, const char *key)
{
    return row.value(QLatin1String(key)).toString().toLongLong();
}

QString text(const QVariantMap &row, const char *key)
{
    return row.value(QLatin1String(key)).toString();
}

QFont fontOf(int px, bool bold = false)
{
    QFont f = QApplication::font();
    f.setPixelSize(px);
    f.setBold(bold);
    return f;
}

void setTextColor(QWidget *w, const QColor &color)
{
    QPalette pal = w->palette();
    pal.setColor(QPalette::WindowText, color);
    pal.setColor(QPalette::Text, color);
    pal.setColor(QPalette::Link,
                 color.lightness() > 128 ? QColor(0x8a, 0xc8, 0xff) : QColor(0x16, 0x5f, 0xc0));
    w->setPalette(pal);
}

using FillBox = Filled<QWidget>;
using FillLabel = Filled<QLabel>;

void setFill(QWidget *w, const QColor &color, int radius = 0)
{
    if (auto *box = dynamic_cast<FillBox *>(w))
        box->setFill(color, radius);
    else if (auto *label = dynamic_cast<FillLabel *>(w))
        label->setFill(color, radius);
}

QWidget *fillBox(QWidget *parent, const char *name)
{
    auto *w = new FillBox(parent);
    w->setObjectName(QLatin1String(name));
    return w;
}

FillLabel *fillLabel(QWidget *parent, const char *name, int px)
{
    auto *l = new FillLabel(parent);
    l->setObjectName(QLatin1String(name));
    l->setTextInteractionFlags(Qt::NoTextInteraction);
    QFont f = QApplication::font();
    f.setPixelSize(px);
    l->setFont(f);
    return l;
}

QLabel *label(QWidget *parent, const char *name, int px, bool bold = false)
{
    auto *l = new QLabel(parent);
    l->setObjectName(QLatin1String(name));
    l->setFont(fontOf(px, bold));
    // A rich-text label would take the press for its links and keep the
    // release from the list: taps, long presses and links are the list's.
    l->setTextInteractionFlags(Qt::NoTextInteraction);
    return l;
}

QWidget *box(QWidget *parent, const char *name)
{
    auto *w = new QWidget(parent);
    w->setObjectName(QLatin1String(name));
    return w;
}

QWidget *gap(QWidget *parent, const char *name, int w, int h)
{
    QWidget *g = box(parent, name);
    g->setFixedSize(w, h);
    return g;
}

template<typename Layout>
Layout *tight(QWidget *w, int spacing = 0)
{
    auto *l = new Layout(w);
    l->setContentsMargins(0, 0, 0, 0);
    l->setSpacing(spacing);
    return l;
}

QString pixmapKey(const QString &path, const QSize &size)
{
    return QStringLiteral("msg:%1:%2x%3").arg(path).arg(size.width()).arg(size.height());
}

QPixmap cachedPixmap(const QString &path, const QSize &size = QSize())
{
    if (path.isEmpty())
        return QPixmap();
    const QString key = pixmapKey(path, size);
    QPixmap pm;
    if (QPixmapCache::find(key, &pm))
        return pm;
    const QString file =
        path.startsWith(QLatin1String("assets/")) ? asset_resource_path(path) : path;
    // A camera photo is decoded at about the bubble's size: decoders such as
    // JPEG's scale while decoding, far quicker than reading 12 megapixels.
    QImageReader reader(file);
    const QSize own = reader.size();
    if (size.isValid() && own.width() >= 2 * size.width() && own.height() >= 2 * size.height())
        reader.setScaledSize(own.scaled(size, Qt::KeepAspectRatioByExpanding));
    const QImage image = reader.read();
    if (image.isNull())
        return QPixmap();
    pm = QPixmap::fromImage(image);
    if (size.isValid())
        pm = pm.scaled(size, Qt::KeepAspectRatioByExpanding, Qt::SmoothTransformation);
    QPixmapCache::insert(key, pm);
    return pm;
}

// The bubble: a container whose background is the rounded-rectangle PNG of
// its own size, so that equal bubbles share one file. It paints that shape
// itself rather than holding the picture: a screen of bubbles would keep
// megabytes of pixels for what a painter draws in microseconds, sharp at any
// pixel ratio.
class BubbleFrame : public FillBox
{
public:
    BubbleFrame(const QString &cacheDir, QWidget *parent) : FillBox(parent), m_cacheDir(cacheDir)
    {
        setObjectName(QStringLiteral("msg_bubble"));
    }

    void setColor(const QColor &color, bool enabled)
    {
        if (color == m_color && enabled == m_enabled)
            return;
        m_color = color;
        m_enabled = enabled;
        setProperty("msg_bg_disabled", !enabled);
        refresh();
    }

protected:
    void resizeEvent(QResizeEvent *event) override
    {
        QWidget::resizeEvent(event);
        refresh();
    }

private:
    void refresh()
    {
        const QString path =
            m_enabled ? ensure_bubble_bg_png(width(), height(), kBubbleRadius, m_color, m_cacheDir)
                      : QString();
        setProperty("msg_bg_w", width());
        setProperty("msg_bg_h", height());
        setProperty("bubble_bg_path", path);
        // No background file, no background.
        setFill(path.isEmpty() ? QColor(Qt::transparent) : m_color, kBubbleRadius);
    }

    QString m_cacheDir;
    QColor m_color;
    bool m_enabled = true;
};

struct Palette
{
    QColor bubbleIn, bubbleOut, text, textOut, meta, metaOut, accent, replyBar, chip, chipChosen,
        selected;
};

Palette paletteFor(bool dark)
{
    if (dark) {
        return {QColor(0x26, 0x2d, 0x36), QColor(0x2b, 0x52, 0x78),      QColor(0xee, 0xee, 0xee),
                QColor(0xf4, 0xf8, 0xff), QColor(0x8f, 0x99, 0xa3),      QColor(0xa9, 0xc3, 0xdd),
                QColor(0x6c, 0xb4, 0xf8), QColor(0x6c, 0xb4, 0xf8),      QColor(0x30, 0x3a, 0x45),
                QColor(0x3a, 0x6e, 0xa5), QColor(0x6c, 0xb4, 0xf8, 0x40)};
    }
    return {QColor(0xff, 0xff, 0xff), QColor(0xe1, 0xf5, 0xd0),      QColor(0x1c, 0x1c, 0x1c),
            QColor(0x1c, 0x1c, 0x1c), QColor(0x8a, 0x8a, 0x8a),      QColor(0x5f, 0x9a, 0x56),
            QColor(0x2a, 0x7a, 0xc8), QColor(0x2a, 0x7a, 0xc8),      QColor(0xe8, 0xee, 0xf4),
            QColor(0xc4, 0xe0, 0xff), QColor(0x2a, 0x7a, 0xc8, 0x30)};
}

template<typename T = QWidget>
T *child(QWidget *item, const char *name)
{
    return item->findChild<T *>(QLatin1String(name));
}

// Width of text laid out as rich text in font, when it may take maxWidth.
int richTextWidth(const QString &html, const QFont &font, int maxWidth)
{
    QTextDocument doc;
    doc.setDocumentMargin(0);
    doc.setDefaultFont(font);
    doc.setHtml(html);
    doc.setTextWidth(maxWidth);
    return qMin(maxWidth, int(std::ceil(doc.idealWidth())));
}

QString linkAt(QLabel *label, const QPoint &pos)
{
    QTextDocument doc;
    doc.setDocumentMargin(0);
    doc.setDefaultFont(label->font());
    doc.setHtml(label->text());
    const QRect r = label->contentsRect();
    doc.setTextWidth(r.width());
    return doc.documentLayout()->anchorAt(QPointF(pos - r.topLeft()));
}

// A monochrome icon in another colour (the delivery ticks are drawn white;
// a bright bubble needs them darker).
QPixmap tintedPixmap(const QString &path, const QColor &color)
{
    const QString key = QStringLiteral("msgtint:%1:%2").arg(path, color.name(QColor::HexArgb));
    QPixmap pm;
    if (QPixmapCache::find(key, &pm))
        return pm;
    // Status icons are named by their asset path.
    pm = QPixmap::fromImage(tinted_osicon(path.section(QLatin1Char('/'), -1), color));
    if (pm.isNull())
        return pm;
    QPixmapCache::insert(key, pm);
    return pm;
}

// A picture cut to a circle of the given diameter (round video notes).
QPixmap roundPixmap(const QString &path, int diameter)
{
    if (path.isEmpty())
        return QPixmap();
    const qreal dpr = ui_device_pixel_ratio();
    const QString key = QStringLiteral("msground:%1:%2:%3").arg(path).arg(diameter).arg(dpr);
    QPixmap pm;
    if (QPixmapCache::find(key, &pm))
        return pm;
    const int px = qCeil(diameter * dpr);
    const QPixmap src = cachedPixmap(path, QSize(px, px));
    if (src.isNull())
        return QPixmap();
    pm = sharp_circle_cut(src, diameter, dpr);
    QPixmapCache::insert(key, pm);
    return pm;
}

// A round video note whose picture is not there yet: a disc with the play
// sign, so the row does not look empty.
QPixmap roundPlaceholder(const QColor &color, int diameter)
{
    const qreal dpr = ui_device_pixel_ratio();
    const QString key =
        QStringLiteral("msgroundph:%1:%2:%3").arg(color.name()).arg(diameter).arg(dpr);
    QPixmap pm;
    if (QPixmapCache::find(key, &pm))
        return pm;
    pm = sharp_blank_pixmap(QSize(diameter, diameter), dpr);
    QPainter p(&pm);
    p.setRenderHint(QPainter::Antialiasing);
    p.setPen(Qt::NoPen);
    p.setBrush(color);
    p.drawEllipse(0, 0, diameter, diameter);
    const QPixmap play = cachedPixmap(QStringLiteral("assets/osicons/ic_play.png"));
    const int s = diameter / 3;
    p.drawPixmap(QRect((diameter - s) / 2, (diameter - s) / 2, s, s), play);
    p.end();
    QPixmapCache::insert(key, pm);
    return pm;
}

} // namespace

MessageItemProvider::MessageItemProvider(const QString &uiCacheDir, QObject *parent)
    : QObject(parent), m_uiCacheDir(uiCacheDir), m_longPress(new QTimer(this))
{
    m_longPress->setSingleShot(true);
    m_longPress->setInterval(kLongPressMs);
    connect(m_longPress, &QTimer::timeout, this, &MessageItemProvider::onLongPressTimeout);
}

QWidget *MessageItemProvider::createItem(ListView *listView, const QString &type)
{
    Q_UNUSED(type)
    watchList(listView);
    QWidget *root = fillBox(nullptr, "msg_root");
    root->installEventFilter(this);
    auto *rootLayout = tight<QHBoxLayout>(root);
    rootLayout->setContentsMargins(0, kRowPadding, 0, kRowPadding);
    rootLayout->addWidget(box(root, "msg_left_spacer"));

    QWidget *avatarCol = box(root, "msg_avatar_col");
    avatarCol->setFixedWidth(kAvatarPx + kAvatarGap);
    auto *avatarLayout = tight<QHBoxLayout>(avatarCol);
    QWidget *avatar = box(avatarCol, "msg_avatar");
    avatar->setFixedSize(kAvatarPx, kAvatarPx);
    QLabel *avatarImg = label(avatar, "msg_avatar_img", kBodyPx);
    avatarImg->setGeometry(0, 0, kAvatarPx, kAvatarPx);
    avatarImg->setScaledContents(true);
    QLabel *letter = label(avatar, "msg_avatar_letter", kBodyPx, true);
    letter->setGeometry(0, 0, kAvatarPx, kAvatarPx);
    letter->setAlignment(Qt::AlignCenter);
    setTextColor(letter, Qt::white);
    avatarLayout->addWidget(avatar, 0, Qt::AlignTop);
    avatarLayout->addWidget(gap(avatarCol, "msg_avatar_gap", kAvatarGap, 1));
    rootLayout->addWidget(avatarCol);

    QWidget *bubbleCol = box(root, "msg_bubble_col");
    auto *bubbleColLayout = tight<QVBoxLayout>(bubbleCol, 4);
    auto *bubble = new BubbleFrame(m_uiCacheDir, bubbleCol);
    auto *bubbleLayout = tight<QVBoxLayout>(bubble);
    bubbleLayout->setContentsMargins(kBubblePadH, kBubblePadV, kBubblePadH, kBubblePadV);
    QWidget *multi = box(bubble, "msg_multi_col");
    auto *col = tight<QVBoxLayout>(multi, 4);
    bubbleLayout->addWidget(multi);

    col->addWidget(label(multi, "msg_sender_in", kSenderPx, true));
    col->addWidget(gap(multi, "msg_sender_in_gap", 1, 2));
    col->addWidget(label(multi, "msg_forwarded", kTimePx + 2));

    QWidget *replyBox = box(multi, "msg_reply_box");
    auto *replyLayout = tight<QHBoxLayout>(replyBox, 10);
    QWidget *replyBar = fillBox(replyBox, "msg_reply_bar");
    replyBar->setFixedWidth(4);
    replyLayout->addWidget(replyBar);
    QLabel *replyLabel = label(replyBox, "msg_reply_label", kTimePx + 4);
    replyLabel->setTextFormat(Qt::PlainText);
    replyLayout->addWidget(replyLabel, 1);
    col->addWidget(replyBox);

    // Photo and video.
    QWidget *mediaBox = fillBox(multi, "msg_media_box");
    QLabel *mediaImg = label(mediaBox, "msg_media_img", kBodyPx);
    mediaImg->setScaledContents(true);
    QWidget *btnBox = box(mediaBox, "msg_video_btn_box");
    btnBox->setFixedSize(88, 88);
    QLabel *btnBg = fillLabel(btnBox, "msg_video_btn_bg", kBodyPx);
    btnBg->setGeometry(0, 0, 88, 88);
    setFill(btnBg, QColor(0, 0, 0, 0x80), 44);
    QLabel *btnIcon = label(btnBox, "msg_video_btn_icon", kBodyPx);
    btnIcon->setGeometry(16, 16, 56, 56);
    btnIcon->setScaledContents(true);
    btnIcon->setPixmap(cachedPixmap(QStringLiteral("assets/osicons/ic_play.png")));
    QWidget *durBox = fillBox(mediaBox, "msg_video_dur_box");
    setFill(durBox, QColor(0, 0, 0, 0x90), 10);
    auto *durLayout = tight<QHBoxLayout>(durBox);
    durLayout->setContentsMargins(8, 2, 8, 2);
    QLabel *dur = label(durBox, "msg_video_dur", kTimePx);
    setTextColor(dur, Qt::white);
    durLayout->addWidget(dur);
    label(mediaBox, "msg_video_spinner", kTimePx)->hide();
    QWidget *vprog = box(mediaBox, "msg_video_progress");
    box(vprog, "msg_video_progress_fill");
    box(vprog, "msg_video_progress_rest");
    vprog->hide();
    col->addWidget(mediaBox);
    col->addWidget(gap(multi, "msg_media_gap", 1, 4));

    // Round video note.
    QWidget *mask = box(multi, "msg_video_note_mask");
    mask->setFixedSize(kVideoNotePx, kVideoNotePx);
    // The circle, the ring's track round it and the played share over that.
    auto *surface = new VideoNoteCircle(mask);
    surface->setObjectName(QStringLiteral("msg_video_note_play_surface"));
    surface->setGeometry(kVideoNoteRingPx + 2, kVideoNoteRingPx + 2,
                         kVideoNotePx - 2 * (kVideoNoteRingPx + 2),
                         kVideoNotePx - 2 * (kVideoNoteRingPx + 2));
    for (const char *name : {"msg_video_note_ring_track", "msg_video_note_ring"}) {
        const bool track = qstrcmp(name, "msg_video_note_ring_track") == 0;
        auto *ring = new VideoNoteRing(
            track ? VideoNoteRing::Kind::Track : VideoNoteRing::Kind::Progress, mask);
        ring->setObjectName(QLatin1String(name));
        ring->setPenWidth(kVideoNoteRingPx);
        ring->setGeometry(0, 0, kVideoNotePx, kVideoNotePx);
    }
    col->addWidget(mask);

    // File and voice rows share one shape: icon, name or title, size or
    // duration, then time and status.
    struct MediaRow
    {
        const char *row, *iconBox, *iconBg, *icon, *iconGap, *col, *top, *label, *meta, *spinner,
            *timeRow, *time, *statusGap, *status;
    };
    const MediaRow rows[] = {
        {"msg_file_row", "msg_file_icon_box", "msg_file_icon_bg", "msg_file_icon",
         "msg_file_icon_gap", "msg_file_col", "msg_file_top", "msg_file_label", "msg_file_size",
         "msg_file_spinner", "msg_file_time_row", "msg_file_time", "msg_status_file_gap",
         "msg_status_file"},
        {"msg_voice_row", "msg_voice_icon_box", "msg_voice_icon_bg", "msg_voice_icon",
         "msg_voice_icon_gap", "msg_voice_col", "msg_voice_top", "msg_voice_label", "msg_voice_dur",
         "msg_voice_spinner", "msg_voice_time_row", "msg_voice_time", "msg_status_voice_gap",
         "msg_status_voice"},
    };
    for (const MediaRow &r : rows) {
        QWidget *row = box(multi, r.row);
        auto *rowLayout = tight<QHBoxLayout>(row);
        QWidget *iconBox = box(row, r.iconBox);
        iconBox->setFixedSize(kIconBoxPx, kIconBoxPx);
        QLabel *iconBg = label(iconBox, r.iconBg, kBodyPx);
        iconBg->setGeometry(0, 0, kIconBoxPx, kIconBoxPx);
        iconBg->setScaledContents(true);
        QLabel *icon = label(iconBox, r.icon, kBodyPx);
        icon->setGeometry(14, 14, kIconBoxPx - 28, kIconBoxPx - 28);
        icon->setScaledContents(true);
        rowLayout->addWidget(iconBox, 0, Qt::AlignTop);
        rowLayout->addWidget(gap(row, r.iconGap, 14, 1));
        QWidget *mcol = box(row, r.col);
        auto *mcolLayout = tight<QVBoxLayout>(mcol, 2);
        QWidget *top = box(mcol, r.top);
        auto *topLayout = tight<QHBoxLayout>(top, 10);
        QLabel *name = label(top, r.label, kBodyPx - 4, true);
        name->setTextFormat(Qt::PlainText);
        topLayout->addWidget(name, 1);
        mcolLayout->addWidget(top);
        mcolLayout->addWidget(label(mcol, r.meta, kTimePx + 2));
        label(mcol, r.spinner, kTimePx)->hide();
        if (QLatin1String(r.row) == QLatin1String("msg_voice_row")) {
            QWidget *prog = box(mcol, "msg_voice_progress");
            prog->setFixedHeight(6);
            auto *progLayout = tight<QHBoxLayout>(prog);
            QWidget *fill = fillBox(prog, "msg_voice_progress_fill");
            QWidget *rest = fillBox(prog, "msg_voice_progress_rest");
            progLayout->addWidget(fill);
            progLayout->addWidget(rest, 1);
            prog->installEventFilter(this);
            mcolLayout->addWidget(prog);
        }
        QWidget *timeRow = box(mcol, r.timeRow);
        auto *timeLayout = tight<QHBoxLayout>(timeRow);
        timeLayout->addStretch(1);
        timeLayout->addWidget(label(timeRow, r.time, kTimePx));
        timeLayout->addWidget(gap(timeRow, r.statusGap, 6, 1));
        QLabel *status = label(timeRow, r.status, kTimePx);
        status->setFixedSize(kStatusPx, kStatusPx);
        status->setScaledContents(true);
        timeLayout->addWidget(status);
        mcolLayout->addWidget(timeRow);
        rowLayout->addWidget(mcol, 1);
        col->addWidget(row);
    }

    // Text: either wrapped with the time below, or one line with the time
    // beside it when it fits.
    QLabel *textLabel = label(multi, "msg_text", kBodyPx);
    textLabel->setWordWrap(true);
    textLabel->setTextFormat(Qt::RichText);
    col->addWidget(textLabel);
    QWidget *inlineRow = box(multi, "msg_inline_row");
    auto *inlineLayout = tight<QHBoxLayout>(inlineRow);
    QLabel *textInline = label(inlineRow, "msg_text_inline", kBodyPx);
    textInline->setTextFormat(Qt::RichText);
    inlineLayout->addWidget(textInline, 1);
    inlineLayout->addWidget(gap(inlineRow, "msg_inline_gap", 14, 1));
    inlineLayout->addWidget(label(inlineRow, "msg_time_inline", kTimePx), 0, Qt::AlignBottom);
    inlineLayout->addWidget(gap(inlineRow, "msg_status_inline_gap", 6, 1));
    QLabel *statusInline = label(inlineRow, "msg_status_inline", kTimePx);
    statusInline->setFixedSize(kStatusPx, kStatusPx);
    statusInline->setScaledContents(true);
    inlineLayout->addWidget(statusInline, 0, Qt::AlignBottom);
    col->addWidget(inlineRow);
    QWidget *timeRow = box(multi, "msg_time_row");
    auto *timeLayout = tight<QHBoxLayout>(timeRow);
    timeLayout->addStretch(1);
    timeLayout->addWidget(label(timeRow, "msg_time", kTimePx));
    timeLayout->addWidget(gap(timeRow, "msg_status_gap", 6, 1));
    QLabel *status = label(timeRow, "msg_status", kTimePx);
    status->setFixedSize(kStatusPx, kStatusPx);
    status->setScaledContents(true);
    timeLayout->addWidget(status);
    col->addWidget(timeRow);

    bubbleColLayout->addWidget(bubble);
    QWidget *reactionsOuter = box(bubbleCol, "msg_reactions_outer");
    auto *reactionsLayout = tight<QHBoxLayout>(reactionsOuter);
    reactionsLayout->addWidget(box(reactionsOuter, "msg_reactions_left_spacer"));
    QWidget *reactionsRow = box(reactionsOuter, "msg_reactions_row");
    tight<QHBoxLayout>(reactionsRow, 6);
    reactionsLayout->addWidget(reactionsRow);
    reactionsLayout->addWidget(box(reactionsOuter, "msg_reactions_right_spacer"));
    bubbleColLayout->addWidget(reactionsOuter);
    rootLayout->addWidget(bubbleCol);
    rootLayout->addWidget(box(root, "msg_right_spacer"));
    return root;
}

void MessageItemProvider::updateItem(ListView *listView, QWidget *item, const QString &type,
                                     const QVariantList &indexPath, const QVariantMap &data)
{
    Q_UNUSED(type)
    Q_UNUSED(indexPath)
    if (!item)
        return;
    const QVariant darkProp = listView ? listView->property("ui_dark_theme") : QVariant();
    const bool dark = !darkProp.isValid() || darkProp.toBool();
    const bool selectionMode = listView && listView->property("ui_selection_mode").toBool();
    const qint64 lastRead =
        listView ? listView->property("chat_last_read_outbox_message_id").toLongLong() : 0;
    const Palette pal = paletteFor(dark);

    const qint64 messageId = id64(data, "id");
    const bool outgoing = flag(data, "outgoing");
    const QString mediaType = text(data, "media_type");
    const QString body = text(data, "text");
    item->setProperty("message_id", messageId);
    item->setProperty("msg_outgoing", outgoing);
    item->setProperty("media_type", mediaType);
    item->setProperty("media_file_id", id64(data, "media_file_id"));
    item->setProperty("media_path", text(data, "media_path"));
    item->setProperty("media_name", text(data, "media_name"));
    item->setProperty("media_w", id64(data, "media_w"));
    item->setProperty("media_h", id64(data, "media_h"));
    item->setProperty("reply_to_message_id", id64(data, "reply_to_message_id"));

    // Own messages on the right, the others on the left; selection tints the
    // whole row.
    const bool selected = selectionMode && flag(data, "selected");
    setFill(item, selected ? pal.selected : QColor(Qt::transparent));
    item->setProperty("msg_selected", selected);
    auto *left = child(item, "msg_left_spacer");
    auto *right = child(item, "msg_right_spacer");
    auto *rootLayout = static_cast<QHBoxLayout *>(item->layout());
    rootLayout->setStretchFactor(left, outgoing ? 1 : 0);
    rootLayout->setStretchFactor(right, outgoing ? 0 : 1);
    left->setFixedWidth(kSideMargin);
    right->setFixedWidth(kSideMargin);
    left->setMaximumWidth(outgoing ? QWIDGETSIZE_MAX : kSideMargin);
    right->setMaximumWidth(outgoing ? kSideMargin : QWIDGETSIZE_MAX);
    left->setMinimumWidth(kSideMargin);
    right->setMinimumWidth(kSideMargin);

    // Sender decoration in groups: the avatar column keeps its place on every
    // row of a run, the name and photo show on its first row.
    const bool indent = flag(data, "sender_indent");
    const bool show = indent && flag(data, "sender_show");
    auto *avatarCol = child(item, "msg_avatar_col");
    avatarCol->setVisible(indent);
    auto *avatar = child(item, "msg_avatar");
    avatar->setVisible(show);
    auto *avatarImg = child<QLabel>(item, "msg_avatar_img");
    auto *letter = child<QLabel>(item, "msg_avatar_letter");
    const QString senderName = text(data, "sender_name");
    if (show) {
        const QString avatarPath = text(data, "sender_avatar_path");
        if (!avatarPath.isEmpty()) {
            avatarImg->setPixmap(roundPixmap(avatarPath, kAvatarPx));
            avatarImg->show();
            letter->hide();
        } else {
            const QColor color = placeholder_avatar_color(id64(data, "sender_user_id"), senderName);
            const QString tile =
                ensure_bubble_bg_png(kAvatarPx, kAvatarPx, kAvatarPx / 2, color, m_uiCacheDir);
            const qreal dpr = ui_device_pixel_ratio();
            avatarImg->setPixmap(dpr == 1.0 ? cachedPixmap(tile)
                                            : sharp_rounded_rect(QSize(kAvatarPx, kAvatarPx),
                                                                 kAvatarPx / 2, color, dpr));
            avatarImg->show();
            letter->setText(avatar_initial(senderName));
            letter->show();
        }
        avatarImg->setProperty("image_path", avatarPath);
    }
    auto *sender = child<QLabel>(item, "msg_sender_in");
    sender->setVisible(show && !senderName.isEmpty());
    sender->setText(senderName);
    setTextColor(sender, placeholder_avatar_color(id64(data, "sender_user_id"), senderName)
                             .lighter(dark ? 130 : 90));
    child(item, "msg_sender_in_gap")->setVisible(sender->isVisible());

    const QColor textColor = outgoing ? pal.textOut : pal.text;
    const QColor metaColor = outgoing ? pal.metaOut : pal.meta;

    auto *forwarded = child<QLabel>(item, "msg_forwarded");
    const QString fwd = text(data, "forwarded");
    forwarded->setVisible(message_is_forwarded(data));
    forwarded->setText(fwd == QLatin1String("true") ? QStringLiteral("Forwarded message")
                                                    : QStringLiteral("Forwarded from %1").arg(fwd));
    setTextColor(forwarded, pal.accent);

    const qint64 replyTo = id64(data, "reply_to_message_id");
    auto *replyBox = child(item, "msg_reply_box");
    replyBox->setVisible(replyTo > 0);
    setFill(child(item, "msg_reply_bar"), pal.replyBar);
    auto *replyLabel = child<QLabel>(item, "msg_reply_label");
    const QString preview = text(data, "reply_preview").simplified();
    replyLabel->setText(preview.isEmpty() ? QStringLiteral("…") : left_graphemes(preview, 90));
    replyLabel->setProperty("full_text", replyLabel->text());
    setTextColor(replyLabel, metaColor);

    const bool visual = mediaType == QLatin1String("photo") || mediaType == QLatin1String("video");
    const bool round = mediaType == QLatin1String("video_note");
    const bool isFile = mediaType == QLatin1String("file");
    const bool isVoice = mediaType == QLatin1String("voice");
    child(item, "msg_media_box")->setVisible(visual);
    child(item, "msg_media_gap")->setVisible(visual && !body.isEmpty());
    child(item, "msg_video_note_mask")->setVisible(round);
    child(item, "msg_file_row")->setVisible(isFile);
    child(item, "msg_voice_row")->setVisible(isVoice);

    const QString thumbPath = text(data, "media_thumb_path");
    const QString mediaPath = text(data, "media_path");
    if (visual || round) {
        // The thumbnail first; a downloaded photo is its own best picture.
        QString picture =
            mediaType == QLatin1String("photo") && !mediaPath.isEmpty() ? mediaPath : thumbPath;
        const qint64 thumbId = id64(data, "media_thumb_file_id");
        if (thumbPath.isEmpty() && thumbId > 0)
            Q_EMIT downloadRequested(thumbId);
        if (visual) {
            auto *img = child<QLabel>(item, "msg_media_img");
            const QSize sz = child(item, "msg_media_box")->property("media_size").toSize();
            img->setPixmap(picture.isEmpty() ? QPixmap() : cachedPixmap(picture, sz));
            img->setProperty("image_path", picture);
            setFill(child(item, "msg_media_box"), pal.chip, 6);
            const bool video = mediaType == QLatin1String("video");
            child(item, "msg_video_btn_box")->setVisible(video);
            child(item, "msg_video_dur_box")->setVisible(video);
            child<QLabel>(item, "msg_video_dur")
                ->setText(format_duration_mmss(id64(data, "media_duration")));
        } else {
            // The playing note shows its frames; the others their thumbnail.
            const qint64 id = id64(data, "id");
            const bool playing =
                listView && id > 0 &&
                listView->property("video_note_playing_message_id").toLongLong() == id;
            auto *surface = child<VideoNoteCircle>(item, "msg_video_note_play_surface");
            surface->setPlaceholderColor(pal.chip);
            const QString source =
                picture.isEmpty() ? QStringLiteral("placeholder:") + pal.chip.name() : picture;
            if (!playing && surface->source() != source) {
                QImage image = picture.isEmpty() ? QImage() : QImage(picture);
                if (image.isNull())
                    image = roundPlaceholder(pal.chip, kVideoNotePx).toImage();
                surface->setImage(image);
                surface->setSource(source);
            }
            surface->setProperty("image_path", picture);
            auto *track = child<VideoNoteRing>(item, "msg_video_note_ring_track");
            auto *ring = child<VideoNoteRing>(item, "msg_video_note_ring");
            track->setColor(playing ? pal.chip : Qt::transparent);
            ring->setColor(pal.accent);
            const qint64 dur =
                playing ? listView->property("video_note_play_dur_ms").toLongLong() : 0;
            const qint64 pos =
                playing ? listView->property("video_note_play_pos_ms").toLongLong() : 0;
            ring->setProgress(dur > 0 ? qreal(pos) / qreal(dur) : 0);
        }
    }

    const QString time = message_time_text(id64(data, "date"));
    const QString statusIcon = message_status_icon(data, lastRead);
    const auto setStatus = [&](const char *name) {
        auto *s = child<QLabel>(item, name);
        s->setVisible(!statusIcon.isEmpty());
        s->setPixmap(dark || statusIcon.isEmpty() ? cachedPixmap(statusIcon)
                                                  : tintedPixmap(statusIcon, metaColor));
        s->setProperty("image_path", statusIcon);
    };
    for (const char *name : {"msg_time", "msg_time_inline", "msg_file_time", "msg_voice_time"}) {
        auto *l = child<QLabel>(item, name);
        l->setText(time);
        setTextColor(l, metaColor);
    }
    for (const char *name :
         {"msg_status", "msg_status_inline", "msg_status_file", "msg_status_voice"})
        setStatus(name);
    for (const char *name :
         {"msg_status_gap", "msg_status_inline_gap", "msg_status_file_gap", "msg_status_voice_gap"})
        child(item, name)->setVisible(!statusIcon.isEmpty());

    if (isFile || isVoice) {
        const char *iconBg = isFile ? "msg_file_icon_bg" : "msg_voice_icon_bg";
        const QString bg =
            ensure_bubble_bg_png(kIconBoxPx, kIconBoxPx, kIconBoxPx / 2, pal.accent, m_uiCacheDir);
        auto *bgLabel = child<QLabel>(item, iconBg);
        if (bgLabel->property(isFile ? "file_bg_path" : "voice_bg_path").toString() != bg) {
            bgLabel->setPixmap(cachedPixmap(bg));
            bgLabel->setProperty(isFile ? "file_bg_path" : "voice_bg_path", bg);
        }
    }
    if (isFile) {
        const QString name = text(data, "media_name").trimmed();
        auto *fileLabel = child<QLabel>(item, "msg_file_label");
        fileLabel->setText(name.isEmpty() ? QStringLiteral("File") : name);
        setTextColor(fileLabel, textColor);
        // The running download shows its bytes instead of the size.
        const qint64 fileId = id64(data, "media_file_id");
        const bool pending = listView && fileId > 0 &&
                             listView->property("file_pending_file_id").toLongLong() == fileId;
        QString sizeText = format_file_size(id64(data, "media_size"));
        if (pending && mediaPath.isEmpty()) {
            const qint64 done = listView->property("file_pending_downloaded").toLongLong();
            const qint64 total = listView->property("file_pending_total").toLongLong();
            sizeText = total > 0 ? QStringLiteral("%1 / %2").arg(format_file_size(done),
                                                                 format_file_size(total))
                                 : QStringLiteral("Downloading…");
        }
        auto *size = child<QLabel>(item, "msg_file_size");
        size->setText(sizeText);
        setTextColor(size, metaColor);
        auto *icon = child<QLabel>(item, "msg_file_icon");
        const QString iconPath = mediaPath.isEmpty()
                                     ? QStringLiteral("assets/osicons/ic_download.png")
                                     : QStringLiteral("assets/osicons/ic_file.png");
        icon->setPixmap(cachedPixmap(iconPath));
        icon->setProperty("image_path", iconPath);
    }
    if (isVoice) {
        const qint64 fileId = id64(data, "media_file_id");
        const bool playing = listView && fileId > 0 &&
                             listView->property("voice_playing_file_id").toLongLong() == fileId;
        const int mediaState = listView ? listView->property("voice_media_state").toInt() : 0;
        const bool started = playing && mediaState == 2;
        auto *voiceLabel = child<QLabel>(item, "msg_voice_label");
        voiceLabel->setText(QStringLiteral("Voice message"));
        setTextColor(voiceLabel, textColor);
        auto *dur = child<QLabel>(item, "msg_voice_dur");
        const qint64 durSec = id64(data, "media_duration");
        if (playing) {
            const qint64 pos = listView->property("voice_play_pos_ms").toLongLong() / 1000;
            dur->setText(QStringLiteral("%1 / %2").arg(format_duration_mmss(pos).isEmpty()
                                                           ? QStringLiteral("0:00")
                                                           : format_duration_mmss(pos),
                                                       format_duration_mmss(durSec)));
        } else {
            dur->setText(format_duration_mmss(durSec));
        }
        setTextColor(dur, metaColor);
        auto *icon = child<QLabel>(item, "msg_voice_icon");
        const QString iconPath = started ? QStringLiteral("assets/osicons/ic_pause.png")
                                         : QStringLiteral("assets/osicons/ic_play.png");
        icon->setPixmap(cachedPixmap(iconPath));
        icon->setProperty("image_path", iconPath);
        auto *prog = child(item, "msg_voice_progress");
        const qint64 posMs = playing ? listView->property("voice_play_pos_ms").toLongLong() : 0;
        const qint64 durMs =
            playing ? listView->property("voice_play_dur_ms").toLongLong() : durSec * 1000;
        prog->setProperty("progress",
                          durMs > 0 ? double(qBound<qint64>(0, posMs, durMs)) / durMs : 0.0);
        setFill(child(item, "msg_voice_progress_fill"), pal.accent, 3);
        setFill(child(item, "msg_voice_progress_rest"), pal.chip, 3);
        updateVoiceProgress(item);
    }

    // Text and time. A media row without a caption keeps its own time.
    const bool ownTime = isFile || isVoice;
    auto *textLabel = child<QLabel>(item, "msg_text");
    auto *textInline = child<QLabel>(item, "msg_text_inline");
    // Links in the theme's link colour (a style sheet would override the
    // label's palette).
    // A search in the chat marks its matches; the current one stands out.
    const QString query = listView ? listView->property("ui_search_query").toString() : QString();
    const bool currentMatch =
        !query.isEmpty() &&
        listView->property("ui_search_current_id").toLongLong() == id64(data, "id");
    QString html = message_rich_text_marked(
        body, query, currentMatch ? QStringLiteral("#ff9f1a") : QStringLiteral("#ffe36e"));
    html.replace(QLatin1String("<a href="),
                 QStringLiteral("<a style=\"color:%1\" href=")
                     .arg(dark ? QStringLiteral("#8ac8ff") : QStringLiteral("#165fc0")));
    // Emoji in the text keep the font's own choice: the colour emoji font's
    // bitmap glyphs are decoded on every layout, which costs scrolling more
    // than it gives (the reaction chips, a few per row, use it).
    textLabel->setText(html);
    textInline->setText(html);
    setTextColor(textLabel, textColor);
    setTextColor(textInline, textColor);
    item->setProperty("msg_text_html", html);
    item->setProperty("msg_own_time", ownTime);

    auto *bubble = static_cast<BubbleFrame *>(child(item, "msg_bubble"));
    bubble->setProperty("msg_bg_out", outgoing);
    // A round video note stands on its own, without a bubble.
    bubble->setColor(outgoing ? pal.bubbleOut : pal.bubbleIn, !(round && body.isEmpty()));

    // Reaction chips: the emoji and the count; the user's own is filled.
    QWidget *reactionsRow = child(item, "msg_reactions_row");
    const QVariantList reactions = data.value(QStringLiteral("reactions")).toList();
    QList<QLabel *> chips = reactionsRow->findChildren<QLabel *>(
        QStringLiteral("msg_reaction_chip_lbl"), Qt::FindDirectChildrenOnly);
    while (chips.size() < reactions.size()) {
        QLabel *chip = fillLabel(reactionsRow, "msg_reaction_chip_lbl", kTimePx + 4);
        chip->setTextFormat(Qt::RichText);
        chip->setContentsMargins(12, 4, 12, 4);
        reactionsRow->layout()->addWidget(chip);
        chips.append(chip);
    }
    for (int i = 0; i < chips.size(); ++i) {
        QLabel *chip = chips.at(i);
        if (i >= reactions.size()) {
            chip->hide();
            continue;
        }
        const QVariantMap r = reactions.at(i).toMap();
        const bool chosen = r.value(QStringLiteral("chosen")).toString() == QLatin1String("true") ||
                            r.value(QStringLiteral("chosen")).toBool();
        const int count = r.value(QStringLiteral("count")).toInt();
        const QString emoji =
            bb10EmojiForReactionDisplay(r.value(QStringLiteral("emoji")).toString());
        // The emoji font by name: the first font that has the glyph is often
        // a monochrome one.
        const QString face =
            wrap_emoji_runs(escape_html(emoji), QStringLiteral("Noto Color Emoji"));
        chip->setText(count > 1 ? QStringLiteral("%1 %2").arg(face).arg(count) : face);
        chip->setProperty("chosen", chosen);
        chip->setProperty("reaction_emoji", r.value(QStringLiteral("emoji")).toString());
        setFill(chip, chosen ? pal.chipChosen : pal.chip, 16);
        setTextColor(chip, pal.text);
        chip->show();
    }
    auto *reactionsOuter = static_cast<QHBoxLayout *>(child(item, "msg_reactions_outer")->layout());
    reactionsOuter->setStretchFactor(child(item, "msg_reactions_left_spacer"), outgoing ? 1 : 0);
    reactionsOuter->setStretchFactor(child(item, "msg_reactions_right_spacer"), outgoing ? 0 : 1);
    child(item, "msg_reactions_outer")->setVisible(!reactions.isEmpty());

    if (listView && listView->viewport()->width() > 0)
        item->setProperty("row_width", listView->viewport()->width());
    applyMessageWrap(item);
}

void MessageItemProvider::applyMessageWrap(QWidget *item)
{
    int rowWidth = item->property("row_width").toInt();
    if (rowWidth <= 0)
        rowWidth = item->width() > 0 ? item->width() : 720;
    const bool indent = child(item, "msg_avatar_col")->isVisibleTo(item);
    const int avatarSpace = indent ? kAvatarPx + kAvatarGap : 0;
    const int bubbleMax =
        qMax(120, int(rowWidth * kBubbleShare) - avatarSpace - 2 * kSideMargin + kSideMargin);
    const int innerMax = bubbleMax - 2 * kBubblePadH;

    auto *textLabel = child<QLabel>(item, "msg_text");
    auto *textInline = child<QLabel>(item, "msg_text_inline");
    auto *inlineRow = child(item, "msg_inline_row");
    auto *timeRow = child(item, "msg_time_row");
    const QString html = item->property("msg_text_html").toString();
    const bool ownTime = item->property("msg_own_time").toBool();
    const QString mediaType = item->property("media_type").toString();

    int contentWidth = 0;
    // Photo or video at its aspect ratio, as wide as the bubble allows.
    if (mediaType == QLatin1String("photo") || mediaType == QLatin1String("video")) {
        const qint64 w = item->property("media_w").toLongLong();
        const qint64 h = item->property("media_h").toLongLong();
        const int boxW = qMin(innerMax, kMediaMaxPx);
        const int boxH = w > 0 && h > 0 ? int(qBound<qint64>(boxW / 3, boxW * h / w, boxW * 4 / 3))
                                        : boxW * 3 / 4;
        QWidget *mediaBox = child(item, "msg_media_box");
        mediaBox->setFixedSize(boxW, boxH);
        mediaBox->setProperty("media_size", QSize(boxW, boxH));
        auto *img = child<QLabel>(item, "msg_media_img");
        img->setGeometry(0, 0, boxW, boxH);
        const QString picture = img->property("image_path").toString();
        if (!picture.isEmpty())
            img->setPixmap(cachedPixmap(picture, QSize(boxW, boxH)));
        child(item, "msg_video_btn_box")->move((boxW - 88) / 2, (boxH - 88) / 2);
        QWidget *durBox = child(item, "msg_video_dur_box");
        durBox->adjustSize();
        durBox->move(10, boxH - durBox->height() - 10);
        contentWidth = boxW;
    } else if (mediaType == QLatin1String("video_note")) {
        contentWidth = kVideoNotePx;
    } else if (mediaType == QLatin1String("file") || mediaType == QLatin1String("voice")) {
        contentWidth = qMin(innerMax, 420);
        child(item, mediaType == QLatin1String("file") ? "msg_file_row" : "msg_voice_row")
            ->setFixedWidth(contentWidth);
    }

    const auto widthOf = [](QWidget *w) {
        return w->isVisibleTo(w->parentWidget()) ? w->sizeHint().width() : 0;
    };
    contentWidth = qMax(contentWidth, widthOf(child(item, "msg_sender_in")));
    contentWidth = qMax(contentWidth, widthOf(child(item, "msg_forwarded")));

    const QString time = child<QLabel>(item, "msg_time")->text();
    const QFont timeFont = fontOf(kTimePx);
    const bool hasStatus =
        !child<QLabel>(item, "msg_status")->property("image_path").toString().isEmpty();
    const int metaWidth =
        QFontMetrics(timeFont).horizontalAdvance(time) + (hasStatus ? kStatusPx + 6 : 0);

    const bool hasText = !html.isEmpty();
    bool useInline = false;
    if (hasText) {
        const QFont bodyFont = textLabel->font();
        const int oneLine = richTextWidth(html, bodyFont, 100000);
        const bool singleLine = !html.contains(QLatin1String("<br/>"));
        if (!ownTime && singleLine && oneLine + 14 + metaWidth <= innerMax) {
            useInline = true;
            textInline->setFixedWidth(oneLine + 1);
            contentWidth = qMax(contentWidth, oneLine + 1 + 14 + metaWidth);
        } else {
            // Text no wider than the bubble lays out as it did unbounded;
            // only wider text needs a second, wrapped layout.
            const int maxW = qMax(contentWidth, innerMax);
            const int w = oneLine <= maxW ? oneLine : richTextWidth(html, bodyFont, maxW);
            const int labelW = qMax(w, qMin(contentWidth, innerMax));
            textLabel->setFixedWidth(qMax(1, labelW));
            contentWidth = qMax(contentWidth, labelW);
        }
    } else if (!ownTime) {
        contentWidth = qMax(contentWidth, metaWidth);
    }
    contentWidth = qMin(qMax(contentWidth, metaWidth), qMax(innerMax, contentWidth));

    textLabel->setVisible(hasText && !useInline);
    inlineRow->setVisible(useInline);
    timeRow->setVisible(!useInline && !ownTime);
    if (useInline)
        inlineRow->setFixedWidth(contentWidth);
    auto *replyLabel = child<QLabel>(item, "msg_reply_label");
    replyLabel->setMaximumWidth(contentWidth - 14);
    // A preview wider than the bubble ends in "…".
    replyLabel->setText(replyLabel->fontMetrics().elidedText(
        replyLabel->property("full_text").toString(), Qt::ElideRight, contentWidth - 14));
    if (contentWidth < 200 && child(item, "msg_reply_box")->isVisibleTo(item))
        contentWidth = qMin(innerMax, 200);
    child(item, "msg_multi_col")->setFixedWidth(contentWidth);
    item->updateGeometry();
}

void MessageItemProvider::updateVoiceProgress(QWidget *item)
{
    QWidget *prog = child(item, "msg_voice_progress");
    const double p = prog->property("progress").toDouble();
    const int w = prog->width();
    QWidget *fill = child(prog, "msg_voice_progress_fill");
    fill->setFixedWidth(qMax(0, int(w * p)));
}

void MessageItemProvider::onVoiceRowLayoutFrameChanged(const QRectF &frame)
{
    QWidget *item = m_frameSender;
    while (item && item->objectName() != QLatin1String("msg_root"))
        item = item->parentWidget();
    if (item && frame.width() > 0)
        updateVoiceProgress(item);
}

bool MessageItemProvider::showVideoNoteFrame(QWidget *item, qint64 messageId, const QImage &frame,
                                             qreal progress)
{
    if (!item || item->property("message_id").toLongLong() != messageId)
        return false;
    auto *surface =
        item->findChild<VideoNoteCircle *>(QStringLiteral("msg_video_note_play_surface"));
    auto *ring = item->findChild<VideoNoteRing *>(QStringLiteral("msg_video_note_ring"));
    if (!surface || !surface->isVisible())
        return false;
    if (!frame.isNull()) {
        surface->setImage(frame);
        surface->setSource(QStringLiteral("frame"));
    }
    if (ring)
        ring->setProgress(progress);
    return true;
}

void MessageItemProvider::watchList(ListView *listView)
{
    if (!listView || m_watched == listView)
        return;
    m_watched = listView;
    m_viewport = listView->viewport();
    listView->viewport()->installEventFilter(this);
}

bool MessageItemProvider::eventFilter(QObject *watched, QEvent *event)
{
    if (watched->objectName() == QLatin1String("msg_voice_progress")) {
        if (event->type() == QEvent::Resize) {
            m_frameSender = static_cast<QWidget *>(watched);
            onVoiceRowLayoutFrameChanged(QRectF(m_frameSender->geometry()));
            m_frameSender = nullptr;
        }
        return false;
    }
    if (watched->objectName() == QLatin1String("msg_root")) {
        if (event->type() == QEvent::Resize) {
            auto *item = static_cast<QWidget *>(watched);
            const int w = static_cast<QResizeEvent *>(event)->size().width();
            if (w > 0 && w != item->property("row_width").toInt()) {
                item->setProperty("row_width", w);
                applyMessageWrap(item);
            }
        }
        return false;
    }
    if (!m_viewport || watched != m_viewport)
        return false;

    // Touches arrive at the list's viewport, which scrolls by dragging; this
    // only watches them to tell taps and long presses on items apart.
    auto *viewport = static_cast<QWidget *>(watched);
    const auto itemAt = [viewport](const QPoint &pos, QWidget **target) -> QWidget * {
        QWidget *w = viewport->childAt(pos);
        *target = w;
        while (w && w->objectName() != QLatin1String("msg_root"))
            w = w->parentWidget();
        return w;
    };
    switch (event->type()) {
    case QEvent::MouseButtonPress: {
        auto *me = static_cast<QMouseEvent *>(event);
        QWidget *target = nullptr;
        QWidget *item = itemAt(me->pos(), &target);
        if (!item)
            break;
        if (me->button() == Qt::RightButton) {
            const qint64 id = item->property("message_id").toLongLong();
            if (id >= 1)
                Q_EMIT messageMenuRequested(id);
            break;
        }
        if (me->button() != Qt::LeftButton)
            break;
        m_pressItem = item;
        m_pressTarget = target;
        m_pressPos = item->mapFrom(viewport, me->pos());
        m_pressGlobal = me->globalPos();
        m_pressModifiers = me->modifiers() & (Qt::ControlModifier | Qt::ShiftModifier);
        m_pressClock.start();
        // A modified click selects; holding it means nothing more.
        if (!m_pressModifiers)
            m_longPress->start();
        break;
    }
    case QEvent::MouseMove: {
        auto *me = static_cast<QMouseEvent *>(event);
        if (m_longPress->isActive() && (me->globalPos() - m_pressGlobal).manhattanLength() >=
                                           QApplication::startDragDistance())
            m_longPress->stop(); // a drag, not a touch on the item
        break;
    }
    case QEvent::MouseButtonRelease: {
        auto *me = static_cast<QMouseEvent *>(event);
        if (me->button() != Qt::LeftButton)
            break;
        if (m_pressModifiers && m_pressItem) {
            const qint64 id = m_pressItem->property("message_id").toLongLong();
            if (id >= 1 && (me->globalPos() - m_pressGlobal).manhattanLength() <
                               QApplication::startDragDistance())
                Q_EMIT messageSelectClicked(id, m_pressModifiers & Qt::ShiftModifier);
        } else if (m_longPress->isActive() && m_pressItem) {
            m_longPress->stop();
            tap(m_pressItem, m_pressTarget, m_pressPos);
        }
        m_pressModifiers = {};
        m_pressItem = nullptr;
        break;
    }
    case QEvent::Leave:
    case QEvent::Hide:
        m_longPress->stop();
        break;
    default:
        break;
    }
    return false;
}

void MessageItemProvider::onLongPressTimeout()
{
    if (!m_pressItem)
        return;
    const qint64 id = m_pressItem->property("message_id").toLongLong();
    m_pressItem = nullptr;
    if (id >= 1)
        Q_EMIT messageLongPressed(id);
}

void MessageItemProvider::tap(QWidget *item, QWidget *target, const QPoint &itemPos)
{
    const qint64 id = item->property("message_id").toLongLong();
    if (id < 1)
        return;
    if (m_watched && m_watched->property("ui_selection_mode").toBool()) {
        Q_EMIT messageSelectionToggleRequested(id);
        return;
    }
    // The innermost named element that has a meaning of its own.
    const QString path = item->property("media_path").toString();
    const qint64 fileId = item->property("media_file_id").toLongLong();
    const QString name = item->property("media_name").toString();
    const int w = item->property("media_w").toInt();
    const int h = item->property("media_h").toInt();
    for (QWidget *w0 = target; w0 && w0 != item; w0 = w0->parentWidget()) {
        const QString n = w0->objectName();
        if (n == QLatin1String("msg_text") || n == QLatin1String("msg_text_inline")) {
            const QString link = linkAt(static_cast<QLabel *>(w0), w0->mapFrom(item, itemPos));
            if (!link.isEmpty()) {
                Q_EMIT webLinkActivated(link);
                return;
            }
        } else if (n == QLatin1String("msg_reaction_chip_lbl")) {
            Q_EMIT reactionChipTapped(id, w0->property("reaction_emoji").toString());
            return;
        } else if (n == QLatin1String("msg_reply_box")) {
            Q_EMIT replyPreviewTapped(item->property("reply_to_message_id").toLongLong());
            return;
        } else if (n == QLatin1String("msg_media_box")) {
            if (item->property("media_type").toString() == QLatin1String("video"))
                Q_EMIT videoTapped(path, fileId, w, h);
            else
                Q_EMIT mediaTapped(path, fileId, w, h);
            return;
        } else if (n == QLatin1String("msg_video_note_mask")) {
            Q_EMIT videoNoteTapped(w0, path, fileId, id);
            return;
        } else if (n == QLatin1String("msg_voice_row")) {
            Q_EMIT voiceTapped(path, fileId);
            return;
        } else if (n == QLatin1String("msg_file_icon_box")) {
            Q_EMIT fileIconTapped(path, fileId, name);
            return;
        } else if (n == QLatin1String("msg_file_row")) {
            Q_EMIT fileTapped(path, fileId, name);
            return;
        }
    }
}
