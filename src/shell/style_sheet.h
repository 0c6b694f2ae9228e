#pragma once

#include "shell/theme.h"

#include <QPalette>
#include <QString>

class QObject;

// What a control asks of the style sheet. The sheet matches dynamic
// properties; these setters are the only writers of those properties, so the
// values below never appear as loose strings elsewhere.
enum class TextSize
{
    Title,
    Heading,
    Body,
    Secondary,
    Small,
    Log
};

enum class ControlRole
{
    Primary, // filled button
    Plain,   // outlined button
    Row,     // full-width menu row
    Icon,    // round icon button
    Fab,     // floating round button
    Field    // text input
};

void set_background_group(QObject *control, ThemeGroup group);
void set_text_group(QObject *control, ThemeGroup group);
// The photo and video viewers: black with white text in both themes.
void set_viewer_colours(QObject *control);
void set_text_size(QObject *control, TextSize size);
void set_control_role(QObject *control, ControlRole role);

// Style sheet of the whole phone screen for one theme and UI scale.
// Controls opt in through the setters above, so the sheet is the single
// place where theme colours and design sizes meet. Font and corner sizes are
// design pixels multiplied by scale.
QString shell_style_sheet(bool dark, float scale);

// Colours that controls without a style property inherit from the root:
// window = A, base = E, text = C, placeholder = D, highlight = H.
QPalette shell_palette(bool dark);

// The default font of the screens: 30 design pixels.
int shell_font_pixel_size(float scale);
