#include "conversation/ui/pinned_item_provider.h"

#include "conversation/pinned_messages.h"

#include "platform/osicons.h"
#include "shell/style_sheet.h"
#include "shell/theme.h"
#include "shell/ui_scale.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPainter>
#include <QPixmap>

namespace {

// One line that ends in "…" when it does not fit, at whatever width the
// row is laid out (the row may be filled before the list has its size).
class ElidedLine : public QLabel
{
public:
    using QLabel::QLabel;
    void setFullText(const QString &text)
    {
        m_full = text;
        setText(text);
        setToolTip(text);
    }
    QSize minimumSizeHint() const override { return {0, QLabel::minimumSizeHint().height()}; }

protected:
    void paintEvent(QPaintEvent *) override
    {
        QPainter p(this);
        p.setPen(palette().color(foregroundRole()));
        const QRect r = contentsRect();
        p.drawText(r, Qt::AlignLeft | Qt::AlignVCenter,
                   fontMetrics().elidedText(m_full, Qt::ElideRight, r.width()));
    }

private:
    QString m_full;
};

} // namespace

PinnedItemProvider::PinnedItemProvider(float scale, QObject *parent)
    : QObject(parent), m_scale(scale)
{
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
    auto *text = new ElidedLine(item);
    text->setObjectName(QStringLiteral("pinned_item_text"));
    set_text_group(text, ThemeGroup::C);
    set_text_size(text, TextSize::Secondary);
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
    pin->setPixmap(QPixmap::fromImage(
        tinted_osicon(QStringLiteral("ic_pin.png"),
                      dark ? QColor(0x8a, 0xc8, 0xff) : QColor(0x16, 0x5f, 0xc0), pin->size())));
    static_cast<ElidedLine *>(item->findChild<QLabel *>(QStringLiteral("pinned_item_text")))
        ->setFullText(pinned_preview_text(data));
}

int PinnedItemProvider::rowHeight(ListView *listView)
{
    // A row made in the list's viewport gets the same fonts and style.
    QWidget *item = createItem(listView, QString());
    item->setParent(listView->viewport());
    item->ensurePolished();
    for (QWidget *child : item->findChildren<QWidget *>())
        child->ensurePolished();
    updateItem(listView, item, QString(), {0}, {{QStringLiteral("text"), QStringLiteral("Ag")}});
    const int width = qMax(1, listView->viewport()->width());
    const int height =
        item->hasHeightForWidth() ? item->heightForWidth(width) : item->sizeHint().height();
    delete item;
    return height;
}
