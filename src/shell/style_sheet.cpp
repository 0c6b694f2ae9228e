#include "shell/style_sheet.h"

#include "shell/theme.h"
#include "shell/ui_scale.h"

#include <QColor>

#include <QObject>
#include <QVariant>

namespace {

QString css(ThemeGroup g, bool dark)
{
    return theme_color_css(g, dark);
}

const char *const kBackground = "bg";
const char *const kText = "fg";
const char *const kTextSize = "textsize";
const char *const kRole = "role";
const char *const kViewer = "viewer";

QString groupKey(ThemeGroup g)
{
    return QString(QChar('A' + int(g)));
}

QString sizeKey(TextSize size)
{
    switch (size) {
    case TextSize::Title:
        return QStringLiteral("title");
    case TextSize::Heading:
        return QStringLiteral("heading");
    case TextSize::Body:
        return QStringLiteral("body");
    case TextSize::Secondary:
        return QStringLiteral("secondary");
    case TextSize::Small:
        return QStringLiteral("small");
    case TextSize::Log:
        return QStringLiteral("log");
    }
    return QString();
}

QString roleKey(ControlRole role)
{
    switch (role) {
    case ControlRole::Primary:
        return QStringLiteral("primary");
    case ControlRole::Plain:
        return QStringLiteral("plain");
    case ControlRole::Row:
        return QStringLiteral("row");
    case ControlRole::Icon:
        return QStringLiteral("icon");
    case ControlRole::Fab:
        return QStringLiteral("fab");
    case ControlRole::Field:
        return QStringLiteral("field");
    }
    return QString();
}

} // namespace

void set_background_group(QObject *control, ThemeGroup group)
{
    control->setProperty(kBackground, groupKey(group));
}

void set_text_group(QObject *control, ThemeGroup group)
{
    control->setProperty(kText, groupKey(group));
}

void set_viewer_colours(QObject *control)
{
    control->setProperty(kBackground, QString::fromLatin1(kViewer));
    control->setProperty(kText, QString::fromLatin1(kViewer));
}

void set_text_size(QObject *control, TextSize size)
{
    control->setProperty(kTextSize, sizeKey(size));
}

void set_control_role(QObject *control, ControlRole role)
{
    control->setProperty(kRole, roleKey(role));
}

QString shell_style_sheet(bool dark, float scale)
{
    auto px = [scale](int design) -> QString {
        return QString::number(scaled_px(design, scale)) + "px";
    };

    // Input fields sit on panels (E); they take the main background in the
    // dark theme and the warm content colour in the bright one.
    const QString fieldBg = dark ? css(ThemeGroup::A, dark) : css(ThemeGroup::B, dark);
    // Text on a highlight fill: the darkest colour in the dark theme, the
    // panel colour in the bright one.
    const QString onHighlight = dark ? css(ThemeGroup::A, dark) : css(ThemeGroup::E, dark);

    QString s;
    // No rule for every widget: item providers colour and size their own
    // rows through palettes and fonts, which a universal rule would override.
    // The defaults come from the root's palette and font (shell_palette).
    for (ThemeGroup g : {ThemeGroup::A, ThemeGroup::B, ThemeGroup::E, ThemeGroup::G, ThemeGroup::H,
                         ThemeGroup::I}) {
        s += QStringLiteral("*[%1=\"%2\"] { background-color: %3; }\n")
                 .arg(QLatin1String(kBackground), groupKey(g), css(g, dark));
    }
    for (ThemeGroup g :
         {ThemeGroup::C, ThemeGroup::D, ThemeGroup::F, ThemeGroup::H, ThemeGroup::I}) {
        s += QStringLiteral("*[%1=\"%2\"] { color: %3; }\n")
                 .arg(QLatin1String(kText), groupKey(g), css(g, dark));
    }
    s += QStringLiteral("*[bg=\"viewer\"] { background-color: #000000; }\n");
    s += QStringLiteral("*[fg=\"viewer\"] { color: #FFFFFF; }\n");
    const struct
    {
        TextSize size;
        int px;
        const char *extra;
    } sizes[] = {{TextSize::Title, 40, " font-weight: 600;"},
                 {TextSize::Heading, 32, " font-weight: 600;"},
                 {TextSize::Body, 30, ""},
                 {TextSize::Secondary, 26, ""},
                 {TextSize::Small, 22, ""},
                 {TextSize::Log, 20, " font-family: monospace;"}};
    for (const auto &t : sizes) {
        s += QStringLiteral("*[textsize=\"%1\"] { font-size: %2;%3 }\n")
                 .arg(sizeKey(t.size), px(t.px), QLatin1String(t.extra));
    }

    s += QStringLiteral("QLineEdit[role=\"field\"], QPlainTextEdit[role=\"field\"] {"
                        " background-color: %1; color: %2; border: %3 solid %4;"
                        " border-radius: %5; padding: 0px %6; font-size: %7;"
                        " selection-background-color: %8; }\n")
             .arg(fieldBg, css(ThemeGroup::C, dark), px(2), css(ThemeGroup::D, dark), px(16),
                  px(20), px(30), css(ThemeGroup::H, dark));
    s += QStringLiteral("QLineEdit[role=\"field\"]:focus, QPlainTextEdit[role=\"field\"]:focus {"
                        " border-color: %1; }\n")
             .arg(css(ThemeGroup::H, dark));

    s += QStringLiteral("QPushButton[role=\"primary\"] { background-color: %1; color: %2;"
                        " border: none; border-radius: %3; padding: 0px %4; font-size: %5;"
                        " font-weight: 600; }\n")
             .arg(css(ThemeGroup::H, dark), onHighlight, px(22), px(24), px(28));
    s += QStringLiteral("QPushButton[role=\"primary\"]:pressed { background-color: %1; }\n")
             .arg(css(ThemeGroup::D, dark));
    s += QStringLiteral("QPushButton[role=\"plain\"] { background-color: transparent; color: %1;"
                        " border: %2 solid %1; border-radius: %3; padding: 0px %4;"
                        " font-size: %5; }\n")
             .arg(css(ThemeGroup::H, dark), px(2), px(22), px(24), px(28));
    s += QStringLiteral("QPushButton[role=\"plain\"]:pressed { background-color: %1; }\n")
             .arg(css(ThemeGroup::G, dark));
    s += QStringLiteral("QPushButton[role=\"row\"] { background-color: transparent; color: %1;"
                        " border: none; text-align: left; padding: 0px %2; font-size: %3; }\n")
             .arg(css(ThemeGroup::C, dark), px(28), px(30));
    s += QStringLiteral("QPushButton[role=\"row\"]:pressed { background-color: %1; }\n")
             .arg(css(ThemeGroup::G, dark));
    s += QStringLiteral("QPushButton[role=\"row\"]:checked { color: %1; font-weight: 600; }\n")
             .arg(css(ThemeGroup::H, dark));
    s += QStringLiteral("QToolButton[role=\"icon\"] { background-color: transparent; border: none;"
                        " border-radius: %1; }\n")
             .arg(px(44));
    s += QStringLiteral("QToolButton[role=\"icon\"]:pressed { background-color: %1; }\n")
             .arg(css(ThemeGroup::G, dark));
    s += QStringLiteral("QToolButton[role=\"fab\"] { background-color: %1; border: none;"
                        " border-radius: %2; }\n")
             .arg(css(ThemeGroup::E, dark), px(40));
    s += QStringLiteral("*[shape=\"card\"] { border-radius: %1; }\n").arg(px(24));
    s += QStringLiteral("*[shape=\"letter\"] { border-radius: %1; color: #FFFFFF;"
                        " font-size: %2; font-weight: 600; background-color: %3; }\n")
             .arg(px(40), px(34), css(ThemeGroup::H, dark));
    s += QStringLiteral("QScrollBar:vertical { background: transparent; width: %1; }\n"
                        "QScrollBar::handle:vertical { background: %2; border-radius: %3;"
                        " min-height: %4; }\n"
                        "QScrollBar::add-line, QScrollBar::sub-line { height: 0px; }\n"
                        "QScrollBar::add-page, QScrollBar::sub-page { background: none; }\n")
             .arg(px(10), css(ThemeGroup::D, dark), px(5), px(40));
    // The keyboard's place is always to be seen: a frame in the highlight
    // colour (the text colour on the filled primary buttons).
    s += QStringLiteral("QToolButton:focus, QPushButton:focus, QCheckBox:focus, ListView:focus,"
                        " QToolButton[role=\"icon\"]:focus, QToolButton[role=\"fab\"]:focus,"
                        " QPushButton[role=\"plain\"]:focus, QPushButton[role=\"row\"]:focus {"
                        " border: %1 solid %2; }\n"
                        "QPushButton[role=\"primary\"]:focus { border: %1 solid %3; }\n"
                        "QSplitter::handle { background-color: %4; }\n"
                        "*[ui_marked=\"true\"] { background-color: %5; }\n")
             .arg(px(3), css(ThemeGroup::H, dark), css(ThemeGroup::C, dark),
                  css(ThemeGroup::A, dark),
                  // The panel colour tinted with the highlight blue.
                  dark ? QStringLiteral("#243A5A") : QStringLiteral("#D4E4FF"));
    return s;
}

QPalette shell_palette(bool dark)
{
    auto color = [dark](ThemeGroup g) { return QColor::fromRgba(theme_color(g, dark)); };
    QPalette p;
    for (QPalette::ColorGroup group : {QPalette::Active, QPalette::Inactive, QPalette::Disabled}) {
        p.setColor(group, QPalette::Window, color(ThemeGroup::A));
        p.setColor(group, QPalette::Base, color(ThemeGroup::E));
        p.setColor(group, QPalette::AlternateBase, color(ThemeGroup::B));
        p.setColor(group, QPalette::Button, color(ThemeGroup::E));
        p.setColor(group, QPalette::WindowText, color(ThemeGroup::C));
        p.setColor(group, QPalette::Text, color(ThemeGroup::C));
        p.setColor(group, QPalette::ButtonText, color(ThemeGroup::C));
        p.setColor(group, QPalette::PlaceholderText, color(ThemeGroup::D));
        p.setColor(group, QPalette::Highlight, color(ThemeGroup::H));
        p.setColor(group, QPalette::Link, color(ThemeGroup::H));
    }
    p.setColor(QPalette::Disabled, QPalette::WindowText, color(ThemeGroup::D));
    p.setColor(QPalette::Disabled, QPalette::Text, color(ThemeGroup::D));
    return p;
}

int shell_font_pixel_size(float scale)
{
    return scaled_px(30, scale);
}
