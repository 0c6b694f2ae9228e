#pragma once

#include "shell/style_sheet.h"
#include "shell/theme.h"

#include <QAbstractButton>
#include <QString>

#include <optional>

class QBoxLayout;
class QLabel;
class QPushButton;
class QToolButton;
class QVBoxLayout;
class QWidget;

// Small builders shared by the screens. Every control gets its object name
// and what the shell style sheet reads (background and text groups, text
// size, role); sizes are design pixels times the UI scale.
namespace screen_parts {

// For a widget whose style sheet background is opaque and fills it: the
// widget paints that background itself and counts as opaque, so nothing
// under it is painted.
void paintOpaque(QWidget *widget);
// Names a screen's root widget, paints it with background and gives it a
// margin-less vertical layout, returned.
QVBoxLayout *screenRoot(QWidget *screen, const QString &objectName, ThemeGroup background);
QWidget *panel(const QString &objectName, std::optional<ThemeGroup> background, QWidget *parent);
// The padded column of cards that fills a screen's body.
QVBoxLayout *cardColumn(QWidget *body, float scale);
// A rounded card on the column; its padded layout comes back through *layout.
QWidget *card(const QString &objectName, float scale, QWidget *parent, QVBoxLayout **layout);
QLabel *label(const QString &text, const QString &objectName, std::optional<ThemeGroup> colour,
              std::optional<TextSize> size, QWidget *parent);
QPushButton *button(const QString &text, const QString &objectName, ControlRole role, float scale,
                    QWidget *parent);
QToolButton *iconButton(const QString &iconFile, const QString &objectName, float scale,
                        QWidget *parent);
// A header bar (group A) with an optional back button and a title label;
// returns the bar, the title through *title and the back button (or null).
QWidget *header(const QString &objectName, const QString &titleText, const QString &titleObjectName,
                bool withBack, float scale, QWidget *parent, QLabel **title, QToolButton **back);
// The icon decoded at the button's icon size (set that first).
void setIcon(QToolButton *button, const QString &iconFile);
// A button's icon side in device pixels.
int iconPixels(const QToolButton *button);
// A button's click announced as a signal of the screen.
template<typename Screen>
void announce(QAbstractButton *b, Screen *screen, void (Screen::*signal)())
{
    QObject::connect(b, &QAbstractButton::clicked, screen,
                     [screen, signal] { (screen->*signal)(); });
}

// Sets a label's text and shows it (or its container) only when there is
// text.
void showText(QLabel *label, const QString &text, QWidget *container = nullptr);

} // namespace screen_parts
