#pragma once

#include <QString>

class QBoxLayout;
class QLabel;
class QPushButton;
class QToolButton;
class QVBoxLayout;
class QWidget;

// Small builders shared by the screens. Every control gets its object name
// and the style properties that the shell style sheet reads (bg, fg, font,
// role); sizes are design pixels times the UI scale.
namespace screen_parts {

// Names a screen's root widget, paints it with bgGroup and gives it a
// margin-less vertical layout, returned.
QVBoxLayout *screenRoot(QWidget *screen, const QString &objectName, const char *bgGroup);
QWidget *panel(const QString &objectName, const char *bgGroup, QWidget *parent);
// The padded column of cards that fills a screen's body.
QVBoxLayout *cardColumn(QWidget *body, float scale);
QLabel *label(const QString &text, const QString &objectName, const char *fgGroup, const char *font,
              QWidget *parent);
QPushButton *button(const QString &text, const QString &objectName, const char *role, float scale,
                    QWidget *parent);
QToolButton *iconButton(const QString &iconFile, const QString &objectName, float scale,
                        QWidget *parent);
// A header bar (group A) with an optional back button and a title label;
// returns the bar, the title through *title and the back button (or null).
QWidget *header(const QString &objectName, const QString &titleText, const QString &titleObjectName,
                bool withBack, float scale, QWidget *parent, QLabel **title, QToolButton **back);
void setIcon(QToolButton *button, const QString &iconFile);

} // namespace screen_parts
