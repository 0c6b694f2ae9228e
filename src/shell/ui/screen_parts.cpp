#include "shell/ui/screen_parts.h"

#include "platform/osicons.h"
#include "platform/ui/sharp_pixmaps.h"
#include "shell/ui_scale.h"

#include <QHBoxLayout>
#include <QIcon>
#include <QLabel>
#include <QPaintEvent>
#include <QPainter>
#include <QPushButton>
#include <QStyleOption>
#include <QToolButton>
#include <QVBoxLayout>
#include <QVariant>

namespace screen_parts {

namespace {

// Paints a widget's style sheet background from its own paint event. A
// style sheet turns autoFillBackground off, and only a widget marked opaque
// spares the window painting everything under it on each frame.
class OwnBackground : public QObject
{
protected:
    bool eventFilter(QObject *watched, QEvent *event) override
    {
        if (event->type() == QEvent::Paint) {
            auto *w = static_cast<QWidget *>(watched);
            QPainter p(w);
            p.setClipRegion(static_cast<QPaintEvent *>(event)->region());
            QStyleOption opt;
            opt.initFrom(w);
            w->style()->drawPrimitive(QStyle::PE_Widget, &opt, &p, w);
        }
        return false;
    }
};

} // namespace

void paintOpaque(QWidget *widget)
{
    static auto *const filter = new OwnBackground; // lives as long as the widgets
    widget->setAttribute(Qt::WA_OpaquePaintEvent, true);
    widget->installEventFilter(filter);
}

QVBoxLayout *screenRoot(QWidget *screen, const QString &objectName, ThemeGroup background)
{
    screen->setObjectName(objectName);
    screen->setAttribute(Qt::WA_StyledBackground, true);
    set_background_group(screen, background);
    paintOpaque(screen);
    auto *v = new QVBoxLayout(screen);
    v->setContentsMargins(0, 0, 0, 0);
    v->setSpacing(0);
    return v;
}

QWidget *panel(const QString &objectName, std::optional<ThemeGroup> background, QWidget *parent)
{
    auto *w = new QWidget(parent);
    w->setObjectName(objectName);
    w->setAttribute(Qt::WA_StyledBackground, true);
    if (background)
        set_background_group(w, *background);
    return w;
}

QVBoxLayout *cardColumn(QWidget *body, float scale)
{
    auto *v = new QVBoxLayout(body);
    const int m = scaled_px(24, scale);
    v->setContentsMargins(m, m, m, m);
    v->setSpacing(scaled_px(20, scale));
    return v;
}

QWidget *card(const QString &objectName, float scale, QWidget *parent, QVBoxLayout **layout)
{
    QWidget *c = panel(objectName, ThemeGroup::E, parent);
    c->setProperty("shape", QStringLiteral("card"));
    auto *v = new QVBoxLayout(c);
    v->setContentsMargins(scaled_px(28, scale), scaled_px(16, scale), scaled_px(28, scale),
                          scaled_px(16, scale));
    v->setSpacing(scaled_px(8, scale));
    *layout = v;
    return c;
}

QLabel *label(const QString &text, const QString &objectName, std::optional<ThemeGroup> colour,
              std::optional<TextSize> size, QWidget *parent)
{
    auto *l = new QLabel(text, parent);
    l->setObjectName(objectName);
    if (colour)
        set_text_group(l, *colour);
    if (size)
        set_text_size(l, *size);
    return l;
}

QPushButton *button(const QString &text, const QString &objectName, ControlRole role, float scale,
                    QWidget *parent)
{
    auto *b = new QPushButton(text, parent);
    b->setObjectName(objectName);
    set_control_role(b, role);
    b->setCursor(Qt::PointingHandCursor);
    b->setFocusPolicy(Qt::NoFocus);
    b->setMinimumHeight(scaled_px(role == ControlRole::Row ? 96 : 84, scale));
    return b;
}

int iconPixels(const QToolButton *button)
{
    return qCeil(button->iconSize().width() * ui_device_pixel_ratio());
}

void setIcon(QToolButton *button, const QString &iconFile)
{
    const int px = iconPixels(button);
    QPixmap pm = QPixmap::fromImage(osicon_image(iconFile, QSize(px, px)));
    pm.setDevicePixelRatio(ui_device_pixel_ratio());
    button->setIcon(QIcon(pm));
    button->setProperty("icon_file", iconFile);
}

QToolButton *iconButton(const QString &iconFile, const QString &objectName, float scale,
                        QWidget *parent)
{
    auto *b = new QToolButton(parent);
    b->setObjectName(objectName);
    set_control_role(b, ControlRole::Icon);
    b->setCursor(Qt::PointingHandCursor);
    b->setFocusPolicy(Qt::NoFocus);
    const int side = scaled_px(88, scale);
    b->setFixedSize(side, side);
    const int icon = scaled_px(48, scale);
    b->setIconSize(QSize(icon, icon));
    setIcon(b, iconFile);
    return b;
}

QWidget *header(const QString &objectName, const QString &titleText, const QString &titleObjectName,
                bool withBack, float scale, QWidget *parent, QLabel **title, QToolButton **back)
{
    QWidget *bar = panel(objectName, ThemeGroup::A, parent);
    bar->setFixedHeight(scaled_px(112, scale));
    auto *row = new QHBoxLayout(bar);
    row->setContentsMargins(scaled_px(withBack ? 8 : 28, scale), 0, scaled_px(8, scale), 0);
    row->setSpacing(scaled_px(8, scale));
    QToolButton *backButton = nullptr;
    if (withBack) {
        backButton = iconButton(QStringLiteral("ic_back.png"), objectName + "_back", scale, bar);
        row->addWidget(backButton);
    }
    QLabel *t = label(titleText, titleObjectName, ThemeGroup::C, TextSize::Title, bar);
    t->setTextFormat(Qt::PlainText);
    row->addWidget(t, 1);
    if (title)
        *title = t;
    if (back)
        *back = backButton;
    return bar;
}

void showText(QLabel *label, const QString &text, QWidget *container)
{
    label->setText(text);
    (container ? container : label)->setVisible(!text.isEmpty());
}

} // namespace screen_parts
