#pragma once

#include <QProcessEnvironment>
#include <QRect>
#include <QSize>
#include <QString>

// The emulated phone display. Screens are laid out in its design pixels;
// the main window shows them at zoom().
class DisplayInfo
{
public:
    static constexpr int DefaultWidth = 720;
    static constexpr int DefaultHeight = 1280;

    // Reads VEXA_DISPLAY and VEXA_ZOOM from env. Without VEXA_ZOOM the zoom
    // fits the display into the primary screen's available geometry (1
    // without a screen or a QGuiApplication).
    explicit DisplayInfo(const QProcessEnvironment &env = QProcessEnvironment::systemEnvironment());
    DisplayInfo(const QSize &pixelSize, double zoom);

    QSize pixelSize() const { return m_size; }
    double zoom() const { return m_zoom; }

private:
    QSize m_size;
    double m_zoom = 1.0;
};

// "WxH" with both sides in 100..10000 (surrounding blanks and an upper-case
// X allowed); anything else gives 720x1280.
QSize parse_display_size(const QString &value);

// A factor in [0.1, 8]; *ok is false (and 1 returned) for anything else.
double parse_zoom(const QString &value, bool *ok);

// The largest zoom, at most 1, at which display fits into available
// (leaving room for window decorations); 1 when available is empty.
double fit_zoom(const QSize &display, const QRect &available);
