#pragma once

#include <QSize>
#include <QString>

// The UI scale factor applied to design pixels.
//
// overrideValue is the raw QUILLO_UI_SCALE value (null when unset). A value
// that parses as a number above 0.1 wins, clamped to 0.6 .. 2.0; otherwise the
// smaller side of displayPx picks the factor from the size table. The lines
// to log ("ui: ...\n") are appended to *log when log is not null.
float detect_ui_scale(const QString &overrideValue, const QSize &displayPx, QString *log);

// The size table alone: the factor for the smaller side of the display.
float ui_scale_for_min_side(int minSidePx);

// Design pixels to widget pixels, rounded, never below 1 for positive input.
int scaled_px(int designPx, float scale);
