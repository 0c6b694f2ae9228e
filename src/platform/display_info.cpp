#include "platform/display_info.h"

#include <QGuiApplication>
#include <QRegularExpression>
#include <QScreen>
#include <QtMath>

QSize parse_display_size(const QString &value)
{
    static const QRegularExpression re(
        QStringLiteral("^\\s*(\\d{3,5})\\s*[xX]\\s*(\\d{3,5})\\s*$"));
    const QSize fallback(DisplayInfo::DefaultWidth, DisplayInfo::DefaultHeight);
    const QRegularExpressionMatch m = re.match(value);
    if (!m.hasMatch())
        return fallback;
    const int w = m.captured(1).toInt();
    const int h = m.captured(2).toInt();
    if (w < 100 || h < 100 || w > 10000 || h > 10000)
        return fallback;
    return QSize(w, h);
}

double parse_zoom(const QString &value, bool *ok)
{
    bool good = false;
    const double z = value.trimmed().toDouble(&good);
    // NaN fails both comparisons and so lands here too.
    if (!good || !(z >= 0.1 && z <= 8.0)) {
        if (ok)
            *ok = false;
        return 1.0;
    }
    if (ok)
        *ok = true;
    return z;
}

double fit_zoom(const QSize &display, const QRect &available)
{
    if (available.isEmpty() || display.isEmpty())
        return 1.0;
    // Keep some room for the title bar and frame.
    const double w = available.width() * 0.95;
    const double h = available.height() * 0.92;
    const double z = qMin(w / display.width(), h / display.height());
    return qBound(0.1, z, 1.0);
}

DisplayInfo::DisplayInfo(const QProcessEnvironment &env)
    : m_size(parse_display_size(env.value(QStringLiteral("VEXA_DISPLAY"))))
{
    bool ok = false;
    const double z = parse_zoom(env.value(QStringLiteral("VEXA_ZOOM")), &ok);
    if (ok) {
        m_zoom = z;
        return;
    }
    QScreen *screen = qobject_cast<QGuiApplication *>(QCoreApplication::instance())
                          ? QGuiApplication::primaryScreen()
                          : nullptr;
    m_zoom = screen ? fit_zoom(m_size, screen->availableGeometry()) : 1.0;
}

DisplayInfo::DisplayInfo(const QSize &pixelSize, double zoom)
    : m_size(pixelSize.isValid() && !pixelSize.isEmpty() ? pixelSize
                                                         : QSize(DefaultWidth, DefaultHeight)),
      m_zoom(zoom >= 0.1 && zoom <= 8.0 ? zoom : 1.0)
{
}
