#include "shell/ui/screen_parts.h"

#include "shell/osicons.h"
#include "shell/ui_scale.h"

#include <QHBoxLayout>
#include <QIcon>
#include <QLabel>
#include <QPushButton>
#include <QToolButton>
#include <QVBoxLayout>
#include <QVariant>

namespace screen_parts {

QVBoxLayout *screenRoot(QWidget *screen, const QString &objectName, const char *bgGroup)
{
    screen->setObjectName(objectName);
    screen->setAttribute(Qt::WA_StyledBackground, true);
    screen->setProperty("bg", QString::fromLatin1(bgGroup));
    auto *v = new QVBoxLayout(screen);
    v->setContentsMargins(0, 0, 0, 0);
    v->setSpacing(0);
    return v;
}

QWidget *panel(const QString &objectName, const char *bgGroup, QWidget *parent)
{
    auto *w = new QWidget(parent);
    w->setObjectName(objectName);
    w->setAttribute(Qt::WA_StyledBackground, true);
    if (bgGroup)
        w->setProperty("bg", QString::fromLatin1(bgGroup));
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

QLabel *label(const QString &text, const QString &objectName, const char *fgGroup, const char *font,
              QWidget *parent)
{
    auto *l = new QLabel(text, parent);
    l->setObjectName(objectName);
    if (fgGroup)
        l->setProperty("fg", QString::fromLatin1(fgGroup));
    if (font)
        l->setProperty("textsize", QString::fromLatin1(font));
    return l;
}

QPushButton *button(const QString &text, const QString &objectName, const char *role, float scale,
                    QWidget *parent)
{
    auto *b = new QPushButton(text, parent);
    b->setObjectName(objectName);
    b->setProperty("role", QString::fromLatin1(role));
    b->setCursor(Qt::PointingHandCursor);
    b->setFocusPolicy(Qt::NoFocus);
    b->setMinimumHeight(scaled_px(QLatin1String(role) == QLatin1String("row") ? 96 : 84, scale));
    return b;
}

void setIcon(QToolButton *button, const QString &iconFile)
{
    button->setIcon(QIcon(osicon_path(iconFile)));
    button->setProperty("icon_file", iconFile);
}

QToolButton *iconButton(const QString &iconFile, const QString &objectName, float scale,
                        QWidget *parent)
{
    auto *b = new QToolButton(parent);
    b->setObjectName(objectName);
    b->setProperty("role", QStringLiteral("icon"));
    b->setCursor(Qt::PointingHandCursor);
    b->setFocusPolicy(Qt::NoFocus);
    setIcon(b, iconFile);
    const int side = scaled_px(88, scale);
    b->setFixedSize(side, side);
    const int icon = scaled_px(48, scale);
    b->setIconSize(QSize(icon, icon));
    return b;
}

QWidget *header(const QString &objectName, const QString &titleText, const QString &titleObjectName,
                bool withBack, float scale, QWidget *parent, QLabel **title, QToolButton **back)
{
    QWidget *bar = panel(objectName, "A", parent);
    bar->setFixedHeight(scaled_px(112, scale));
    auto *row = new QHBoxLayout(bar);
    row->setContentsMargins(scaled_px(withBack ? 8 : 28, scale), 0, scaled_px(8, scale), 0);
    row->setSpacing(scaled_px(8, scale));
    QToolButton *backButton = nullptr;
    if (withBack) {
        backButton = iconButton(QStringLiteral("ic_back.png"), objectName + "_back", scale, bar);
        row->addWidget(backButton);
    }
    QLabel *t = label(titleText, titleObjectName, "C", "title", bar);
    t->setTextFormat(Qt::PlainText);
    row->addWidget(t, 1);
    if (title)
        *title = t;
    if (back)
        *back = backButton;
    return bar;
}

} // namespace screen_parts
