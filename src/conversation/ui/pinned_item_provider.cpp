#include "conversation/ui/pinned_item_provider.h"

#include "platform/osicons.h"
#include "shell/style_sheet.h"
#include "shell/theme.h"
#include "shell/ui/screen_parts.h"
#include "shell/ui_scale.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPixmap>

namespace {

QString kindText(const QString &contentType)
{
    if (contentType == QLatin1String("photo"))
        return QStringLiteral("Photo");
    if (contentType == QLatin1String("video"))
        return QStringLiteral("Video");
    if (contentType == QLatin1String("voice") || contentType == QLatin1String("voice_note"))
        return QStringLiteral("Voice message");
    if (contentType == QLatin1String("video_note"))
        return QStringLiteral("Video message");
    if (contentType == QLatin1String("document") || contentType == QLatin1String("file") ||
        contentType == QLatin1String("audio"))
        return QStringLiteral("File");
    if (contentType == QLatin1String("sticker"))
        return QStringLiteral("Sticker");
    return QString();
}

} // namespace

PinnedItemProvider::PinnedItemProvider(float scale, QObject *parent)
    : QObject(parent), m_scale(scale)
{
}

QString PinnedItemProvider::rowText(const QVariantMap &row)
{
    const QString text = row.value(QStringLiteral("text")).toString().trimmed();
    const QString kind = kindText(row.value(QStringLiteral("content_type")).toString());
    if (kind.isEmpty())
        return text.isEmpty() ? QStringLiteral("Message") : text;
    return text.isEmpty() ? kind : kind + QStringLiteral(": ") + text;
}

QWidget *PinnedItemProvider::createItem(ListView *, const QString &)
{
    auto *item = new QWidget;
    item->setObjectName(QStringLiteral("pinned_item"));
    auto *h = new QHBoxLayout(item);
    h->setContentsMargins(scaled_px(28, m_scale), scaled_px(14, m_scale), scaled_px(28, m_scale),
                          scaled_px(14, m_scale));
    h->setSpacing(scaled_px(16, m_scale));
    auto *pin = new QLabel(item);
    pin->setObjectName(QStringLiteral("pinned_item_icon"));
    const int px = scaled_px(32, m_scale);
    pin->setFixedSize(px, px);
    pin->setScaledContents(true);
    auto *text = screen_parts::label(QString(), QStringLiteral("pinned_item_text"), ThemeGroup::C,
                                     TextSize::Secondary, item);
    text->setTextFormat(Qt::PlainText);
    text->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
    h->addWidget(pin);
    h->addWidget(text, 1);
    return item;
}

void PinnedItemProvider::updateItem(ListView *listView, QWidget *item, const QString &,
                                    const QVariantList &, const QVariantMap &data)
{
    const bool dark = !listView || listView->property("ui_dark_theme").toBool();
    auto *pin = item->findChild<QLabel *>(QStringLiteral("pinned_item_icon"));
    pin->setPixmap(QPixmap::fromImage(tinted_osicon(
        QStringLiteral("ic_pin.png"), dark ? QColor(0x8a, 0xc8, 0xff) : QColor(0x16, 0x5f, 0xc0))));
    auto *label = item->findChild<QLabel *>(QStringLiteral("pinned_item_text"));
    const QString full = rowText(data);
    // One line per row; the whole text is in the tooltip.
    const int width = qMax(1, (listView ? listView->viewport()->width() : 600) -
                                  scaled_px(28 * 2 + 16 + 32, m_scale));
    label->setText(label->fontMetrics().elidedText(full, Qt::ElideRight, width));
    label->setToolTip(full);
}
