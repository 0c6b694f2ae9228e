#pragma once

#include <QPalette>
#include <QString>

// Style sheet of the whole phone screen for one theme and UI scale.
//
// Controls opt in through dynamic properties, so the sheet is the single
// place where theme colours and design sizes meet:
//   bg   = "A".."I" background group, "field", "viewer"
//   fg   = "C", "D", "F", "H", "I" text colour group
//   textsize = "title", "heading", "body", "secondary", "small", "log"
//   role = "primary", "plain", "icon", "row" (buttons), "field" (inputs)
// Font and corner sizes are design pixels multiplied by scale.
QString shell_style_sheet(bool dark, float scale);

// Colours that controls without a style property inherit from the root:
// window = A, base = E, text = C, placeholder = D, highlight = H.
QPalette shell_palette(bool dark);

// The default font of the screens: 30 design pixels.
int shell_font_pixel_size(float scale);
